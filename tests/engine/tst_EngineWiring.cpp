#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QSignalSpy>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

using Say = std::function<void(Pipeline &)>;
using Edit = std::function<void(Engine &, const QString &id)>;

constexpr const char *reason =
    "circuit breaker ABERTO: 7 restarts em 120s — parando auto-restart (intervenção necessária)";

} // namespace

/// Signals of a pipeline that reach the log and the interface. That differs by the object's origin, so the
/// tests emit the signals themselves and look at those that the Engine passes on.
class tst_EngineWiring : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void passesOn_data();
    void passesOn();
    void everyEditTakesAwayThreeConnections_data();
    void everyEditTakesAwayThreeConnections();
    void listensToAnObjectInDisposal();
    void runsOfEditedPipelinesReportNoLevel();
};

void tst_EngineWiring::passesOn_data()
{
    QTest::addColumn<Say>("say");
    QTest::addColumn<QStringList>("freshLog");
    QTest::addColumn<int>("freshChanges");
    QTest::addColumn<QStringList>("replacedLog");
    QTest::addColumn<int>("replacedChanges");

    const QStringList nothing;
    const auto row = [](const char *name, const Say &say, const QStringList &freshLog, int freshChanges,
                        const QStringList &replacedLog, int replacedChanges) {
        QTest::newRow(name) << say << freshLog << freshChanges << replacedLog << replacedChanges;
    };
    row(
        "stateChanged", [](Pipeline &p) { Q_EMIT p.stateChanged(Pipeline::State::Failed); }, nothing, 1,
        nothing, 1);
    row(
        "logLine", [](Pipeline &p) { Q_EMIT p.logLine(u"ERRO: %1 x"_s); }, {u"ERRO: %1 x"_s}, 0,
        {u"ERRO: %1 x"_s}, 0);
    row(
        "statsChanged", [](Pipeline &p) { Q_EMIT p.statsChanged(u"frame= 1 %2"_s); },
        {u"[stats] frame= 1 %2"_s}, 0, {u"[stats] frame= 1 %2"_s}, 0);
    row(
        "telemetryChanged", [](Pipeline &p) { Q_EMIT p.telemetryChanged(); }, nothing, 1, nothing, 0);
    row(
        "qualityChanged", [](Pipeline &p) { Q_EMIT p.qualityChanged(2, u"bitrate-50"_s); },
        {u"[qualidade] nível 2 (bitrate-50)"_s}, 0, nothing, 0);
    row(
        "qualityChanged, a name like a place marker",
        [](Pipeline &p) { Q_EMIT p.qualityChanged(1, u"%1"_s); }, {u"[qualidade] nível 1 (%1)"_s}, 0, nothing,
        0);
    row(
        "circuitOpen", [](Pipeline &p) { Q_EMIT p.circuitOpen(QString::fromUtf8(reason)); },
        {u"[circuit] circuit breaker ABERTO: 7 restarts em 120s — parando auto-restart (intervenção necessária)"_s},
        0, nothing, 0);
}

void tst_EngineWiring::passesOn()
{
    QFETCH(Say, say);

    EngineBench bench;
    const QString fresh = bench->addPipeline(u"a"_s);
    const QString replaced = bench->addPipeline(u"b"_s);
    bench->renamePipeline(replaced, u"c"_s);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    bench->clearLog();
    say(*bench.pipeline(fresh));
    QTEST(bench.logLines(), "freshLog");
    QTEST(int(changed.size()), "freshChanges");

    bench->clearLog();
    changed.clear();
    say(*bench.pipeline(replaced));
    QTEST(bench.logLines(), "replacedLog");
    QTEST(int(changed.size()), "replacedChanges");
}

