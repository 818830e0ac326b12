#include "engine/MetricsText.h"
#include "tests/metrics/MetricsTestSupport.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

PipelineConfig configOf(const QString &id, const QString &steps)
{
    PipelineConfig config = fakeConfig(steps);
    config.id = id;
    return config;
}

/// Steps of fake_ffmpeg that print one line.
QString says(const QByteArray &line)
{
    return u"stderr="_s + stepText(line + '\n');
}

} // namespace

class tst_MetricsText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noPipelines();
    void onePipeline();
    void severalPipelines();
    void keepsTheFiguresOfARunThatEnded();
    void showsTheLevelOfTheLadder();
    void eachSampleHasItsOwnSource();
    void numberForms_data();
    void numberForms();
    void idsStandAsTheyAre();
    void orderIsThatOfTheList();
};

void tst_MetricsText::noPipelines()
{
    QCOMPARE(metricsText({}), metricsHeader());
}

void tst_MetricsText::onePipeline()
{
    Pipeline pipeline(configOf(u"0a1b2c3d"_s, u""_s), fakeFfmpeg(), false);
    QCOMPARE(metricsText({&pipeline}), metricsHeader() +
                                           u"corvane_pipeline_up{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_fps{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_bitrate_kbps{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_dropped_frames{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_srt_rtt_ms{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_srt_pkt_snd_drop{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_srt_pkt_retrans{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_degradation_level{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_thermal_state{pipeline=\"0a1b2c3d\"} 0\n"_s);
}

void tst_MetricsText::severalPipelines()
{
    PipelineConfig failing =
        configOf(u"00000003"_s, says("frame=  7 fps= 24 bitrate= 900.5kbits/s drop=1") + u",exit=3"_s);
    failing.restart.enabled = false;
    Pipeline stopped(configOf(u"00000001"_s, u""_s), fakeFfmpeg(), false);
    Pipeline running(
        configOf(u"00000002"_s, says("frame=  250 fps=29.97 q=28.0 bitrate=6012.3kbits/s drop=12 speed=1x")),
        fakeFfmpeg(), false);
    Pipeline failed(failing, fakeFfmpeg(), false);
    Pipeline starting(configOf(u"00000004"_s, u"progress"_s), fakeFfmpeg(), false);
    running.start();
    failed.start();
    QVERIFY(waitUntil(
        [&] { return running.telemetry().dropped == 12 && failed.state() == Pipeline::State::Failed; }));
    starting.start(); // and no event since
    QCOMPARE(starting.state(), launchedState());

    QCOMPARE(metricsText({&stopped, &running, &failed, &starting}),
             metricsHeader() +
                 u"corvane_pipeline_up{pipeline=\"00000001\"} 0\n"
                 "corvane_fps{pipeline=\"00000001\"} 0\n"
                 "corvane_bitrate_kbps{pipeline=\"00000001\"} 0\n"
                 "corvane_dropped_frames{pipeline=\"00000001\"} 0\n"
                 "corvane_srt_rtt_ms{pipeline=\"00000001\"} 0\n"
                 "corvane_srt_pkt_snd_drop{pipeline=\"00000001\"} 0\n"
                 "corvane_srt_pkt_retrans{pipeline=\"00000001\"} 0\n"
                 "corvane_degradation_level{pipeline=\"00000001\"} 0\n"
                 "corvane_thermal_state{pipeline=\"00000001\"} 0\n"
                 "corvane_pipeline_up{pipeline=\"00000002\"} 1\n"
                 "corvane_fps{pipeline=\"00000002\"} 29.97\n"
                 "corvane_bitrate_kbps{pipeline=\"00000002\"} 6012.3\n"
                 "corvane_dropped_frames{pipeline=\"00000002\"} 12\n"
                 "corvane_srt_rtt_ms{pipeline=\"00000002\"} 0\n"
                 "corvane_srt_pkt_snd_drop{pipeline=\"00000002\"} 0\n"
                 "corvane_srt_pkt_retrans{pipeline=\"00000002\"} 0\n"
                 "corvane_degradation_level{pipeline=\"00000002\"} 0\n"
                 "corvane_thermal_state{pipeline=\"00000002\"} 0\n"
                 "corvane_pipeline_up{pipeline=\"00000003\"} 0\n"
                 "corvane_fps{pipeline=\"00000003\"} 24\n"
                 "corvane_bitrate_kbps{pipeline=\"00000003\"} 900.5\n"
                 "corvane_dropped_frames{pipeline=\"00000003\"} 1\n"
                 "corvane_srt_rtt_ms{pipeline=\"00000003\"} 0\n"
                 "corvane_srt_pkt_snd_drop{pipeline=\"00000003\"} 0\n"
                 "corvane_srt_pkt_retrans{pipeline=\"00000003\"} 0\n"
                 "corvane_degradation_level{pipeline=\"00000003\"} 0\n"
                 "corvane_thermal_state{pipeline=\"00000003\"} 0\n"
                 "corvane_pipeline_up{pipeline=\"00000004\"} %1\n"
                 "corvane_fps{pipeline=\"00000004\"} 0\n"
                 "corvane_bitrate_kbps{pipeline=\"00000004\"} 0\n"
                 "corvane_dropped_frames{pipeline=\"00000004\"} 0\n"
                 "corvane_srt_rtt_ms{pipeline=\"00000004\"} 0\n"
                 "corvane_srt_pkt_snd_drop{pipeline=\"00000004\"} 0\n"
                 "corvane_srt_pkt_retrans{pipeline=\"00000004\"} 0\n"
                 "corvane_degradation_level{pipeline=\"00000004\"} 0\n"
                 "corvane_thermal_state{pipeline=\"00000004\"} 0\n"_s.arg(startsAtOnce() ? 1 : 0));
}

