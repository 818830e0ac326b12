// Patience with children that don't leave, to the millisecond, and without the time that it takes.

#include "engine/host/EnvironmentProbe.h"
#include "pipeline/Pipeline.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <dlfcn.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QList<int> waits;     ///< times that were granted, in milliseconds
bool endless = false; ///< every wait is over at once, and in vain

} // namespace

// Replacement of Qt's own: a program's symbols come before those of the libraries that it is linked to.
bool QProcess::waitForFinished(int msecs)
{
    waits << msecs;
    if (endless)
        return false;
    using Wait = bool (*)(QProcess *, int);
    static const auto wait = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "_ZN8QProcess15waitForFinishedEi"));
    return wait(this, msecs);
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
    const EnvironmentProbe found = EnvironmentProbe::run();
    QCOMPARE(waits, QList({5000, 5000}));
    QCOMPARE(found.availableEncoders, QStringList{u"libx264"_s});
}

CORVANE_TEST(tst_ChildPatience, QCoreApplication)
#include "tst_ChildPatience.moc"
