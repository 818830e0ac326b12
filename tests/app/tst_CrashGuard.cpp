#include "app/CrashGuard.h"
#include "app/CrashReport.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <exception>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

/// A directory below `base` whose path has exactly `size` bytes: names of at most 100 bytes, which systems
/// take.
QString directoryOfSize(const QString &base, int size, const QString &end = {})
{
    QByteArray path = base.toUtf8();
    const QByteArray tail = end.toUtf8();
    for (qsizetype left = size - tail.size() - path.size(); left > 0;
         left = size - tail.size() - path.size()) {
        // A name takes its slash and one byte at least.
        const qsizetype part = left <= 101 ? left : left == 102 ? 100 : 101;
        path += '/' + QByteArray(part - 1, 'd');
    }
    return QString::fromUtf8(path + tail);
}

/// True if `path` is `directory`/crash-<seconds><suffix> with seconds from `before` up to now.
bool isTimed(const QByteArray &path, const QString &directory, const QByteArray &suffix, qint64 before)
{
    const QByteArray start = directory.toUtf8() + "/crash-";
    if (!path.startsWith(start) || !path.endsWith(suffix))
        return false;
    const QByteArray digits = path.sliced(start.size()).chopped(suffix.size());
    const bool decimal =
        !digits.isEmpty() && std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
    return decimal && digits.toLongLong() >= before && digits.toLongLong() <= coarseSeconds();
}

#ifdef Q_OS_WIN
constexpr bool longPathsWork = false;
#else
constexpr bool longPathsWork = true;
#endif

} // namespace

/// The sentinel, the paths worked out in advance, and the obstacles in their way.
class tst_CrashGuard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void markWithoutInstallDoesNothing(); // first: nothing is installed yet

    void firstStart();
    void startAfterACleanEnd();
    void startAfterAnEndThatWasNone();
    void whateverStandsThereCounts_data();
    void whateverStandsThereCounts();
    void namesItsFilesByTheTimeOfInstalling();
    void goesOnWithoutADirectory();
    void cutsAnOverLongDirectory_data();
    void cutsAnOverLongDirectory();
    void cutsWithinALetter();

private:
    [[nodiscard]] QString crashDir() const { return m_directory->filePath(u"runtime/crashes"_s); }
    [[nodiscard]] QString sentinel() const { return crashDir() + "/.running"_L1; }

    std::unique_ptr<QTemporaryDir> m_directory;
    std::terminate_handler m_terminateHandler = nullptr;
};

void tst_CrashGuard::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_terminateHandler = std::get_terminate();
}

void tst_CrashGuard::cleanup()
{
    for (const int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, SIG_DFL);
    std::set_terminate(m_terminateHandler);
}

void tst_CrashGuard::markWithoutInstallDoesNothing()
{
    QCOMPARE(QByteArray(CrashReport::runningPath), QByteArray());
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_directory->path()));
    writeFile(u".running"_s, "running\n");

    CrashGuard::markCleanExit();

    const bool kept = QFileInfo::exists(m_directory->filePath(u".running"_s));
    QVERIFY(QDir::setCurrent(before));
    QVERIFY(kept);
    QVERIFY(!CrashGuard::previousRunAbnormal());
}

void tst_CrashGuard::firstStart()
{
    CrashGuard::install(crashDir()); // makes the chain of directories

    QVERIFY(!CrashGuard::previousRunAbnormal());
    QCOMPARE(entriesOf(crashDir()), QStringList{u".running"_s});
    QCOMPARE(contentsOf(sentinel()), QByteArray("running\n"));
}

void tst_CrashGuard::startAfterACleanEnd()
{
    CrashGuard::install(crashDir());
    CrashGuard::markCleanExit();
    QCOMPARE(entriesOf(crashDir()), QStringList());
    CrashGuard::markCleanExit(); // once more is no harm

    CrashGuard::install(crashDir());

    QVERIFY(!CrashGuard::previousRunAbnormal());
    QCOMPARE(contentsOf(sentinel()), QByteArray("running\n"));
}

