#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Runner.h"
#include "tools/guardian/OwnRights.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <memory>
#include <string>
#include <type_traits>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using test::GuardedFolder;

namespace {

struct CloseIt
{
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseIt>;

Handle ownToken()
{
    HANDLE token = nullptr;
    return Handle(::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &token) != 0 ? token : nullptr);
}

TOKEN_ELEVATION_TYPE elevationOf(const Handle &token)
{
    TOKEN_ELEVATION_TYPE type = TokenElevationTypeDefault;
    DWORD size = 0;
    return ::GetTokenInformation(token.get(), TokenElevationType, &type, sizeof type, &size) != 0
               ? type
               : TokenElevationTypeDefault;
}

/// The same user's token with an administrator's rights, fit for a process; null if the system gives none.
Handle elevatedToken()
{
    TOKEN_LINKED_TOKEN linked{};
    DWORD size = 0;
    if (::GetTokenInformation(ownToken().get(), TokenLinkedToken, &linked, sizeof linked, &size) == 0)
        return nullptr;
    const Handle closed(linked.LinkedToken);
    HANDLE token = nullptr;
    return Handle(::DuplicateTokenEx(linked.LinkedToken, TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                                     TokenPrimary, &token) != 0
                      ? token
                      : nullptr);
}

} // namespace

/// The built guardian with the rights that user account control gives an administrator.
class tst_OwnRights_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void elevated_data();
    void elevated();
};

void tst_OwnRights_win::elevated_data()
{
    QTest::addColumn<bool>("isElevated");
    QTest::addColumn<DWORD>("exitCode");
    QTest::newRow("with the rights of every day") << false << DWORD(4); // there is nothing to attach to
    QTest::newRow("elevated") << true << DWORD(3);
}

void tst_OwnRights_win::elevated()
{
    QFETCH(const bool, isElevated);
    if (elevationOf(ownToken()) != TokenElevationTypeLimited)
        QSKIP("this account has one set of rights alone, or is elevated already");
    QVERIFY(!guardian::isElevated());
    const Handle token = isElevated ? elevatedToken() : ownToken();
    if (!token)
        QSKIP("the system elevates nobody without a question");

    const GuardedFolder folder;
    std::wstring command = uR"("%1" --install-dir "%2" --runtime-dir "%3" --attach)"_s
                               .arg(QDir::toNativeSeparators(QStringLiteral(CORVANE_GUARDIAN)),
                                    folder.path(u"app"_s), folder.runtimeDir())
                               .toStdWString();
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION started{};
    if (::CreateProcessAsUserW(token.get(), nullptr, command.data(), nullptr, nullptr, FALSE,
                               CREATE_NO_WINDOW, nullptr, nullptr, &start, &started) == 0)
        QSKIP(qPrintable(u"the system starts nothing elevated without a question: %1"_s.arg(
            qt_error_string(static_cast<int>(::GetLastError())))));
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    constexpr DWORD patienceMs = 60'000;
    QCOMPARE(::WaitForSingleObject(process.get(), patienceMs), DWORD(WAIT_OBJECT_0));
    DWORD exitCode = 0;
    QVERIFY(::GetExitCodeProcess(process.get(), &exitCode) != 0);
    QTEST(exitCode, "exitCode");
    QCOMPARE(QFile::exists(folder.installation().log()), !isElevated);
}

CORVANE_TEST(tst_OwnRights_win, QCoreApplication)
#include "tst_OwnRights_win.moc"
