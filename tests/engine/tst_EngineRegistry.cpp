#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>

#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// The pipelines of the registry, their order and names, and the disposal of their objects.
class tst_EngineRegistry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void comparesIdsToTheLastLetter_data();
    void comparesIdsToTheLastLetter();
    void beginsEmpty();
    void addsAPipeline();
    void namesByTheCurrentCount();
    void keepsNamesAsTheyStand_data();
    void keepsNamesAsTheyStand();
    void givesIdsOfEightHexDigits();
    void keepsTheOrderThroughReplacement();
    void shiftsWhatIsBehindARemovedPipeline();
    void disposesOfReplacedObjects();
    void disposesOfRemovedObjects();
    void passesOverUnknownIds_data();
    void passesOverUnknownIds();
    void saysNothingWhileItEnds();
};

void tst_EngineRegistry::beginsEmpty()
{
    EngineBench bench;
    QCOMPARE(bench->pipelines(), QVariantList());
    QVERIFY(!bench->anyPipelineTransmitting());
    QVERIFY(bench.call("startAll"));
    QVERIFY(bench.call("stopAll"));
    QStringList lines = bench.logLines();
    lines.removeOne(u"métricas Prometheus em http://127.0.0.1:9105/metrics"_s); // if the port was free
    QCOMPARE(lines.size(), 1);                                                  // the probe's summary
}

void tst_EngineRegistry::addsAPipeline()
{
    EngineBench bench;
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    bench->clearLog();

    const auto id = bench.ask<QString>("addPipeline", u"Estúdio"_s);

    QCOMPARE(changed.size(), 1);
    QCOMPARE(bench.column(u"id"_s), QStringList{id});
    QCOMPARE(bench.column(u"name"_s), QStringList{u"Estúdio"_s});
    QCOMPARE(bench.column(u"state"_s), QStringList{u"stopped"_s});
    QCOMPARE(bench.pipeline(id)->parent(), &bench.engine);
    QVERIFY(bench.config(id).outputs.isEmpty());
    QCOMPARE(bench->log(), QString());
}

void tst_EngineRegistry::namesByTheCurrentCount()
{
    EngineBench bench;
    const auto first = bench.ask<QString>("addPipeline", u""_s);
    bench.ask<QString>("addPipeline", QString());
    QCOMPARE(bench.column(u"name"_s), QStringList({u"Stream 1"_s, u"Stream 2"_s}));

    // Two of the same name after a removal: the number follows from those that exist.
    bench.call("removePipeline", first);
    bench.ask<QString>("addPipeline", u""_s);
    QCOMPARE(bench.column(u"name"_s), QStringList({u"Stream 2"_s, u"Stream 2"_s}));

    bench.ask<QString>("addPipeline", u"Outro"_s);
    bench.ask<QString>("addPipeline", u""_s);
    QCOMPARE(bench.column(u"name"_s), QStringList({u"Stream 2"_s, u"Stream 2"_s, u"Outro"_s, u"Stream 4"_s}));

    const QStringList ids = bench.column(u"id"_s);
    for (const QString &id : ids)
        bench.call("removePipeline", id);
    QCOMPARE(bench->pipelines(), QVariantList());
    bench.ask<QString>("addPipeline", u""_s);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"Stream 1"_s});
}

void tst_EngineRegistry::keepsNamesAsTheyStand_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("plain") << u"Câmera 1"_s;
    QTest::newRow("blanks around") << u"  x  "_s;
    QTest::newRow("a blank alone") << u" "_s;
    QTest::newRow("a line feed") << u"a\nb"_s;
    QTest::newRow("place markers") << u"%1 %2 %L3"_s;
    QTest::newRow("quotes and markup") << u"\"<b>'&\\"_s;
    QTest::newRow("outside the basic plane") << u"\U0001F3A5 日本語"_s;
    QTest::newRow("10000 characters") << QString(10000, u'ç');
}

void tst_EngineRegistry::keepsNamesAsTheyStand()
{
    QFETCH(QString, name);

    EngineBench bench;
    const auto added = bench.ask<QString>("addPipeline", name);
    const auto renamed = bench.ask<QString>("addPipeline", u"antes"_s);
    bench.call("renamePipeline", renamed, name);
    QCOMPARE(bench.column(u"name"_s), QStringList({name, name}));
    QCOMPARE(bench.column(u"id"_s), QStringList({added, renamed}));
}

