#include "engine/model/PipelineConfig.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>
#include <type_traits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

template <typename Record, typename... Fields>
constexpr bool are32Bit(Fields Record::*...)
{
    return (std::is_same_v<Fields, qint32> && ...);
}

static_assert(are32Bit(&SourceConfig::kind, &SourceConfig::width, &SourceConfig::height, &SourceConfig::fps));
static_assert(are32Bit(&ScalerConfig::kind, &ScalerConfig::width, &ScalerConfig::height));
static_assert(are32Bit(&EncoderConfig::codec, &EncoderConfig::hw, &EncoderConfig::preset,
                       &EncoderConfig::bitrate, &EncoderConfig::keyintSec, &EncoderConfig::audioBitrate));
static_assert(are32Bit(&OutputConfig::kind, &OutputConfig::srtLatencyMs, &OutputConfig::oheadbw,
                       &OutputConfig::maxbw, &OutputConfig::groupMode, &OutputConfig::receiverPort,
                       &OutputConfig::localPort, &OutputConfig::localPort2));
static_assert(are32Bit(&RestartPolicy::initialBackoffMs, &RestartPolicy::maxBackoffMs,
                       &RestartPolicy::maxRestartsInWindow, &RestartPolicy::windowSec,
                       &RestartPolicy::hangTimeoutMs));

} // namespace

class tst_PipelineConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pipelineDefaults();
    void sourceDefaults();
    void scalerDefaults();
    void encoderDefaults();
    void outputDefaults();
    void restartDefaults();
    void enumeratorNumbers_data();
    void enumeratorNumbers();
    void copiesAreIndependent();
    void newIdIsEightHexDigits();
    void newIdsDiffer();
    void pipelineName_data();
    void pipelineName();
    void outputKindText_data();
    void outputKindText();
    void bondPort_data();
    void bondPort();
};

void tst_PipelineConfig::pipelineDefaults()
{
    const PipelineConfig config;
    QCOMPARE(config.id, QString());
    QCOMPARE(config.name, QString());
    QCOMPARE(config.outputs.size(), 0);
    QCOMPARE(config.autoRestart, true);

    // The records inside start at the defaults of their own types.
    QCOMPARE(config.source.kind, 4);
    QCOMPARE(config.scaler.kind, 0);
    QCOMPARE(config.encoder.bitrate, 6000);
    QCOMPARE(config.restart.hangTimeoutMs, 8000);
}

void tst_PipelineConfig::sourceDefaults()
{
    const SourceConfig source;
    QCOMPARE(source.kind, 4);
    QCOMPARE(source.uri, QString());
    QCOMPARE(source.width, 1920);
    QCOMPARE(source.height, 1080);
    QCOMPARE(source.fps, 30);
    QCOMPARE(source.danteEnabled, false);
    QCOMPARE(source.danteDevice, QString());
    QCOMPARE(source.channelMap, QString());
    QCOMPARE(source.ndiPipePath, QString());
}

void tst_PipelineConfig::scalerDefaults()
{
    const ScalerConfig scaler;
    QCOMPARE(scaler.kind, 0);
    QCOMPARE(scaler.width, 0);
    QCOMPARE(scaler.height, 0);
}

void tst_PipelineConfig::encoderDefaults()
{
    const EncoderConfig encoder;
    QCOMPARE(encoder.codec, 0);
    QCOMPARE(encoder.hw, 0);
    QCOMPARE(encoder.preset, 0);
    QCOMPARE(encoder.bitrate, 6000);
    QCOMPARE(encoder.keyintSec, 2);
    QCOMPARE(encoder.zeroLatency, true);
    QCOMPARE(encoder.bFrames, false);
    QCOMPARE(encoder.audioCodec, u"aac"_s);
    QCOMPARE(encoder.audioBitrate, 160);
}

void tst_PipelineConfig::outputDefaults()
{
    const OutputConfig output;
    QCOMPARE(output.kind, 0);
    QCOMPARE(output.url, QString());
    QCOMPARE(output.enabled, true);
    QCOMPARE(output.srtLatencyMs, 120);
    QCOMPARE(output.passphrase, QString());
    QCOMPARE(output.streamId, QString());
    QCOMPARE(output.oheadbw, 25);
    QCOMPARE(output.maxbw, -1);
    QCOMPARE(output.groupMode, 0);
    QCOMPARE(output.extraSrtList, QStringList());
    QCOMPARE(output.receiverHost, QString());
    QCOMPARE(output.receiverPort, 5000);
    QCOMPARE(output.extraSrtlaList, QStringList());
    QCOMPARE(output.localPort, 0);
    QCOMPARE(output.localPort2, 0);
}

