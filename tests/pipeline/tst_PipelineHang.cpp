#include "pipeline/Pipeline.h"
#include "tests/pipeline/PipelineTimers.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// `step` and a pause of 100 ms, repeated for ten seconds.
QString repeatedly(const QByteArray &text)
{
    return u"stderr=%1,pause=100,"_s.arg(stepText(text)).repeated(100) + u"end"_s;
}

/// The figure in the line that reports a hang; -1 if `line` isn't one.
qint64 hangFigure(const QString &line)
{
    static const QRegularExpression hang(
        u"^HANG detectado: ffmpeg sem progresso há (\\d+)ms — reiniciando$"_s);
    const auto match = hang.match(line);
    return match.hasMatch() ? match.capturedView(1).toLongLong() : -1;
}

} // namespace

class tst_PipelineHang : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killsAHungChild_data();
    void killsAHungChild();
    void progressIsNoHang_data();
    void progressIsNoHang();
    void hangsAndCrashesCountAlike();
    void checksNoMoreOnceItHasKilled();
    void survivesAStopOnItsLine();
};

void tst_PipelineHang::killsAHungChild_data()
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<int>("hangTimeoutMs");

    QTest::newRow("silent from the start") << u"end"_s << 1000;
    // Checked every 2000 ms, this one is exactly at the limit, which isn't yet a hang.
    QTest::newRow("at the limit") << u"end"_s << 2000;
    QTest::newRow("silent after progress") << u"progress=3"_s << 1000;
    QTest::newRow("warns, but makes no progress") << repeatedly("[tcp @ 0x1] still trying\n") << 1000;
    QTest::newRow("figures without a mark") << repeatedly("fps=30 drop=0\n") << 1000;
    QTest::newRow("wouldn't read a q") << u"ignore-q"_s << 1000;
}

void tst_PipelineHang::killsAHungChild()
{
    QFETCH(const QString, steps);
    QFETCH(const int, hangTimeoutMs);
    PipelineConfig config = fakeConfig(steps);
    config.restart.hangTimeoutMs = hangTimeoutMs;
    config.restart.initialBackoffMs = 20;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return lastPid(recorder) > 0; }));
    const qint64 pid = lastPid(recorder);
    QVERIFY(waitUntil([&] { return recorder.count(u"state running"_s) == 2; }));
    QVERIFY(!processExists(pid));

    QStringList story = outline(recorder);
    story.removeAll(u"log [tcp @ 0x1] still trying"_s);
    story.removeAll(u"log fps=30 drop=0"_s);
    story = story.sliced(0, 11);
    const qint64 figure = hangFigure(story.takeAt(4).sliced(4));
    QCOMPARE_GT(figure, hangTimeoutMs);
    QCOMPARE(story, launched() +
                        QStringList({u"log ffmpeg errorOccurred: 1"_s,
                                     u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode()),
                                     u"state failed"_s, u"log auto-restart em 20ms (tentativa 1 na janela)"_s,
                                     u"state starting"_s, u"log ffmpeg <arguments>"_s}));
}

void tst_PipelineHang::progressIsNoHang_data()
{
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("frozen at no frame a second") << "frame=7 fps=0.0 bitrate=N/A drop=0\r"_ba;
    QTest::newRow("bit rate alone") << "size=1kB bitrate=N/A speed=0x\r"_ba;
}

void tst_PipelineHang::progressIsNoHang()
{
    QFETCH(const QByteArray, line);
    PipelineConfig config = fakeConfig(repeatedly(line));
    config.restart.hangTimeoutMs = 1900; // without progress, the first check after 2000 ms would find a hang
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) >= 5; })); // two checks have been made

    QCOMPARE(outline(recorder), launched());
    QCOMPARE(pipeline.telemetry().fps, 0.0);
}

void tst_PipelineHang::hangsAndCrashesCountAlike()
{
    const QTemporaryDir dir;
    const QString first = dir.filePath(u"first"_s);
    // Hangs, and exits with an error when it wakes up.
    PipelineConfig config = fakeConfig(u"once=%1,pause=60000,end,exit=3"_s.arg(stepText(first.toUtf8())));
    config.restart.hangTimeoutMs = 1000;
    config.restart.initialBackoffMs = 10;
    config.restart.maxRestartsInWindow = 2;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit "_s); }));

    const QStringList lines = recorder.logLines();
    QStringList verdicts;
    qsizetype hangs = 0;
    for (const QString &line : lines) {
        if (line.startsWith("ERRO: "_L1) || line.startsWith("auto-restart"_L1) ||
            line.startsWith("FATAL: "_L1))
            verdicts << line;
        if (hangFigure(line) >= 0)
            ++hangs;
    }
    QCOMPARE(
        verdicts,
        QStringList({u"ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode()),
                     u"auto-restart em 10ms (tentativa 1 na janela)"_s, u"ERRO: ffmpeg saiu (code=3, erro)"_s,
                     u"auto-restart em 20ms (tentativa 2 na janela)"_s, u"ERRO: ffmpeg saiu (code=3, erro)"_s,
                     u"FATAL: circuit breaker ABERTO: 3 restarts em 120s — parando auto-restart "
                     "(intervenção necessária)"_s}));
    QCOMPARE(hangs, 1);
}

void tst_PipelineHang::checksNoMoreOnceItHasKilled()
{
    PipelineConfig config = fakeConfig(u"end"_s);
    config.restart.hangTimeoutMs = -1; // any run has hung by then
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Running; }));

    QList<bool> active;
    connect(&pipeline, &Pipeline::logLine, this, [&](const QString &line) {
        if (hangFigure(line) >= 0)
            active << hangTimer(pipeline)->isActive();
    });
    fire(*hangTimer(pipeline));
    active << hangTimer(pipeline)->isActive();
    QCOMPARE(active, QList({true, false})); // the exit of the killed child is still to come
    QCOMPARE(pipeline.state(), Pipeline::State::Running);

    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Failed; }));
    QVERIFY(recorder.contains(u"log ERRO: ffmpeg saiu (code=%1, crash)"_s.arg(killedExitCode())));
}

void tst_PipelineHang::survivesAStopOnItsLine()
{
    PipelineConfig config = fakeConfig(u"end"_s);
    config.restart.hangTimeoutMs = 1000;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    connect(&pipeline, &Pipeline::logLine, &pipeline, [&pipeline](const QString &line) {
        if (hangFigure(line) >= 0)
            pipeline.stop();
    });

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.contains(u"state stopped"_s); }));

    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
    QVERIFY(waitUntil([&] { return pipeline.findChildren<QProcess *>().isEmpty(); }));
}

CORVANE_TEST(tst_PipelineHang, QCoreApplication)
#include "tst_PipelineHang.moc"
