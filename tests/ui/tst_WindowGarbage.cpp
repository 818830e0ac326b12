// The window's garbage collection on a machine so busy that one look at the clock outlasts a slice of it.

#include "app/GarbageCollection.h"
#include "tests/support/Runner.h"
#include "tests/ui/Interface.h"

#include <QDeadlineTimer>
#include <QJSEngine>
#include <QTest>
#include <QThread>

#include <atomic>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

std::atomic<bool> busy = false;
std::atomic<int> looksAtTheClock = 0;

} // namespace

// Replacement that Qt's libraries call: a program's symbols come before those of the libraries that it is
// linked to.
bool QDeadlineTimer::hasExpired() const noexcept
{
    ++looksAtTheClock;
    if (busy)
        QThread::msleep(10);
    return remainingTimeNSecs() == 0;
}

class tst_WindowGarbage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { busy = false; }
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
    void slicesLookAtTheClock();
#endif
    void windowIsMadeOnABusyMachine();
    void settingFromOutsideStays();
};

#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
// Precondition of the next test: each slice, where there are slices, ends by the clock above.
void tst_WindowGarbage::slicesLookAtTheClock()
{
    const auto looksOfAnEngine = [](const char *limit) {
        qputenv("QV4_GC_TIMELIMIT", limit);
        QJSEngine js;
        looksAtTheClock = 0;
        js.evaluate(u"for (let i = 0; i < 200000; ++i) ({ i })"_s);
        qunsetenv("QV4_GC_TIMELIMIT");
        return looksAtTheClock.load();
    };
    QVERIFY(looksOfAnEngine("5") > 0);
    QCOMPARE(looksOfAnEngine("0"), 0);
}
#endif

void tst_WindowGarbage::windowIsMadeOnABusyMachine()
{
    busy = true;
    Interface ui;
    const QString id = ui.engine().addPipeline(u"Estúdio"_s);
    QTRY_VERIFY(ui.row(0));
    ui.click(ui.row(0));
    QCOMPARE(ui.selectedId(), id);
    QCOMPARE(ui.warnings(), QStringList());
}

void tst_WindowGarbage::settingFromOutsideStays()
{
    qunsetenv("QV4_GC_TIMELIMIT");
    disableIncrementalCollection();
    QCOMPARE(qgetenv("QV4_GC_TIMELIMIT"), "0");

    qputenv("QV4_GC_TIMELIMIT", "7");
    disableIncrementalCollection();
    QCOMPARE(qgetenv("QV4_GC_TIMELIMIT"), "7");
    qunsetenv("QV4_GC_TIMELIMIT");
}

CORVANE_TEST(tst_WindowGarbage, corvane::test::WindowApplication)
#include "tst_WindowGarbage.moc"
