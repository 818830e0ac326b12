#include "pipeline/Pipeline.h"
#include "tests/pipeline/TransportTestSupport.h"
#include "tests/support/PipelineStory.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QProcessEnvironment>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

const QString secondSrt =
    u"[srt] srt-live-transmit udp://:8930 srt://127.0.0.1:9000?latency=120&mode=caller"_s;

OutputConfig disabled(OutputConfig output)
{
    output.enabled = false;
    return output;
}

OutputConfig ofKind(int kind)
{
    OutputConfig output = srtOutput(8900);
    output.kind = kind;
    return output;
}

OutputConfig secretBonded()
{
    OutputConfig output = bondedOutput(8910, 8911);
    output.passphrase = u"0123456789"_s;
    return output;
}

OutputConfig namedBonded()
{
    OutputConfig output = bondedOutput(8910, 8911);
    output.streamId = u"live/cam 1"_s;
    output.srtLatencyMs = 800;
    return output;
}

} // namespace

/// Transport children of a pipeline, their log lines, and that nothing watches over them.
class tst_TransportPipeline : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childrenOfOutputs_data();
    void childrenOfOutputs();
    void childrenComeBeforeTheEncoder();
    void childrenHaveTheProgramsSurroundings();
    void whatChildrenSay();
    void missingTools_data();
    void missingTools();
    void deadChild_data();
    void deadChild();
    void encoderThatCannotBeLaunched();
    void recordThatCannotBeBuilt();
};

void tst_TransportPipeline::childrenOfOutputs_data()
{
    QTest::addColumn<QList<OutputConfig>>("outputs");
    QTest::addColumn<bool>("ffmpegHasSrt");
    QTest::addColumn<QStringList>("commands");

    using Outputs = QList<OutputConfig>;
    const auto row = [](const char *name, const Outputs &outputs, const QStringList &without,
                        const QStringList &with) {
        QTest::addRow("%s, ffmpeg without SRT", name) << outputs << false << without;
        QTest::addRow("%s, ffmpeg with SRT", name) << outputs << true << with;
    };
    const OutputConfig srt = srtOutput(8900);
    const OutputConfig bonded = bondedOutput(8910, 8911);
    row("RTMP alone", {}, {}, {});
    row("SRT", {srt}, {plainSrtLine()}, {});
    row("bonded", {bonded}, {launcherLine(), bondedBridgeLine()}, {launcherLine()});
    row("bonded without a second port", {bondedOutput(8910, 0)}, {launcherLine(), bondedBridgeLine()},
        {launcherLine()});
    row("all sorts, in list order", {srt, bonded, srtOutput(8930)},
        {plainSrtLine(), launcherLine(), bondedBridgeLine(), secondSrt}, {launcherLine()});
    row("bonded first", {bonded, srt}, {launcherLine(), bondedBridgeLine(), plainSrtLine()},
        {launcherLine()});
    row("a second bonded output gets nothing", {bonded, bondedOutput(8920, 8921)},
        {launcherLine(), bondedBridgeLine()}, {launcherLine()});
    row("a bonded output after a disabled one", {disabled(bondedOutput(8920, 8921)), bonded},
        {launcherLine(), bondedBridgeLine()}, {launcherLine()});
    row("disabled outputs", {disabled(srt), disabled(bonded)}, {}, {});
    row("kinds without transport", {ofKind(OutputKind::Decklink), ofKind(OutputKind::File), ofKind(7)}, {},
        {});
    row("the passphrase stays before the launcher's bridge", {secretBonded()},
        {launcherLine(), bondedBridgeLine()}, {launcherLine()});
    row("latency and stream id go along", {namedBonded()},
        {launcherLine(),
         u"[srtla-bridge] srt-live-transmit udp://:8910 srt://127.0.0.1:8911?latency=800&streamid=live%2Fcam%201&mode=caller"_s},
        {launcherLine()});
}

