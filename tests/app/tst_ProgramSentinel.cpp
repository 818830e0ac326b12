#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QDir>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QRegularExpression>
#include <QTest>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

enum class End { WindowClosed, Killed, Terminated, SegmentationFault, Abort, NoInterface };

/// Contents of the runtime directory, "<start>" standing for a second from `startedAt` on.
QStringList runtimeFiles(const ProgramSandbox &sandbox, qint64 startedAt)
{
    QStringList files;
    for (const QString &path : sandbox.contents()) {
        if (!path.startsWith("runtime/"_L1))
            continue;
        static const QRegularExpression crashLog(u"\\A(crashes/crash-)([0-9]+)(\\.log)\\z"_s);
        QString name = path.sliced(8);
        const QRegularExpressionMatch match = crashLog.match(name);
        const qint64 second = match.captured(2).toLongLong();
        if (second >= startedAt && second <= coarseSeconds())
            name = match.captured(1) + "<start>"_L1 + match.captured(3);
        files << name;
    }
    return files;
}

/// Copy of the program that looks for QML modules in a directory without any.
void takeInterfaceAway(const ProgramSandbox &sandbox, ProgramRun &run)
{
    const QString copy = sandbox.path("bin/"_L1 + QFileInfo(corvaneProgram()).fileName());
    QVERIFY(QFile::copy(corvaneProgram(), copy));
    writeFile(sandbox.path(u"bin/qt.conf"_s), "[Paths]\nQmlImports=/nonexistent\nPlugins=" +
                                                  QLibraryInfo::path(QLibraryInfo::PluginsPath).toUtf8() +
                                                  '\n');
    run.program.setProgram(copy);
}

} // namespace

/// The sentinel and the crash reports through real starts of the program: the files that each exit leaves,
/// and the log of the start after it.
class tst_ProgramSentinel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void lifeOfTheMarks_data();
    void lifeOfTheMarks();
    void warnsOfEveryAbnormalEndInARow();
    void aDirectoryInItsPlaceIsWarnedOfForEver();
    void namesTheRuntimeDirectoryInTheWarning();
    void scanLooksAtNoSentinel();

private:
    XServer m_display;
};

void tst_ProgramSentinel::initTestCase()
{
    if (!m_display.problem().isEmpty())
        QSKIP(qPrintable(m_display.problem()));
}

void tst_ProgramSentinel::lifeOfTheMarks_data()
{
    QTest::addColumn<End>("end");
    QTest::addColumn<int>("exitCode"); // or signal
    QTest::addColumn<QStringList>("left");
    QTest::addColumn<QByteArray>("report");
    QTest::addColumn<bool>("warned");

    const QByteArray none;
    QTest::newRow("window closed") << End::WindowClosed << 0
                                   << QStringList{u".cleanexit"_s, u".heartbeat"_s, u"crashes"_s} << none
                                   << false;
    QTest::newRow("killed") << End::Killed << killedExitCode()
                            << QStringList{u".heartbeat"_s, u"crashes"_s, u"crashes/.running"_s} << none
                            << true;
    if (signalsCanBeSent()) {
        QTest::newRow("terminated") << End::Terminated << 15
                                    << QStringList{u".heartbeat"_s, u"crashes"_s, u"crashes/.running"_s}
                                    << none << true;
        QTest::newRow("segmentation fault")
            << End::SegmentationFault << 11
            << QStringList{u".heartbeat"_s, u"crashes"_s, u"crashes/.running"_s,
                           u"crashes/crash-<start>.log"_s}
            << QByteArray("=== CORVANE CRASH ===\nreason: SIGSEGV sig=11\n=== end ===\n") << true;
        QTest::newRow("abort") << End::Abort << 6
                               << QStringList{u".heartbeat"_s, u"crashes"_s, u"crashes/.running"_s,
                                              u"crashes/crash-<start>.log"_s}
                               << QByteArray("=== CORVANE CRASH ===\nreason: SIGABRT sig=6\n=== end ===\n")
                               << true;
    }
    QTest::newRow("no interface") << End::NoInterface << seenExitCode(-1)
                                  << QStringList{u"crashes"_s, u"crashes/.running"_s} << none << true;
}

