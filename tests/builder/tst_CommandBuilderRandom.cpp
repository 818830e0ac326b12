#include "builder/CommandBuilder.h"
#include "tests/support/Runner.h"

#include <QRandomGenerator>
#include <QTest>

#include <limits>
#include <stdexcept>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr quint32 seed = 20240229;
constexpr int records = 5000;

/// Records of any content, the same ones in every run.
class Records
{
public:
    PipelineConfig next()
    {
        PipelineConfig config;
        config.id = text();
        config.name = text();
        config.source.kind = number();
        config.source.uri = text();
        config.source.width = number();
        config.source.height = number();
        config.source.fps = number();
        config.source.danteEnabled = coin();
        config.source.danteDevice = text();
        config.source.channelMap = text();
        config.source.ndiPipePath = text();
        config.scaler.kind = number();
        config.scaler.width = number();
        config.scaler.height = number();
        config.encoder.codec = number();
        config.encoder.hw = number();
        config.encoder.preset = number();
        config.encoder.bitrate = number();
        config.encoder.keyintSec = number();
        config.encoder.zeroLatency = coin();
        config.encoder.bFrames = coin();
        config.encoder.audioCodec = text();
        config.encoder.audioBitrate = number();
        config.outputs.resize(below(5));
        for (OutputConfig &output : config.outputs)
            fill(output);
        return config;
    }

    bool coin() { return below(2) == 1; }

private:
    int below(int end) { return m_random.bounded(end); }

    /// Mostly a number of a table, else an extreme or any number at all.
    int number()
    {
        static constexpr int extremes[] = {std::numeric_limits<int>::min(),
                                           std::numeric_limits<int>::min() + 1,
                                           -65536,
                                           -1,
                                           0,
                                           1,
                                           65535,
                                           1 << 30,
                                           std::numeric_limits<int>::max() - 1,
                                           std::numeric_limits<int>::max()};
        switch (below(4)) {
        case 0:
            return extremes[below(int(std::size(extremes)))];
        case 1:
            return static_cast<int>(m_random.generate());
        default:
            return below(9) - 1;
        }
    }

    /// Pieces with a meaning in a URL, a format string, a shell, the tee syntax or UTF-8. None of them forms
    /// an option of the builder's own, so that the test can look for those in the list.
    QString text()
    {
        static const QStringList pieces{u"srt://host:9000"_s,
                                        u"rtmp://a/b"_s,
                                        u"%1"_s,
                                        u"%2"_s,
                                        u"%L1"_s,
                                        u"%"_s,
                                        u"&"_s,
                                        u"#"_s,
                                        u"?"_s,
                                        u"="_s,
                                        u"|"_s,
                                        u"["_s,
                                        u"]"_s,
                                        u"\\"_s,
                                        u":"_s,
                                        u"'"_s,
                                        u"\""_s,
                                        u" "_s,
                                        u"$(x)"_s,
                                        u"\n"_s,
                                        u"ç"_s,
                                        u"日本"_s,
                                        u"😀"_s,
                                        QString(QChar(0)),
                                        QString(QChar(0xd800)),
                                        QString(QChar(0xdc00))};
        QString text;
        for (int n = below(5); n > 0; --n)
            text += pieces.at(below(int(pieces.size())));
        return text;
    }

    void fill(OutputConfig &output)
    {
        output.kind = number();
        output.url = text();
        output.enabled = below(3) != 0;
        output.srtLatencyMs = number();
        output.passphrase = text();
        output.streamId = text();
        output.oheadbw = number();
        output.maxbw = number();
        output.groupMode = number();
        output.receiverHost = text();
        output.receiverPort = number();
        output.localPort = number();
        output.localPort2 = number();
    }

    QRandomGenerator m_random{seed};
};

/// A record that shares nothing with `config` but its values.
PipelineConfig deepCopy(const PipelineConfig &config)
{
    PipelineConfig copy = config;
    copy.outputs.detach();
    copy.source.uri.detach();
    copy.encoder.audioCodec.detach();
    return copy;
}

QList<OutputConfig> enabledOutputs(const PipelineConfig &config)
{
    QList<OutputConfig> enabled;
    for (const OutputConfig &output : config.outputs) {
        if (output.enabled)
            enabled << output;
    }
    return enabled;
}

} // namespace

class tst_CommandBuilderRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void refusesOnlyMissingOutputs();
    void sameRecordGivesSameList();
    void listIsTheSumOfItsSegments();
    void onlyTheOutputSegmentDependsOnTheFlag();
    void srtUrlKeepsItsForm();
};

void tst_CommandBuilderRandom::initTestCase()
{
    qInfo("%d records from seed %u", records, seed);
}

void tst_CommandBuilderRandom::refusesOnlyMissingOutputs()
{
    Records source;
    int refused = 0;
    for (int i = 0; i < records; ++i) {
        const PipelineConfig config = source.next();
        const bool ffmpegHasSrt = source.coin();
        const bool empty = enabledOutputs(config).isEmpty();
        try {
            const QStringList args = CommandBuilder::build(config, ffmpegHasSrt);
            QVERIFY2(!empty, qPrintable(u"record %1"_s.arg(i)));
            for (const QString &element : {u"-map"_s, u"-an"_s, u"-y"_s})
                QVERIFY2(!args.contains(element), qPrintable(u"record %1"_s.arg(i)));
        } catch (const std::runtime_error &error) {
            QVERIFY2(empty, qPrintable(u"record %1"_s.arg(i)));
            QCOMPARE(QString::fromUtf8(error.what()), u"Pipeline sem saídas habilitadas"_s);
            ++refused;
        }
    }
    // Control: both branches were taken often enough.
    QVERIFY(refused > records / 20);
    QVERIFY(refused < records / 2);
}