void tst_TransportPipeline::childrenOfOutputs()
{
    QFETCH(const QList<OutputConfig>, outputs);
    QFETCH(const bool, ffmpegHasSrt);
    QFETCH(const QStringList, commands);
    const TransportTools tools;
    Pipeline pipeline(transportConfig(outputs, u"progress"_s), fakeFfmpeg(), ffmpegHasSrt);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil([&] { return hasProgress(recorder) && tools.started().size() >= commands.size(); }));

    QCOMPARE(transportCommands(recorder), commands);
    QStringList expected;
    for (const QString &command : commands)
        expected << command.section(u' ', 1, 1);
    QStringList started = tools.started();
    std::sort(started.begin(), started.end());
    std::sort(expected.begin(), expected.end());
    QCOMPARE(started, expected);
    QCOMPARE(childProcesses().size(), commands.size() + 1);

    pipeline.stop();
    QCOMPARE(childProcesses(), QList<qint64>());
}

void tst_TransportPipeline::childrenComeBeforeTheEncoder()
{
    const TransportTools tools;
    Pipeline pipeline(transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"progress"_s),
                      fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));

    QCOMPARE(outline(recorder),
             QStringList({u"state starting"_s, "log "_L1 + launcherLine(), "log "_L1 + bondedBridgeLine(),
                          "log "_L1 + plainSrtLine(), u"log ffmpeg <arguments>"_s, u"state running"_s,
                          u"log ffmpeg rodando (pid <pid>)"_s}));
}

void tst_TransportPipeline::childrenHaveTheProgramsSurroundings()
{
    const TransportTools tools;
    Pipeline pipeline(transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"progress"_s),
                      fakeFfmpeg(), false);
    pipeline.start();

    const auto children = pipeline.findChildren<QProcess *>();
    QCOMPARE(children.size(), 4);
    for (const QProcess *child : children) {
        QCOMPARE(child->workingDirectory(), QString());
        QVERIFY(child->processEnvironment().inheritsFromParent());
        QCOMPARE(child->processChannelMode(), QProcess::SeparateChannels);
        QCOMPARE(child->inputChannelMode(), QProcess::ManagedInputChannel);
        QCOMPARE(child->openMode(), QIODevice::ReadWrite);
    }
}

void tst_TransportPipeline::whatChildrenSay()
{
    const TransportTools tools(u"stderr=%20hello%0Aworld%0A"_s);
    Pipeline pipeline(transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"progress"_s),
                      fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    pipeline.start();
    const auto heard = [&](const char *line) { return recorder.contains(QString::fromLatin1(line)); };
    QVERIFY(waitUntil([&] {
        return heard("log [srt] hello\nworld") && heard("log [srtla] hello\nworld") &&
               heard("log [srtla-bridge] hello\nworld");
    }));
}

void tst_TransportPipeline::missingTools_data()
{
    QTest::addColumn<bool>("ffmpegHasSrt");
    QTest::addColumn<QStringList>("lines");

    const QString noBridge =
        u"srt-live-transmit não encontrado — SRT indisponível (brew install srt). RTMP continua funcionando."_s;
    const QString noLauncher =
        u"log [srtla] srtla_send não encontrado — agregação de banda indisponível (ver third_party/README.md). Use saída SRT nativa como fallback."_s;
    QTest::newRow("ffmpeg without SRT")
        << false << QStringList{u"log [srt] "_s + noBridge, noLauncher, u"log [srtla-bridge] "_s + noBridge};
    QTest::newRow("ffmpeg with SRT") << true << QStringList{noLauncher};
}

void tst_TransportPipeline::missingTools()
{
    QFETCH(const bool, ffmpegHasSrt);
    QFETCH(const QStringList, lines);
    const ToolPath nothing;
    Pipeline pipeline(transportConfig({srtOutput(8900), bondedOutput(8910, 8911)}, u"progress"_s),
                      fakeFfmpeg(), ffmpegHasSrt);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(awaitProgress(recorder));

    QCOMPARE(outline(recorder), QStringList{u"state starting"_s} + lines +
                                    QStringList({u"log ffmpeg <arguments>"_s, u"state running"_s,
                                                 u"log ffmpeg rodando (pid <pid>)"_s}));
}