void tst_EngineRegistry::givesIdsOfEightHexDigits()
{
    static const QRegularExpression form(u"^[0-9a-f]{8}$"_s);
    EngineBench bench;
    for (int i = 0; i < 50; ++i) {
        const auto id = bench.ask<QString>("addPipeline", u"igual"_s);
        QVERIFY2(form.match(id).hasMatch(), qPrintable(id));
    }
    QStringList ids = bench.column(u"id"_s);
    QCOMPARE(ids.size(), 50);
    QCOMPARE(ids.removeDuplicates(), 0);
}

void tst_EngineRegistry::keepsTheOrderThroughReplacement()
{
    EngineBench bench;
    for (const QString &name : {u"c"_s, u"a"_s, u"b"_s})
        bench->addPipeline(name);
    const QStringList ids = bench.column(u"id"_s);

    bench.call("renamePipeline", ids.at(1), u"z"_s);
    bench.call("configureSource", ids.at(0), QVariantMap{});
    bench.call("addRtmpOutput", ids.at(2), u"rtmp://a"_s);
    bench.call("renamePipeline", ids.at(0), u""_s);

    QCOMPARE(bench.column(u"id"_s), ids);
    QCOMPARE(bench.column(u"name"_s), QStringList({u""_s, u"z"_s, u"b"_s}));
    QCOMPARE(bench.column(u"outputs"_s), QStringList({u"0"_s, u"0"_s, u"1"_s}));
}

void tst_EngineRegistry::shiftsWhatIsBehindARemovedPipeline()
{
    EngineBench bench;
    for (const QString &name : {u"a"_s, u"b"_s, u"c"_s})
        bench->addPipeline(name);
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    bench.call("removePipeline", bench.column(u"id"_s).at(1));
    QCOMPARE(bench.column(u"name"_s), QStringList({u"a"_s, u"c"_s}));
    QCOMPARE(changed.size(), 1);
}

void tst_EngineRegistry::disposesOfReplacedObjects()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QPointer<Pipeline> old = bench.pipeline(id);

    bench.call("renamePipeline", id, u"b"_s);
    QVERIFY(old); // until the event loop comes to it
    QVERIFY(bench.pipeline(id) != old);
    QCOMPARE(bench.livingPipelines(), 2);

    QVERIFY(waitUntil([&] { return !old; }));
    QCOMPARE(bench.livingPipelines(), 1);
    QCOMPARE(bench.column(u"name"_s), QStringList{u"b"_s});
}

void tst_EngineRegistry::disposesOfRemovedObjects()
{
    EngineBench bench;
    const QString id = bench->addPipeline(u"a"_s);
    QPointer<Pipeline> old = bench.pipeline(id);

    bench.call("removePipeline", id);
    QVERIFY(old);
    QCOMPARE(bench->pipelines(), QVariantList());
    QVERIFY(waitUntil([&] { return !old; }));
    QCOMPARE(bench.livingPipelines(), 0);
}

using Operation = std::function<bool(EngineBench &, const QString &id)>;

void tst_EngineRegistry::passesOverUnknownIds_data()
{
    QTest::addColumn<Operation>("operation");

    const auto row = [](const char *name, const Operation &operation) { QTest::newRow(name) << operation; };
    const QString text = u"x"_s;
    const QVariantMap map{{u"width"_s, 1}};
    row("removePipeline", [](auto &b, auto &id) { return b.call("removePipeline", id); });
    row("startPipeline", [](auto &b, auto &id) { return b.call("startPipeline", id); });
    row("stopPipeline", [](auto &b, auto &id) { return b.call("stopPipeline", id); });
    row("configureSource", [=](auto &b, auto &id) { return b.call("configureSource", id, map); });
    row("configureEncoder", [=](auto &b, auto &id) { return b.call("configureEncoder", id, map); });
    row("addRtmpOutput", [=](auto &b, auto &id) { return b.call("addRtmpOutput", id, text); });
    row("addSrtOutput", [=](auto &b, auto &id) { return b.call("addSrtOutput", id, text, 1, text); });
    row("addSrtOutputFull",
        [=](auto &b, auto &id) { return b.call("addSrtOutputFull", id, text, 1, text, text, 1, 1); });
    row("addSrtlaOutput", [=](auto &b, auto &id) { return b.call("addSrtlaOutput", id, text, 1); });
    row("clearOutputs", [](auto &b, auto &id) { return b.call("clearOutputs", id); });
    row("removeOutput", [](auto &b, auto &id) { return b.call("removeOutput", id, 0); });
    row("setOutputEnabled", [](auto &b, auto &id) { return b.call("setOutputEnabled", id, 0, false); });
    row("renamePipeline", [=](auto &b, auto &id) { return b.call("renamePipeline", id, text); });
    row("outputsView",
        [](auto &b, auto &id) { return b.template ask<QVariantList>("outputsView", id).isEmpty(); });
    row("previewCommand",
        [](auto &b, auto &id) { return b.template ask<QString>("previewCommand", id) == QString(); });
}

