#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"

#include <QPointer>
#include <QSignalSpy>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

using Operation = std::function<bool(EngineBench &, const QString &id)>;

constexpr int firstPort = 8900;
constexpr int lastPort = 9200;

} // namespace

/// Effect of each configuring operation on the record, and that it replaces the object of the pipeline.
class tst_EngineEdits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replacesTheObjectOnce_data();
    void replacesTheObjectOnce();
    void clearsAnEmptyListByReplacement();
    void endsAtAnIndexOutOfRange_data();
    void endsAtAnIndexOutOfRange();
    void readsTheSourceMap_data();
    void readsTheSourceMap();
    void neverTurnsDanteOff();
    void readsTheEncoderMap_data();
    void readsTheEncoderMap();
    void buildsAnRtmpOutput();
    void buildsAnSrtOutput();
    void buildsAFullSrtOutput();
    void buildsABondedOutput();
    void keepsWhatIsNotEdited();
    void editsOneOutputOfThree();
};

void tst_EngineEdits::replacesTheObjectOnce_data()
{
    QTest::addColumn<Operation>("operation");

    const auto row = [](const char *name, const Operation &operation) { QTest::newRow(name) << operation; };
    const QString url = u"rtmp://b"_s;
    const QVariantMap none;
    row("an empty source map", [=](auto &b, auto &id) { return b.call("configureSource", id, none); });
    row("an empty encoder map", [=](auto &b, auto &id) { return b.call("configureEncoder", id, none); });
    row("unknown keys", [](auto &b, auto &id) {
        return b.call("configureSource", id, QVariantMap{{u"Width"_s, 5}, {u"codec"_s, u"av1"_s}});
    });
    row("a source value", [](auto &b, auto &id) {
        return b.call("configureSource", id, QVariantMap{{u"width"_s, 5}});
    });
    row("addRtmpOutput", [=](auto &b, auto &id) { return b.call("addRtmpOutput", id, url); });
    row("addSrtOutput", [=](auto &b, auto &id) { return b.call("addSrtOutput", id, url, 1, url); });
    row("addSrtOutputFull",
        [=](auto &b, auto &id) { return b.call("addSrtOutputFull", id, url, 1, url, url, 1, 1); });
    row("addSrtlaOutput", [=](auto &b, auto &id) { return b.call("addSrtlaOutput", id, url, 1); });
    row("clearOutputs", [](auto &b, auto &id) { return b.call("clearOutputs", id); });
    row("removeOutput", [](auto &b, auto &id) { return b.call("removeOutput", id, 0); });
    row("setOutputEnabled off", [](auto &b, auto &id) { return b.call("setOutputEnabled", id, 0, false); });
    row("setOutputEnabled as it is",
        [](auto &b, auto &id) { return b.call("setOutputEnabled", id, 0, true); });
    row("renamePipeline", [=](auto &b, auto &id) { return b.call("renamePipeline", id, url); });
    row("renamePipeline to the same name",
        [](auto &b, auto &id) { return b.call("renamePipeline", id, u"a"_s); });
}

void tst_EngineEdits::replacesTheObjectOnce()
{
    QFETCH(Operation, operation);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addRtmpOutput(id, u"rtmp://a"_s);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QPointer<Pipeline> old = bench.pipeline(id);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    bench->clearLog();

    QVERIFY(operation(bench, id));

    QCOMPARE(changed.size(), 1);
    QVERIFY(bench.pipeline(id) != old);
    QCOMPARE(bench->log(), QString());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!old);
    QCOMPARE(bench.livingPipelines(), 1);
    QCOMPARE(bench.column(u"id"_s), QStringList{id});
}

void tst_EngineEdits::clearsAnEmptyListByReplacement()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QPointer<Pipeline> old = bench.pipeline(id);
    QVERIFY(bench.call("clearOutputs", id));
    QVERIFY(bench.pipeline(id) != old);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!old);
}

