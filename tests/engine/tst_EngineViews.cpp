#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The two views that the interface binds to: their keys, the types of their values, the texts in them.
class tst_EngineViews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pipelinesViewHasTheseKeys();
    void pipelinesViewHasTheseTypes_data();
    void pipelinesViewHasTheseTypes();
    void pipelinesViewIsReadThroughTheProperty();
    void countsDisabledOutputs();
    void showsTheFiguresOfARun();
    void showsEachFigureUnderItsKey();
    void keepsTheFiguresOfAStoppedPipeline();
    void outputsViewHasTheseKeys();
    void outputsViewHasTheseTypes_data();
    void outputsViewHasTheseTypes();
    void outputsViewShowsTheTarget_data();
    void outputsViewShowsTheTarget();
    void outputsViewHidesSecretsAndPorts();
};

void tst_EngineViews::pipelinesViewHasTheseKeys()
{
    EngineBench bench;
    bench->addPipeline(u"a"_s);
    const QVariantMap row = bench->pipelines().value(0).toMap();
    QCOMPARE(row.keys(), QStringList({u"bitrate"_s, u"dropped"_s, u"fps"_s, u"id"_s, u"level"_s, u"name"_s,
                                      u"outputs"_s, u"rtt"_s, u"sndDrop"_s, u"state"_s}));
}

void tst_EngineViews::pipelinesViewHasTheseTypes_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("fresh"); // the value of a pipeline that has never run

    const auto row = [](const char *key, QMetaType::Type type, const QVariant &fresh) {
        QTest::newRow(key) << QString::fromLatin1(key) << int(type) << fresh;
    };
    row("name", QMetaType::QString, u"a"_s);
    row("outputs", QMetaType::LongLong, qint64(0));
    row("state", QMetaType::QString, u"stopped"_s);
    row("fps", QMetaType::Double, 0.0);
    row("bitrate", QMetaType::Double, 0.0);
    row("dropped", QMetaType::Double, 0.0);
    row("rtt", QMetaType::Double, 0.0);
    row("sndDrop", QMetaType::Double, 0.0);
    row("level", QMetaType::Int, 0);
}

void tst_EngineViews::pipelinesViewHasTheseTypes()
{
    QFETCH(QString, key);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    const QVariantMap row = bench->pipelines().value(0).toMap();
    QTEST(row.value(key).typeId(), "type");
    QTEST(row.value(key), "fresh");
    QCOMPARE(row.value(u"id"_s), QVariant(id));
}

void tst_EngineViews::pipelinesViewIsReadThroughTheProperty()
{
    EngineBench bench;
    bench->addPipeline(u"a"_s);
    bench->addPipeline(u"b"_s);
    QCOMPARE(bench.engine.property("pipelines").toList(), bench->pipelines());
    QCOMPARE(bench.column(u"name"_s), QStringList({u"a"_s, u"b"_s}));
}

void tst_EngineViews::countsDisabledOutputs()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addRtmpOutput(id, u"rtmp://a"_s);
    bench->addSrtlaOutput(id, u"h"_s, 1);
    bench->setOutputEnabled(id, 0, false);
    QCOMPARE(bench->pipelines().value(0).toMap().value(u"outputs"_s), QVariant(qint64(2)));
}

void tst_EngineViews::showsTheFiguresOfARun()
{
    EngineBench bench;
    const QString id =
        bench.addFake(u"a"_s, u"stderr="_s + stepText("frame=1 fps=29.97 bitrate=5987.6kbits/s drop=12\n"));
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"dropped"_s) == QStringList{u"12"_s}; }));

    const QVariantMap row = bench->pipelines().value(0).toMap();
    QCOMPARE(row.value(u"state"_s), QVariant(u"running"_s));
    QCOMPARE(row.value(u"fps"_s), QVariant(29.97));
    QCOMPARE(row.value(u"bitrate"_s), QVariant(5987.6));
    QCOMPARE(row.value(u"dropped"_s), QVariant(12.0));
    QCOMPARE(row.value(u"rtt"_s), QVariant(0.0));
    QCOMPARE(row.value(u"sndDrop"_s), QVariant(0.0));
    QCOMPARE(row.value(u"level"_s), QVariant(0));
}

void tst_EngineViews::showsEachFigureUnderItsKey()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    setEachFigure(*bench.pipeline(id));

    const QVariantMap row = bench->pipelines().value(0).toMap();
    QCOMPARE(row.value(u"rtt"_s), QVariant(41.5));
    QCOMPARE(row.value(u"sndDrop"_s), QVariant(44.0));
    QCOMPARE(row.value(u"fps"_s), QVariant(47.5));
    QCOMPARE(row.value(u"dropped"_s), QVariant(48.0));
    QCOMPARE(row.value(u"bitrate"_s), QVariant(49.5));
}

void tst_EngineViews::keepsTheFiguresOfAStoppedPipeline()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress=1"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.column(u"fps"_s) == QStringList{u"30"_s}; }));
    bench->stopPipeline(id);
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
    QCOMPARE(bench.column(u"fps"_s), QStringList{u"30"_s});

    // A new object begins with fresh figures.
    bench->renamePipeline(id, u"b"_s);
    QCOMPARE(bench.column(u"fps"_s), QStringList{u"0"_s});
}

void tst_EngineViews::outputsViewHasTheseKeys()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QCOMPARE(bench.ask<QVariantList>("outputsView", id), QVariantList());

    bench->addRtmpOutput(id, u"rtmp://a"_s);
    bench->addSrtOutputFull(id, u"srt://b:1"_s, 1, u"p"_s, u"s"_s, 1, 1);
    bench->addSrtlaOutput(id, u"c"_s, 1);
    const auto view = bench.ask<QVariantList>("outputsView", id);
    QCOMPARE(view.size(), 3);
    for (const QVariant &row : view) {
        QCOMPARE(row.toMap().keys(),
                 QStringList({u"enabled"_s, u"index"_s, u"kind"_s, u"srtLatencyMs"_s, u"url"_s}));
    }
}