void tst_PipelineConfig::restartDefaults()
{
    const RestartPolicy restart;
    QCOMPARE(restart.enabled, true);
    QCOMPARE(restart.initialBackoffMs, 1000);
    QCOMPARE(restart.maxBackoffMs, 30000);
    QCOMPARE(restart.maxRestartsInWindow, 6);
    QCOMPARE(restart.windowSec, 120);
    QCOMPARE(restart.hangTimeoutMs, 8000);
}

void tst_PipelineConfig::enumeratorNumbers_data()
{
    QTest::addColumn<int>("enumerator");
    QTest::addColumn<int>("number");

    QTest::newRow("source: NDI") << int(SourceKind::Ndi) << 0;
    QTest::newRow("source: SRT") << int(SourceKind::Srt) << 1;
    QTest::newRow("source: DeckLink") << int(SourceKind::Decklink) << 2;
    QTest::newRow("source: capture") << int(SourceKind::Capture) << 3;
    QTest::newRow("source: test pattern") << int(SourceKind::TestPattern) << 4;
    QTest::newRow("source: file") << int(SourceKind::File) << 5;

    QTest::newRow("output: RTMP") << int(OutputKind::Rtmp) << 0;
    QTest::newRow("output: SRT") << int(OutputKind::Srt) << 1;
    QTest::newRow("output: bonded SRT") << int(OutputKind::Srtla) << 2;
    QTest::newRow("output: DeckLink") << int(OutputKind::Decklink) << 3;
    QTest::newRow("output: file") << int(OutputKind::File) << 4;

    QTest::newRow("codec: H.264") << int(VideoCodec::H264) << 0;
    QTest::newRow("codec: HEVC") << int(VideoCodec::Hevc) << 1;
    QTest::newRow("codec: AV1") << int(VideoCodec::Av1) << 2;

    QTest::newRow("family: auto") << int(HwAccel::Auto) << 0;
    QTest::newRow("family: x264") << int(HwAccel::X264) << 1;
    QTest::newRow("family: NVENC") << int(HwAccel::Nvenc) << 2;
    QTest::newRow("family: QSV") << int(HwAccel::Qsv) << 3;
    QTest::newRow("family: AMF") << int(HwAccel::Amf) << 4;
    QTest::newRow("family: VideoToolbox") << int(HwAccel::VideoToolbox) << 5;

    QTest::newRow("preset: auto") << int(EncoderPreset::Auto) << 0;
    QTest::newRow("preset: ultrafast") << int(EncoderPreset::Ultrafast) << 1;
    QTest::newRow("preset: superfast") << int(EncoderPreset::Superfast) << 2;
    QTest::newRow("preset: veryfast") << int(EncoderPreset::Veryfast) << 3;
    QTest::newRow("preset: fast") << int(EncoderPreset::Fast) << 4;
    QTest::newRow("preset: medium") << int(EncoderPreset::Medium) << 5;
    QTest::newRow("preset: slow") << int(EncoderPreset::Slow) << 6;

    QTest::newRow("scaler: none") << int(ScalerKind::None) << 0;
    QTest::newRow("scaler: lanczos") << int(ScalerKind::Lanczos) << 1;
    QTest::newRow("scaler: CUDA") << int(ScalerKind::Cuda) << 2;
    QTest::newRow("scaler: placebo") << int(ScalerKind::Placebo) << 3;
    QTest::newRow("scaler: other lanczos") << int(ScalerKind::LanczosAlt) << 4;
}

void tst_PipelineConfig::enumeratorNumbers()
{
    QFETCH(const int, enumerator);
    QTEST(enumerator, "number");
}

void tst_PipelineConfig::copiesAreIndependent()
{
    PipelineConfig original;
    original.id = u"cafe0001"_s;
    original.outputs.resize(1);
    original.outputs[0].extraSrtList = QStringList{u"srt://a:1"_s};

    PipelineConfig copy = original;
    copy.name = u"cópia"_s;
    copy.source.uri = u"outra"_s;
    copy.outputs[0].url = u"rtmp://a/b"_s;
    copy.outputs[0].extraSrtList << u"srt://b:2"_s;
    copy.outputs.resize(2);

    QCOMPARE(copy.id, u"cafe0001"_s);
    QCOMPARE(original.name, QString());
    QCOMPARE(original.source.uri, QString());
    QCOMPARE(original.outputs.size(), 1);
    QCOMPARE(original.outputs[0].url, QString());
    QCOMPARE(original.outputs[0].extraSrtList, QStringList{u"srt://a:1"_s});
}

