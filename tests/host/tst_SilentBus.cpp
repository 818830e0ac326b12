#include "tests/engine/EngineTestSupport.h"
#include "tests/host/PrivateBus.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>
#include <QThread>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

/// A bus daemon that accepts and stays silent, and the way of a pipeline to the air: neither the start nor
/// the stop waits for it.
class tst_SilentBus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsUpNoStart_data();
    void holdsUpNoStart();
};

void tst_SilentBus::holdsUpNoStart_data()
{
    QTest::addColumn<bool>("systemBus");
    QTest::addColumn<bool>("sessionBus");

    QTest::newRow("system bus") << true << false;
    QTest::newRow("session bus") << false << true;
    QTest::newRow("both") << true << true;
}

void tst_SilentBus::holdsUpNoStart()
{
    QFETCH(bool, systemBus);
    QFETCH(bool, sessionBus);
    auto silent = std::make_unique<SilentBus>();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", (systemBus ? silent->address() : deadBusAddress()).toUtf8());
    qputenv("DBUS_SESSION_BUS_ADDRESS", (sessionBus ? silent->address() : deadBusAddress()).toUtf8());
    EngineBench engine;
    const QString id = engine.addFake(u"a"_s, u"progress"_s);

    engine->startPipeline(id);
    QVERIFY(silent->waitForCaller());
    QVERIFY(silent->callerWaits());
    QVERIFY(waitUntil([&] { return engine.logHas(u"[stats] frame="_s); }));
    engine->stopPipeline(id);
    QCOMPARE(engine.column(u"state"_s), QStringList{u"stopped"_s});

    // The attempts end with the daemon, and don't reach into the next row.
    silent.reset();
    QVERIFY(waitUntil([] { return QCoreApplication::instance()->findChildren<QThread *>().isEmpty(); }));
}

CORVANE_TEST(tst_SilentBus, QCoreApplication)
#include "tst_SilentBus.moc"
