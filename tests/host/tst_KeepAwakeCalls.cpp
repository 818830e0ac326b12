// Requests of the Engine to the system, one by one.

#include "engine/host/KeepAwake.h"
#include "engine/host/ShutdownBlock.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QTest>

#include <optional>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QStringList calls;

} // namespace

// Replacements that the Engine calls: the library's own don't come into the program.

void corvane::preventSleep()
{
    calls << u"prevent sleep"_s;
}

void corvane::allowSleep()
{
    calls << u"allow sleep"_s;
}

void corvane::blockShutdown()
{
    calls << u"block shutdown"_s;
}

void corvane::allowShutdown()
{
    calls << u"allow shutdown"_s;
}

class tst_KeepAwakeCalls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { calls.clear(); }
    void firstAndLastOfSeveral();
    void editOfOneOfSeveral();
    void waitForARestartIsNoTransmission();
    void engineLeavesTheRequestToTheSystem();
    void idleEngineAsksForNothing();
};

namespace {

const QStringList awake{u"prevent sleep"_s, u"block shutdown"_s};
const QStringList asleep{u"allow sleep"_s, u"allow shutdown"_s};

} // namespace

void tst_KeepAwakeCalls::firstAndLastOfSeveral()
{
    EngineBench bench;
    const QString first = bench.addFake(u"a"_s, u"progress"_s);
    const QString second = bench.addFake(u"b"_s, u"progress"_s);
    QCOMPARE(calls, QStringList());

    bench->startPipeline(first);
    QCOMPARE(calls, awake); // from `Starting` on
    bench->startPipeline(second);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList({u"running"_s, u"running"_s}); }));
    bench->stopPipeline(first);
    bench->startPipeline(first);
    bench->stopPipeline(second);
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList({u"running"_s, u"stopped"_s}); }));
    QCOMPARE(calls, awake);
    QCOMPARE(bench.logCount(u"no-sleep ATIVO (transmitindo)"_s), 1);
    QCOMPARE(bench.logCount(u"no-sleep liberado (ocioso)"_s), 0);

    bench->stopPipeline(first);
    QCOMPARE(calls, awake + asleep);
    QCOMPARE(bench.logCount(u"no-sleep liberado (ocioso)"_s), 1);
    bench->stopAll();
    QCOMPARE(calls, awake + asleep);
}

void tst_KeepAwakeCalls::editOfOneOfSeveral()
{
    EngineBench bench;
    const QString first = bench.addFake(u"a"_s, u"progress"_s);
    const QString second = bench.addFake(u"b"_s, u"progress"_s);
    const QString third = bench.addFake(u"c"_s, u"progress"_s);
    bench->startAll();
    QVERIFY(waitUntil([&] { return bench.column(u"state"_s) == QStringList(3, u"running"_s); }));

    // The objects of the first two end by and by.
    bench->renamePipeline(first, u"d"_s);
    bench->removePipeline(second);
    QVERIFY(waitUntil([&] { return bench.livingPipelines() == 2; }));
    QCOMPARE(bench.column(u"state"_s), QStringList({u"stopped"_s, u"running"_s}));
    QCOMPARE(calls, awake);

    bench->removePipeline(third);
    QCOMPARE(calls, awake + asleep);
}

void tst_KeepAwakeCalls::waitForARestartIsNoTransmission()
{
    EngineBench bench;
    const QString id = bench.addFake(u"a"_s, u"exit=3"_s);
    bench->startPipeline(id);
    QVERIFY(waitUntil([&] { return bench.logHas(u"tentativa 2 na janela"_s); }));
    bench->stopPipeline(id);

    QCOMPARE(calls, awake + asleep + awake + asleep);
}

void tst_KeepAwakeCalls::engineLeavesTheRequestToTheSystem()
{
    std::optional<EngineBench> bench(std::in_place);
    const QString id = bench->addFake(u"a"_s, u"progress"_s);
    bench->engine.startPipeline(id);
    QVERIFY(waitUntil([&] { return bench->column(u"state"_s) == QStringList{u"running"_s}; }));
    bench.reset();

    QCOMPARE(calls, awake);
}

void tst_KeepAwakeCalls::idleEngineAsksForNothing()
{
    {
        EngineBench bench;
        const QString id = bench->addPipeline(u"a"_s);
        bench->renamePipeline(id, u"b"_s);
        bench->stopAll();
        bench->removePipeline(id);
    }
    QCOMPARE(calls, QStringList());
}

CORVANE_TEST(tst_KeepAwakeCalls, QCoreApplication)
#include "tst_KeepAwakeCalls.moc"
