#include "tests/support/Files.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QTest>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

constexpr UINT answerTimeoutMs = 20000;

/// The program's answer to the announcement that the session is about to end; -1 without one. `flags` says
/// why it ends: 0 for a shutdown or a restart, ENDSESSION_LOGOFF for the user's logging off.
int answerToTheEnd(LPARAM flags)
{
    const HWND window = FindWindowW(nullptr, L"CORVANE");
    DWORD_PTR answer = 0;
    if (!window ||
        !SendMessageTimeoutW(window, WM_QUERYENDSESSION, 0, flags, SMTO_NORMAL, answerTimeoutMs, &answer))
        return -1;
    // The system tells every window how it was decided: the session goes on, as somebody has objected.
    DWORD_PTR ignored = 0;
    if (!SendMessageTimeoutW(window, WM_ENDSESSION, FALSE, flags, SMTO_NORMAL, answerTimeoutMs, &ignored))
        return -1;
    return static_cast<int>(answer);
}

} // namespace

/// The end of a session, announced to the built program by the system's own messages: refused while it is on
/// air, and only then.
class tst_SessionEnd_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isRefusedOnAirAlone_data();
    void isRefusedOnAirAlone();

private:
    XServer m_display;
};

void tst_SessionEnd_win::isRefusedOnAirAlone_data()
{
    QTest::addColumn<qint64>("flags");

    QTest::newRow("shutdown or restart") << qint64(0);
    QTest::newRow("logging off") << qint64(ENDSESSION_LOGOFF);
    QTest::newRow("an installer's restart") << qint64(ENDSESSION_CLOSEAPP);
}

void tst_SessionEnd_win::isRefusedOnAirAlone()
{
    QFETCH(const qint64, flags);
    ProgramSandbox sandbox;
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"CORVANE_OPERATE"_s, sandbox.path(u"operate"_s));
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_operator"_s);
    const QString started = sandbox.path(u"started"_s); // by the encoder, as is the other
    const QString left = sandbox.path(u"left"_s);
    ProgramRun run(sandbox, m_display);
    const auto order = [&sandbox](const QString &name, const QByteArray &content) {
        writeFile(sandbox.path(u"operate/new"_s), content);
        QVERIFY(QFile::rename(sandbox.path(u"operate/new"_s), sandbox.path("operate/"_L1 + name)));
    };

    QVERIFY(run.start());
    QCOMPARE(answerToTheEnd(static_cast<LPARAM>(flags)), 1);

    order(u"air"_s,
          u"fake:append=%1,death=%2,progress"_s.arg(stepText(started.toUtf8()), stepText(left.toUtf8()))
              .toUtf8());
    QVERIFY(waitUntil([&] { return !fileLines(started).isEmpty(); }));
    QCOMPARE(answerToTheEnd(static_cast<LPARAM>(flags)), 0);
    QCOMPARE(run.program.state(), QProcess::Running);

    order(u"off"_s, "x");
    QVERIFY(waitUntil([&] { return !fileLines(left).isEmpty(); }));
    QCOMPARE(answerToTheEnd(static_cast<LPARAM>(flags)), 1);
    QCOMPARE(run.close(), 0);
}

CORVANE_TEST(tst_SessionEnd_win, QCoreApplication)
#include "tst_SessionEnd_win.moc"
