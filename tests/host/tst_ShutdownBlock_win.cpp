#include "engine/host/ShutdownBlock.h"
#include "engine/host/ShutdownBlock_win.h"
#include "tests/engine/EngineTestSupport.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QString>
#include <QStringList>
#include <QTest>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

QStringList blockCalls;
bool systemTakesReasons = true;

QString titleOf(HWND window)
{
    wchar_t title[64];
    return QString::fromWCharArray(title, GetWindowTextW(window, title, 64));
}

int __stdcall recordReason(HWND__ *window, const wchar_t *reason)
{
    blockCalls << u"create %1: %2"_s.arg(titleOf(window), QString::fromWCharArray(reason));
    return systemTakesReasons ? TRUE : FALSE;
}

int __stdcall recordDestruction(HWND__ *window)
{
    blockCalls << u"destroy "_s + titleOf(window);
    return TRUE;
}

/// A window of this thread.
class PlainWindow
{
public:
    PlainWindow(const wchar_t *title, DWORD visibility, HWND owner = nullptr)
        : handle(CreateWindowExW(0, L"STATIC", title, WS_POPUP | visibility, 0, 0, 10, 10, owner, nullptr,
                                 nullptr, nullptr))
    {
    }
    ~PlainWindow() { DestroyWindow(handle); }
    Q_DISABLE_COPY_MOVE(PlainWindow)

    const HWND handle;
};

} // namespace

/// The reason by which a shutdown is put off, and the windows that bear it. The calls are looked on at: the
/// system shows the reason on a screen of its own.
class tst_ShutdownBlock_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void callsTheSystem();
    void givesEachWindowAReason();
    void passesOverARefusal();
    void isTakenWithTheKeepAwakeRequest();

private:
    const decltype(shutdownBlockReasonCreate) m_create = shutdownBlockReasonCreate;
    const decltype(shutdownBlockReasonDestroy) m_destroy = shutdownBlockReasonDestroy;
};

void tst_ShutdownBlock_win::init()
{
    blockCalls.clear();
    systemTakesReasons = true;
    shutdownBlockReasonCreate = &recordReason;
    shutdownBlockReasonDestroy = &recordDestruction;
}

void tst_ShutdownBlock_win::cleanup()
{
    shutdownBlockReasonCreate = m_create;
    shutdownBlockReasonDestroy = m_destroy;
}

void tst_ShutdownBlock_win::callsTheSystem()
{
    // It refuses what is no window, which the recording functions don't.
    QCOMPARE(m_create(nullptr, L"x"), FALSE);
    QCOMPARE(m_destroy(nullptr), FALSE);
}

void tst_ShutdownBlock_win::givesEachWindowAReason()
{
    const PlainWindow shown(L"shown", WS_VISIBLE);
    const PlainWindow hidden(L"hidden", 0);
    const PlainWindow owned(L"owned", WS_VISIBLE, shown.handle);
    const QString taken = u"create shown: Transmissão no ar"_s;

    allowShutdown();
    QCOMPARE(blockCalls, QStringList());
    blockShutdown();
    blockShutdown();
    QCOMPARE(blockCalls, QStringList{taken});
    allowShutdown();
    allowShutdown();
    QCOMPARE(blockCalls, QStringList({taken, u"destroy shown"_s}));
    blockShutdown();
    allowShutdown();
    QCOMPARE(blockCalls, QStringList({taken, u"destroy shown"_s, taken, u"destroy shown"_s}));
}

void tst_ShutdownBlock_win::passesOverARefusal()
{
    const PlainWindow shown(L"shown", WS_VISIBLE);
    systemTakesReasons = false;
    blockShutdown();
    allowShutdown();
    QCOMPARE(blockCalls, QStringList{u"create shown: Transmissão no ar"_s});
}

void tst_ShutdownBlock_win::isTakenWithTheKeepAwakeRequest()
{
    const PlainWindow shown(L"shown", WS_VISIBLE);
    const QString taken = u"create shown: Transmissão no ar"_s;
    EngineBench engine;
    const QString first = engine.addFake(u"a"_s, u"progress"_s);
    const QString second = engine.addFake(u"b"_s, u"progress"_s);
    QCOMPARE(blockCalls, QStringList());

    engine->startPipeline(first);
    engine->startPipeline(second);
    engine->stopPipeline(first);
    QCOMPARE(blockCalls, QStringList{taken});
    engine->stopPipeline(second);
    QCOMPARE(blockCalls, QStringList({taken, u"destroy shown"_s}));
}

CORVANE_TEST(tst_ShutdownBlock_win, QCoreApplication)
#include "tst_ShutdownBlock_win.moc"
