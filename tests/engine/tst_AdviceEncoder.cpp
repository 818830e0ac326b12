#include "engine/Advice.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The best encoder among those that ffmpeg lists, and the three look-ups as the interface calls them.
class tst_AdviceEncoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void h264Choice_data();
    void h264Choice();
    void hevcChoice_data();
    void hevcChoice();
    void av1Choice_data();
    void av1Choice();
    void constants();
    void bitrateIsTheBitrateAdvice();
    void mapHasTheseKeysAndTypes_data();
    void mapHasTheseKeysAndTypes();
    void throughTheEngine();
    void throughAnEngineWithoutEncoders();
    void changesNothing();
};

namespace {

constexpr int w = 1920;
constexpr int h = 1080;

} // namespace

void tst_AdviceEncoder::h264Choice_data()
{
    QTest::addColumn<QStringList>("available");
    QTest::addColumn<QString>("encoder");
    QTest::addColumn<QString>("hwLabel");
    QTest::addColumn<QString>("presetHint");

    const auto row = [](const char *name, const QString &available, const QString &encoder,
                        const QString &hwLabel, const QString &presetHint) {
        QTest::newRow(name) << available.split(u' ', Qt::SkipEmptyParts) << encoder << hwLabel << presetHint;
    };
    const QString cpu = u"CPU (x264)"_s;
    row("all four: NVENC", u"h264_amf h264_qsv h264_videotoolbox h264_nvenc libx264"_s, u"h264_nvenc"_s,
        u"NVIDIA NVENC"_s, u"p4 (low-latency)"_s);
    row("without NVENC: VideoToolbox", u"h264_amf h264_qsv h264_videotoolbox libx264"_s,
        u"h264_videotoolbox"_s, u"Apple VideoToolbox"_s, u"realtime"_s);
    row("without these two: QSV", u"libx264 h264_amf h264_qsv"_s, u"h264_qsv"_s, u"Intel QSV"_s,
        u"4 (balanced)"_s);
    row("AMF before software", u"libx264 h264_amf"_s, u"h264_amf"_s, u"AMD AMF"_s, u"speed"_s);
    row("software", u"libx264"_s, u"libx264"_s, cpu, u"veryfast"_s);
    row("software is not looked up", u""_s, u"libx264"_s, cpu, u"veryfast"_s);
    row("other codecs don't count", u"hevc_nvenc av1_nvenc"_s, u"libx264"_s, cpu, u"veryfast"_s);
    row("case matters", u"H264_NVENC"_s, u"libx264"_s, cpu, u"veryfast"_s);
    row("the whole name counts", u"h264_nvenc2 xh264_qsv h264"_s, u"libx264"_s, cpu, u"veryfast"_s);
}

void tst_AdviceEncoder::h264Choice()
{
    QFETCH(QStringList, available);

    const QVariantMap advice = encoderAdvice(available, w, h, 30);
    QTEST(advice.value(u"encoder"_s).toString(), "encoder");
    QTEST(advice.value(u"hwLabel"_s).toString(), "hwLabel");
    QTEST(advice.value(u"presetHint"_s).toString(), "presetHint");
}

void tst_AdviceEncoder::hevcChoice_data()
{
    QTest::addColumn<QStringList>("available");
    QTest::addColumn<QString>("encoder"); // empty: none is advised

    const auto row = [](const char *name, const QString &available, const QString &encoder) {
        QTest::newRow(name) << available.split(u' ', Qt::SkipEmptyParts) << encoder;
    };
    row("all five: NVENC", u"libx265 hevc_amf hevc_qsv hevc_videotoolbox hevc_nvenc"_s, u"hevc_nvenc"_s);
    row("without NVENC: VideoToolbox", u"libx265 hevc_amf hevc_qsv hevc_videotoolbox"_s,
        u"hevc_videotoolbox"_s);
    row("without these two: QSV", u"libx265 hevc_amf hevc_qsv"_s, u"hevc_qsv"_s);
    row("AMF before software", u"libx265 hevc_amf"_s, u"hevc_amf"_s);
    row("software alone", u"libx265"_s, u"libx265"_s);
    row("none", u""_s, u""_s);
    row("only H.264 and AV1", u"libx264 h264_nvenc av1_nvenc"_s, u""_s);
    row("case matters", u"HEVC_NVENC Libx265"_s, u""_s);
}

void tst_AdviceEncoder::hevcChoice()
{
    QFETCH(QStringList, available);
    QFETCH(QString, encoder);

    const QVariantMap advice = encoderAdvice(available, w, h, 30);
    QCOMPARE(advice.value(u"hevcAvailable"_s).toBool(), !encoder.isEmpty());
    QCOMPARE(advice.contains(u"hevcEncoder"_s), !encoder.isEmpty());
    QCOMPARE(advice.contains(u"hevcNote"_s), !encoder.isEmpty());
    if (encoder.isEmpty())
        return;
    QCOMPARE(advice.value(u"hevcEncoder"_s).toString(), encoder);
    QCOMPARE(advice.value(u"hevcNote"_s).toString(),
             u"HEVC: ~30% menos bitrate para mesma qualidade. Ideal para 4K ou banda limitada."_s);
}

