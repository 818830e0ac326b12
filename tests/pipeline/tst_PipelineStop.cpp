#include "pipeline/Pipeline.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

class tst_PipelineStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void stoppedPipelineSaysNothing();
    void stopsWhileStarting();
    void badExitOnRequest();
    void killsAChildThatIgnoresTheRequest();
    void killedChildDoesNotDisturbTheNextRun();
    void survivesAStopWithinAStop_data();
    void survivesAStopWithinAStop();
    void repeatedCyclesEndStopped();
    void destructorLeavesNoProcess_data();
    void destructorLeavesNoProcess();
    void parentTakesItAlong();
};

void tst_PipelineStop::init()
{
    // Qt's own English words for a child that lives on.
    QTest::failOnWarning(QRegularExpression(u"Destroyed while process"_s));
}

void tst_PipelineStop::stoppedPipelineSaysNothing()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.stop();
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList());
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);

    // It doesn't hinder a start.
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    pipeline.stop();
    recorder.clear();
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList());
}

void tst_PipelineStop::stopsWhileStarting()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QCOMPARE(pipeline.state(), launchedState());
    pipeline.stop();

    // The wait for the exit processes the start first.
    QCOMPARE(outline(recorder), launched() + QStringList{u"state stopped"_s});
    QVERIFY(!processExists(lastPid(recorder)));
    for (const QTimer *timer : pipeline.findChildren<QTimer *>())
        QVERIFY(!timer->isActive());
}

void tst_PipelineStop::badExitOnRequest()
{
    PipelineConfig config = fakeConfig(u"quit-code=5,progress"_s);
    config.restart.initialBackoffMs = 1;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitProgress(recorder));

    recorder.clear();
    pipeline.stop();
    passTimersOf(100);

    QCOMPARE(outline(recorder),
             QStringList({u"log ERRO: ffmpeg saiu (code=5, erro)"_s, u"state failed"_s, u"state stopped"_s}));
}

void tst_PipelineStop::killsAChildThatIgnoresTheRequest()
{
    const QTemporaryDir dir;
    const QString input = dir.filePath(u"input"_s);
    PipelineConfig config = fakeConfig(u"ignore-q,input=%1,progress"_s.arg(stepText(input.toUtf8())));
    config.restart.initialBackoffMs = 1;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    const qint64 pid = lastPid(recorder);

    recorder.clear();
    QElapsedTimer clock;
    clock.start();
    pipeline.stop();
    QCOMPARE_GE(clock.elapsed(), 3000);
    QCOMPARE_LT(clock.elapsed(), 8000);
    QCOMPARE(outline(recorder), QStringList{u"state stopped"_s});
    for (const QTimer *timer : pipeline.findChildren<QTimer *>())
        QVERIFY(!timer->isActive()); // though the exit is still to come
    QFile asked(input);
    QVERIFY(asked.open(QIODevice::ReadOnly));
    QCOMPARE(asked.readAll(), "q"_ba); // once, without a line end

    // The exit of the killed child arrives later, and counts as a failure without a restart.
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Failed; }));
    QVERIFY(!processExists(pid));
    QVERIFY(pipeline.findChildren<QProcess *>().isEmpty());
    passTimersOf(100);
    QCOMPARE(
        outline(recorder),
        QStringList({u"state stopped"_s, u"log ffmpeg errorOccurred: 1"_s,
                     u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode()), u"state failed"_s}));

    recorder.clear();
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});
}

void tst_PipelineStop::killedChildDoesNotDisturbTheNextRun()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    Pipeline pipeline(fakeConfig(u"once=%1,ignore-q,progress,end,progress"_s.arg(stepText(first.toUtf8()))),
                      fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    const qint64 killed = lastPid(recorder);

    pipeline.stop();
    recorder.clear();
    pipeline.start();
    QVERIFY(waitUntil([&] { return lastPid(recorder) > 0 && !processExists(killed); }));
    // The new run's watchdog goes on ticking.
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) >= 2; }));

    QCOMPARE(outline(recorder), launched());
    QVERIFY(lastPid(recorder) != killed);
    QVERIFY(processExists(lastPid(recorder)));
    for (const QTimer *timer : pipeline.findChildren<QTimer *>())
        QVERIFY(timer->isActive());
}

void tst_PipelineStop::survivesAStopWithinAStop_data()
{
    QTest::addColumn<QString>("event"); // at which a slot stops the pipeline again
    QTest::addColumn<QStringList>("story");

    const QString error = u"log ERRO: ffmpeg saiu (code=5, erro)"_s;
    const QString failed = u"state failed"_s;
    const QString stopped = u"state stopped"_s;
    QTest::newRow("on the line of the exit") << error << QStringList{error, stopped, failed, stopped};
    QTest::newRow("on the failure") << failed << QStringList{error, failed, stopped};
    QTest::newRow("at the end") << stopped << QStringList{error, failed, stopped};
}

void tst_PipelineStop::survivesAStopWithinAStop()
{
    QFETCH(const QString, event);
    Pipeline pipeline(fakeConfig(u"quit-code=5,progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"stats frame="_s); }));
    const qint64 pid = lastPid(recorder);
    recorder.clear();
    connect(&recorder, &Recorder::added, &pipeline, [&] {
        if (recorder.events().constLast() == event)
            pipeline.stop();
    });

    pipeline.stop();

    QTEST(outline(recorder), "story");
    QVERIFY(!processExists(pid));
    QVERIFY(waitUntil([&] { return pipeline.findChildren<QProcess *>().isEmpty(); }));
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
}

void tst_PipelineStop::repeatedCyclesEndStopped()
{
    Pipeline pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    for (int cycle = 1; cycle <= 10; ++cycle) {
        recorder.clear();
        pipeline.start();
        if (cycle % 2 == 0)
            QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
        pipeline.stop();
        QCOMPARE(outline(recorder), launched() + QStringList{u"state stopped"_s});
    }
}

void tst_PipelineStop::destructorLeavesNoProcess_data()
{
    QTest::addColumn<QString>("steps");

    QTest::newRow("leaves when asked") << u"progress"_s;
    QTest::newRow("ignores the request") << u"ignore-q,progress"_s;
    QTest::newRow("leaves with an error") << u"quit-code=5,progress"_s;
}

void tst_PipelineStop::destructorLeavesNoProcess()
{
    QFETCH(const QString, steps);
    auto pipeline = std::make_unique<Pipeline>(fakeConfig(steps), fakeFfmpeg(), false);
    const Recorder recorder(*pipeline);
    pipeline->start();
    QVERIFY(awaitProgress(recorder));
    const qint64 pid = lastPid(recorder);
    QVERIFY(processExists(pid));

    pipeline.reset();

    QVERIFY(!processExists(pid));
}

void tst_PipelineStop::parentTakesItAlong()
{
    auto owner = std::make_unique<QObject>();
    auto *pipeline = new Pipeline(fakeConfig(u"progress"_s), fakeFfmpeg(), false, owner.get());
    const Recorder recorder(*pipeline);
    pipeline->start();
    QVERIFY(awaitProgress(recorder));
    const qint64 pid = lastPid(recorder);

    owner.reset();

    QVERIFY(pid > 0);
    QVERIFY(!processExists(pid));
}

CORVANE_TEST(tst_PipelineStop, QCoreApplication)
#include "tst_PipelineStop.moc"