void tst_EngineWiring::everyEditTakesAwayThreeConnections_data()
{
    QTest::addColumn<Edit>("edit");

    const auto row = [](const char *name, const Edit &edit) { QTest::newRow(name) << edit; };
    row("configureSource", [](Engine &e, auto &id) { e.configureSource(id, {}); });
    row("configureEncoder", [](Engine &e, auto &id) { e.configureEncoder(id, {}); });
    row("addRtmpOutput", [](Engine &e, auto &id) { e.addRtmpOutput(id, u"u"_s); });
    row("addSrtOutput", [](Engine &e, auto &id) { e.addSrtOutput(id, u"u"_s, 1, u""_s); });
    row("addSrtOutputFull",
        [](Engine &e, auto &id) { e.addSrtOutputFull(id, u"u"_s, 1, u""_s, u""_s, 1, 1); });
    row("addSrtlaOutput", [](Engine &e, auto &id) { e.addSrtlaOutput(id, u"u"_s, 1); });
    row("clearOutputs", [](Engine &e, auto &id) { e.clearOutputs(id); });
    row("removeOutput", [](Engine &e, auto &id) {
        e.addRtmpOutput(id, u"u"_s);
        e.removeOutput(id, 0);
    });
    row("setOutputEnabled", [](Engine &e, auto &id) {
        e.addRtmpOutput(id, u"u"_s);
        e.setOutputEnabled(id, 0, false);
    });
    row("renamePipeline", [](Engine &e, auto &id) { e.renamePipeline(id, u"u"_s); });
    row("two edits", [](Engine &e, auto &id) {
        e.renamePipeline(id, u"u"_s);
        e.renamePipeline(id, u"v"_s);
    });
}

void tst_EngineWiring::everyEditTakesAwayThreeConnections()
{
    QFETCH(Edit, edit);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    edit(bench.engine, id);
    bench->clearLog();
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    Pipeline &pipeline = *bench.pipeline(id);
    Q_EMIT pipeline.telemetryChanged();
    Q_EMIT pipeline.qualityChanged(1, u"bitrate-75"_s);
    Q_EMIT pipeline.circuitOpen(u"x"_s);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(bench->log(), QString());

    Q_EMIT pipeline.stateChanged(Pipeline::State::Stopped);
    Q_EMIT pipeline.logLine(u"linha"_s);
    Q_EMIT pipeline.statsChanged(u"frame=1"_s);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(bench.logLines(), QStringList({u"linha"_s, u"[stats] frame=1"_s}));
}

void tst_EngineWiring::listensToAnObjectInDisposal()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    Pipeline &old = *bench.pipeline(id);
    bench->renamePipeline(id, u"b"_s);
    bench->clearLog();
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    // It came from addPipeline(), so all six of its signals are connected.
    Q_EMIT old.logLine(u"linha"_s);
    Q_EMIT old.statsChanged(u"frame=1"_s);
    Q_EMIT old.qualityChanged(1, u"bitrate-75"_s);
    Q_EMIT old.circuitOpen(u"x"_s);
    Q_EMIT old.telemetryChanged();
    Q_EMIT old.stateChanged(Pipeline::State::Stopped);
    QCOMPARE(changed.size(), 2);
    QCOMPARE(bench.logLines(), QStringList({u"linha"_s, u"[stats] frame=1"_s,
                                            u"[qualidade] nível 1 (bitrate-75)"_s, u"[circuit] x"_s}));
}

void tst_EngineWiring::runsOfEditedPipelinesReportNoLevel()
{
    // A pipeline gets its outputs by edits, so only its own lines report the steps of its ladder.
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"drops=50"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil(
        [&] { return bench.logHas(u"DEGRADAÇÃO: nível 1 (bitrate-75) — bitrate 6000→4500 kbps"_s); }));
    QCOMPARE(bench.column(u"level"_s), QStringList{u"1"_s});
    QVERIFY(bench.logHas(u"[stats] frame="_s));
    QVERIFY(!bench.logHas(u"[qualidade]"_s));

    // The lowered rate is carried over into the new object, whose level begins at 0.
    bench->renamePipeline(id, u"b"_s);
    QCOMPARE(bench.column(u"level"_s), QStringList{u"0"_s});
    QCOMPARE(bench.config(id).encoder.bitrate, 4500);
}

CORVANE_TEST(tst_EngineWiring, QCoreApplication)
#include "tst_EngineWiring.moc"