void tst_AdviceEncoder::av1Choice_data()
{
    QTest::addColumn<QStringList>("available");
    QTest::addColumn<QString>("encoder"); // empty: none is advised

    const auto row = [](const char *name, const QString &available, const QString &encoder) {
        QTest::newRow(name) << available.split(u' ', Qt::SkipEmptyParts) << encoder;
    };
    row("all three: NVENC", u"libsvtav1 av1_qsv av1_nvenc"_s, u"av1_nvenc"_s);
    row("without NVENC: QSV", u"libsvtav1 av1_qsv"_s, u"av1_qsv"_s);
    row("software alone", u"libsvtav1"_s, u"libsvtav1"_s);
    row("AMF alone counts as none", u"av1_amf"_s, u""_s);
    row("VideoToolbox alone counts as none", u"av1_videotoolbox"_s, u""_s);
    row("AMF doesn't come before software", u"av1_amf libsvtav1"_s, u"libsvtav1"_s);
    row("another software encoder counts as none", u"libaom-av1"_s, u""_s);
    row("none", u""_s, u""_s);
}

void tst_AdviceEncoder::av1Choice()
{
    QFETCH(QStringList, available);
    QFETCH(QString, encoder);

    const QVariantMap advice = encoderAdvice(available, w, h, 30);
    QCOMPARE(advice.value(u"av1Available"_s).toBool(), !encoder.isEmpty());
    QCOMPARE(advice.contains(u"av1Encoder"_s), !encoder.isEmpty());
    QCOMPARE(advice.contains(u"av1Note"_s), !encoder.isEmpty());
    if (encoder.isEmpty())
        return;
    QCOMPARE(advice.value(u"av1Encoder"_s).toString(), encoder);
    QCOMPARE(advice.value(u"av1Note"_s).toString(),
             u"AV1: ~50% menos bitrate que H.264. Requer GPU moderna ou CPU forte."_s);
}

void tst_AdviceEncoder::constants()
{
    for (const QStringList &available : {QStringList(), QStringList({u"h264_nvenc"_s, u"libx265"_s})}) {
        const QVariantMap advice = encoderAdvice(available, w, h, 30);
        QCOMPARE(advice.value(u"zeroLatency"_s), QVariant(true));
        QCOMPARE(advice.value(u"bFrames"_s), QVariant(false));
        QCOMPARE(advice.value(u"tip"_s).toString(),
                 u"Para live: zeroLatency=true, bFrames=false, CBR, GOP=2s. Para gravacao/VOD: considere "
                 "bFrames=true, preset mais lento."_s);
    }
}

void tst_AdviceEncoder::bitrateIsTheBitrateAdvice()
{
    const QVariantMap expected{
        {u"recommended"_s, 30000},
        {u"min"_s, 18000},
        {u"max"_s, 45000},
        {u"bufsize"_s, 60000},
        {u"keyint"_s, 120},
        {u"audioBitrate"_s, 256},
        {u"platforms"_s,
         QVariantMap{{u"twitch"_s, QVariantMap{{u"maxBitrate"_s, 6000}, {u"maxRes"_s, u"1080p60"_s}}},
                     {u"youtube"_s, QVariantMap{{u"maxBitrate"_s, 51000}, {u"maxRes"_s, u"4K60"_s}}},
                     {u"facebook"_s, QVariantMap{{u"maxBitrate"_s, 4000}, {u"maxRes"_s, u"1080p30"_s}}}}},
    };
    QCOMPARE(encoderAdvice({}, 3840, 2160, 60).value(u"bitrate"_s).toMap(), expected);

    // The numbers play no other part.
    QVariantMap small = encoderAdvice({u"h264_qsv"_s}, 0, 0, 0);
    QVariantMap large = encoderAdvice({u"h264_qsv"_s}, 3840, 2160, 60);
    QVERIFY(small.take(u"bitrate"_s) != large.take(u"bitrate"_s));
    QCOMPARE(small, large);
}

void tst_AdviceEncoder::mapHasTheseKeysAndTypes_data()
{
    QTest::addColumn<QStringList>("available");
    QTest::addColumn<QStringList>("further");

    QTest::newRow("neither HEVC nor AV1") << QStringList() << QStringList();
    QTest::newRow("HEVC") << QStringList({u"libx265"_s})
                          << QStringList({u"hevcEncoder QString"_s, u"hevcNote QString"_s});
    QTest::newRow("AV1") << QStringList({u"libsvtav1"_s})
                         << QStringList({u"av1Encoder QString"_s, u"av1Note QString"_s});
    QTest::newRow("both") << QStringList({u"libsvtav1"_s, u"libx265"_s})
                          << QStringList({u"av1Encoder QString"_s, u"av1Note QString"_s,
                                          u"hevcEncoder QString"_s, u"hevcNote QString"_s});
}