void tst_PipelineConfig::newIdIsEightHexDigits()
{
    static const QRegularExpression form(u"\\A[0-9a-f]{8}\\z"_s);
    for (int i = 0; i < 500; ++i) {
        const QString id = newPipelineId();
        QVERIFY2(form.match(id).hasMatch(), qPrintable(id));
    }
}

void tst_PipelineConfig::newIdsDiffer()
{
    // Two of a hundred random 32-bit ids agree about once in a million runs; ids that came from a clock or a
    // fixed seed would agree here every time.
    QSet<QString> ids;
    for (int i = 0; i < 100; ++i)
        ids << newPipelineId();
    QCOMPARE(ids.size(), 100);
}

void tst_PipelineConfig::pipelineName_data()
{
    QTest::addColumn<QString>("given");
    QTest::addColumn<qsizetype>("existing");
    QTest::addColumn<QString>("name");

    QTest::newRow("first, unnamed") << QString() << qsizetype(0) << u"Stream 1"_s;
    QTest::newRow("an empty text is unnamed") << u""_s << qsizetype(0) << u"Stream 1"_s;
    QTest::newRow("the number is the count plus one") << QString() << qsizetype(9) << u"Stream 10"_s;
    QTest::newRow("no digit grouping") << QString() << qsizetype(1233) << u"Stream 1234"_s;
    QTest::newRow("a given name stands") << u"Estúdio A"_s << qsizetype(3) << u"Estúdio A"_s;
    QTest::newRow("a given name is not trimmed") << u"  "_s << qsizetype(3) << u"  "_s;
    QTest::newRow("a given name holds no placeholder") << u"%1 %2"_s << qsizetype(3) << u"%1 %2"_s;
    QTest::newRow("a name may repeat") << u"Stream 1"_s << qsizetype(1) << u"Stream 1"_s;
}

void tst_PipelineConfig::pipelineName()
{
    QFETCH(const QString, given);
    QFETCH(const qsizetype, existing);
    QTEST(corvane::pipelineName(given, existing), "name");
}

void tst_PipelineConfig::outputKindText_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("text");

    QTest::newRow("RTMP") << 0 << u"rtmp"_s;
    QTest::newRow("SRT") << 1 << u"srt"_s;
    QTest::newRow("bonded SRT") << 2 << u"srtla"_s;
    QTest::newRow("DeckLink") << 3 << u"decklink"_s;
    QTest::newRow("file") << 4 << u"file"_s;
    QTest::newRow("one above the table") << 5 << u"rtmp"_s;
    QTest::newRow("one below the table") << -1 << u"rtmp"_s;
    QTest::newRow("greatest number") << std::numeric_limits<int>::max() << u"rtmp"_s;
    QTest::newRow("smallest number") << std::numeric_limits<int>::min() << u"rtmp"_s;
}

void tst_PipelineConfig::outputKindText()
{
    QFETCH(const int, kind);
    QTEST(corvane::outputKindText(kind), "text");
}

void tst_PipelineConfig::bondPort_data()
{
    QTest::addColumn<int>("localPort");
    QTest::addColumn<int>("localPort2");
    QTest::addColumn<int>("port");

    QTest::newRow("second port") << 8900 << 8950 << 8950;
    QTest::newRow("smallest second port") << 8900 << 1 << 1;
    QTest::newRow("no second port: the next after the first") << 8900 << 0 << 8901;
    QTest::newRow("negative second port: the next after the first") << 8900 << -1 << 8901;
    QTest::newRow("no port at all") << 0 << 0 << 1;
    QTest::newRow("second port alone") << 0 << 8901 << 8901;
    QTest::newRow("negative first port") << -5 << 0 << -4;
    QTest::newRow("the greatest first port wraps around")
        << std::numeric_limits<int>::max() << 0 << std::numeric_limits<int>::min();
}

void tst_PipelineConfig::bondPort()
{
    OutputConfig output;
    QFETCH(const int, localPort);
    QFETCH(const int, localPort2);
    output.localPort = localPort;
    output.localPort2 = localPort2;
    QTEST(output.bondPort(), "port");
}

CORVANE_TEST(tst_PipelineConfig, QCoreApplication)
#include "tst_PipelineConfig.moc"
