#include "pipeline/Pipeline.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/Files.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QElapsedTimer>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QList<OutputConfig> threeOutputs()
{
    return {srtOutput(8900), bondedOutput(8910, 8911), srtOutput(8930)};
}

/// The ends in a file of deaths, without the times.
QStringList whoDied(const QStringList &deaths)
{
    QStringList names;
    for (const QString &death : deaths)
        names << death.section(u' ', 0, -2);
    return names;
}

QList<qint64> timesOf(const QStringList &deaths)
{
    QList<qint64> times;
    for (const QString &death : deaths)
        times << death.section(u' ', -1).toLongLong();
    return times;
}

// Encoding ends before the transport under it, and the launcher before the bridges, which go in list order.
const QStringList &endsInOrder()
{
    static const QStringList order{u"ffmpeg"_s, u"srtla_send 8911"_s, u"srt-live-transmit udp://:8900"_s,
                                   u"srt-live-transmit udp://:8910"_s, u"srt-live-transmit udp://:8930"_s};
    return order;
}

} // namespace

class tst_TransportStop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void order_data();
    void order();
    void healthyChildrenAreQuick();
    void badExitsOnStop();
    void survivesAStopOnALineOfATool_data();
    void survivesAStopOnALineOfATool();
    void destructorEndsEverything();
};

void tst_TransportStop::order_data()
{
    QTest::addColumn<QString>("ending");
    QTest::addColumn<bool>("operatorStops");

    QTest::newRow("operator's stop") << u"progress"_s << true;
    QTest::newRow("encoder that fails") << u"exit=3"_s << false;
    QTest::newRow("encoder that comes to its end") << u"exit=0"_s << false;
}

void tst_TransportStop::order()
{
    QFETCH(const QString, ending);
    QFETCH(const bool, operatorStops);
    const TransportTools tools;
    const QString sign = tools.filePath(u"sign"_s);
    PipelineConfig config = transportConfig(
        threeOutputs(), u"%1,await=%2,%3"_s.arg(tools.deathStep(), stepText(sign.toUtf8()), ending));
    config.autoRestart = false;
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return tools.started().size() == 4; }));
    createFile(sign);

    if (operatorStops) {
        QVERIFY(awaitProgress(recorder));
        pipeline.stop();
    } else {
        QVERIFY(waitUntil([&] { return !pipeline.isTransmitting(); }));
    }

    QCOMPARE(whoDied(tools.deaths()), endsInOrder());
    const QList<qint64> times = timesOf(tools.deaths());
    QVERIFY(std::is_sorted(times.begin(), times.end()));
    QCOMPARE(childProcesses(), QList<qint64>());
}

void tst_TransportStop::healthyChildrenAreQuick()
{
    const TransportTools tools;
    Pipeline pipeline(transportConfig(threeOutputs(), u"progress"_s), fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 4));

    QElapsedTimer timer;
    timer.start();
    pipeline.stop();

    QCOMPARE_LE(timer.elapsed(), 1500);
    QCOMPARE(childProcesses(), QList<qint64>());
}

void tst_TransportStop::badExitsOnStop()
{
    const TransportTools tools(u"term-code=7"_s);
    Pipeline pipeline(transportConfig(threeOutputs(), u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(awaitOnAir(recorder, tools, 4));

    recorder.clear();
    pipeline.stop();

    QCOMPARE(outline(recorder),
             QStringList({u"log [srtla] MORREU (code=7) — bonding interrompido"_s,
                          u"log [srt] MORREU (code=7, erro) — SRT interrompido"_s,
                          u"log [srtla-bridge] MORREU (code=7, erro) — SRT interrompido"_s,
                          u"log [srt] MORREU (code=7, erro) — SRT interrompido"_s, u"state stopped"_s}));
}

void tst_TransportStop::survivesAStopOnALineOfATool_data()
{
    QTest::addColumn<QString>("prefix"); // of the line at which a slot stops the pipeline again
    QTest::addColumn<QString>("ending");

    QTest::newRow("launcher, operator's stop") << u"[srtla] MORREU"_s << u"progress"_s;
    QTest::newRow("bridge, operator's stop") << u"[srt] MORREU"_s << u"progress"_s;
    QTest::newRow("launcher, encoder that fails") << u"[srtla] MORREU"_s << u"exit=3"_s;
    QTest::newRow("bridge, encoder that fails") << u"[srt] MORREU"_s << u"exit=3"_s;
}

void tst_TransportStop::survivesAStopOnALineOfATool()
{
    QFETCH(const QString, prefix);
    QFETCH(const QString, ending);
    const TransportTools tools(u"term-code=7"_s);
    const QString sign = tools.filePath(u"sign"_s);
    Pipeline pipeline(transportConfig(threeOutputs(), u"await=%1,%2"_s.arg(stepText(sign.toUtf8()), ending)),
                      fakeFfmpeg(), false);
    const Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] { return tools.started().size() == 4; }));
    connect(&pipeline, &Pipeline::logLine, &pipeline, [&](const QString &line) {
        if (line.startsWith(prefix))
            pipeline.stop();
    });
    createFile(sign);

    if (ending == "progress"_L1) {
        QVERIFY(waitUntil([&] { return recorder.containsPart(u"stats frame="_s); }));
        pipeline.stop();
    } else {
        QVERIFY(waitUntil([&] { return recorder.contains(u"state failed"_s); }));
    }

    QCOMPARE(recorder.logLines().filter(u"MORREU"_s).size(), 4); // each tool has ended, and once
    QCOMPARE(recorder.count(u"state stopped"_s), 1);
    QVERIFY(waitUntil([&] { return pipeline.findChildren<QProcess *>().isEmpty(); }));
    QCOMPARE(childProcesses(), QList<qint64>());
}

void tst_TransportStop::destructorEndsEverything()
{
    const TransportTools tools;
    {
        Pipeline pipeline(transportConfig(threeOutputs(), u"progress"_s), fakeFfmpeg(), false);
        pipeline.start();
        QVERIFY(waitUntil([&] { return tools.started().size() == 4 && pipeline.telemetry().valid; }));
        QCOMPARE(childProcesses().size(), 5);
    }
    QCOMPARE(childProcesses(), QList<qint64>());
    QCOMPARE(tools.deaths().size(), 4);
}

CORVANE_TEST(tst_TransportStop, QCoreApplication)
#include "tst_TransportStop.moc"
