#include "tools/air/TeeRewrite.h"

#include "builder/CommandBuilder.h"
#include "engine/model/PipelineConfig.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

QStringList rewritten(const QStringList &arguments)
{
    std::vector<std::string> list;
    for (const QString &argument : arguments)
        list.push_back(argument.toStdString());
    QStringList result;
    for (const std::string &argument : air::rewriteTee(std::move(list)))
        result << QString::fromStdString(argument);
    return result;
}

const QStringList twoInputs{u"-f"_s, u"lavfi"_s, u"-i"_s, u"testsrc"_s,
                            u"-f"_s, u"lavfi"_s, u"-i"_s, u"anullsrc"_s};
const QStringList oneInput{u"-re"_s, u"-i"_s, u"film.mp4"_s};
const QStringList encoders{u"-c:v"_s, u"libx264"_s, u"-c:a"_s, u"aac"_s};
const QStringList teeTo{u"-f"_s, u"tee"_s, u"[f=flv]a|[f=mpegts]b"_s};
const QStringList mapsOfTwo{u"-map"_s, u"0:v:0"_s, u"-map"_s, u"1:a:0"_s};
const QStringList mapsOfOne{u"-map"_s, u"0:v:0"_s, u"-map"_s, u"0:a:0?"_s};
const QStringList header{u"-flags"_s, u"+global_header"_s};
const QStringList aac{u"-c:a"_s, u"aac"_s};

} // namespace

/// Argument lists as the companion rewrites them.
class tst_TeeRewrite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void untouched_data();
    void untouched();
    void bytesThatAreNoText();
    void added_data();
    void added();
    void escaping_data();
    void escaping();
    void listOfTheBuilder();
    void twiceIsOnce();
};

void tst_TeeRewrite::untouched_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("nothing at all") << QStringList();
    QTest::newRow("one output") << twoInputs + encoders + QStringList{u"-f"_s, u"flv"_s, u"rtmp://a/b/c"_s};
    QTest::newRow("a question") << QStringList{u"-hide_banner"_s, u"-encoders"_s};
    QTest::newRow("tee as a file name") << QStringList{u"-i"_s, u"tee"_s, u"-f"_s, u"flv"_s, u"tee"_s};
    QTest::newRow("tee as an encoder") << QStringList{u"-c:v"_s, u"tee"_s, u"out"_s};
    QTest::newRow("-f at the end") << QStringList{u"tee"_s, u"-f"_s};
    QTest::newRow("another format that begins so") << QStringList{u"-f"_s, u"teeth"_s, u"[a=b\\:c]x"_s};
    QTest::newRow("capitals") << QStringList{u"-f"_s, u"TEE"_s, u"[a=b\\:c]x"_s};
    QTest::newRow("backslashes and colons of one output")
        << QStringList{u"-f"_s, u"mpegts"_s, u"[x=1\\:2]srt://h:1?passphrase=a\\:b"_s};
    QTest::newRow("empty arguments") << QStringList{QString(), u"-f"_s, QString(), u"tee"_s};
}

void tst_TeeRewrite::untouched()
{
    QFETCH(const QStringList, arguments);

    QCOMPARE(rewritten(arguments), arguments);
}

void tst_TeeRewrite::bytesThatAreNoText()
{
    const std::vector<std::string> arguments{"-i", "\xff\xfe\x80", "-f", "flv", "\xc3"};

    QVERIFY(air::rewriteTee(arguments) == arguments);
}

