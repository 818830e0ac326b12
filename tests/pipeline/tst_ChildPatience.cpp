// Patience with children that don't leave, to the millisecond, and without the time that it takes.

#include "engine/host/EnvironmentProbe.h"
#include "pipeline/Pipeline.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QDeadlineTimer>
#include <QTest>

#include <utility>

#include <dlfcn.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QList<int> waits;        ///< times that were granted, in milliseconds
QList<qint64> deadlines; ///< those that were set since, likewise
bool endless = false;    ///< every wait is over at once, and in vain
bool asking = false;     ///< deadlines are written down: those of the program, not those of Qt's waits

} // namespace

// Replacements of Qt's own: a program's symbols come before those of the libraries that it is linked to.
bool QProcess::waitForFinished(int msecs)
{
    waits << msecs;
    if (endless)
        return false;
    using Wait = bool (*)(QProcess *, int);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "_ZN8QProcess15waitForFinishedEi"));
    const bool wasAsking = std::exchange(asking, false);
    const bool finished = wait(this, msecs);
    asking = wasAsking;
    return finished;
}

QDeadlineTimer::QDeadlineTimer(qint64 msecs, Qt::TimerType timerType) noexcept
    : QDeadlineTimer(timerType)
{
    if (asking)
        deadlines << msecs;
    setRemainingTime(msecs, timerType);
}

class tst_ChildPatience : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { endless = false; }
    void stopWaitsOnceForEach();
    void endOfARunWaitsOnceForEach();
    void questionsToFfmpeg();
};

void tst_ChildPatience::init()
{
    waits.clear();
    deadlines.clear();
    endless = false;
}

void tst_ChildPatience::stopWaitsOnceForEach()
{
    const TransportTools tools(u"ignore-term"_s);
    Pipeline pipeline(transportConfig({srtOutput(8900), bondedOutput(8910, 8911)}, u"ignore-q,progress"_s),
                      fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 3));
    QCOMPARE(waits, QList<int>());

    endless = true;
    pipeline.stop();
    QCOMPARE(waits, QList({3000, 2000, 2000, 2000})); // ffmpeg, the launcher, two bridges; none behind a kill
    endless = false;
    QVERIFY(waitUntil([] { return childProcesses().isEmpty(); }));
}

void tst_ChildPatience::endOfARunWaitsOnceForEach()
{
    const TransportTools tools(u"ignore-term"_s);
    PipelineConfig config =
        transportConfig({srtOutput(8900), bondedOutput(8910, 8911)}, u"ignore-q,progress"_s);
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 3));

    endless = true;
    connect(&pipeline, &Pipeline::stateChanged, this, [] { endless = false; });
    killProcess(lastPid(recorder));
    QVERIFY(waitUntil([&] { return pipeline.state() == Pipeline::State::Failed; }));
    QCOMPARE(waits.first(3), QList({2000, 2000, 2000})); // the others are those of the objects' disposal
    QVERIFY(waitUntil([] { return childProcesses().isEmpty(); }));
}

void tst_ChildPatience::questionsToFfmpeg()
{
    ToolPath path;
    path.addFakeFfmpeg(" V....D libx264\n", "  srt\n");
    asking = true;
    const EnvironmentProbe found = EnvironmentProbe::run();
    asking = false;
    QCOMPARE(deadlines, QList<qint64>({5000, 5000}));
    // Each wait has what the start of the child has left of it.
    QCOMPARE(waits.size(), 2);
    for (const int wait : std::as_const(waits))
        QVERIFY2(wait > 0 && wait <= 5000, qPrintable(QString::number(wait)));
    QCOMPARE(found.availableEncoders, QStringList{u"libx264"_s});
}

CORVANE_TEST(tst_ChildPatience, QCoreApplication)
#include "tst_ChildPatience.moc"
