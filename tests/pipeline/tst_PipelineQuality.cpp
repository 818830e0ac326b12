#include "pipeline/Pipeline.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString stepLine = u"log DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s;
} // namespace

/// Dropped frames end a run and lower the rate.
class tst_PipelineQuality : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threeBadSecondsEndTheRun();
    void stopBeforeTheRelaunch();
    void dropsFromTheFirstSecondAreForgiven();
};

void tst_PipelineQuality::threeBadSecondsEndTheRun()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    const QString arguments = dir.filePath(u"arguments"_s);
    PipelineConfig config = fakeConfig(
        u"append=%1,args=%2,drops=50"_s.arg(stepText(pids.toUtf8()), stepText(arguments.toUtf8())));
    config.restart.maxRestartsInWindow = 0; // a failure, if it were counted, would open the circuit
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    QVERIFY(fileLines(arguments).join(u' ').contains(u" -b:v 6000k "_s));
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }, 60000));
    const qint64 pid = lastPid(recorder);

    QCOMPARE(outline(recorder), launched() + QStringList({stepLine, u"quality 1 bitrate-75"_s,
                                                          u"log ffmpeg errorOccurred: 1"_s, relaunchLine()}));
    // A first second as the reference and three bad ones; each is reported before it is acted on.
    QCOMPARE_GE(recorder.count(u"telemetry"_s), 4);
    const qsizetype step = recorder.events().indexOf(stepLine);
    QCOMPARE(recorder.events().at(step - 1), u"telemetry"_s);

    // The relaunch is due 200 ms later and finds `Running`: nothing starts by itself.
    recorder.clear();
    passTimersOf(600);
    QCOMPARE(recorder.events(), QStringList());
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QVERIFY(pipeline.isTransmitting());
    QVERIFY(!processExists(pid));
    QCOMPARE(fileLines(pids).size(), 1);
    for (const QTimer *timer : pipeline.findChildren<QTimer *>())
        QVERIFY(!timer->isActive());
    QCOMPARE(pipeline.telemetry().fps, 30.0); // frozen
    QCOMPARE(pipeline.config().encoder.bitrate, 4500);
    QCOMPARE(pipeline.level(), 1);

    pipeline.start();
    QCOMPARE(recorder.events(), QStringList()); // refused like any start in `Running`

    // The operator's stop and start runs at the lower rate, on the same level.
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});
    recorder.clear();
    pipeline.start();
    QVERIFY(awaitProgress(recorder));
    QCOMPARE(outline(recorder), launched());
    QVERIFY(fileLines(arguments).join(u' ').contains(u" -b:v 4500k "_s));
    QCOMPARE(pipeline.level(), 1);
    QCOMPARE(fileLines(pids).size(), 2);
}

void tst_PipelineQuality::stopBeforeTheRelaunch()
{
    const QTemporaryDir dir;
    const QString pids = dir.filePath(u"pids"_s);
    Pipeline pipeline(fakeConfig(u"append=%1,drops=50"_s.arg(stepText(pids.toUtf8()))), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }, 60000));

    recorder.clear();
    pipeline.stop();
    passTimersOf(600);

    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QCOMPARE(fileLines(pids).size(), 1);
}

void tst_PipelineQuality::dropsFromTheFirstSecondAreForgiven()
{
    const QString line = stepText("frame=1 fps=30 bitrate=6000.0kbits/s drop=9000\n");
    Pipeline pipeline(fakeConfig(u"stderr=%1,end"_s.arg(line)), fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) >= 5; }));

    QCOMPARE(outline(recorder), launched());
    QCOMPARE(pipeline.telemetry().dropped, 9000);
    QCOMPARE(pipeline.level(), 0);
}

CORVANE_TEST(tst_PipelineQuality, QCoreApplication)
#include "tst_PipelineQuality.moc"