void tst_CommandBuilderRandom::sameRecordGivesSameList()
{
    Records source;
    for (int i = 0; i < records; ++i) {
        PipelineConfig config = source.next();
        const bool ffmpegHasSrt = source.coin();
        if (enabledOutputs(config).isEmpty())
            config.outputs << OutputConfig();
        const PipelineConfig copy = deepCopy(config);
        const QStringList first = CommandBuilder::build(config, ffmpegHasSrt);
        QCOMPARE(CommandBuilder::build(config, ffmpegHasSrt), first);
        QCOMPARE(CommandBuilder::build(copy, ffmpegHasSrt), first);
    }
}

void tst_CommandBuilderRandom::listIsTheSumOfItsSegments()
{
    using namespace CommandBuilder;

    Records source;
    int single = 0;
    int filtered = 0;
    int silent = 0;
    for (int i = 0; i < records; ++i) {
        PipelineConfig config = source.next();
        const bool ffmpegHasSrt = source.coin();
        if (enabledOutputs(config).isEmpty())
            config.outputs << OutputConfig();
        const QList<OutputConfig> enabled = enabledOutputs(config);
        const bool hasAudio = config.source.danteEnabled || config.source.kind == 4;

        QStringList expected{u"-hide_banner"_s, u"-loglevel"_s, u"warning"_s, u"-stats"_s};
        expected += inputArgs(config.source);
        expected += audioInputArgs(config.source);
        const QString filter = scaleFilter(config.source, config.scaler);
        if (!filter.isEmpty())
            expected += QStringList{u"-vf"_s, filter};
        expected += videoEncoderArgs(config.encoder, config.source.fps);
        expected += audioEncoderArgs(config.encoder, hasAudio);
        expected += enabled.size() == 1 ? singleOutputArgs(enabled.first(), ffmpegHasSrt)
                                        : teeOutputArgs(config.outputs, ffmpegHasSrt);
        QCOMPARE(build(config, ffmpegHasSrt), expected);

        QCOMPARE(audioInputArgs(config.source).isEmpty(), !hasAudio);
        single += enabled.size() == 1 ? 1 : 0;
        filtered += filter.isEmpty() ? 0 : 1;
        silent += hasAudio ? 0 : 1;
    }
    for (const int count : {single, filtered, silent}) {
        QVERIFY(count > records / 20);
        QVERIFY(count < records - records / 20);
    }
}

void tst_CommandBuilderRandom::onlyTheOutputSegmentDependsOnTheFlag()
{
    Records source;
    for (int i = 0; i < records; ++i) {
        PipelineConfig config = source.next();
        if (enabledOutputs(config).isEmpty())
            config.outputs << OutputConfig();
        const QStringList bridged = CommandBuilder::build(config, false);
        const QStringList direct = CommandBuilder::build(config, true);
        QCOMPARE(direct.size(), bridged.size());
        QCOMPARE(direct.first(direct.size() - 1), bridged.first(bridged.size() - 1));

        bool leavesBySrt = false;
        for (const OutputConfig &output : enabledOutputs(config))
            leavesBySrt = leavesBySrt || output.kind == 1 || output.kind == 2;
        QCOMPARE(direct.last() != bridged.last(), leavesBySrt);
    }
}

void tst_CommandBuilderRandom::srtUrlKeepsItsForm()
{
    static const QRegularExpression encoded(u"\\A(?:[A-Za-z0-9._~-]|%[0-9A-F]{2})*\\z"_s);

    Records source;
    int withId = 0;
    for (int i = 0; i < records; ++i) {
        for (const OutputConfig &output : source.next().outputs) {
            const QString url = CommandBuilder::srtUrl(output);
            QString rest = url;
            const auto take = [&rest](const QString &part) {
                const bool there = rest.startsWith(part);
                rest.remove(0, there ? part.size() : 0);
                return there;
            };
            QVERIFY2(take(output.url), qPrintable(url));
            QVERIFY2(take(output.url.contains(u'?') ? u"&"_s : u"?"_s), qPrintable(url));
            QVERIFY2(take(u"latency="_s + QString::number(output.srtLatencyMs)), qPrintable(url));
            if (!output.passphrase.isEmpty())
                QVERIFY2(take(u"&passphrase="_s + output.passphrase + u"&pbkeylen=16"_s), qPrintable(url));
            if (output.groupMode == 1) {
                const QString end = u"&mode=caller&groupconnect=1"_s;
                QVERIFY2(rest.endsWith(end), qPrintable(url));
                rest.chop(end.size());
            }
            if (!output.streamId.isEmpty()) {
                QVERIFY2(take(u"&streamid="_s), qPrintable(url));
                QVERIFY2(encoded.match(rest).hasMatch(), qPrintable(url));
                QCOMPARE(QByteArray::fromPercentEncoding(rest.toLatin1()), output.streamId.toUtf8());
                rest.clear();
                ++withId;
            }
            QCOMPARE(rest, QString());
        }
    }
    QVERIFY(withId > records / 2);
}

CORVANE_TEST(tst_CommandBuilderRandom, QCoreApplication)
#include "tst_CommandBuilderRandom.moc"