void tst_EngineEdits::endsAtAnIndexOutOfRange_data()
{
    QTest::addColumn<int>("outputs");
    QTest::addColumn<int>("index");

    QTest::newRow("before the first") << 2 << -1;
    QTest::newRow("equal to the count") << 2 << 2;
    QTest::newRow("far behind") << 2 << 1000000;
    QTest::newRow("smallest number") << 2 << std::numeric_limits<int>::min();
    QTest::newRow("largest number") << 2 << std::numeric_limits<int>::max();
    QTest::newRow("first of none") << 0 << 0;
    QTest::newRow("before none") << 0 << -1;
}

void tst_EngineEdits::endsAtAnIndexOutOfRange()
{
    QFETCH(int, outputs);
    QFETCH(int, index);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    for (int i = 0; i < outputs; ++i)
        bench->addRtmpOutput(id, u"rtmp://%1"_s.arg(i));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const Pipeline *untouched = bench.pipeline(id);
    const QVariantList view = bench->outputsView(id);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    QSignalSpy logged(&bench.engine, &Engine::logChanged);

    QVERIFY(bench.call("removeOutput", id, index));
    QVERIFY(bench.call("setOutputEnabled", id, index, false));

    QCOMPARE(changed.size(), 0);
    QCOMPARE(logged.size(), 0);
    QCOMPARE(bench.pipeline(id), untouched);
    QCOMPARE(bench.livingPipelines(), 1);
    QCOMPARE(bench->outputsView(id), view);
    QCOMPARE(view.size(), outputs);
}

void tst_EngineEdits::readsTheSourceMap_data()
{
    QTest::addColumn<QVariantMap>("map");
    QTest::addColumn<QVariantList>(
        "record"); // kind, uri, width, height, fps, Dante on, its device, channel map

    const auto row = [](const char *name, const QVariantMap &map, const QVariantList &record) {
        QTest::newRow(name) << map << record;
    };
    const QString none = u""_s;
    row("nothing", {}, {4, none, 1920, 1080, 30, false, none, none});
    row("everything",
        {{u"kind"_s, u"srt"_s},
         {u"uri"_s, u"srt://a:1"_s},
         {u"width"_s, 1280},
         {u"height"_s, 720},
         {u"fps"_s, 60},
         {u"danteDevice"_s, u"DVS"_s},
         {u"channelMap"_s, u"0,1"_s}},
        {1, u"srt://a:1"_s, 1280, 720, 60, true, u"DVS"_s, u"0,1"_s});
    row("kind in capitals is unknown", {{u"kind"_s, u"NDI"_s}}, {4, none, 1920, 1080, 30, false, none, none});
    row("a fraction is rounded", {{u"fps"_s, 23.976}}, {4, none, 1920, 1080, 24, false, none, none});
    row("what is no number is 0", {{u"fps"_s, u"x"_s}}, {4, none, 1920, 1080, 0, false, none, none});
    row("numbers as text", {{u"width"_s, u"640"_s}, {u"height"_s, u"-1"_s}},
        {4, none, 640, -1, 30, false, none, none});
    row("an empty Dante device turns it on", {{u"danteDevice"_s, none}},
        {4, none, 1920, 1080, 30, true, none, none});
    row("keys of other case are none", {{u"Uri"_s, u"x"_s}, {u"URI"_s, u"x"_s}},
        {4, none, 1920, 1080, 30, false, none, none});
}

void tst_EngineEdits::readsTheSourceMap()
{
    QFETCH(QVariantMap, map);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(bench.call("configureSource", id, map));
    const SourceConfig source = bench.config(id).source;
    const QVariantList record{source.kind, source.uri,          source.width,       source.height,
                              source.fps,  source.danteEnabled, source.danteDevice, source.channelMap};
    QTEST(record, "record");
    QCOMPARE(source.ndiPipePath, QString());
}

void tst_EngineEdits::neverTurnsDanteOff()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench.call("configureSource", id, QVariantMap{{u"danteDevice"_s, u"DVS"_s}});
    bench.call("configureSource", id,
               QVariantMap{{u"danteDevice"_s, QVariant()}, {u"danteEnabled"_s, false}});
    QVERIFY(bench.config(id).source.danteEnabled);
    QCOMPARE(bench.config(id).source.danteDevice, QString());
}