void tst_TransportPipeline::deadChild_data()
{
    QTest::addColumn<QList<OutputConfig>>("outputs");
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("plain bridge")
        << QList<OutputConfig>{srtOutput(8900)} << u"srt-live-transmit"_s
        << QStringList{u"log [srt] errorOccurred=1"_s,
                       u"log [srt] MORREU (code=%1, crash) — SRT interrompido"_s.arg(killedExitCode())};
    QTest::newRow("launcher") << QList<OutputConfig>{bondedOutput(8910, 8911)} << u"srtla_send"_s
                              << QStringList{u"log [srtla] errorOccurred=1"_s,
                                             u"log [srtla] MORREU (code=%1) — bonding interrompido"_s.arg(
                                                 killedExitCode())};
    QTest::newRow("launcher's bridge")
        << QList<OutputConfig>{bondedOutput(8910, 8911)} << u"srt-live-transmit"_s
        << QStringList{
               u"log [srtla-bridge] errorOccurred=1"_s,
               u"log [srtla-bridge] MORREU (code=%1, crash) — SRT interrompido"_s.arg(killedExitCode())};
}

void tst_TransportPipeline::deadChild()
{
    QFETCH(const QList<OutputConfig>, outputs);
    QFETCH(const QString, tool);
    QFETCH(const QStringList, lines);
    const TransportTools tools;
    Pipeline pipeline(transportConfig(outputs, u"progress"_s), fakeFfmpeg(), false);
    Recorder recorder(pipeline);
    pipeline.start();
    QVERIFY(waitUntil([&] {
        return tools.pidOf(tool) != 0 && hasProgress(recorder) &&
               tools.started().size() == transportCommands(recorder).size();
    }));
    const qsizetype started = tools.started().size();

    recorder.clear();
    killProcess(tools.pidOf(tool));
    // Two ticks of the pipeline's own clock later, the log lines are the only effect.
    QVERIFY(waitUntil([&] { return recorder.containsPart(u"MORREU"_s); }));
    const qsizetype ticks = recorder.count(u"telemetry"_s);
    QVERIFY(waitUntil([&] { return recorder.count(u"telemetry"_s) >= ticks + 2; }));

    QCOMPARE(outline(recorder), lines);
    QCOMPARE(pipeline.state(), Pipeline::State::Running);
    QCOMPARE(tools.started().size(), started);
}

void tst_TransportPipeline::encoderThatCannotBeLaunched()
{
    const TransportTools tools;
    Pipeline pipeline(transportConfig({bondedOutput(8910, 8911), srtOutput(8900)}, u"progress"_s),
                      tools.filePath(u"no such ffmpeg"_s), false);
    const Recorder recorder(pipeline);

    pipeline.start();
    QVERIFY(waitUntil(
        [&] { return recorder.contains(u"log ffmpeg errorOccurred: 0"_s) && tools.started().size() == 3; }));
    QCOMPARE(pipeline.state(), Pipeline::State::Starting);
    QCOMPARE(childProcesses().size(), 3); // they wait for an operator

    pipeline.stop();
    QCOMPARE(childProcesses(), QList<qint64>());
    QCOMPARE(pipeline.state(), Pipeline::State::Stopped);
}

void tst_TransportPipeline::recordThatCannotBeBuilt()
{
    const TransportTools tools;
    PipelineConfig config;
    config.outputs = {disabled(srtOutput(8900)), disabled(bondedOutput(8910, 8911))};
    Pipeline pipeline(config, fakeFfmpeg(), false);
    const Recorder recorder(pipeline);

    pipeline.start();

    QCOMPARE(outline(recorder),
             QStringList(
                 {u"state starting"_s, u"log ERRO: Pipeline sem saídas habilitadas"_s, u"state failed"_s}));
    QCOMPARE(childProcesses(), QList<qint64>());
}

CORVANE_TEST(tst_TransportPipeline, QCoreApplication)
#include "tst_TransportPipeline.moc"
