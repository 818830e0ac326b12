#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"
#include "tools/guardian/FileNames.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using test::GuardedFolder;
using test::waitUntil;

/// The built guardian from its command line. Its work is in tst_Supervisor and tst_GuardianUpdate.
class tst_GuardianProgram : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void commandLines_data();
    void commandLines();
    void inAPackage();
    void notInTheInstallation();
    void notElevated_data();
    void notElevated();
    void oneGuardianAtATime();
    void theProgramOutlivesItsGuardian();

private:
    /// Exit code; the rest in m_output and m_errors.
    int run(const QString &program, const QStringList &arguments);
    void start(QProcess &guardian) const;
    [[nodiscard]] bool waitForBeat() const;
    [[nodiscard]] QStringList place() const
    {
        return {u"--install-dir"_s, m_folder->path(u"app"_s), u"--runtime-dir"_s, m_folder->runtimeDir()};
    }

    std::unique_ptr<GuardedFolder> m_folder;
    QString m_output;
    QString m_errors;
};

void tst_GuardianProgram::init()
{
    m_folder = std::make_unique<GuardedFolder>();
}

int tst_GuardianProgram::run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60'000))
        return -1;
    m_output = QString::fromUtf8(process.readAllStandardOutput());
    m_errors = QString::fromUtf8(process.readAllStandardError());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

void tst_GuardianProgram::start(QProcess &guardian) const
{
    guardian.start(QStringLiteral(CORVANE_GUARDIAN), place());
    QVERIFY(guardian.waitForStarted());
}

bool tst_GuardianProgram::waitForBeat() const
{
    return waitUntil([&] { return QFile::exists(m_folder->runtimeDir() + "/.heartbeat"_L1); });
}

void tst_GuardianProgram::commandLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("text");
    QTest::newRow("help") << QStringList{u"--help"_s} << 0 << u"Exit codes: 0 CORVANE ended in order"_s;
    QTest::newRow("nothing") << QStringList() << 2 << u"--install-dir is missing"_s;
    QTest::newRow("an empty place") << QStringList{u"--install-dir"_s, QString()} << 2
                                    << u"--install-dir is missing; see --help"_s;
    QTest::newRow("an unknown option") << QStringList{u"--force"_s} << 2 << u"force"_s;
    QTest::newRow("no number") << QStringList{u"--install-dir"_s, u"APP"_s, u"--heartbeat-timeout"_s,
                                              u"soon"_s}
                               << 2 << u"takes a number of seconds"_s;
    QTest::newRow("no installation") << QStringList{u"--install-dir"_s, u"APP/missing"_s} << 3
                                     << "there is no "_L1 + guardian::programFileName() + " in"_L1;
    QTest::newRow("marks in the installation")
        << QStringList{u"--install-dir"_s, u"APP"_s, u"--runtime-dir"_s, u"APP/runtime"_s} << 3
        << u"lies in the installation, which an update replaces"_s;
    QTest::newRow("nothing to attach to")
        << QStringList{u"--install-dir"_s, u"APP"_s, u"--runtime-dir"_s, u"APP.runtime"_s, u"--attach"_s} << 4
        << u"the program isn't running"_s;
}

void tst_GuardianProgram::commandLines()
{
    QFETCH(QStringList, arguments);
    QFETCH(const QString, text);
    arguments.replaceInStrings(u"APP"_s, m_folder->path(u"app"_s));
    const int exitCode = run(QStringLiteral(CORVANE_GUARDIAN), arguments);
    QTEST(exitCode, "exitCode");
    QVERIFY2((exitCode == 0 ? m_output : m_errors).contains(text), qPrintable(m_output + m_errors));
    QCOMPARE(m_folder->starts(), QStringList());
}

