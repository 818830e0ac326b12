#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/ToolPath.h"
#include "tools/guardian/ProgramProcesses.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>

#include <memory>

#ifdef Q_OS_LINUX
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;

namespace {

constexpr qint64 noProcess = 0x7ffffff0;

} // namespace

Q_DECLARE_METATYPE(corvane::guardian::ListedProcess)

/// What runs on this machine: the program, its tools, whatever lies in a folder.
class tst_ProgramProcesses : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void whereItsMarksAre_data();
    void whereItsMarksAre();
    void runsOfTheFileAlone();
    void whatHasEndedDoesntRun();
    void toolsOfAProgram();
    void aNameThatLooksLikeTheSystemsOwnWords();
    void childrenInAList_data();
    void childrenInAList();
    void whatRunsInAFolder();
    void anEndWithoutAQuestion();

private:
    /// A process of `program` that lives until its standard input ends, in the folder of the test.
    void start(QProcess &process, const QString &program, const QStringList &variables = {}) const;
    /// Another copy of the installed program.
    [[nodiscard]] QString copyTo(const QString &name) const;
    [[nodiscard]] QString program() const { return m_folder->installation().programPath(); }

    std::unique_ptr<GuardedFolder> m_folder;
    std::unique_ptr<QProcess> m_process;
};

void tst_ProgramProcesses::init()
{
    m_folder = std::make_unique<GuardedFolder>();
    m_process = std::make_unique<QProcess>();
}

void tst_ProgramProcesses::cleanup()
{
    m_process->closeWriteChannel();
    m_process->waitForFinished();
    m_process.reset();
}

void tst_ProgramProcesses::start(QProcess &process, const QString &program,
                                 const QStringList &variables) const
{
    process.setWorkingDirectory(m_folder->path({}));
    process.setEnvironment(QStringList{"PATH="_L1 + qEnvironmentVariable("PATH")} + variables);
    process.start(program, {u"--encoder"_s});
    QVERIFY(process.waitForStarted());
}

QString tst_ProgramProcesses::copyTo(const QString &name) const
{
    QString path = m_folder->path(test::executableName(name));
    QDir().mkpath(QFileInfo(path).path());
    return QFile::copy(program(), path) ? path : QString();
}

void tst_ProgramProcesses::whereItsMarksAre_data()
{
    QTest::addColumn<QStringList>("variables");
    QTest::addColumn<QString>("directory"); // empty: that can't be seen
    const auto row = [](const char *title, const QStringList &variables, const QString &directory) {
        QTest::newRow(title) << variables << directory;
    };
    const QString ofTheirData = u"/halvorndev/CORVANE/runtime"_s;
    row("given", {u"A=1"_s, u"CORVANE_RUNTIME_DIR=DIR/marks"_s, u"Z=2"_s}, u"DIR/marks"_s);
    row("given in other words", {u"CORVANE_RUNTIME_DIR=DIR/./a/../marks/"_s}, u"DIR/marks"_s);
#ifdef Q_OS_WIN
    row("nothing", {}, {});
    row("given in other letters", {u"corvane_runtime_dir=DIR/marks"_s}, u"DIR/marks"_s);
    row("given with backslashes", {u"CORVANE_RUNTIME_DIR=WIN\\marks"_s}, u"DIR/marks"_s);
    row("given from some folder on", {u"CORVANE_RUNTIME_DIR=marks"_s, u"APPDATA=DIR/data"_s}, {});
    row("in their data", {u"APPDATA=WIN\\data"_s}, u"DIR/data"_s + ofTheirData);
    row("given before their data", {u"APPDATA=DIR/data"_s, u"CORVANE_RUNTIME_DIR=DIR/marks"_s},
        u"DIR/marks"_s);
    row("of a longer name", {u"CORVANE_RUNTIME_DIRECTORY=DIR/marks"_s, u"APPDATA=DIR/data"_s},
        u"DIR/data"_s + ofTheirData);
#else
    row("nothing, where the root is the home", {}, u"/.local/share"_s + ofTheirData);
    row("given from their folder on", {u"CORVANE_RUNTIME_DIR=marks"_s}, u"DIR/marks"_s);
    row("given as nothing", {u"CORVANE_RUNTIME_DIR="_s, u"XDG_DATA_HOME=DIR/data"_s},
        u"DIR/data"_s + ofTheirData);
    row("in their data", {u"XDG_DATA_HOME=DIR/data"_s, u"HOME=DIR/home"_s}, u"DIR/data"_s + ofTheirData);
    row("in their home", {u"HOME=DIR/home"_s}, u"DIR/home/.local/share"_s + ofTheirData);
    row("in data that can't be", {u"XDG_DATA_HOME=data"_s, u"HOME=DIR/home"_s},
        u"DIR/home/.local/share"_s + ofTheirData);
    row("in a home that can't be", {u"HOME=home"_s}, {});
    row("of a longer name", {u"CORVANE_RUNTIME_DIRECTORY=DIR/marks"_s, u"HOME=DIR/home"_s},
        u"DIR/home/.local/share"_s + ofTheirData);
#endif
}

