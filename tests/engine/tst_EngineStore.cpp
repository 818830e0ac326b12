#include "tests/engine/StoreTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QRegularExpression>
#include <QSignalSpy>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// Pipelines restored at the next start of the program, and their wiring.
class tst_EngineStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void beginsWithoutPipelines();
    void bringsThePipelinesBack();
    void bringsBackNothingElse();
    void keepsIdsAcrossRuns();
    void forgetsRemovedPipelines();
    void startsNothingByItself();
    void saysNothingOfALoad();
    void givesTheToolsToRestoredPipelines();
    void wiresRestoredPipelines_data();
    void wiresRestoredPipelines();
    void losesAConnectionByAnEdit();
    void storesTheLoweredBitRate();
};

void tst_EngineStore::beginsWithoutPipelines()
{
    StoreBench bench;
    bench.start();
    QCOMPARE(bench->pipelines(), QVariantList());
    QVERIFY(bench.isEmpty());
}

void tst_EngineStore::bringsThePipelinesBack()
{
    StoreBench bench;
    bench.start();
    bench->addPipeline(u"c"_s);
    const QString id = bench->addPipeline(u"a"_s);
    bench->addPipeline(u""_s);
    bench->configureSource(id, {{u"kind"_s, u"srt"_s}, {u"uri"_s, u"srt://h:9000"_s}});
    bench->configureEncoder(id, {{u"bitrate"_s, 2500}, {u"hw"_s, u"qsv"_s}});
    const QStringList ids = bench.column(u"id"_s);

    bench.start();
    QCOMPARE(bench.column(u"id"_s), ids);
    QCOMPARE(bench.column(u"name"_s), QStringList({u"c"_s, u"a"_s, u"Stream 3"_s}));
    const PipelineConfig config = bench.configs().value(1);
    QCOMPARE(config.source.kind, 1);
    QCOMPARE(config.source.uri, u"srt://h:9000"_s);
    QCOMPARE(config.encoder.bitrate, 2500);
    QCOMPARE(config.encoder.hw, 3);
    QCOMPARE(bench.pipeline(1)->parent(), &bench.engine());
}

void tst_EngineStore::bringsBackNothingElse()
{
    StoreBench bench;
    bench.start();
    const QString id = bench->addPipeline(u"a"_s);
    bench->configureSource(
        id, {{u"width"_s, 1280}, {u"height"_s, 720}, {u"fps"_s, 50}, {u"danteDevice"_s, u"d"_s}});
    bench->configureEncoder(
        id, {{u"codec"_s, u"hevc"_s}, {u"preset"_s, u"slow"_s}, {u"keyintSec"_s, 9}, {u"bitrate"_s, 3000}});
    bench->addRtmpOutput(id, u"rtmp://a"_s);
    bench->addSrtOutput(id, u"srt://b:1"_s, 200, u"segredosegredo"_s);
    bench->addSrtlaOutput(id, u"h"_s, 5000);
    QCOMPARE(bench.value(u"1/outputs"_s), u"3"_s);

    bench.start();
    const PipelineConfig config = bench.configs().value(0);
    QCOMPARE(config.outputs.size(), 0);
    QCOMPARE(bench->outputsView(id), QVariantList());
    QCOMPARE(config.source.width, 1920);
    QCOMPARE(config.source.height, 1080);
    QCOMPARE(config.source.fps, 30);
    QVERIFY(!config.source.danteEnabled);
    QCOMPARE(config.encoder.codec, 0);
    QCOMPARE(config.encoder.preset, 0);
    QCOMPARE(config.encoder.keyintSec, 2);
    QCOMPARE(config.encoder.bitrate, 3000);

    QCOMPARE(bench.value(u"1/outputs"_s), u"3"_s); // until the next save
    bench->renamePipeline(id, u"b"_s);
    QCOMPARE(bench.value(u"1/outputs"_s), u"0"_s);
}

void tst_EngineStore::keepsIdsAcrossRuns()
{
    StoreBench bench;
    bench.start();
    const QString id = bench->addPipeline(u"a"_s);
    for (int run = 0; run < 3; ++run) {
        bench.start();
        bench->renamePipeline(id, u"corrida %1"_s.arg(run));
        QCOMPARE(bench.column(u"id"_s), QStringList{id});
        QCOMPARE(bench.value(u"1/id"_s), id);
        QCOMPARE(bench.value(u"1/name"_s), u"corrida %1"_s.arg(run));
    }
}

void tst_EngineStore::forgetsRemovedPipelines()
{
    StoreBench bench;
    bench.start();
    for (const QString &name : {u"a"_s, u"b"_s, u"c"_s})
        bench->addPipeline(name);
    const QStringList ids = bench.column(u"id"_s);

    bench->removePipeline(ids.at(1));
    QCOMPARE(bench.value(u"size"_s), u"2"_s);
    QCOMPARE(bench.value(u"3/id"_s), ids.at(2)); // left over
    QCOMPARE(bench.value(u"3/name"_s), u"c"_s);

    bench.start();
    QCOMPARE(bench.column(u"name"_s), QStringList({u"a"_s, u"c"_s}));
    bench->removePipeline(ids.at(0));
    bench->removePipeline(ids.at(2));
    QCOMPARE(bench.value(u"size"_s), u"0"_s);

    bench.start();
    QCOMPARE(bench->pipelines(), QVariantList());
    bench->addPipeline(u""_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"Stream 1"_s});
}