/// Beside the folder "corvane" it needs no options.
void tst_GuardianProgram::inAPackage()
{
    const QString companions = m_folder->path(u"package/companions"_s);
    const QString guardian = companions + u'/' + test::executableName(u"corvane-guardian"_s);
    QVERIFY(QDir().mkpath(companions));
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_GUARDIAN), guardian));
    const QStringList attach{u"--runtime-dir"_s, m_folder->runtimeDir(), u"--attach"_s};
    QCOMPARE(run(guardian, attach), 2);
    QCOMPARE(
        m_errors.trimmed(),
        u"corvane-guardian: --install-dir is missing, and there is no %1 in %2/corvane; see --help"_s.arg(
            guardian::programFileName(), QFileInfo(m_folder->path(u"package"_s)).canonicalFilePath()));

    const QString program = m_folder->path(u"package/corvane"_s);
    GuardedFolder::install(program, "0.1.0", "beats");
    const QString guarding =
        u"guarding %1/%2,"_s.arg(QFileInfo(program).canonicalFilePath(), guardian::programFileName());
    QCOMPARE(run(guardian, attach), 4);
    QVERIFY2(m_errors.contains(guarding), qPrintable(m_errors));

    // A swap that was cut off leaves the program elsewhere and a word of it.
    QVERIFY(QDir().rename(program, program + ".guardian/next"_L1));
    test::writeFile(program + ".guardian/journal.json"_L1, "{}");
    run(guardian, attach);
    QVERIFY2(m_errors.contains("guarding "_L1), qPrintable(m_errors));
}

void tst_GuardianProgram::notInTheInstallation()
{
    const QString own = m_folder->path("app/"_L1 + test::executableName(u"corvane-guardian"_s));
    QVERIFY(QFile::copy(QStringLiteral(CORVANE_GUARDIAN), own));
    QCOMPARE(run(own, place()), 3);
    QVERIFY2(m_errors.contains("the guardian lies in the installation"_L1), qPrintable(m_errors));
}

void tst_GuardianProgram::notElevated_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("with updates") << QStringList();
    QTest::newRow("without updates") << QStringList{u"--without-updates"_s};
    QTest::newRow("for a run that is there") << QStringList{u"--attach"_s};
}

/// It leaves nothing behind either: a log or a lock of the administrator's would be in its user's way.
void tst_GuardianProgram::notElevated()
{
    QFETCH(const QStringList, options);
    QVERIFY(QDir(m_folder->installation().own()).removeRecursively());
    QCOMPARE(run(QStringLiteral(CORVANE_ELEVATED_GUARDIAN), place() + options), 3);
    QVERIFY2(m_errors.startsWith("corvane-guardian: it was started with an administrator's rights"_L1),
             qPrintable(m_errors));
    QCOMPARE(m_folder->starts(), QStringList());
    QVERIFY(!QFile::exists(m_folder->installation().own()));
    QCOMPARE(QDir(m_folder->runtimeDir()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{u"update"_s});
    QCOMPARE(run(QStringLiteral(CORVANE_ELEVATED_GUARDIAN), {u"--help"_s}), 0);
}

void tst_GuardianProgram::oneGuardianAtATime()
{
    QProcess first;
    start(first);
    QVERIFY(waitForBeat());
    QCOMPARE(run(QStringLiteral(CORVANE_GUARDIAN), place()), 3);
    QVERIFY2(m_errors.trimmed().endsWith("another guardian is at work on "_L1 +
                                         m_folder->installation().directory),
             qPrintable(m_errors));
    m_folder->order(u"quit"_s);
    QVERIFY(first.waitForFinished());
    QCOMPARE(first.exitCode(), 0);
    QVERIFY2(test::contentsOf(m_folder->installation().log()).endsWith(" the program ended in order\n"),
             test::contentsOf(m_folder->installation().log()).constData());
}

void tst_GuardianProgram::theProgramOutlivesItsGuardian()
{
    QProcess first;
    start(first);
    QVERIFY(waitForBeat());
    test::killProcess(first.processId());
    QVERIFY(first.waitForFinished());

    QProcess second;
    start(second);
    QVERIFY(waitUntil([&] {
        return test::contentsOf(m_folder->installation().log())
            .contains("the program is running; it is watched");
    }));
    QCOMPARE(m_folder->starts().size(), 1);
    m_folder->order(u"quit"_s);
    QVERIFY(second.waitForFinished());
    QCOMPARE(second.exitCode(), 0);
    QCOMPARE(m_folder->starts().size(), 1);
}

CORVANE_TEST(tst_GuardianProgram, QCoreApplication)
#include "tst_GuardianProgram.moc"