void tst_AdviceEncoder::mapHasTheseKeysAndTypes()
{
    QFETCH(QStringList, available);
    QFETCH(QStringList, further);

    QStringList expected{
        u"av1Available bool"_s,  u"bFrames bool"_s,       u"bitrate QVariantMap"_s,
        u"encoder QString"_s,    u"hevcAvailable bool"_s, u"hwLabel QString"_s,
        u"presetHint QString"_s, u"tip QString"_s,        u"zeroLatency bool"_s,
    };
    expected += further;
    expected.sort();

    QStringList form;
    const QVariantMap advice = encoderAdvice(available, w, h, 30);
    for (auto entry = advice.cbegin(); entry != advice.cend(); ++entry)
        form << entry.key() + u' ' + QString::fromLatin1(entry.value().metaType().name());
    form.sort();
    QCOMPARE(form, expected);
}

void tst_AdviceEncoder::throughTheEngine()
{
    ToolPath tools;
    tools.addFakeFfmpeg(" V....D h264_qsv             H.264 (Quick Sync)\n V....D libx265              HEVC\n"
                        " V....D av1_amf              AV1 (AMF)\n");
    Engine engine;

    QVariantMap advice;
    QVERIFY(QMetaObject::invokeMethod(&engine, "encoderAdvice", Q_RETURN_ARG(QVariantMap, advice),
                                      Q_ARG(int, 1280), Q_ARG(int, 720), Q_ARG(int, 60)));
    QCOMPARE(advice.value(u"encoder"_s).toString(), u"h264_qsv"_s);
    QCOMPARE(advice.value(u"hevcEncoder"_s).toString(), u"libx265"_s);
    QCOMPARE(advice.value(u"av1Available"_s), QVariant(false));
    QCOMPARE(advice.value(u"bitrate"_s).toMap().value(u"recommended"_s).toInt(), 3750);

    QVERIFY(QMetaObject::invokeMethod(&engine, "bitrateAdvice", Q_RETURN_ARG(QVariantMap, advice),
                                      Q_ARG(int, 3840), Q_ARG(int, 2160), Q_ARG(int, 30)));
    QCOMPARE(advice.value(u"recommended"_s).toInt(), 20000);
    QCOMPARE(advice.size(), 7);

    QVERIFY(QMetaObject::invokeMethod(&engine, "srtParamAdvice", Q_RETURN_ARG(QVariantMap, advice),
                                      Q_ARG(QString, u"bonding"_s)));
    QCOMPARE(advice.value(u"latency"_s).toInt(), 2000);
    QCOMPARE(advice.size(), 9);
}

void tst_AdviceEncoder::throughAnEngineWithoutEncoders()
{
    ToolPath tools;
    tools.addFakeFfmpeg();
    Engine engine;
    QCOMPARE(engine.availableEncoders(), QStringList());

    QVariantMap advice;
    QVERIFY(QMetaObject::invokeMethod(&engine, "encoderAdvice", Q_RETURN_ARG(QVariantMap, advice),
                                      Q_ARG(int, 0), Q_ARG(int, 0), Q_ARG(int, 0)));
    QCOMPARE(advice.value(u"encoder"_s).toString(), u"libx264"_s);
    QCOMPARE(advice.value(u"hwLabel"_s).toString(), u"CPU (x264)"_s);
    QCOMPARE(advice.value(u"presetHint"_s).toString(), u"veryfast"_s);
    QCOMPARE(advice.value(u"hevcAvailable"_s), QVariant(false));
    QCOMPARE(advice.value(u"av1Available"_s), QVariant(false));
    QCOMPARE(advice.size(), 9);
}

void tst_AdviceEncoder::changesNothing()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"Teste"_s);
    const Pipeline *before = bench.pipeline(id);
    QSignalSpy changes(&bench.engine, &Engine::pipelinesChanged);
    QSignalSpy logged(&bench.engine, &Engine::logChanged);

    bench.ask<QVariantMap>("encoderAdvice", w, h, 60);
    bench.ask<QVariantMap>("bitrateAdvice", w, h, 60);
    bench.ask<QVariantMap>("srtParamAdvice", u"irl"_s);

    QCOMPARE(bench.pipeline(id), before);
    QCOMPARE(changes.count(), 0);
    QCOMPARE(logged.count(), 0);
}

CORVANE_TEST(tst_AdviceEncoder, QCoreApplication)
#include "tst_AdviceEncoder.moc"
