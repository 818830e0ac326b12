#include "pipeline/Pipeline.h"
#include "pipeline/SrtTransmit.h"
#include "pipeline/SrtlaLauncher.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// An encoder that ends in its first run as soon as `sign` exists, and keeps going in the next.
QString endsOnce(const TransportTools &tools, const QString &ending)
{
    return u"once=%1,await=%2,%3,end,progress"_s.arg(stepText(tools.filePath(u"first"_s).toUtf8()),
                                                     stepText(tools.filePath(u"sign"_s).toUtf8()), ending);
}

PipelineConfig bondedAndPlain(const QString &ffmpegSteps)
{
    PipelineConfig config = transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, ffmpegSteps);
    config.restart.initialBackoffMs = 10;
    return config;
}

qsizetype bridges(const Pipeline &pipeline)
{
    return pipeline.findChildren<SrtTransmit *>().size();
}

qsizetype launchers(const Pipeline &pipeline)
{
    return pipeline.findChildren<SrtlaLauncher *>().size();
}

} // namespace

/// Children that come back with an encoder: plain bridges, but no bonding before an operator's stop.
class tst_TransportRestart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nextRunWithoutAStop_data();
    void nextRunWithoutAStop();
    void bridgesOfEarlierRuns();
};

void tst_TransportRestart::nextRunWithoutAStop_data()
{
    QTest::addColumn<QString>("ending");
    QTest::addColumn<bool>("autoRestart");
    QTest::addColumn<Pipeline::State>("stateBetween");

    QTest::newRow("automatic restart") << u"exit=3"_s << true << Pipeline::State::Failed;
    QTest::newRow("operator's start after a failure") << u"exit=3"_s << false << Pipeline::State::Failed;
    QTest::newRow("operator's start after a clean exit") << u"exit=0"_s << true << Pipeline::State::Stopped;
}

void tst_TransportRestart::nextRunWithoutAStop()
{
    QFETCH(const QString, ending);
    QFETCH(const bool, autoRestart);
    QFETCH(const Pipeline::State, stateBetween);
    const TransportTools tools;
    PipelineConfig config = bondedAndPlain(endsOnce(tools, ending));
    config.autoRestart = autoRestart;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    const bool operatorStarts = !autoRestart || stateBetween == Pipeline::State::Stopped;

    pipeline.start();
    QVERIFY(waitUntil([&] { return tools.started().size() == 3; }));
    QCOMPARE(transportCommands(recorder), QStringList({launcherLine(), bondedBridgeLine(), plainSrtLine()}));
    QCOMPARE(bridges(pipeline), 2);
    QCOMPARE(launchers(pipeline), 1);
    const QList<SrtTransmit *> before = pipeline.findChildren<SrtTransmit *>();

    recorder.clear();
    createFile(tools.filePath(u"sign"_s));
    QVERIFY(waitUntil([&] { return recorder.contains("state "_L1 + stateName(stateBetween)); }));
    if (operatorStarts) {
        QCOMPARE(childProcesses(), QList<qint64>());
        pipeline.start();
    }
    QVERIFY(awaitOnAir(recorder, tools, 4));

    // The plain output has a new bridge; the bonded one has nothing, though ffmpeg sends to it as before.
    QCOMPARE(transportCommands(recorder), QStringList{plainSrtLine()});
    QCOMPARE(tools.started().constLast(), u"srt-live-transmit"_s);
    QCOMPARE(childProcesses().size(), 2);
    QVERIFY(recorder.containsPart(u"]udp://127.0.0.1:8910?pkt_size=1316|"_s));
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QCOMPARE(bridges(pipeline), 3);
    QCOMPARE(pipeline.findChildren<SrtTransmit *>().first(2), before);
    QCOMPARE(launchers(pipeline), 1);

    pipeline.stop();
    QVERIFY(waitUntil([&] { return bridges(pipeline) == 0 && launchers(pipeline) == 0; }));

    recorder.clear();
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 7));
    QCOMPARE(transportCommands(recorder), QStringList({launcherLine(), bondedBridgeLine(), plainSrtLine()}));
    QCOMPARE(bridges(pipeline), 2);
    QCOMPARE(launchers(pipeline), 1);
    QCOMPARE(childProcesses().size(), 4);
}

void tst_TransportRestart::bridgesOfEarlierRuns()
{
    const TransportTools tools;
    PipelineConfig config = transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"exit=3"_s);
    config.restart.initialBackoffMs = 0;
    config.restart.maxRestartsInWindow = 4;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"circuit circuit breaker"_s); }));

    // Five runs: two bridges of the first, one of each other.
    QCOMPARE(bridges(pipeline), 6);
    QCOMPARE(launchers(pipeline), 1);
    QCOMPARE(childProcesses(), QList<qint64>());
    pipeline.stop();
    QVERIFY(waitUntil([&] { return bridges(pipeline) == 0 && launchers(pipeline) == 0; }));
}

CORVANE_TEST(tst_TransportRestart, QCoreApplication)
#include "tst_TransportRestart.moc"