void tst_CrashGuard::startAfterAnEndThatWasNone()
{
    CrashGuard::install(crashDir());
    CrashGuard::install(crashDir());

    QVERIFY(CrashGuard::previousRunAbnormal());
    QCOMPARE(entriesOf(crashDir()), QStringList{u".running"_s}); // nobody saw it end: no report
    QCOMPARE(contentsOf(sentinel()), QByteArray("running\n"));

    CrashGuard::markCleanExit();
    QVERIFY(CrashGuard::previousRunAbnormal()); // of the previous run, whatever becomes of this one
}

void tst_CrashGuard::whateverStandsThereCounts_data()
{
    QTest::addColumn<bool>("directory");
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("sentinel of an earlier run") << false << QByteArray("running\n");
    QTest::newRow("empty file") << false << QByteArray();
    QTest::newRow("longer file, which is emptied first") << false << QByteArray("something else entirely\n");
    QTest::newRow("directory") << true << QByteArray();
}

void tst_CrashGuard::whateverStandsThereCounts()
{
    QFETCH(const bool, directory);
    QFETCH(const QByteArray, contents);

    QVERIFY(QDir().mkpath(directory ? sentinel() : crashDir()));
    if (!directory)
        writeFile(sentinel(), contents);

    CrashGuard::install(crashDir());
    QVERIFY(CrashGuard::previousRunAbnormal());
    QCOMPARE(QFileInfo(sentinel()).isDir(), directory);
    QCOMPARE(contentsOf(sentinel()), directory ? QByteArray() : QByteArray("running\n"));

    CrashGuard::markCleanExit();
    QCOMPARE(QFileInfo::exists(sentinel()), directory); // not a file: stays without complaint
}

void tst_CrashGuard::namesItsFilesByTheTimeOfInstalling()
{
    const qint64 before = coarseSeconds();
    CrashGuard::install(crashDir());

    QCOMPARE(QByteArray(CrashReport::crashDir), crashDir().toUtf8());
    QCOMPARE(QByteArray(CrashReport::runningPath), sentinel().toUtf8());
    QVERIFY2(isTimed(CrashReport::crashLogPath, crashDir(), ".log", before), CrashReport::crashLogPath);
    QVERIFY2(isTimed(CrashReport::crashDumpPath, crashDir(), ".dmp", before), CrashReport::crashDumpPath);
}

void tst_CrashGuard::goesOnWithoutADirectory()
{
    // Below a regular file nothing can be created, whatever rights the user has.
    const QString file = m_directory->filePath(u"file"_s);
    writeFile(file, "a file");

    CrashGuard::install(file + "/crashes"_L1);
    QVERIFY(!CrashGuard::previousRunAbnormal());
    CrashReport::append("SIGSEGV", 11);
    CrashGuard::markCleanExit();

    QCOMPARE(QByteArray(CrashReport::runningPath), (file + "/crashes/.running"_L1).toUtf8());
    QCOMPARE(entriesOf(m_directory->path()), QStringList{u"file"_s});
    QCOMPARE(contentsOf(file), QByteArray("a file"));
}