void tst_EngineStore::startsNothingByItself()
{
    StoreBench bench;
    bench.start();
    const QString id = bench->addPipeline(u"a"_s);
    bench->addRtmpOutput(id, u"fake:progress"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));

    bench.start();
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
    QVERIFY(!bench->anyPipelineTransmitting());
}

void tst_EngineStore::saysNothingOfALoad()
{
    static const QRegularExpression summary(u"^ffmpeg=.* \\| NDI=.*$"_s);
    StoreBench bench;
    bench.put({{u"1/id"_s, u"a"_s}, {u"2/sourceKind"_s, u"x"_s}, {u"3/id"_s, u"a"_s}, {u"size"_s, 3}});
    bench.start();
    QCOMPARE(bench->pipelines().size(), 3);
    QCOMPARE(bench.logLines().size(), 1);
    QVERIFY2(summary.match(bench.logLines().first()).hasMatch(), qPrintable(bench->log()));
}

void tst_EngineStore::givesTheToolsToRestoredPipelines()
{
    StoreBench bench;
    bench.put({{u"1/id"_s, u"a"_s}, {u"size"_s, 1}});
    bench.start();
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
    bench->addRtmpOutput(u"a"_s, u"fake:progress"_s);
    bench->startPipeline(u"a"_s);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList{u"running"_s}; }));
    bench->stopPipeline(u"a"_s);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
}

using StoredSay = std::function<bool(Pipeline *)>;

void tst_EngineStore::wiresRestoredPipelines_data()
{
    QTest::addColumn<StoredSay>("say");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<int>("changes");

    const auto row = [](const char *name, const StoredSay &say, const QStringList &log, int changes) {
        QTest::newRow(name) << say << log << changes;
    };
    row(
        "stateChanged",
        [](Pipeline *p) {
            using State = Pipeline::State; // as the signal's signature has it
            return QMetaObject::invokeMethod(p, "stateChanged", Q_ARG(State, State::Failed));
        },
        {}, 1);
    row(
        "logLine",
        [](Pipeline *p) { return QMetaObject::invokeMethod(p, "logLine", Q_ARG(QString, u"AVISO: %1"_s)); },
        {u"AVISO: %1"_s}, 0);
    row(
        "statsChanged",
        [](Pipeline *p) {
            return QMetaObject::invokeMethod(p, "statsChanged", Q_ARG(QString, u"frame= 1"_s));
        },
        {u"[stats] frame= 1"_s}, 0);
    row(
        "telemetryChanged", [](Pipeline *p) { return QMetaObject::invokeMethod(p, "telemetryChanged"); }, {},
        1);
    row(
        "qualityChanged",
        [](Pipeline *p) {
            return QMetaObject::invokeMethod(p, "qualityChanged", Q_ARG(int, 1),
                                             Q_ARG(QString, u"bitrate-75"_s));
        },
        {}, 0);
    row(
        "circuitOpen",
        [](Pipeline *p) { return QMetaObject::invokeMethod(p, "circuitOpen", Q_ARG(QString, u"x"_s)); }, {},
        0);
}

void tst_EngineStore::wiresRestoredPipelines()
{
    QFETCH(StoredSay, say);

    StoreBench bench;
    bench.put({{u"1/id"_s, u"a"_s}, {u"2/id"_s, u"b"_s}, {u"size"_s, 2}});
    bench.start();
    QSignalSpy changed(&bench.engine(), &Engine::pipelinesChanged);
    for (qsizetype i = 0; i < 2; ++i) {
        bench->clearLog();
        changed.clear();
        QVERIFY(say(bench.pipeline(i)));
        QTEST(bench.logLines(), "log");
        QTEST(int(changed.size()), "changes");
    }
}

void tst_EngineStore::losesAConnectionByAnEdit()
{
    StoreBench bench;
    bench.put({{u"1/id"_s, u"a"_s}, {u"size"_s, 1}});
    bench.start();
    bench->renamePipeline(u"a"_s, u"b"_s);
    QSignalSpy changed(&bench.engine(), &Engine::pipelinesChanged);
    Q_EMIT bench.pipeline(0)->telemetryChanged();
    QCOMPARE(changed.size(), 0);
    Q_EMIT bench.pipeline(0)->stateChanged(Pipeline::State::Stopped);
    QCOMPARE(changed.size(), 1);
}

void tst_EngineStore::storesTheLoweredBitRate()
{
    StoreBench bench;
    bench.start();
    const QString id = bench->addPipeline(u"a"_s);
    const QString other = bench->addPipeline(u"b"_s);
    bench->addRtmpOutput(id, u"fake:drops=50"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"level"_s).first() == u"1"_s; }));
    QCOMPARE(bench.value(u"1/bitrate"_s), u"6000"_s); // the ladder saves nothing itself

    bench->renamePipeline(other, u"c"_s);
    QCOMPARE(bench.value(u"1/bitrate"_s), u"4500"_s);
    QCOMPARE(bench.value(u"2/bitrate"_s), u"6000"_s);

    bench.start();
    QCOMPARE(bench.configs().value(0).encoder.bitrate, 4500);
    QCOMPARE(bench.column(u"level"_s).first(), u"0"_s);
}

CORVANE_TEST(tst_EngineStore, QCoreApplication)
#include "tst_EngineStore.moc"