void tst_ProgramProcesses::whereItsMarksAre()
{
    QFETCH(QStringList, variables);
    QFETCH(QString, directory);
    const QString here = QFileInfo(m_folder->path({})).canonicalFilePath();
    variables.replaceInStrings(u"DIR/"_s, here + u'/');
    variables.replaceInStrings(u"WIN\\"_s, QDir::toNativeSeparators(here + u'/'));
    start(*m_process, program(), variables);
    const QList<ProgramProcess> runs = processesOf(program());
    QCOMPARE(runs.size(), 1);
    QCOMPARE(runs.first().id, m_process->processId());
    QCOMPARE(runs.first().runtimeDirectory, directory.replace("DIR/"_L1, here + u'/'));
}

void tst_ProgramProcesses::runsOfTheFileAlone()
{
    const QString another = copyTo(u"another/"_s + QFileInfo(program()).completeBaseName());
    start(*m_process, another);
    QCOMPARE(processesOf(program()).size(), 0);
    QCOMPARE(processesOf(another).size(), 1);
    QCOMPARE(processesOf(m_folder->path(u"missing"_s)).size(), 0);
    QProcess second;
    start(second, another);
    QCOMPARE(processesOf(another).size(), 2);
    second.closeWriteChannel();
    QVERIFY(second.waitForFinished());
    QCOMPARE(processesOf(another).size(), 1);
#ifdef Q_OS_LINUX
    QVERIFY(QFile::link(another, m_folder->path(u"link"_s)));
    QCOMPARE(processesOf(m_folder->path(u"link"_s)).size(), 1);
#endif
}

/// It is only waited for.
void tst_ProgramProcesses::whatHasEndedDoesntRun()
{
    const qint64 own = QCoreApplication::applicationPid();
#ifdef Q_OS_LINUX
    // Not by QProcess, some of which wait for it at once.
    QByteArray path = QFile::encodeName(program());
    QByteArray argument("--encoder");
    char *const arguments[] = {path.data(), argument.data(), nullptr};
    pid_t id = 0;
    QCOMPARE(::posix_spawn(&id, path.constData(), nullptr, nullptr, arguments, environ), 0);
    const auto reaped = qScopeGuard([id] { ::waitpid(id, nullptr, 0); });
    test::killProcess(id);
    siginfo_t end{};
    QCOMPARE(::waitid(P_PID, static_cast<id_t>(id), &end, WEXITED | WNOWAIT), 0);
    QVERIFY(test::processExists(id));
#else
    start(*m_process, program());
    const qint64 id = m_process->processId();
    QCOMPARE(childrenOf(own).size(), 1);
    test::killProcess(id);
    QVERIFY(test::waitUntil([&] { return !test::processExists(id); }));
#endif
    QCOMPARE(processesOf(program()).size(), 0);
    QCOMPARE(childrenOf(own), QStringList());
    QCOMPARE(processesWithin(m_folder->installation().directory), QList<qint64>());
}