void tst_MetricsText::keepsTheFiguresOfARunThatEnded()
{
    Pipeline pipeline(configOf(u"cafe0001"_s, says("fps=50 bitrate=4000.5kbits/s drop=3")), fakeFfmpeg(),
                      false);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.telemetry().dropped == 3; }));
    QVERIFY(metricsText({&pipeline}).contains(u"corvane_pipeline_up{pipeline=\"cafe0001\"} 1\n"_s));

    pipeline.stop();
    QVERIFY(metricsText({&pipeline})
                .startsWith(metricsHeader() + u"corvane_pipeline_up{pipeline=\"cafe0001\"} 0\n"
                                              "corvane_fps{pipeline=\"cafe0001\"} 50\n"
                                              "corvane_bitrate_kbps{pipeline=\"cafe0001\"} 4000.5\n"
                                              "corvane_dropped_frames{pipeline=\"cafe0001\"} 3\n"_s));
}

void tst_MetricsText::showsTheLevelOfTheLadder()
{
    Pipeline pipeline(configOf(u"cafe0001"_s, u"drops=50"_s), fakeFfmpeg(), false);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.level() == 1; }, 60000));
    QVERIFY(metricsText({&pipeline}).contains(u"corvane_degradation_level{pipeline=\"cafe0001\"} 1\n"_s));
}

void tst_MetricsText::eachSampleHasItsOwnSource()
{
    Pipeline pipeline(configOf(u"0a1b2c3d"_s, u""_s), fakeFfmpeg(), false);
    setEachFigure(pipeline);

    QCOMPARE(metricsText({&pipeline}), metricsHeader() +
                                           u"corvane_pipeline_up{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_fps{pipeline=\"0a1b2c3d\"} 47.5\n"
                                           "corvane_bitrate_kbps{pipeline=\"0a1b2c3d\"} 49.5\n"
                                           "corvane_dropped_frames{pipeline=\"0a1b2c3d\"} 48\n"
                                           "corvane_srt_rtt_ms{pipeline=\"0a1b2c3d\"} 41.5\n"
                                           "corvane_srt_pkt_snd_drop{pipeline=\"0a1b2c3d\"} 44\n"
                                           "corvane_srt_pkt_retrans{pipeline=\"0a1b2c3d\"} 45\n"
                                           "corvane_degradation_level{pipeline=\"0a1b2c3d\"} 0\n"
                                           "corvane_thermal_state{pipeline=\"0a1b2c3d\"} 51\n"_s);
}

