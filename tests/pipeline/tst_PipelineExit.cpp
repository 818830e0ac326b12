#include "pipeline/Pipeline.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Runs that fail: exits, crashes, programs that can't be launched, records that can't be built.
class tst_PipelineExit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exit_data();
    void exit();
    void startsAgainAfterAnEnd_data();
    void startsAgainAfterAnEnd();
    void launchFailure_data();
    void launchFailure();
    void buildFailure_data();
    void buildFailure();
};

namespace {

} // namespace

void tst_PipelineExit::exit_data()
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QStringList>("after"); // events after the launch
    QTest::addColumn<Pipeline::State>("state");

    QTest::newRow("clean exit is not worth a word")
        << u"exit=0"_s << QStringList{u"state stopped"_s} << Pipeline::State::Stopped;
    QTest::newRow("error code") << u"exit=3"_s
                                << QStringList{u"log ERRO: ffmpeg saiu (code=3, erro)"_s, u"state failed"_s}
                                << Pipeline::State::Failed;
    QTest::newRow("largest error code")
        << u"exit=255"_s << QStringList{u"log ERRO: ffmpeg saiu (code=255, erro)"_s, u"state failed"_s}
        << Pipeline::State::Failed;
    QTest::newRow("last words before the exit")
        << u"stderr=%1,exit=1"_s.arg(stepText("rtmp://x: Connection refused\n"))
        << QStringList{u"log rtmp://x: Connection refused"_s, u"log ERRO: ffmpeg saiu (code=1, erro)"_s,
                       u"state failed"_s}
        << Pipeline::State::Failed;
    QTest::newRow("crash") << u"crash"_s
                           << QStringList{u"log ffmpeg errorOccurred: 1"_s,
                                          u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(crashedExitCode()),
                                          u"state failed"_s}
                           << Pipeline::State::Failed;
}

void tst_PipelineExit::exit()
{
    QFETCH(const QString, steps);
    QFETCH(const QStringList, after);
    QFETCH(const Pipeline::State, state);
    const QTemporaryDir dir;
    const QString sign = dir.filePath(u"go"_s);
    PipelineConfig config = fakeConfig(u"await=%1,"_s.arg(stepText(sign.toUtf8())) + steps);
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));
    createFile(sign);
    QVERIFY(waitUntil([&] { return !pipeline.isTransmitting(); }));

    QCOMPARE(outline(recorder), launched() + after);
    QCOMPARE(pipeline.state(), state);
    for (const QTimer *timer : pipeline.findChildren<QTimer *>())
        QVERIFY(!timer->isActive());
    // Only stop() disposes of a process.
    QCOMPARE(pipeline.findChildren<QProcess *>().size(), 1);

    recorder.clear();
    pipeline.stop();
    QCOMPARE(outline(recorder),
             state == Pipeline::State::Stopped ? QStringList() : QStringList{u"state stopped"_s});
}

void tst_PipelineExit::startsAgainAfterAnEnd_data()
{
    QTest::addColumn<QString>("end");

    QTest::newRow("clean exit") << u"exit=0"_s;
    QTest::newRow("error code") << u"exit=3"_s;
    QTest::newRow("crash") << u"crash"_s;
}

void tst_PipelineExit::startsAgainAfterAnEnd()
{
    QFETCH(const QString, end);
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    PipelineConfig config = fakeConfig(u"once=%1,%2,end,progress"_s.arg(stepText(first.toUtf8()), end));
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return !pipeline.isTransmitting(); }));
    recorder.clear();
    pipeline.start();
    QVERIFY(awaitProgress(recorder));

    QCOMPARE(outline(recorder), launched());
}

void tst_PipelineExit::launchFailure_data()
{
    QTest::addColumn<QString>("program");

    QTest::newRow("missing") << u"absent"_s;
    QTest::newRow("missing folder") << u"absent/ffmpeg"_s;
    QTest::newRow("no rights") << u"not-executable"_s;
    QTest::newRow("folder") << u"."_s;
    QTest::newRow("empty path") << QString();
}

void tst_PipelineExit::launchFailure()
{
    QFETCH(const QString, program);
    const QTemporaryDir dir;
    createFile(dir.filePath(u"not-executable"_s));
    Pipeline pipeline(fakeConfig(u"progress"_s), program.isEmpty() ? program : dir.filePath(program), false);
    Recorder recorder(pipeline);

    for (int attempt = 1; attempt <= 2; ++attempt) {
        recorder.clear();
        pipeline.start();
        QVERIFY(waitUntil([&] { return recorder.contains(u"log ffmpeg errorOccurred: 0"_s); }));
        pipeline.start();
        passTimersOf(50); // whatever else was pending
        QCOMPARE(pipeline.state(), Pipeline::State::Starting);
        QVERIFY(pipeline.findChildren<QTimer *>().isEmpty());

        pipeline.stop();
        QCOMPARE(outline(recorder), QStringList({u"state starting"_s, u"log ffmpeg <arguments>"_s,
                                                 u"log ffmpeg errorOccurred: 0"_s, u"state stopped"_s}));
    }
}

void tst_PipelineExit::buildFailure_data()
{
    QTest::addColumn<QList<bool>>("outputs"); // enabled or not

    QTest::newRow("no output") << QList<bool>{};
    QTest::newRow("a disabled output") << QList{false};
    QTest::newRow("disabled outputs alone") << QList{false, false};
}

void tst_PipelineExit::buildFailure()
{
    QFETCH(const QList<bool>, outputs);
    PipelineConfig config = fakeConfig(u"progress"_s);
    const OutputConfig output = config.outputs.takeFirst();
    for (const bool enabled : outputs) {
        config.outputs << output;
        config.outputs.last().enabled = enabled;
    }
    config.restart.initialBackoffMs = 1;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    // The second start comes from `Failed`. Neither is followed by an automatic one.
    for (int attempt = 1; attempt <= 2; ++attempt) {
        recorder.clear();
        pipeline.start();
        passTimersOf(100);
        QCOMPARE(recorder.events(),
                 QStringList({u"state starting"_s, u"log ERRO: Pipeline sem saídas habilitadas"_s,
                              u"state failed"_s}));
        QVERIFY(pipeline.children().isEmpty());
    }

    recorder.clear();
    pipeline.stop();
    QCOMPARE(recorder.events(), QStringList{u"state stopped"_s});
}

CORVANE_TEST(tst_PipelineExit, QCoreApplication)
#include "tst_PipelineExit.moc"
