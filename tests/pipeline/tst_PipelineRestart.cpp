#include "pipeline/Pipeline.h"
#include "tests/pipeline/PipelineTimers.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QStringList failed()
{
    return {u"log ERRO: ffmpeg saiu (code=3, erro)"_s, u"state failed"_s};
}

QStringList opened(int failures)
{
    const QString reason =
        u"circuit breaker ABERTO: %1 restarts em 120s — parando auto-restart (intervenção necessária)"_s.arg(
            failures);
    return {u"log FATAL: "_s + reason, u"circuit "_s + reason};
}

} // namespace

class tst_PipelineRestart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comesBackAfterAFailure();
    void disabledPolicy_data();
    void disabledPolicy();
    void openCircuit();
    void stopDuringTheBackOff();
    void startDuringTheBackOff();
    void backOffLastsAsLongAsItsLine();
    void cleanExitDuringTheBackOff();
    void staleTimerStartsWhatHasFailedAgain();
    void timerDiesWithItsPipeline();
    void longRunResetsTheBackOff();
    void cleanExitEndsTheChain();
    void processesOfEarlierRunsStay();
};

void tst_PipelineRestart::comesBackAfterAFailure()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    PipelineConfig config = fakeConfig(u"once=%1,exit=3,end,progress"_s.arg(stepText(first.toUtf8())));
    config.restart.initialBackoffMs = 20;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));

    QCOMPARE(outline(recorder), launched() + failed() +
                                    QStringList{u"log auto-restart em 20ms (tentativa 1 na janela)"_s} +
                                    launched());
    QVERIFY(pipeline.isTransmitting());
}

void tst_PipelineRestart::disabledPolicy_data()
{
    QTest::addColumn<bool>("autoRestart");
    QTest::addColumn<bool>("policyEnabled");

    QTest::newRow("switched off in the record") << false << true;
    QTest::newRow("switched off in the policy") << true << false;
    QTest::newRow("switched off in both") << false << false;
}

void tst_PipelineRestart::disabledPolicy()
{
    QFETCH(const bool, autoRestart);
    QFETCH(const bool, policyEnabled);
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.autoRestart = autoRestart;
    config.restart.enabled = policyEnabled;
    config.restart.initialBackoffMs = 1;
    config.restart.maxRestartsInWindow = 0; // the circuit isn't even consulted
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Failed; }));
    passTimersOf(100);

    QCOMPARE(outline(recorder), launched() + failed());
}

void tst_PipelineRestart::openCircuit()
{
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 10;
    config.restart.maxRestartsInWindow = 2;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    const auto isOpen = [&] { return recorder.containsPart(u"circuit breaker ABERTO"_s); };
    const QStringList wholeChain =
        launched() + failed() + QStringList{u"log auto-restart em 10ms (tentativa 1 na janela)"_s} +
        launched() + failed() + QStringList{u"log auto-restart em 20ms (tentativa 2 na janela)"_s} +
        launched() + failed() + opened(3);

    pipeline.start();
    QVERIFY(waitUntil(isOpen));
    passTimersOf(100);
    QCOMPARE(outline(recorder), wholeChain);
    QCOMPARE(pipeline.state(), Pipeline::State::Failed);

    // A start is still granted, but keeps the history: the next failure opens the circuit at once.
    for (int failures = 4; failures <= 5; ++failures) {
        recorder.clear();
        pipeline.start();
        QVERIFY(waitUntil(isOpen));
        passTimersOf(100);
        QCOMPARE(outline(recorder), launched() + failed() + opened(failures));
    }

    // A stop clears the history.
    recorder.clear();
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});
    recorder.clear();
    pipeline.start();
    QVERIFY(waitUntil(isOpen));
    QCOMPARE(outline(recorder), wholeChain);
}

void tst_PipelineRestart::stopDuringTheBackOff()
{
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 200;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"auto-restart em 200ms"_s); }));

    recorder.clear();
    pipeline.stop();
    passTimersOf(400);
    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});

    // The history is empty: the next failure is the first one.
    recorder.clear();
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"auto-restart"_s); }));
    QCOMPARE(outline(recorder),
             launched() + failed() + QStringList{u"log auto-restart em 200ms (tentativa 1 na janela)"_s});
}

