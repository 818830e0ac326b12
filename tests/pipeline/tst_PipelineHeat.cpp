#include "engine/host/Capabilities.h"
#include "pipeline/Pipeline.h"
#include "tests/pipeline/PipelineTimers.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString heatStep = u"log DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s;

/// Starts the pipeline and waits for its first progress line. Ticks of its ladder then come from the test
/// alone.
bool goOnAir(Pipeline &pipeline, const Recorder &recorder)
{
    pipeline.start();
    if (!awaitProgress(recorder))
        return false;
    qualityTimer(pipeline)->stop();
    return true;
}

/// Three ticks on an overheated machine: one step down.
void overheat(const Pipeline &pipeline)
{
    setThermalState(2);
    for (int tick = 1; tick <= 3; ++tick)
        fire(*qualityTimer(pipeline));
    setThermalState(0);
}

} // namespace

/// Steps of the ladder on a machine that overheats.
class tst_PipelineHeat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { setThermalState(0); }
    void isReadAtEachTick();
    void levelsThatCount_data();
    void levelsThatCount();
    void signalStandsBetweenRateAndKill();
    void stopAtTheNewLevel();
    void tickWithinTheSignal();
    void childThatWouldNotTerminate();
    void laterCrashIsAFailure();
    void relaunchFindsARunThatHasEnded();
    void relaunchDiesWithItsPipeline();
};

void tst_PipelineHeat::init()
{
    // Those of an earlier function's pipelines have no effect, but they would be counted.
    QVERIFY(waitUntil([] { return pendingShots().isEmpty(); }));
}

void tst_PipelineHeat::isReadAtEachTick()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));

    for (const int level : {1, 0, 4, 1}) {
        setThermalState(level);
        fire(*qualityTimer(pipeline));
        QCOMPARE(pipeline.telemetry().thermalState, level);
    }
    QCOMPARE(outline(recorder), launched());
}

void tst_PipelineHeat::levelsThatCount_data()
{
    QTest::addColumn<int>("heat");
    QTest::addColumn<int>("level"); // of the ladder after three ticks

    QTest::newRow("0") << 0 << 0;
    QTest::newRow("1") << 1 << 0;
    QTest::newRow("2") << 2 << 1;
    QTest::newRow("3") << 3 << 1;
    QTest::newRow("4") << 4 << 0;
}

void tst_PipelineHeat::levelsThatCount()
{
    QFETCH(const int, heat);
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));

    setThermalState(heat);
    for (int tick = 1; tick <= 3; ++tick) {
        QCOMPARE(pipeline.level(), 0);
        fire(*qualityTimer(pipeline));
    }
    QTEST(pipeline.level(), "level");
}

void tst_PipelineHeat::signalStandsBetweenRateAndKill()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));
    QList<int> rates; // at the line, at the signal
    connect(&pipeline, &Pipeline::logLine, this, [&](const QString &line) {
        if (heatStep.endsWith(line))
            rates << pipeline.config().encoder.bitrate;
    });
    connect(&pipeline, &Pipeline::qualityChanged, this, [&] { rates << pipeline.config().encoder.bitrate; });

    recorder.clear();
    overheat(pipeline);
    QCOMPARE(rates, QList({6000, 4500}));
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }));

    QCOMPARE(outline(recorder), QStringList({heatStep, u"quality 1 bitrate-75"_s,
                                             u"log ffmpeg errorOccurred: 1"_s, relaunchLine()}));
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
}

void tst_PipelineHeat::stopAtTheNewLevel()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));
    connect(&pipeline, &Pipeline::qualityChanged, &pipeline, &Pipeline::stop);

    recorder.clear();
    overheat(pipeline);

    // The child is still alive at the signal, and nothing is pending: it leaves as on any stop.
    QCOMPARE(outline(recorder), QStringList({heatStep, u"quality 1 bitrate-75"_s, u"state stopped"_s}));
    QVERIFY(pendingShots().isEmpty());
}

void tst_PipelineHeat::tickWithinTheSignal()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));
    connect(
        &pipeline, &Pipeline::qualityChanged, this,
        [&] {
            setThermalState(0);
            fire(*qualityTimer(pipeline));
        },
        Qt::SingleShotConnection);

    overheat(pipeline);

    QCOMPARE(recorder.count(heatStep), 1); // the level is in force by then
    QCOMPARE(recorder.count(u"quality 1 bitrate-75"_s), 1);
}

void tst_PipelineHeat::childThatWouldNotTerminate()
{
    Pipeline pipeline(fakeConfig(u"ignore-term,ignore-q,progress"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));

    overheat(pipeline);

    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }));
    QVERIFY(!processExists(lastPid(recorder)));
}

void tst_PipelineHeat::laterCrashIsAFailure()
{
    PipelineConfig config = fakeConfig(u"progress"_s);
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));
    overheat(pipeline);
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }));

    pipeline.stop();
    recorder.clear();
    QVERIFY(goOnAir(pipeline, recorder));
    killProcess(lastPid(recorder));
    QVERIFY(waitUntil([&] { return recorder.contains(u"state failed"_s); }));

    QCOMPARE(outline(recorder),
             launched() + QStringList({u"log ffmpeg errorOccurred: 1"_s,
                                       u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode()),
                                       u"state failed"_s}));
}

void tst_PipelineHeat::relaunchFindsARunThatHasEnded()
{
    const QTemporaryDir dir;
    const QString steps = u"once=%1,progress,end,once=%2,exit=0,end,progress"_s.arg(
        stepText(dir.filePath(u"first"_s).toUtf8()), stepText(dir.filePath(u"second"_s).toUtf8()));
    Pipeline pipeline(fakeConfig(steps), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    QVERIFY(goOnAir(pipeline, recorder));
    overheat(pipeline);
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }));
    QCOMPARE(pendingShots(), QList{200});

    // The operator's next run ends by itself, with no turn of the event loop meanwhile.
    pipeline.stop();
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QCOMPARE(pendingShots(), QList{200});

    // Nobody has asked for a stop since, so the relaunch starts once more.
    recorder.clear();
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(outline(recorder), launched());
}

void tst_PipelineHeat::relaunchDiesWithItsPipeline()
{
    std::optional<Pipeline> place(std::in_place, fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    {
        const Recorder recorder(*place);
        QVERIFY(goOnAir(*place, recorder));
        overheat(*place);
        QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }));
    }

    // Another one in its place in memory would start again.
    place.emplace(PipelineConfig(), QString(), false);
    place->start();
    QCOMPARE(place->state(), Pipeline::State::Failed); // it has no outputs
    const Recorder recorder(*place);
    passTimersOf(300);
    QCOMPARE(recorder.events(), QStringList());
}

CORVANE_TEST(tst_PipelineHeat, QCoreApplication)
#include "tst_PipelineHeat.moc"
