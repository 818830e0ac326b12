// Limits of time to the millisecond, by a clock in the test's hands.

#include "engine/host/Clock.h"
#include "pipeline/Pipeline.h"
#include "tests/pipeline/PipelineTimers.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

qint64 clockMs = 0;

bool isRunning(const Pipeline &pipeline)
{
    return pipeline.state() == Pipeline::State::Running;
}

QStringList hangs(const Recorder &recorder)
{
    return recorder.logLines().filter(u"HANG detectado"_s);
}

QStringList backOffs(const Recorder &recorder)
{
    return recorder.logLines().filter(u"auto-restart em "_s);
}

} // namespace

// Replacement that the pipelines call: the library's own doesn't come into the program.
qint64 corvane::nowMs()
{
    return clockMs;
}

class tst_PipelineClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { clockMs = 1'800'000'000'000; }
    void hangTakesMoreThanEightSeconds();
    void hangCountsFromTheLastProgress();
    void hangOfALaterRunCountsFromItsOwnStart();
    void lengthOfARun_data();
    void lengthOfARun();
};

void tst_PipelineClock::hangTakesMoreThanEightSeconds()
{
    Pipeline pipeline(fakeConfig(u"end"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return isRunning(pipeline); }));

    for (const int elapsed : {-1, 0, 7999, 8000}) {
        clockMs = 1'800'000'000'000 + elapsed;
        fire(*hangTimer(pipeline));
        QCOMPARE(hangs(recorder), QStringList());
    }
    clockMs = 1'800'000'008'001;
    fire(*hangTimer(pipeline));
    QCOMPARE(hangs(recorder), QStringList{u"HANG detectado: ffmpeg sem progresso há 8001ms — reiniciando"_s});
}

void tst_PipelineClock::hangCountsFromTheLastProgress()
{
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    Pipeline pipeline(fakeConfig(u"await=%1,progress=1,end"_s.arg(stepText(sign.toUtf8()))), fakeFfmpeg(),
                      false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return isRunning(pipeline); }));

    clockMs += 5000;
    createFile(sign);
    QVERIFY(awaitProgress(recorder));
    clockMs += 8000;
    fire(*hangTimer(pipeline));
    QCOMPARE(hangs(recorder), QStringList());
    clockMs += 1;
    fire(*hangTimer(pipeline));
    QCOMPARE(hangs(recorder), QStringList{u"HANG detectado: ffmpeg sem progresso há 8001ms — reiniciando"_s});
}

void tst_PipelineClock::hangOfALaterRunCountsFromItsOwnStart()
{
    Pipeline pipeline(fakeConfig(u"end"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return isRunning(pipeline); }));
    pipeline.stop();

    clockMs += 3'600'000;
    pipeline.start();
    QVERIFY(waitUntil([&] { return isRunning(pipeline); }));
    clockMs += 8000;
    fire(*hangTimer(pipeline));
    QCOMPARE(hangs(recorder), QStringList());
    clockMs += 1;
    fire(*hangTimer(pipeline));
    QCOMPARE(hangs(recorder), QStringList{u"HANG detectado: ffmpeg sem progresso há 8001ms — reiniciando"_s});
}

void tst_PipelineClock::lengthOfARun_data()
{
    QTest::addColumn<int>("pauseMs"); // between the first run, which fails at once, and the second
    QTest::addColumn<int>("runMs");   // of the second
    QTest::addColumn<int>("delayMs"); // behind it

    QTest::newRow("short") << 0 << 10 << 2000;
    QTest::newRow("half the window keeps the exponent") << 0 << 60000 << 2000;
    QTest::newRow("more than that resets it") << 0 << 60001 << 1000;
    QTest::newRow("the time before it doesn't count") << 30000 << 40000 << 2000;
}

void tst_PipelineClock::lengthOfARun()
{
    QFETCH(const int, pauseMs);
    QFETCH(const int, runMs);
    QFETCH(const int, delayMs);
    Pipeline pipeline(fakeConfig(u"exit=3"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    // No turn of the event loop, so no automatic restart between.
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QCOMPARE(backOffs(recorder), QStringList{u"auto-restart em 1000ms (tentativa 1 na janela)"_s});

    clockMs += pauseMs;
    connect(&pipeline, &Pipeline::logLine, this, [&](const QString &line) {
        if (line.startsWith(u"ffmpeg rodando"_s))
            clockMs += runMs;
    });
    pipeline.start();
    QVERIFY(endRun(pipeline));
    QCOMPARE(backOffs(recorder).constLast(), u"auto-restart em %1ms (tentativa 2 na janela)"_s.arg(delayMs));
}

CORVANE_TEST(tst_PipelineClock, QCoreApplication)
#include "tst_PipelineClock.moc"