void tst_MetricsText::numberForms_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("fps");
    QTest::addColumn<QString>("bitrate");
    QTest::addColumn<QString>("dropped");

    const auto row = [](const char *tag, const QByteArray &line, const char *fps, const char *bitrate,
                        const char *dropped) {
        QTest::newRow(tag) << line << QString::fromLatin1(fps) << QString::fromLatin1(bitrate)
                           << QString::fromLatin1(dropped);
    };
    row("whole numbers", "fps= 30 bitrate=6000.0kbits/s drop=1", "30", "6000", "1");
    row("fractions", "fps=29.97 bitrate=6012.3kbits/s drop=2", "29.97", "6012.3", "2");
    row("nothing", "fps=0.0 bitrate=0.0kbits/s drop=0", "0", "0", "0");
    row("six digits", "fps=123456 bitrate=999999.0kbits/s drop=999999", "123456", "999999", "999999");
    row("seven digits", "fps=1234567 bitrate=1000000.0kbits/s drop=1234567", "1.23457e+06", "1e+06",
        "1.23457e+06");
    row("more than six digits of a fraction", "fps=59.940059 bitrate=12345.678kbits/s drop=2147483647",
        "59.9401", "12345.7", "2.14748e+09");
    row("very small", "fps=0.00001 bitrate=0.0001kbits/s drop=5", "1e-05", "0.0001", "5");
}

void tst_MetricsText::numberForms()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, fps);
    QFETCH(QString, bitrate);
    QFETCH(QString, dropped);

    Pipeline pipeline(configOf(u"cafe0001"_s, says(line)), fakeFfmpeg(), false);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.telemetry().valid; }));
    const QStringList lines = metricsText({&pipeline}).split(u'\n');
    QCOMPARE(lines.value(3), u"corvane_fps{pipeline=\"cafe0001\"} "_s + fps);
    QCOMPARE(lines.value(4), u"corvane_bitrate_kbps{pipeline=\"cafe0001\"} "_s + bitrate);
    QCOMPARE(lines.value(5), u"corvane_dropped_frames{pipeline=\"cafe0001\"} "_s + dropped);
}

void tst_MetricsText::idsStandAsTheyAre()
{
    // The store takes any id from a file; the samples show it unchanged.
    Pipeline placeholder(configOf(u"%1%2%3"_s, u""_s), fakeFfmpeg(), false);
    Pipeline empty(configOf(u""_s, u""_s), fakeFfmpeg(), false);
    QVERIFY(metricsText({&empty}).contains(u"corvane_thermal_state{pipeline=\"\"} 0\n"_s));
    QVERIFY(metricsText({&placeholder}).endsWith(u"\ncorvane_thermal_state{pipeline=\"%1%2%3\"} 0\n"_s));

    PipelineConfig named = configOf(u"cafe0001"_s, u""_s);
    named.name = u"nome de exibição"_s;
    Pipeline pipeline(named, fakeFfmpeg(), false);
    QVERIFY(!metricsText({&pipeline}).contains(named.name));
}

void tst_MetricsText::orderIsThatOfTheList()
{
    Pipeline first(configOf(u"ffffffff"_s, u""_s), fakeFfmpeg(), false);
    Pipeline second(configOf(u"00000000"_s, u""_s), fakeFfmpeg(), false);
    Pipeline third(configOf(u"ffffffff"_s, u""_s), fakeFfmpeg(), false); // ids may repeat
    QStringList ids;
    const QStringList lines = metricsText({&first, &second, &third}).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        if (line.startsWith(u"corvane_thermal_state"_s))
            ids << line.section(u'"', 1, 1);
    }
    QCOMPARE(ids, QStringList({u"ffffffff"_s, u"00000000"_s, u"ffffffff"_s}));
    QCOMPARE(lines.size(), 2 + 3 * 9);
}

CORVANE_TEST(tst_MetricsText, QCoreApplication)
#include "tst_MetricsText.moc"
