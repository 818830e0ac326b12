#include "pipeline/Pipeline.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// Checks that nothing restarts by itself after a step: no encoder, no transport.
void staysDark(const Pipeline &pipeline, Recorder &recorder)
{
    recorder.clear();
    passTimersOf(600);
    QCOMPARE(recorder.events(), QStringList());
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QCOMPARE(childProcesses(), QList<qint64>());
}

} // namespace

/// A step of the ladder ends the encoder and all transport under it, on the way down and on the way up.
class tst_TransportQuality : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void downAndUp();
};

void tst_TransportQuality::downAndUp()
{
    const TransportTools tools;
    // Only the first run drops frames.
    PipelineConfig config = transportConfig(
        {bondedOutput(8910, 8911), srtOutput(8900)},
        u"once=%1,drops=50,end,progress"_s.arg(stepText(tools.filePath(u"first"_s).toUtf8())));
    config.restart.maxRestartsInWindow = 0; // a failure, if it were counted, would open the circuit
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }, 60000));
    QVERIFY(recorder.contains(u"log DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s));
    QVERIFY(!recorder.containsPart(u"MORREU"_s));
    staysDark(pipeline, recorder);

    // The operator's stop and start runs at the lower rate, bonding included.
    pipeline.stop();
    recorder.clear();
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 6));
    QVERIFY(recorder.containsPart(u" -b:v 4500k "_s));
    QCOMPARE(transportCommands(recorder).size(), 3);
    QCOMPARE(childProcesses().size(), 4);
    QCOMPARE(pipeline.level(), 1);

    // Ten good seconds end that run in the same way.
    QVERIFY(waitUntil([&] { return recorder.contains(relaunchLine()); }, 60000));
    QCOMPARE(recorder.count(u"telemetry"_s), 10);
    QVERIFY(recorder.contains(u"log DEGRADAÇÃO: nível 0 (full) — bitrate 4500→6000 kbps"_s));
    QVERIFY(recorder.contains(u"quality 0 full"_s));
    QVERIFY(!recorder.containsPart(u"MORREU"_s));
    QCOMPARE(pipeline.config().encoder.bitrate, 6000);
    staysDark(pipeline, recorder);
}

CORVANE_TEST(tst_TransportQuality, QCoreApplication)
#include "tst_TransportQuality.moc"