void tst_PipelineRestart::startDuringTheBackOff()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    PipelineConfig config = fakeConfig(u"once=%1,exit=3,end,progress"_s.arg(stepText(first.toUtf8())));
    config.restart.initialBackoffMs = 300;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"auto-restart em 300ms"_s); }));

    recorder.clear();
    pipeline.start();
    passTimersOf(600);

    QCOMPARE(outline(recorder), launched());
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QCOMPARE(pipeline.findChildren<QProcess *>().size(), 2); // the dead one and the one at work
}

void tst_PipelineRestart::backOffLastsAsLongAsItsLine()
{
    QVERIFY(waitUntil([] { return pendingShots().isEmpty(); })); // of earlier functions' pipelines
    Pipeline pipeline(fakeConfig(u"exit=3"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    QList<int> delays;
    for (const int delay : {1000, 2000, 4000}) {
        delays << delay;
        pipeline.start();
        QVERIFY(endRun(pipeline));
        QVERIFY(recorder.logLines().constLast().startsWith(u"auto-restart em %1ms "_s.arg(delay)));
        QCOMPARE(pendingShots(), delays);
    }
}

void tst_PipelineRestart::cleanExitDuringTheBackOff()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    PipelineConfig config = fakeConfig(u"once=%1,exit=3,end,exit=0"_s.arg(stepText(first.toUtf8())));
    config.restart.initialBackoffMs = 200;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QCOMPARE(pipeline.state(), Pipeline::State::Failed);

    // The operator's run comes to its end, with no stop: the timer finds no failure.
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    recorder.clear();
    passTimersOf(400);

    QCOMPARE(recorder.events(), QStringList());
}

void tst_PipelineRestart::staleTimerStartsWhatHasFailedAgain()
{
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 50;
    config.restart.maxRestartsInWindow = 1;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(endRun(pipeline));

    // The operator's run within the back-off fails too, and arms nothing. The timer of the first one is due.
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QVERIFY(recorder.containsPart(u"circuit breaker ABERTO: 2 restarts"_s));
    recorder.clear();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit breaker ABERTO: 3 restarts"_s); }));

    QCOMPARE(outline(recorder), launched() + failed() + opened(3));
}

void tst_PipelineRestart::timerDiesWithItsPipeline()
{
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 100;
    std::optional<Pipeline> place(std::in_place, config, fakeFfmpeg(), false);
    place->start();
    QVERIFY(endRun(*place));
    QCOMPARE(place->state(), Pipeline::State::Failed);

    // Another one in its place in memory would start again.
    place.emplace(PipelineConfig(), QString(), false);
    place->start();
    QCOMPARE(place->state(), Pipeline::State::Failed); // it has no outputs
    const Recorder recorder(*place);
    passTimersOf(300);
    QCOMPARE(recorder.events(), QStringList());
}

void tst_PipelineRestart::longRunResetsTheBackOff()
{
    // Half of the window of one second is 500 ms; each run lasts longer.
    PipelineConfig config = fakeConfig(u"pause=700,exit=3"_s);
    config.restart.initialBackoffMs = 10;
    config.restart.windowSec = 1;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.count(u"state failed"_s) == 4; }));

    QStringList delays;
    for (const QString &line : recorder.logLines()) {
        if (line.startsWith("auto-restart em "_L1))
            delays << line.section(u' ', 2, 2);
    }
    QCOMPARE(delays.first(3), QStringList({u"10ms"_s, u"10ms"_s, u"10ms"_s}));
}

void tst_PipelineRestart::cleanExitEndsTheChain()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    PipelineConfig config = fakeConfig(u"once=%1,exit=3,end,exit=0"_s.arg(stepText(first.toUtf8())));
    config.restart.initialBackoffMs = 10;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.contains(u"state stopped"_s); }));
    passTimersOf(100);

    QCOMPARE(outline(recorder), launched() + failed() +
                                    QStringList{u"log auto-restart em 10ms (tentativa 1 na janela)"_s} +
                                    launched() + QStringList{u"state stopped"_s});
}

void tst_PipelineRestart::processesOfEarlierRunsStay()
{
    PipelineConfig config = fakeConfig(u"exit=3"_s);
    config.restart.initialBackoffMs = 1;
    config.restart.maxRestartsInWindow = 4;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    const auto processes = [&] { return pipeline.findChildren<QProcess *>().size(); };

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit "_s); }));
    QCOMPARE(processes(), 5);

    // A stop disposes of the last one; the others go with the pipeline.
    pipeline.stop();
    QVERIFY(waitUntil([&] { return processes() == 4; }));
}

CORVANE_TEST(tst_PipelineRestart, QCoreApplication)
#include "tst_PipelineRestart.moc"
