#include "pipeline/Pipeline.h"
#include "pipeline/SrtTransmit.h"
#include "pipeline/SrtlaLauncher.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

template <class T>
qsizetype owned(const Pipeline &pipeline)
{
    return pipeline.findChildren<T *>(Qt::FindDirectChildrenOnly).size();
}

// Wine takes a second to start a program, and three are started a hundred times.
constexpr int patienceMs = 240000;

PipelineConfig failingConfig(int restarts)
{
    // A moment for the bridges to come up before their encoder exits.
    PipelineConfig config =
        transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"pause=10,exit=3"_s);
    config.restart.initialBackoffMs = 0;
    config.restart.maxRestartsInWindow = restarts;
    config.restart.windowSec = 3600;
    return config;
}

void runIntoOpenCircuit(Pipeline &pipeline)
{
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit circuit breaker"_s); }, patienceMs));
}

} // namespace

/// Limits on the duration of a stop, and on the objects kept.
class tst_TransportLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childrenThatIgnoreEverything();
    void hundredRestarts();
};

void tst_TransportLimits::childrenThatIgnoreEverything()
{
    const TransportTools tools(u"ignore-term"_s);
    Pipeline pipeline(
        transportConfig({srtOutput(8900), bondedOutput(8910, 8911), srtOutput(8930)}, u"ignore-q,progress"_s),
        fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 4));

    QTest::failOnWarning(QRegularExpression(u"Destroyed while process"_s));
    QElapsedTimer timer;
    timer.start();
    pipeline.stop();

    const qint64 limits = 3000 + 4 * 2000; // ffmpeg, the launcher, three bridges
    QCOMPARE_GE(timer.elapsed(), limits);
    QCOMPARE_LT(timer.elapsed(), limits + 3000);
    QVERIFY(waitUntil([] { return childProcesses().isEmpty(); }));
}

void tst_TransportLimits::hundredRestarts()
{
    const TransportTools tools;
    { // objects created once for a process exist from here on
        Pipeline pipeline(failingConfig(2), fakeFfmpeg(), false);
        runIntoOpenCircuit(pipeline);
    }
    const qsizetype descriptors = openDescriptors();

    {
        Pipeline pipeline(failingConfig(100), fakeFfmpeg(), false);
        runIntoOpenCircuit(pipeline);

        // 101 runs: the stopped bridges and the encoders' dead processes are kept, the launcher once.
        QCOMPARE(owned<SrtTransmit>(pipeline), 102);
        QCOMPARE(owned<QProcess>(pipeline), 101);
        QCOMPARE(owned<SrtlaLauncher>(pipeline), 1);
        QCOMPARE(owned<QTimer>(pipeline), 2);
        QCOMPARE(pipeline.children().size(), 102 + 101 + 1 + 2);
        QCOMPARE(childProcesses(), QList<qint64>());
        QCOMPARE(openDescriptors(), descriptors);

        pipeline.stop();
        QVERIFY(waitUntil([&] { return owned<SrtTransmit>(pipeline) == 0; }));
        QCOMPARE(owned<SrtlaLauncher>(pipeline), 0);
        // The encoders' processes of earlier runs go with the pipeline.
        QCOMPARE(owned<QProcess>(pipeline), 100);
        QCOMPARE(openDescriptors(), descriptors);
    }
    QCOMPARE(openDescriptors(), descriptors);
    QCOMPARE(childProcesses(), QList<qint64>());
}

CORVANE_TEST(tst_TransportLimits, QCoreApplication)
#include "tst_TransportLimits.moc"