void tst_EngineEdits::readsTheEncoderMap_data()
{
    QTest::addColumn<QVariantMap>("map");
    QTest::addColumn<QVariantList>(
        "record"); // codec, family, preset, rate, key frame, zero latency, B-frames, audio

    const auto row = [](const char *name, const QVariantMap &map, const QVariantList &record) {
        QTest::newRow(name) << map << record;
    };
    row("nothing", {}, {0, 0, 0, 6000, 2, true, false, u"aac"_s, 160});
    row("everything",
        {{u"codec"_s, u"av1"_s},
         {u"bitrate"_s, 2500},
         {u"audioCodec"_s, u"opus"_s},
         {u"audioBitrate"_s, 96},
         {u"zeroLatency"_s, false},
         {u"bFrames"_s, true},
         {u"keyintSec"_s, 4},
         {u"preset"_s, u"slow"_s},
         {u"hw"_s, u"qsv"_s}},
        {2, 3, 6, 2500, 4, false, true, u"opus"_s, 96});
    row("unknown texts", {{u"codec"_s, u"h264"_s}, {u"preset"_s, u"auto"_s}, {u"hw"_s, u"auto"_s}},
        {0, 0, 0, 6000, 2, true, false, u"aac"_s, 160});
    row("no limits on numbers", {{u"bitrate"_s, -5}, {u"keyintSec"_s, 0}, {u"audioBitrate"_s, 1000000}},
        {0, 0, 0, -5, 0, true, false, u"aac"_s, 1000000});
    row("what is no number is 0", {{u"bitrate"_s, u"muito"_s}}, {0, 0, 0, 0, 2, true, false, u"aac"_s, 160});
}

void tst_EngineEdits::readsTheEncoderMap()
{
    QFETCH(QVariantMap, map);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(bench.call("configureEncoder", id, map));
    const EncoderConfig encoder = bench.config(id).encoder;
    const QVariantList record{encoder.codec,   encoder.hw,         encoder.preset,
                              encoder.bitrate, encoder.keyintSec,  encoder.zeroLatency,
                              encoder.bFrames, encoder.audioCodec, encoder.audioBitrate};
    QTEST(record, "record");
}

void tst_EngineEdits::buildsAnRtmpOutput()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(bench.call("addRtmpOutput", id, u"rtmp://host/live/chave secreta"_s));

    QCOMPARE(bench.config(id).outputs.size(), 1);
    const OutputConfig output = bench.config(id).outputs.first();
    QCOMPARE(output.kind, 0);
    QCOMPARE(output.url, u"rtmp://host/live/chave secreta"_s);
    QVERIFY(output.enabled);
    QCOMPARE(output.srtLatencyMs, 120);
    QCOMPARE(output.localPort, 0);
    QCOMPARE(output.localPort2, 0);
}

void tst_EngineEdits::buildsAnSrtOutput()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(bench.call("addSrtOutput", id, u"srt://h:9000"_s, 250, u"segredo"_s));

    const OutputConfig output = bench.config(id).outputs.value(0);
    QCOMPARE(output.kind, 1);
    QCOMPARE(output.url, u"srt://h:9000"_s);
    QVERIFY(output.enabled);
    QCOMPARE(output.srtLatencyMs, 250);
    QCOMPARE(output.passphrase, u"segredo"_s);
    QCOMPARE(output.streamId, QString());
    QCOMPARE(output.oheadbw, 25);
    QCOMPARE(output.maxbw, -1);
    QCOMPARE(output.groupMode, 0);
    QVERIFY(output.localPort >= firstPort && output.localPort <= lastPort);
    QCOMPARE(output.localPort2, 0);
}

void tst_EngineEdits::buildsAFullSrtOutput()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(
        bench.call("addSrtOutputFull", id, u"srt://h:9000"_s, 8000, u"segredo"_s, u"#!::r=live"_s, 40, 0));

    const OutputConfig output = bench.config(id).outputs.value(0);
    QCOMPARE(output.kind, 1);
    QCOMPARE(output.url, u"srt://h:9000"_s);
    QCOMPARE(output.srtLatencyMs, 8000);
    QCOMPARE(output.passphrase, u"segredo"_s);
    QCOMPARE(output.streamId, u"#!::r=live"_s);
    QCOMPARE(output.oheadbw, 40);
    QCOMPARE(output.maxbw, 0);
    QVERIFY(output.localPort >= firstPort && output.localPort <= lastPort);
    QCOMPARE(output.localPort2, 0);
}

