#include "engine/Engine.h"
#include "tests/host/PrivateBus.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A transmission keeps the machine awake: from the Engine to the services, on a bus of the test's own.
class tst_KeepAwakeEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void asksWhileSomethingTransmits();

private:
    PrivateBus m_bus;
};

void tst_KeepAwakeEngine::initTestCase()
{
    if (!m_bus.problem().isEmpty())
        QSKIP(qPrintable(m_bus.problem()));
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_bus.address().toUtf8());
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
}

void tst_KeepAwakeEngine::asksWhileSomethingTransmits()
{
    LineProcess services;
    m_bus.startServices(services, {u"login"_s, u"screen"_s});
    ToolPath path;
    path.addFakeFfmpeg();
    Engine engine;
    const QString first = engine.addPipeline(u"a"_s);
    engine.addRtmpOutput(first, u"fake:progress"_s);
    const QString second = engine.addPipeline(u"b"_s);
    engine.addRtmpOutput(second, u"fake:progress"_s);

    engine.startPipeline(first);
    QVERIFY(waitUntil([&] { return services.lines(u"login inhibit 1 idle:sleep|"_s).size() == 1; }));
    QVERIFY(waitUntil([&] { return services.lines(u"login inhibit 2 shutdown|"_s).size() == 1; }));
    QVERIFY(waitUntil([&] { return services.lines(u"screen inhibit 1 "_s).size() == 1; }));
    engine.startPipeline(second);
    engine.stopPipeline(first);
    QVERIFY(engine.anyPipelineTransmitting());
    QVERIFY(waitUntil([&] { return engine.log().count(u"ffmpeg rodando"_s) == 2; }));
    services.tell(u"ping"_s);
    QVERIFY(services.waitFor(u"pong"_s)); // whatever has been asked of them is in the lines
    QCOMPARE(services.lines(u"login closed"_s), QStringList());
    QCOMPARE(services.lines(u"screen uninhibit"_s), QStringList());

    engine.stopPipeline(second);
    QVERIFY(services.waitFor(u"login closed 1"_s));
    QVERIFY(services.waitFor(u"login closed 2"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 1"_s));

    // Without outputs it is on air only until the start has failed.
    const QString third = engine.addPipeline(u"c"_s);
    engine.startPipeline(third);
    QVERIFY(services.waitFor(u"login closed 3"_s));
    QVERIFY(services.waitFor(u"login closed 4"_s));
    QVERIFY(services.waitFor(u"screen uninhibit 2"_s));
    QCOMPARE(services.lines(u"login inhibit"_s).size(), 4);
    QCOMPARE(services.lines(u"screen inhibit"_s).size(), 2);
}

CORVANE_TEST(tst_KeepAwakeEngine, QCoreApplication)
#include "tst_KeepAwakeEngine.moc"