void tst_ProgramSentinel::lifeOfTheMarks()
{
    QFETCH(const End, end);
    QFETCH(const int, exitCode);
    QFETCH(const QStringList, left);
    QFETCH(const QByteArray, report);
    QFETCH(const bool, warned);

    ProgramSandbox sandbox;
    const QString sentinel = sandbox.runtimeDir() + "/crashes/.running"_L1;
    const qint64 startedAt = coarseSeconds();
    {
        ProgramRun run(sandbox, m_display);
        if (end == End::NoInterface) {
            takeInterfaceAway(sandbox, run);
            QVERIFY(!run.start());
        } else {
            QVERIFY(run.start());
            QCOMPARE(contentsOf(sentinel), QByteArray("running\n"));
            const QString heartbeat = sandbox.runtimeDir() + "/.heartbeat"_L1;
            QVERIFY(waitUntil([&] { return !contentsOf(heartbeat).isEmpty(); }));
            QCOMPARE(run.standardError(), QString());
        }

        switch (end) {
        case End::WindowClosed:
            QCOMPARE(run.close(), 0);
            break;
        case End::Killed:
            QVERIFY(run.kill());
            break;
        case End::Terminated:
            sendSignal(run.program.processId(), 15);
            break;
        case End::SegmentationFault:
            sendSignal(run.program.processId(), 11);
            break;
        case End::Abort:
            sendSignal(run.program.processId(), 6);
            break;
        case End::NoInterface:
            break;
        }
        QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));

        const bool inOrder = end == End::WindowClosed || end == End::NoInterface;
        QCOMPARE(run.program.exitStatus(), inOrder ? QProcess::NormalExit : QProcess::CrashExit);
        QCOMPARE(run.program.exitCode(), exitCode);
        QCOMPARE(runtimeFiles(sandbox, startedAt), left);
        const QDir crashes(sandbox.runtimeDir() + "/crashes"_L1);
        const QStringList logs = crashes.entryList({u"crash-*"_s});
        QCOMPARE(logs.isEmpty() ? QByteArray() : contentsOf(crashes.filePath(logs.first())), report);
    }

    const QStringList reports = QDir(sandbox.runtimeDir() + "/crashes"_L1).entryList({u"crash-*"_s});
    const QString warning =
        u"Execução anterior terminou de forma anormal (crash/kill). Logs em %1/crashes\n"_s.arg(
            sandbox.runtimeDir());
    for (const QString &expected : {warned ? warning : QString(), QString()}) {
        ProgramRun next(sandbox, m_display);
        QVERIFY(next.start());
        QCOMPARE(contentsOf(sentinel), QByteArray("running\n"));
        QCOMPARE(next.close(), 0);

        QCOMPARE(next.standardError(), expected);
        QCOMPARE(next.program.readAllStandardOutput(), QByteArray());
        QVERIFY(!QFileInfo::exists(sentinel));
        QVERIFY(QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
    }
    // Old reports stay.
    QCOMPARE(QDir(sandbox.runtimeDir() + "/crashes"_L1).entryList({u"crash-*"_s}), reports);
}

void tst_ProgramSentinel::warnsOfEveryAbnormalEndInARow()
{
    ProgramSandbox sandbox;
    for (int start = 0; start < 3; ++start) {
        ProgramRun run(sandbox, m_display);
        QVERIFY(run.start());
        QVERIFY(run.kill());
        QCOMPARE(run.standardError().count(u"Execução anterior terminou de forma anormal"_s),
                 start == 0 ? 0 : 1);
    }
}

void tst_ProgramSentinel::aDirectoryInItsPlaceIsWarnedOfForEver()
{
    ProgramSandbox sandbox;
    const QString sentinel = sandbox.runtimeDir() + "/crashes/.running"_L1;
    QVERIFY(QDir().mkpath(sentinel));
    for (int start = 0; start < 2; ++start) {
        ProgramRun run(sandbox, m_display);
        QVERIFY(run.start());
        QCOMPARE(run.close(), 0);
        QCOMPARE(run.standardError().count(u"Execução anterior terminou de forma anormal"_s), 1);
        QVERIFY(QFileInfo(sentinel).isDir());
        QVERIFY(QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
    }
}

void tst_ProgramSentinel::namesTheRuntimeDirectoryInTheWarning()
{
    ProgramSandbox sandbox;
    sandbox.environment().insert(u"CORVANE_RUNTIME_DIR"_s, u"emissão %s %d"_s); // as it stands: relative
    sandbox.environment().insert(u"QT_MESSAGE_PATTERN"_s, u"%{type}: %{message}"_s);
    writeFile(sandbox.path(u"emissão %s %d/crashes/.running"_s), "running\n");
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);

    const QString lines = run.standardError();
    QVERIFY2(lines.contains(u"warning: Execução anterior terminou de forma anormal (crash/kill). Logs em "
                            "emissão %s %d/crashes\n"_s),
             qPrintable(lines));
}

void tst_ProgramSentinel::scanLooksAtNoSentinel()
{
    ProgramSandbox sandbox;
    const QString sentinel = sandbox.runtimeDir() + "/crashes/.running"_L1;
    writeFile(sentinel, "of an earlier run");
    const QStringList before = sandbox.contents();
    ProgramRun run(sandbox, m_display, {u"--ndi-scan"_s});

    QVERIFY(!run.start());

    QCOMPARE(run.program.exitCode(), 0);
    QCOMPARE(run.standardError(), QString());
    QCOMPARE(contentsOf(sentinel), QByteArray("of an earlier run"));
    QCOMPARE(sandbox.contents(), before);
}

CORVANE_TEST(tst_ProgramSentinel, QCoreApplication)
#include "tst_ProgramSentinel.moc"
