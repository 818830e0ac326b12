#include "engine/host/KeepAwake.h"
#include "engine/host/KeepAwake_win.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QList>
#include <QTest>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QList<quint32> requests;
DWORD requestingThread = 0;

unsigned long __stdcall record(unsigned long state)
{
    requests << static_cast<quint32>(state);
    requestingThread = GetCurrentThreadId();
    return 0; // failure, which the caller doesn't check
}

constexpr quint32 awake = 0x80000003;
constexpr quint32 released = 0x80000000;

} // namespace

/// Requests to the system while something transmits. The call itself is observed, as the system doesn't
/// report its effect.
class tst_KeepAwake_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_theSystems = setThreadExecutionState; }
    void init();
    void cleanup();

    void callsTheSystem();
    void asksForSystemAndDisplay();
    void asksOnceWhileSomethingTransmits();
    void letsGoBetweenAFailureAndTheNextStart();

private:
    decltype(setThreadExecutionState) m_theSystems = nullptr;
};

void tst_KeepAwake_win::init()
{
    requests.clear();
}

void tst_KeepAwake_win::cleanup()
{
    setThreadExecutionState = m_theSystems;
}

void tst_KeepAwake_win::callsTheSystem()
{
    QVERIFY(m_theSystems(ES_CONTINUOUS) != 0); // the state requested before, or 0 for a failure
}

void tst_KeepAwake_win::asksForSystemAndDisplay()
{
    setThreadExecutionState = &record;
    preventSleep();
    QCOMPARE(requests, QList<quint32>{awake});
    allowSleep();
    QCOMPARE(requests, QList<quint32>({awake, released}));
}

void tst_KeepAwake_win::asksOnceWhileSomethingTransmits()
{
    setThreadExecutionState = &record;
    EngineBench engine;
    const QString first = engine.addFake(u"a"_s, u"progress"_s);
    const QString second = engine.addFake(u"b"_s, u"progress"_s);
    QCOMPARE(requests, QList<quint32>());

    engine->startPipeline(first);
    QCOMPARE(requests, QList<quint32>{awake});
    QCOMPARE(requestingThread, GetCurrentThreadId()); // it holds for the thread that made it
    engine->startPipeline(second);
    engine->stopPipeline(first);
    QVERIFY(engine->anyPipelineTransmitting());
    QCOMPARE(requests, QList<quint32>{awake});
    QCOMPARE(engine.logCount(u"no-sleep ATIVO (transmitindo)"_s), 1);

    engine->stopPipeline(second);
    QCOMPARE(requests, QList<quint32>({awake, released}));
    QCOMPARE(engine.logCount(u"no-sleep liberado (ocioso)"_s), 1);
}

void tst_KeepAwake_win::letsGoBetweenAFailureAndTheNextStart()
{
    setThreadExecutionState = &record;
    EngineBench engine;
    const QString id = engine.addFake(u"a"_s, u"exit=1"_s);
    engine->startPipeline(id);
    QVERIFY(waitUntil([&] { return requests.size() >= 4; }));
    QCOMPARE(requests.first(4), QList<quint32>({awake, released, awake, released}));
    engine->stopPipeline(id);
}

CORVANE_TEST(tst_KeepAwake_win, QCoreApplication)
#include "tst_KeepAwake_win.moc"
