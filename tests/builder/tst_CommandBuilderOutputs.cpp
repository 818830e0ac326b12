#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

/// One output with every field that a target may hold, and its two targets.
struct OutputRow
{
    const char *name;
    int kind;
    bool ffmpegHasSrt;
    QStringList single;
    QString slave; ///< in the tee form
};

#define CORVANE_SLAVE(format, target)                                                                        \
    u"[f=" format ":use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]" target  \
    ""_s

OutputConfig outputOf(int kind)
{
    OutputConfig output;
    output.kind = kind;
    output.url = u"srt://host:9000"_s;
    output.localPort = 8900;
    output.localPort2 = 8950;
    return output;
}

const QStringList localUdp{u"-f"_s, u"mpegts"_s, u"udp://127.0.0.1:8900?pkt_size=1316"_s};
const QString localUdpSlave = CORVANE_SLAVE("mpegts", "udp://127.0.0.1:8900?pkt_size=1316");
const QString plainSlave = CORVANE_SLAVE("flv", "srt://host:9000");

const OutputRow outputRows[] = {
    {"RTMP", 0, false, {u"-f"_s, u"flv"_s, u"srt://host:9000"_s}, plainSlave},
    {"RTMP, SRT in ffmpeg", 0, true, {u"-f"_s, u"flv"_s, u"srt://host:9000"_s}, plainSlave},
    {"SRT", 1, false, localUdp, localUdpSlave},
    {"SRT, SRT in ffmpeg",
     1,
     true,
     {u"-f"_s, u"mpegts"_s, u"srt://host:9000?latency=120"_s},
     CORVANE_SLAVE("mpegts", "srt://host:9000?latency=120")},
    {"bonded SRT", 2, false, localUdp, localUdpSlave},
    {"bonded SRT, SRT in ffmpeg",
     2,
     true,
     {u"-f"_s, u"mpegts"_s, u"srt://127.0.0.1:8950?mode=caller"_s},
     CORVANE_SLAVE("mpegts", "srt://127.0.0.1:8950?mode=caller")},
    {"DeckLink", 3, false, {u"-f"_s, u"decklink"_s, u"srt://host:9000"_s}, plainSlave},
    {"DeckLink, SRT in ffmpeg", 3, true, {u"-f"_s, u"decklink"_s, u"srt://host:9000"_s}, plainSlave},
    {"file", 4, false, {u"srt://host:9000"_s}, plainSlave},
    {"file, SRT in ffmpeg", 4, true, {u"srt://host:9000"_s}, plainSlave},
    {"one above the table", 5, false, {u"srt://host:9000"_s}, plainSlave},
    {"one above the table, SRT in ffmpeg", 5, true, {u"srt://host:9000"_s}, plainSlave},
    {"one below the table", -1, false, {u"srt://host:9000"_s}, plainSlave},
    {"one below the table, SRT in ffmpeg", -1, true, {u"srt://host:9000"_s}, plainSlave},
};

QStringList tee(const QStringList &slaves)
{
    return {u"-f"_s, u"tee"_s, slaves.join(u'|')};
}

} // namespace

class tst_CommandBuilderOutputs : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneOutput_data();
    void oneOutput();
    void severalOutputs_data();
    void severalOutputs();
    void teeOfRtmpAndSrt();
    void teeLeavesOutDisabledOutputs_data();
    void teeLeavesOutDisabledOutputs();
    void urlStandsAsItIs_data();
    void urlStandsAsItIs();
    void bondedPorts_data();
    void bondedPorts();
};

void tst_CommandBuilderOutputs::oneOutput_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("ffmpegHasSrt");
    QTest::addColumn<QStringList>("single");
    QTest::addColumn<QString>("slave");
    for (const OutputRow &row : outputRows)
        QTest::newRow(row.name) << row.kind << row.ffmpegHasSrt << row.single << row.slave;
}

void tst_CommandBuilderOutputs::oneOutput()
{
    QFETCH(const int, kind);
    QFETCH(const bool, ffmpegHasSrt);
    QFETCH(const QString, slave);

    OutputConfig output = outputOf(kind);
    QTEST(CommandBuilder::singleOutputArgs(output, ffmpegHasSrt), "single");
    QCOMPARE(CommandBuilder::teeOutputArgs({output}, ffmpegHasSrt), tee({slave}));

    // Fields that have no part in any target.
    output.receiverHost = u"bond.example"_s;
    output.receiverPort = 5001;
    output.extraSrtList = QStringList{u"srt://a:1"_s};
    output.extraSrtlaList = QStringList{u"b:2"_s};
    output.oheadbw = 50;
    output.maxbw = 0;
    QTEST(CommandBuilder::singleOutputArgs(output, ffmpegHasSrt), "single");
    QCOMPARE(CommandBuilder::teeOutputArgs({output}, ffmpegHasSrt), tee({slave}));
}