void tst_EngineViews::outputsViewHasTheseTypes_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");

    const auto row = [](const char *key, QMetaType::Type type, const QVariant &value) {
        QTest::newRow(key) << QString::fromLatin1(key) << int(type) << value;
    };
    row("index", QMetaType::Int, 1);
    row("enabled", QMetaType::Bool, false);
    row("kind", QMetaType::QString, u"srt"_s);
    row("url", QMetaType::QString, u"srt://b:1"_s);
    row("srtLatencyMs", QMetaType::Int, 777);
}

void tst_EngineViews::outputsViewHasTheseTypes()
{
    QFETCH(QString, key);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addRtmpOutput(id, u"rtmp://a"_s);
    bench->addSrtOutput(id, u"srt://b:1"_s, 777, u""_s);
    bench->setOutputEnabled(id, 1, false);
    const QVariantMap row = bench.ask<QVariantList>("outputsView", id).value(1).toMap();
    QTEST(row.value(key).typeId(), "type");
    QTEST(row.value(key), "value");
}

using AddOutput = std::function<void(Engine &, const QString &id)>;

void tst_EngineViews::outputsViewShowsTheTarget_data()
{
    QTest::addColumn<AddOutput>("add");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("latency");

    const auto rtmp = [](const QString &url) -> AddOutput {
        return [=](auto &e, auto &id) { e.addRtmpOutput(id, url); };
    };
    const auto srt = [](const QString &url, int latency) -> AddOutput {
        return [=](auto &e, auto &id) { e.addSrtOutput(id, url, latency, u"p"_s); };
    };
    const auto bonded = [](const QString &host, int port) -> AddOutput {
        return [=](auto &e, auto &id) { e.addSrtlaOutput(id, host, port); };
    };
    QTest::newRow("RTMP") << rtmp(u"rtmp://h/live/k"_s) << u"rtmp"_s << u"rtmp://h/live/k"_s << 120;
    QTest::newRow("RTMP, empty") << rtmp(u""_s) << u"rtmp"_s << u""_s << 120;
    QTest::newRow("RTMP, no URL at all") << rtmp(u" a \"b\" %1"_s) << u"rtmp"_s << u" a \"b\" %1"_s << 120;
    QTest::newRow("SRT") << srt(u"srt://h:9000?mode=caller"_s, 20) << u"srt"_s
                         << u"srt://h:9000?mode=caller"_s << 20;
    QTest::newRow("SRT, negative latency") << srt(u"srt://h:1"_s, -1) << u"srt"_s << u"srt://h:1"_s << -1;
    QTest::newRow("bonded") << bonded(u"bond.example"_s, 5000) << u"srtla"_s << u"bond.example:5000"_s << 120;
    QTest::newRow("bonded, lowest port") << bonded(u"h"_s, 1) << u"srtla"_s << u"h:1"_s << 120;
    QTest::newRow("bonded, highest port") << bonded(u"h"_s, 65535) << u"srtla"_s << u"h:65535"_s << 120;
    QTest::newRow("bonded, port 0") << bonded(u"h"_s, 0) << u"srtla"_s << u"h:0"_s << 120;
    QTest::newRow("bonded, no port") << bonded(u"h"_s, 65536) << u"srtla"_s << u"h:65536"_s << 120;
    QTest::newRow("bonded, negative port") << bonded(u"h"_s, -1) << u"srtla"_s << u"h:-1"_s << 120;
    QTest::newRow("bonded, empty host") << bonded(u""_s, 7) << u"srtla"_s << u":7"_s << 120;
    QTest::newRow("bonded, place marker in the host") << bonded(u"%2"_s, 7) << u"srtla"_s << u"%2:7"_s << 120;
    QTest::newRow("bonded, IPv6") << bonded(u"::1"_s, 7) << u"srtla"_s << u"::1:7"_s << 120;
}

void tst_EngineViews::outputsViewShowsTheTarget()
{
    QFETCH(AddOutput, add);

    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    add(bench.engine, id);
    const QVariantMap row = bench->outputsView(id).value(0).toMap();
    QTEST(row.value(u"kind"_s).toString(), "kind");
    QTEST(row.value(u"url"_s).toString(), "url");
    QTEST(row.value(u"srtLatencyMs"_s).toInt(), "latency");
    QCOMPARE(row.value(u"enabled"_s), QVariant(true));
    QCOMPARE(row.value(u"index"_s), QVariant(0));
}

void tst_EngineViews::outputsViewHidesSecretsAndPorts()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    bench->addSrtOutputFull(id, u"srt://h:1"_s, 1, u"segredo123"_s, u"canal456"_s, 1, 1);
    bench->addSrtlaOutput(id, u"h"_s, 2);

    QString shown;
    QDebug(&shown) << bench->outputsView(id);
    QVERIFY(shown.contains(u"srt://h:1"_s));
    QVERIFY(!shown.contains(u"segredo123"_s));
    QVERIFY(!shown.contains(u"canal456"_s));
    const QList<OutputConfig> outputs = bench.config(id).outputs;
    for (const int port : {outputs.at(0).localPort, outputs.at(1).localPort, outputs.at(1).localPort2})
        QVERIFY(!shown.contains(QString::number(port)));
}

CORVANE_TEST(tst_EngineViews, QCoreApplication)
#include "tst_EngineViews.moc"