void tst_CrashGuard::cutsAnOverLongDirectory_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("keptOfDirectory");
    QTest::addColumn<QByteArray>("endOfSentinel");
    QTest::addColumn<QByteArray>("endOfLog"); // of 10 digits
    QTest::addColumn<QByteArray>("endOfDump");
    QTest::addColumn<bool>("seenAgain"); // by the next start

    QTest::newRow("fits everywhere") << 1023 << 1023 << QByteArray("d/.running") << QByteArray(".log")
                                     << QByteArray(".dmp") << true;
    QTest::newRow("directory is cut")
        << 1024 << 1023 << QByteArray("d/.running") << QByteArray(".log") << QByteArray(".dmp") << true;
    QTest::newRow("log just fits") << 1078 << 1023 << QByteArray("d/.running") << QByteArray(".log")
                                   << QByteArray(".dmp") << true;
    QTest::newRow("log is cut by one byte")
        << 1079 << 1023 << QByteArray("d/.running") << QByteArray(".lo") << QByteArray(".dm") << true;
    QTest::newRow("sentinel just fits")
        << 1090 << 1023 << QByteArray("d/.running") << QByteArray("") << QByteArray("") << true;
    QTest::newRow("sentinel is cut by one byte")
        << 1091 << 1023 << QByteArray("d/.runnin") << QByteArray("") << QByteArray("") << false;
    QTest::newRow("times are gone from the names")
        << 1092 << 1023 << QByteArray("d/.runni") << QByteArray("d/crash-") << QByteArray("d/crash-")
        << false;
    QTest::newRow("nothing is left of the names")
        << 1099 << 1023 << QByteArray("d") << QByteArray("d") << QByteArray("d") << false;
    QTest::newRow("far too long") << 1300 << 1023 << QByteArray("d") << QByteArray("d") << QByteArray("d")
                                  << false;
}

void tst_CrashGuard::cutsAnOverLongDirectory()
{
    QFETCH(const int, size);
    QFETCH(const int, keptOfDirectory);
    QFETCH(const QByteArray, endOfSentinel);
    QFETCH(const QByteArray, endOfLog);
    QFETCH(const QByteArray, endOfDump);
    QFETCH(const bool, seenAgain);

    const QString directory = directoryOfSize(m_directory->path(), size);
    const QByteArray bytes = directory.toUtf8();
    QCOMPARE(bytes.size(), size);
    std::ranges::fill(CrashReport::crashDir, 'x');
    std::ranges::fill(CrashReport::runningPath, 'x');
    std::ranges::fill(CrashReport::crashLogPath, 'x');
    std::ranges::fill(CrashReport::crashDumpPath, 'x');

    CrashGuard::install(directory);

    QVERIFY(!CrashGuard::previousRunAbnormal());
    QCOMPARE(QByteArray(CrashReport::crashDir), bytes.first(keptOfDirectory));
    const QByteArray running(CrashReport::runningPath);
    QCOMPARE(running.size(), std::min(size + 9, 1099));
    QVERIFY2(running.endsWith(endOfSentinel), running.constData());
    const QByteArray log(CrashReport::crashLogPath);
    const QByteArray dump(CrashReport::crashDumpPath);
    QCOMPARE(log.size(), std::min(size + 21, 1099));
    QCOMPARE(dump.size(), log.size());
    QVERIFY2(log.endsWith(endOfLog), log.constData());
    QVERIFY2(dump.endsWith(endOfDump), dump.constData());
    for (const QByteArray &path : {running, log, dump})
        QVERIFY(path.startsWith(bytes.first(std::min(size, 1099))));

    if (!longPathsWork)
        return;
    // The truncated path is used all the same, unless a directory has the name that is left.
    const QString used = QString::fromUtf8(running);
    QCOMPARE(QFileInfo(used).isFile(), used != directory);
    if (used != directory)
        QCOMPARE(contentsOf(used), QByteArray("running\n"));
    CrashGuard::install(directory);
    QCOMPARE(CrashGuard::previousRunAbnormal(), seenAgain);
    CrashGuard::markCleanExit();
    QVERIFY(!QFileInfo(used).isFile());
}

void tst_CrashGuard::cutsWithinALetter()
{
    // The two bytes of the last letter are the 1023rd and the 1024th.
    const QString directory = directoryOfSize(m_directory->path(), 1024, u"ç"_s);
    CrashGuard::install(directory);

    const QByteArray kept(CrashReport::crashDir);
    QCOMPARE(kept.size(), 1023);
    QVERIFY(kept.endsWith("d\xc3"));
    QCOMPARE(QByteArray(CrashReport::runningPath), directory.toUtf8() + "/.running");
}

CORVANE_TEST(tst_CrashGuard, QCoreApplication)
#include "tst_CrashGuard.moc"