void tst_TeeRewrite::added_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("result");

    QTest::newRow("two inputs: sound of the second")
        << twoInputs + encoders + teeTo << twoInputs + encoders + mapsOfTwo + header + teeTo;
    QTest::newRow("three inputs: sound of the second")
        << twoInputs + oneInput + encoders + teeTo
        << twoInputs + oneInput + encoders + mapsOfTwo + header + teeTo;
    QTest::newRow("one input: its sound, if it has any")
        << oneInput + encoders + teeTo << oneInput + encoders + mapsOfOne + header + teeTo;
    QTest::newRow("no sound encoder named")
        << oneInput + QStringList{u"-c:v"_s, u"libx264"_s} + teeTo
        << oneInput + QStringList{u"-c:v"_s, u"libx264"_s} + mapsOfOne + aac + header + teeTo;
    QTest::newRow("sound encoder of one stream")
        << oneInput + QStringList{u"-c:a:0"_s, u"libopus"_s} + teeTo
        << oneInput + QStringList{u"-c:a:0"_s, u"libopus"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("sound encoder by the long name")
        << oneInput + QStringList{u"-codec:a"_s, u"mp3"_s} + teeTo
        << oneInput + QStringList{u"-codec:a"_s, u"mp3"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("sound encoder by the old name")
        << oneInput + QStringList{u"-acodec"_s, u"mp3"_s} + teeTo
        << oneInput + QStringList{u"-acodec"_s, u"mp3"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("every stream as it is")
        << oneInput + QStringList{u"-c"_s, u"copy"_s} + teeTo
        << oneInput + QStringList{u"-c"_s, u"copy"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("every stream as it is, by the long name")
        << oneInput + QStringList{u"-codec"_s, u"copy"_s} + teeTo
        << oneInput + QStringList{u"-codec"_s, u"copy"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("encoders of other streams")
        << oneInput + QStringList{u"-codec:v"_s, u"copy"_s, u"-c:s"_s, u"copy"_s} + teeTo
        << oneInput + QStringList{u"-codec:v"_s, u"copy"_s, u"-c:s"_s, u"copy"_s} + mapsOfOne + aac + header +
               teeTo;
    QTest::newRow("an option that begins like them")
        << oneInput + QStringList{u"-crf"_s, u"20"_s, u"-codecs"_s} + teeTo
        << oneInput + QStringList{u"-crf"_s, u"20"_s, u"-codecs"_s} + mapsOfOne + aac + header + teeTo;
    QTest::newRow("no sound wanted") << oneInput + QStringList{u"-an"_s} + teeTo
                                     << oneInput + QStringList{u"-an"_s} + mapsOfOne + header + teeTo;
    QTest::newRow("mapped already") << twoInputs + QStringList{u"-map"_s, u"0"_s} + encoders + teeTo
                                    << twoInputs + QStringList{u"-map"_s, u"0"_s} + encoders + header + teeTo;
    QTest::newRow("global header asked for")
        << twoInputs + encoders + QStringList{u"-flags"_s, u"+low_delay+global_header"_s} + teeTo
        << twoInputs + encoders + QStringList{u"-flags"_s, u"+low_delay+global_header"_s} + mapsOfTwo + teeTo;
    QTest::newRow("global header asked for, for one kind of stream")
        << twoInputs + encoders + QStringList{u"-flags:v"_s, u"+global_header"_s} + teeTo
        << twoInputs + encoders + QStringList{u"-flags:v"_s, u"+global_header"_s} + mapsOfTwo + teeTo;
    QTest::newRow("other flags") << twoInputs + encoders + QStringList{u"-flags"_s, u"+low_delay"_s} + teeTo
                                 << twoInputs + encoders + QStringList{u"-flags"_s, u"+low_delay"_s} +
                                        mapsOfTwo + header + teeTo;
    const QStringList oddTarget{u"-f"_s, u"tee"_s, u"[f=flv]rtmp://a/b/global_header"_s};
    QTest::newRow("a stream key called like the flag")
        << twoInputs + encoders + oddTarget << twoInputs + encoders + mapsOfTwo + header + oddTarget;
    QTest::newRow("no slaves behind it")
        << oneInput + QStringList{u"-f"_s, u"tee"_s}
        << oneInput + mapsOfOne + aac + header + QStringList{u"-f"_s, u"tee"_s};
}

void tst_TeeRewrite::added()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QStringList, result);

    QCOMPARE(rewritten(arguments), result);
}

void tst_TeeRewrite::escaping_data()
{
    QTest::addColumn<QString>("slaves");
    QTest::addColumn<QString>("result");

    QTest::newRow("colon escaped once") << uR"([o=a\:b]x)"_s << uR"([o=a\\\:b]x)"_s;
    QTest::newRow("plain colons part options") << u"[f=flv:use_fifo=1]x"_s << u"[f=flv:use_fifo=1]x"_s;
    QTest::newRow("colon escaped twice stays") << uR"([o=a\\\:b]x)"_s << uR"([o=a\\\:b]x)"_s;
    QTest::newRow("an escaped backslash before a colon") << uR"([o=a\\:b]x)"_s << uR"([o=a\\:b]x)"_s;
    QTest::newRow("several in one slave") << uR"([o=a\:b\:c]x)"_s << uR"([o=a\\\:b\\\:c]x)"_s;
    QTest::newRow("in every slave") << uR"([o=a\:b]x|[o=c\:d]y)"_s << uR"([o=a\\\:b]x|[o=c\\\:d]y)"_s;
    QTest::newRow("targets stay") << uR"([f=mpegts]srt://h:1?passphrase=a\:b)"_s
                                  << uR"([f=mpegts]srt://h:1?passphrase=a\:b)"_s;
    QTest::newRow("target between slaves")
        << uR"([o=a\:b]x\:y|[o=c\:d]z\:z)"_s << uR"([o=a\\\:b]x\:y|[o=c\\\:d]z\:z)"_s;
    QTest::newRow("no options") << uR"(x\:y|z)"_s << uR"(x\:y|z)"_s;
    QTest::newRow("an address in brackets")
        << u"[f=flv]rtmp://[::1]:1935/a/b"_s << u"[f=flv]rtmp://[::1]:1935/a/b"_s;
    QTest::newRow("an escaped bracket in options") << uR"([o=\]\:b]x)"_s << uR"([o=\]\\\:b]x)"_s;
    QTest::newRow("percent signs and umlauts")
        << uR"([o=a\:b]rtmp://h/ü%20%1)"_s << uR"([o=a\\\:b]rtmp://h/ü%20%1)"_s;
    QTest::newRow("empty") << QString() << QString();
}

void tst_TeeRewrite::escaping()
{
    QFETCH(const QString, slaves);
    QFETCH(const QString, result);
    const QStringList before = twoInputs + encoders;

    const QStringList arguments = before + QStringList{u"-f"_s, u"tee"_s, slaves};
    const QStringList expected = before + mapsOfTwo + header + QStringList{u"-f"_s, u"tee"_s, result};
    QCOMPARE(rewritten(arguments), expected);
}

void tst_TeeRewrite::listOfTheBuilder()
{
    PipelineConfig config;
    OutputConfig rtmp;
    rtmp.url = u"rtmp://host/live/key"_s;
    OutputConfig srt;
    srt.kind = OutputKind::Srt;
    srt.localPort = 8900;
    config.outputs = {rtmp, srt};
    const QStringList built = CommandBuilder::build(config, false);

    const QStringList end = {
        u"-map"_s,
        u"0:v:0"_s,
        u"-map"_s,
        u"1:a:0"_s,
        u"-flags"_s,
        u"+global_header"_s,
        u"-f"_s,
        u"tee"_s,
        uR"([f=flv:use_fifo=1:fifo_options=queue_size=120\\\:drop_pkts_on_overflow=1:onfail=ignore]rtmp://host/live/key|[f=mpegts:use_fifo=1:fifo_options=queue_size=120\\\:drop_pkts_on_overflow=1:onfail=ignore]udp://127.0.0.1:8900?pkt_size=1316)"_s};
    QCOMPARE(rewritten(built), built.first(built.size() - 3) + end);
}

void tst_TeeRewrite::twiceIsOnce()
{
    const QStringList once =
        rewritten(oneInput + QStringList{u"-f"_s, u"tee"_s, uR"([o=a\:b]x|[o=c\:d]y)"_s});

    QCOMPARE(rewritten(once), once);
}

CORVANE_TEST(tst_TeeRewrite, QCoreApplication)
#include "tst_TeeRewrite.moc"