void tst_CommandBuilderOutputs::severalOutputs_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");

    for (int first = 0; first < int(std::size(outputRows)); ++first) {
        for (int second = 0; second < int(std::size(outputRows)); ++second) {
            if (outputRows[first].ffmpegHasSrt == outputRows[second].ffmpegHasSrt)
                QTest::addRow("%s and %s", outputRows[first].name, outputRows[second].name)
                    << first << second;
        }
    }
}

void tst_CommandBuilderOutputs::severalOutputs()
{
    QFETCH(const int, first);
    QFETCH(const int, second);

    const bool ffmpegHasSrt = outputRows[first].ffmpegHasSrt;
    const OutputConfig one = outputOf(outputRows[first].kind);
    const OutputConfig two = outputOf(outputRows[second].kind);
    QCOMPARE(CommandBuilder::teeOutputArgs({one, two}, ffmpegHasSrt),
             tee({outputRows[first].slave, outputRows[second].slave}));
    QCOMPARE(CommandBuilder::teeOutputArgs({one, two, one}, ffmpegHasSrt),
             tee({outputRows[first].slave, outputRows[second].slave, outputRows[first].slave}));
}

void tst_CommandBuilderOutputs::teeOfRtmpAndSrt()
{
    OutputConfig rtmp;
    rtmp.url = u"rtmp://live.example/app/chave"_s;
    OutputConfig srt;
    srt.kind = OutputKind::Srt;
    srt.url = u"srt://host:9000"_s;
    srt.localPort = 8900;

    const QStringList expected{
        u"-f"_s, u"tee"_s,
        u"[f=flv:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]rtmp://live.example/app/chave|[f=mpegts:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]udp://127.0.0.1:8900?pkt_size=1316"_s};
    QCOMPARE(CommandBuilder::teeOutputArgs({rtmp, srt}, false), expected);
}

void tst_CommandBuilderOutputs::teeLeavesOutDisabledOutputs_data()
{
    QTest::addColumn<QList<bool>>("enabled");
    QTest::addColumn<QStringList>("slaves");

    const QString a = CORVANE_SLAVE("flv", "rtmp://a");
    const QString b = CORVANE_SLAVE("flv", "rtmp://b");
    const QString c = CORVANE_SLAVE("flv", "rtmp://c");
    QTest::newRow("all on") << QList<bool>{true, true, true} << QStringList{a, b, c};
    QTest::newRow("first off") << QList<bool>{false, true, true} << QStringList{b, c};
    QTest::newRow("middle off") << QList<bool>{true, false, true} << QStringList{a, c};
    QTest::newRow("last off") << QList<bool>{true, true, false} << QStringList{a, b};
    QTest::newRow("one on") << QList<bool>{false, false, true} << QStringList{c};
    QTest::newRow("none on") << QList<bool>{false, false, false} << QStringList();
}

void tst_CommandBuilderOutputs::teeLeavesOutDisabledOutputs()
{
    QFETCH(const QList<bool>, enabled);
    QFETCH(const QStringList, slaves);

    QList<OutputConfig> outputs(3);
    for (qsizetype i = 0; i < 3; ++i) {
        outputs[i].url = QStringList{u"rtmp://a"_s, u"rtmp://b"_s, u"rtmp://c"_s}.at(i);
        outputs[i].enabled = enabled.at(i);
    }
    QCOMPARE(CommandBuilder::teeOutputArgs(outputs, false), tee(slaves));
}

void tst_CommandBuilderOutputs::urlStandsAsItIs_data()
{
    QTest::addColumn<QString>("url");

    QTest::newRow("stream key") << u"rtmp://live.example/app/ab12-cd34?token=x&y=z"_s;
    QTest::newRow("empty") << QString();
    QTest::newRow("first placeholder") << u"rtmp://a/%1"_s;
    QTest::newRow("second placeholder") << u"rtmp://a/%2"_s;
    QTest::newRow("both placeholders") << u"rtmp://a/%2/%1%1"_s;
    QTest::newRow("localised placeholder") << u"rtmp://a/%L1"_s;
    QTest::newRow("greatest placeholder") << u"rtmp://a/%99"_s;
    QTest::newRow("percent-encoded bytes") << u"rtmp://a/%2Fb%20c"_s;
    QTest::newRow("lone percent sign") << u"100%"_s;
    QTest::newRow("characters of the tee syntax") << u"rtmp://a/[b]|c\\:d"_s;
    QTest::newRow("blanks and quotes") << u" rtmp://a/\"b c\" 'd' "_s;
    QTest::newRow("outside ASCII") << u"rtmp://é.example/transmissão/😀"_s;
}