void tst_ProgramProcesses::toolsOfAProgram()
{
    const qint64 own = QCoreApplication::applicationPid();
    QCOMPARE(childrenOf(own), QStringList());
    start(*m_process, copyTo(u"ffmpeg"_s));
    QCOMPARE(childrenOf(own), QStringList{test::executableName(u"ffmpeg"_s)});
    QCOMPARE(childrenOf(m_process->processId()), QStringList());
    QCOMPARE(childrenOf(noProcess), QStringList());
}

void tst_ProgramProcesses::aNameThatLooksLikeTheSystemsOwnWords()
{
#ifdef Q_OS_LINUX
    start(*m_process, copyTo(u"a) Z 1 (b"_s));
    QCOMPARE(childrenOf(QCoreApplication::applicationPid()), QStringList{u"a) Z 1 (b"_s});
    QCOMPARE(processesOf(m_folder->path(u"a) Z 1 (b"_s)).size(), 1);
#else
    QSKIP("names aren't parts of a longer text here");
#endif
}

void tst_ProgramProcesses::whatRunsInAFolder()
{
    const QString inIt = copyTo(u"tools/deep/x"_s);
    start(*m_process, inIt);
    const QList<qint64> found{m_process->processId()};
    QCOMPARE(processesWithin(m_folder->path(u"tools"_s)), found);
    QCOMPARE(processesWithin(m_folder->path(u"tools/deep/"_s)), found);
    QCOMPARE(processesWithin(m_folder->path(u"app"_s)), QList<qint64>());
    QVERIFY(QDir().mkpath(m_folder->path(u"tool"_s))); // the beginning of the other's name
    QCOMPARE(processesWithin(m_folder->path(u"tool"_s)), QList<qint64>());
    QCOMPARE(processesWithin(m_folder->path(u"missing"_s)), QList<qint64>());
}

void tst_ProgramProcesses::anEndWithoutAQuestion()
{
    start(*m_process, program());
    endProcess(m_process->processId());
    QVERIFY(m_process->waitForFinished());
    QCOMPARE(processesOf(program()).size(), 0);
}

void tst_ProgramProcesses::childrenInAList_data()
{
    QTest::addColumn<ListedProcess>("process");
    QTest::addColumn<bool>("isChild");
    QTest::newRow("its child") << ListedProcess{5, 4, 200, u"ffmpeg"_s, u"/bin/ffmpeg"_s} << true;
    QTest::newRow("a child of the same moment")
        << ListedProcess{5, 4, 100, u"ffmpeg"_s, u"/bin/ffmpeg"_s} << true;
    QTest::newRow("a child of the former process of that id")
        << ListedProcess{5, 4, 99, u"ffmpeg"_s, u"/bin/ffmpeg"_s} << false;
    QTest::newRow("another's child") << ListedProcess{5, 3, 200, u"ffmpeg"_s, u"/bin/ffmpeg"_s} << false;
    QTest::newRow("its parent") << ListedProcess{3, 2, 50, u"guardian"_s, u"/bin/guardian"_s} << false;
    QTest::newRow("a copy of it") << ListedProcess{5, 4, 200, u"corvane"_s, u"/bin/corvane"_s} << false;
    QTest::newRow("one that is about to be made") << ListedProcess{5, 4, 200, {}, {}} << false;
    QTest::newRow("a child that can't be looked at") << ListedProcess{5, 4, 200, u"sudo"_s, {}} << true;
}

/// An id may be that of another process by now.
void tst_ProgramProcesses::childrenInAList()
{
    QFETCH(const ListedProcess, process);
    QFETCH(const bool, isChild);
    const QStringList names = isChild ? QStringList{process.name} : QStringList();
    ListedProcess program{4, 3, 100, u"corvane"_s, u"/bin/corvane"_s};
    QCOMPARE(childrenAmong({program, process}, program.id), names);
    QCOMPARE(childrenAmong({process, program}, program.id), names);
    QCOMPARE(childrenAmong({process}, program.id), QStringList()); // it has ended
    program.program.clear();
    if (isChild)
        QCOMPARE(childrenAmong({program, process}, program.id), names);
}

CORVANE_TEST(tst_ProgramProcesses, QCoreApplication)
#include "tst_ProgramProcesses.moc"