void tst_EngineEdits::buildsABondedOutput()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QVERIFY(bench.call("addSrtlaOutput", id, u""_s, 5001)); // refusing an empty host is the interface's task
    QVERIFY(bench.call("addSrtlaOutput", id, u"bond.example"_s, 65535));

    const QList<OutputConfig> outputs = bench.config(id).outputs;
    QCOMPARE(outputs.size(), 2);
    QCOMPARE(outputs.at(0).kind, 2);
    QCOMPARE(outputs.at(0).receiverHost, QString());
    QCOMPARE(outputs.at(0).receiverPort, 5001);
    QCOMPARE(outputs.at(1).receiverHost, u"bond.example"_s);
    QCOMPARE(outputs.at(1).receiverPort, 65535);
    QCOMPARE(outputs.at(1).url, QString());

    // One call of the allocator after the other, the first for the first hop.
    QVERIFY(outputs.at(0).localPort >= firstPort);
    QVERIFY(outputs.at(0).localPort2 > outputs.at(0).localPort);
    QVERIFY(outputs.at(1).localPort > outputs.at(0).localPort2);
    QVERIFY(outputs.at(1).localPort2 > outputs.at(1).localPort);
    QVERIFY(outputs.at(1).localPort2 <= lastPort);
}

void tst_EngineEdits::keepsWhatIsNotEdited()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addSrtlaOutput(id, u"bond.example"_s, 5000);
    bench->configureSource(id, {{u"width"_s, 1280}, {u"uri"_s, u"x.mp4"_s}});
    bench->configureEncoder(id, {{u"bitrate"_s, 2000}});
    const QList<OutputConfig> before = bench.config(id).outputs;

    bench->renamePipeline(id, u"b"_s);
    bench->configureSource(id, {{u"height"_s, 720}});

    const PipelineConfig &config = bench.config(id);
    QCOMPARE(config.id, id);
    QCOMPARE(config.name, u"b"_s);
    QCOMPARE(config.source.width, 1280);
    QCOMPARE(config.source.height, 720);
    QCOMPARE(config.source.uri, u"x.mp4"_s);
    QCOMPARE(config.encoder.bitrate, 2000);
    QCOMPARE(config.outputs.size(), 1);
    QCOMPARE(config.outputs.first().localPort, before.first().localPort);
    QCOMPARE(config.outputs.first().localPort2, before.first().localPort2);
    QVERIFY(config.autoRestart);
    QVERIFY(config.restart.enabled);
}

void tst_EngineEdits::editsOneOutputOfThree()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    for (const QString &url : {u"rtmp://0"_s, u"rtmp://1"_s, u"rtmp://2"_s})
        bench->addRtmpOutput(id, url);

    const auto outputs = [&] {
        QStringList texts;
        const QList<OutputConfig> all = bench.config(id).outputs;
        for (const OutputConfig &output : all)
            texts << output.url + (output.enabled ? u" on"_s : u" off"_s);
        return texts;
    };
    bench.call("setOutputEnabled", id, 1, false);
    QCOMPARE(outputs(), QStringList({u"rtmp://0 on"_s, u"rtmp://1 off"_s, u"rtmp://2 on"_s}));
    bench.call("removeOutput", id, 0);
    QCOMPARE(outputs(), QStringList({u"rtmp://1 off"_s, u"rtmp://2 on"_s}));
    bench.call("setOutputEnabled", id, 0, true);
    QCOMPARE(outputs(), QStringList({u"rtmp://1 on"_s, u"rtmp://2 on"_s}));
    bench.call("removeOutput", id, 1);
    QCOMPARE(outputs(), QStringList{u"rtmp://1 on"_s});
    bench.call("clearOutputs", id);
    QCOMPARE(outputs(), QStringList());
}

CORVANE_TEST(tst_EngineEdits, QCoreApplication)
#include "tst_EngineEdits.moc"