void tst_EngineRegistry::passesOverUnknownIds()
{
    QFETCH(Operation, operation);

    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"progress"_s);
    QVERIFY(waitUntil([&] { return bench.livingPipelines() == 1; }));
    const Pipeline *untouched = bench.pipeline(id);
    const QVariantList view = bench->pipelines();
    const QString log = bench->log();
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);
    QSignalSpy logged(&bench.engine, &Engine::logChanged);

    for (const QString &unknown : {u"deadbeef"_s, u""_s, id.toUpper() + u"x"_s, id.first(7), id + u' '})
        QVERIFY(operation(bench, unknown));

    QCOMPARE(changed.size(), 0);
    QCOMPARE(logged.size(), 0);
    QCOMPARE(bench->log(), log);
    QCOMPARE(bench->pipelines(), view);
    QCOMPARE(bench.pipeline(id), untouched);
    QCOMPARE(bench.livingPipelines(), 1);
}

void tst_EngineRegistry::saysNothingWhileItEnds()
{
    int changes = 0;
    {
        EngineBench bench;
        const QString id = bench.addFake(u"a"_s, u"progress"_s);
        bench->startPipeline(id);
        QVERIFY(waitUntil([&] { return bench.logHas(u"[stats] "_s); }));
        connect(&bench.engine, &Engine::pipelinesChanged, this, [&] { ++changes; });
    }
    QCOMPARE(changes, 0);
}

void tst_EngineRegistry::comparesIdsToTheLastLetter_data()
{
    QTest::addColumn<std::function<QString(const QString &)>>("form"); // another text than the id

    using Form = std::function<QString(const QString &)>;
    QTest::newRow("capitals") << Form([](const QString &id) { return id.toUpper(); });
    QTest::newRow("a blank behind") << Form([](const QString &id) { return id + u' '; });
    QTest::newRow("a blank before") << Form([](const QString &id) { return u' ' + id; });
    QTest::newRow("cut short") << Form([](const QString &id) { return id.chopped(1); });
    QTest::newRow("longer") << Form([](const QString &id) { return id + u'0'; });
    QTest::newRow("nothing") << Form([](const QString &) { return QString(); });
}

void tst_EngineRegistry::comparesIdsToTheLastLetter()
{
    QFETCH(const std::function<QString(const QString &)>, form);
    EngineBench bench;
    QString id;
    do
        id = bench.addFake(u"a"_s, u"progress"_s);
    while (id == id.toUpper()); // digits alone
    const QString other = form(id);
    const QStringList names = bench.column(u"name"_s);
    QVERIFY(waitUntil([&] { return bench.livingPipelines() == names.size(); }));
    QSignalSpy changed(&bench.engine, &Engine::pipelinesChanged);

    bench->renamePipeline(other, u"b"_s);
    bench->configureSource(other, {});
    bench->configureEncoder(other, {});
    bench->addRtmpOutput(other, u"rtmp://b"_s);
    bench->clearOutputs(other);
    bench->removeOutput(other, 0);
    bench->setOutputEnabled(other, 0, false);
    bench->startPipeline(other);
    bench->stopPipeline(other);
    bench->removePipeline(other);

    QCOMPARE(changed.size(), 0);
    QCOMPARE(bench.column(u"name"_s), names);
    QCOMPARE(bench->outputsView(other), QVariantList());
    QCOMPARE(bench->previewCommand(other), QString());
    QCOMPARE(bench->outputsView(id).size(), 1);
}

CORVANE_TEST(tst_EngineRegistry, QCoreApplication)
#include "tst_EngineRegistry.moc"