void tst_CommandBuilderOutputs::urlStandsAsItIs()
{
    QFETCH(const QString, url);

    const QString before =
        u"[f=flv:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]"_s;
    for (const int kind : {0, 3, 4, 5, -1}) {
        for (const bool ffmpegHasSrt : {false, true}) {
            OutputConfig output = outputOf(kind);
            output.url = url;
            QCOMPARE(CommandBuilder::singleOutputArgs(output, ffmpegHasSrt).last(), url);
            QCOMPARE(CommandBuilder::teeOutputArgs({output, output}, ffmpegHasSrt),
                     tee({before + url, before + url}));
        }
    }

    const QString beforeSrt =
        u"[f=mpegts:use_fifo=1:fifo_options=queue_size=120\\:drop_pkts_on_overflow=1:onfail=ignore]"_s;
    OutputConfig srt = outputOf(OutputKind::Srt);
    srt.url = url;
    srt.passphrase = u"senha %1 %2"_s;
    const QString target =
        url + (url.contains(u'?') ? u"&"_s : u"?"_s) + u"latency=120&passphrase=senha %1 %2&pbkeylen=16"_s;
    QCOMPARE(CommandBuilder::singleOutputArgs(srt, true), (QStringList{u"-f"_s, u"mpegts"_s, target}));
    QCOMPARE(CommandBuilder::teeOutputArgs({srt, srt}, true), tee({beforeSrt + target, beforeSrt + target}));
}

void tst_CommandBuilderOutputs::bondedPorts_data()
{
    QTest::addColumn<int>("localPort");
    QTest::addColumn<int>("localPort2");
    QTest::addColumn<QString>("direct");
    QTest::addColumn<QString>("bridged");

    QTest::newRow("second port") << 8900 << 8950 << u"srt://127.0.0.1:8950?mode=caller"_s
                                 << u"udp://127.0.0.1:8900?pkt_size=1316"_s;
    QTest::newRow("smallest second port")
        << 8900 << 1 << u"srt://127.0.0.1:1?mode=caller"_s << u"udp://127.0.0.1:8900?pkt_size=1316"_s;
    QTest::newRow("no second port") << 8900 << 0 << u"srt://127.0.0.1:8901?mode=caller"_s
                                    << u"udp://127.0.0.1:8900?pkt_size=1316"_s;
    QTest::newRow("negative second port")
        << 8900 << -7 << u"srt://127.0.0.1:8901?mode=caller"_s << u"udp://127.0.0.1:8900?pkt_size=1316"_s;
    QTest::newRow("no port at all") << 0 << 0 << u"srt://127.0.0.1:1?mode=caller"_s
                                    << u"udp://127.0.0.1:0?pkt_size=1316"_s;
    QTest::newRow("the greatest first port wraps around")
        << std::numeric_limits<int>::max() << 0 << u"srt://127.0.0.1:-2147483648?mode=caller"_s
        << u"udp://127.0.0.1:2147483647?pkt_size=1316"_s;
}

void tst_CommandBuilderOutputs::bondedPorts()
{
    QFETCH(const int, localPort);
    QFETCH(const int, localPort2);

    OutputConfig output = outputOf(OutputKind::Srtla);
    output.localPort = localPort;
    output.localPort2 = localPort2;
    QTEST(CommandBuilder::singleOutputArgs(output, true).last(), "direct");
    QTEST(CommandBuilder::singleOutputArgs(output, false).last(), "bridged");
    QFETCH(const QString, direct);
    QFETCH(const QString, bridged);
    QVERIFY(CommandBuilder::teeOutputArgs({output}, true).last().endsWith(u']' + direct));
    QVERIFY(CommandBuilder::teeOutputArgs({output}, false).last().endsWith(u']' + bridged));

    // A plain SRT output never looks at the second port.
    output.kind = OutputKind::Srt;
    QTEST(CommandBuilder::singleOutputArgs(output, false).last(), "bridged");
}

CORVANE_TEST(tst_CommandBuilderOutputs, QCoreApplication)
#include "tst_CommandBuilderOutputs.moc"
