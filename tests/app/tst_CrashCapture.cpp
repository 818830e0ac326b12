#include "tests/app/CrasherRun.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <QVersionNumber>

#include <sys/stat.h>

#ifdef __GLIBC__
#include <gnu/libc-version.h>
#endif

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

constexpr int abortSignal = 6;
constexpr int illegalSignal = 4;
constexpr int arithmeticSignal = 8;
constexpr int segmentationSignal = 11;

const QByteArray segmentationReport = "=== CORVANE CRASH ===\nreason: SIGSEGV sig=11\n=== end ===\n";
const QByteArray abortReport = "=== CORVANE CRASH ===\nreason: SIGABRT sig=6\n=== end ===\n";
const QByteArray arithmeticReport = "=== CORVANE CRASH ===\nreason: SIGFPE sig=8\n=== end ===\n";
const QByteArray illegalReport = "=== CORVANE CRASH ===\nreason: SIGILL sig=4\n=== end ===\n";
const QByteArray exceptionReports =
    "=== CORVANE CRASH ===\nreason: std::terminate (exceção não capturada)\n=== end ===\n" + abortReport;

/// True if abort() lets SIGABRT through even within that signal's handler.
bool abortUnblocksItsSignal()
{
#ifdef __GLIBC__
    return QVersionNumber::fromString(QLatin1String(gnu_get_libc_version())) < QVersionNumber(2, 41);
#else
    return false;
#endif
}

} // namespace

/// Real deaths of a guarded child: the files that they leave, and that they remain the deaths that they were.
class tst_CrashCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void leavesAReportAndDiesOfItsSignal_data();
    void leavesAReportAndDiesOfItsSignal();
    void everybodyMayRead();
    void reportsWhatItIsSent_data();
    void reportsWhatItIsSent();
    void overflowOfAWorkersStackKills();
    void crashesOfOneProcessShareALog();
    void diesWithoutACrashDirectory();
    void isGuardedWithoutACrashDirectory();
    void handlersKeepTheSentinel();
};

void tst_CrashCapture::leavesAReportAndDiesOfItsSignal_data()
{
    QTest::addColumn<QStringList>("death");
    QTest::addColumn<int>("signal");
    QTest::addColumn<QByteArray>("log");

    const auto row = [](const char *name, const QString &death, int signal, const QByteArray &log) {
        QTest::newRow(name) << death.split(u' ') << signal << log;
    };
    row("write to null", u"null-write"_s, segmentationSignal, segmentationReport);
    row("abort", u"abort"_s, abortSignal, abortReport);
    row("division by zero", u"divide"_s, arithmeticSignal, arithmeticReport);
    row("illegal instruction", u"illegal"_s, illegalSignal, illegalReport);
    row("uncaught exception", u"throw"_s, abortSignal, exceptionReports);
    row("uncaught exception of another kind", u"throw-other"_s, abortSignal, exceptionReports);
    row("exception out of noexcept", u"noexcept"_s, abortSignal, exceptionReports);
    row("stack overflow", u"overflow"_s, segmentationSignal, segmentationReport);

    row("write to null in a worker", u"null-write worker"_s, segmentationSignal, segmentationReport);
    row("abort in a worker", u"abort worker"_s, abortSignal, abortReport);
    row("division by zero in a worker", u"divide worker"_s, arithmeticSignal, arithmeticReport);
    row("illegal instruction in a worker", u"illegal worker"_s, illegalSignal, illegalReport);
    row("uncaught exception in a worker", u"throw worker"_s, abortSignal, exceptionReports);

    row("write to null while another thread has the heap", u"null-write heap-held"_s, segmentationSignal,
        segmentationReport);
    row("abort while another thread has the heap", u"abort heap-held"_s, abortSignal, abortReport);
    row("stack overflow while another thread has the heap", u"overflow heap-held"_s, segmentationSignal,
        segmentationReport);
    row("worker while another thread has the heap", u"null-write worker heap-held"_s, segmentationSignal,
        segmentationReport);
    row("write to null within the heap", u"null-write heap-own"_s, segmentationSignal, segmentationReport);
    row("abort within the heap, as it does when corrupted", u"abort heap-own"_s, abortSignal, abortReport);

    row("every piece by a write of its own", u"null-write pieces"_s, segmentationSignal,
        "=== CORVANE CRASH ===\nreason: |SIGSEGV| sig=11|\n|=== end ===\n|");
    row("every piece of two reports", u"throw pieces"_s, abortSignal,
        "=== CORVANE CRASH ===\nreason: |std::terminate (exceção não capturada)|\n|=== end ===\n|"
        "=== CORVANE CRASH ===\nreason: |SIGABRT| sig=6|\n|=== end ===\n|");

    // A second death before a piece is written: one more report, if the system lets it get that far.
    row("another fault before the report", u"null-write again=1:divide"_s, arithmeticSignal,
        arithmeticReport);
    row("another fault within the report", u"null-write again=3:divide"_s, arithmeticSignal,
        "=== CORVANE CRASH ===\nreason: SIGSEGV" + arithmeticReport);
    row("another fault at the end of the report", u"illegal again=5:null-write"_s, segmentationSignal,
        "=== CORVANE CRASH ===\nreason: SIGILL sig=4\n" + segmentationReport);
    row("abort within the report", u"null-write again=2:abort"_s, abortSignal,
        "=== CORVANE CRASH ===\nreason: " + abortReport);
    row("abort within the report of an abort", u"abort again=3:abort"_s, abortSignal,
        "=== CORVANE CRASH ===\nreason: SIGABRT" + (abortUnblocksItsSignal() ? abortReport : QByteArray()));
    row("the same fault within the report", u"null-write again=3:null-write"_s, segmentationSignal,
        "=== CORVANE CRASH ===\nreason: SIGSEGV");
    row("fault within the report of an exception", u"throw again=2:null-write"_s, segmentationSignal,
        "=== CORVANE CRASH ===\nreason: " + segmentationReport);
    row("second fault while another thread has the heap", u"null-write heap-held again=3:divide"_s,
        arithmeticSignal, "=== CORVANE CRASH ===\nreason: SIGSEGV" + arithmeticReport);
}

void tst_CrashCapture::leavesAReportAndDiesOfItsSignal()
{
    QFETCH(const QStringList, death);
    QFETCH(const int, signal);
    QFETCH(const QByteArray, log);

    CrasherRun crasher(death);
    QVERIFY(crasher.start());
    QVERIFY2(crasher.die(), "it lives on");

    QCOMPARE(crasher.program.exitStatus(), QProcess::CrashExit);
    QCOMPARE(crasher.program.exitCode(), signal);
    QCOMPARE(crasher.log(), log);
    QCOMPARE(crasher.entries(), QStringList({u".running"_s, u"crash-<start>.log"_s}));
    QVERIFY(!crasher.program.readAllStandardError().contains("heap used"));
    // No core file either.
    QCOMPARE(QDir(crasher.path({})).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{u"runtime"_s});
}

/// Its owner alone may write; whoever looks after the machine may read.
void tst_CrashCapture::everybodyMayRead()
{
    const mode_t former = ::umask(0);
    CrasherRun crasher({u"abort"_s});
    const bool started = crasher.start();
    ::umask(former);
    QVERIFY(started);
    QVERIFY(crasher.die());

    const QDir crashes(crasher.crashDir());
    const QStringList files = crashes.entryList(QDir::Files | QDir::Hidden);
    QCOMPARE(files.size(), 2); // the sentinel and the report
    for (const QString &file : files) {
        struct stat status = {};
        QCOMPARE(::stat(QFile::encodeName(crashes.filePath(file)).constData(), &status), 0);
        QCOMPARE(QString::number(status.st_mode & 07777U, 8), u"644"_s);
    }
}

void tst_CrashCapture::reportsWhatItIsSent_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QByteArray>("log");

    QTest::newRow("segmentation fault") << segmentationSignal << segmentationReport;
    QTest::newRow("abort") << abortSignal << abortReport;
    QTest::newRow("arithmetic") << arithmeticSignal << arithmeticReport;
    QTest::newRow("illegal instruction") << illegalSignal << illegalReport;
    QTest::newRow("kill, which nobody sees") << 9 << QByteArray();
    QTest::newRow("termination, which nobody handles") << 15 << QByteArray();
    QTest::newRow("bus error, which nobody handles") << 7 << QByteArray();
}

void tst_CrashCapture::reportsWhatItIsSent()
{
    QFETCH(const int, signal);
    QFETCH(const QByteArray, log);

    CrasherRun crasher({u"abort"_s});
    QVERIFY(crasher.start());
    sendSignal(crasher.program.processId(), signal);
    QVERIFY(crasher.program.waitForFinished(deathPatienceMs));

    QCOMPARE(crasher.program.exitStatus(), QProcess::CrashExit);
    QCOMPARE(crasher.program.exitCode(), signal);
    QCOMPARE(crasher.log(), log);
}

void tst_CrashCapture::overflowOfAWorkersStackKills()
{
    // A second stack exists for the main thread alone: no report, but no hang and no other exit either.
    CrasherRun crasher({u"overflow"_s, u"worker"_s});
    QVERIFY(crasher.start());
    QVERIFY(crasher.die());

    QCOMPARE(crasher.program.exitStatus(), QProcess::CrashExit);
    QCOMPARE(crasher.program.exitCode(), segmentationSignal);
}

void tst_CrashCapture::crashesOfOneProcessShareALog()
{
    CrasherRun crasher({u"null-write"_s});
    QVERIFY(crasher.start());
    // Every file that this start could have named has content.
    const qint64 now = coarseSeconds();
    for (qint64 second = now - 30; second <= now; ++second) {
        QFile file(crasher.crashDir() + u"/crash-%1.log"_s.arg(second));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("earlier\n");
    }
    const QByteArray before = crasher.log();
    QVERIFY(crasher.die());

    QCOMPARE(crasher.log().size(), before.size() + segmentationReport.size());
    QVERIFY(crasher.log().contains("earlier\n" + segmentationReport));
}

void tst_CrashCapture::diesWithoutACrashDirectory()
{
    CrasherRun crasher({u"null-write"_s});
    QFile file(crasher.path(u"runtime"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(crasher.start());
    QVERIFY(crasher.die());

    QCOMPARE(crasher.program.exitStatus(), QProcess::CrashExit);
    QCOMPARE(crasher.program.exitCode(), segmentationSignal);
    QCOMPARE(crasher.program.readAllStandardError(), QByteArray());
    QCOMPARE(file.size(), 0);
}

void tst_CrashCapture::isGuardedWithoutACrashDirectory()
{
    CrasherRun crasher({u"throw"_s});
    QFile file(crasher.path(u"runtime"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(crasher.start());
    // The obstacle is gone by now: the handlers are installed and know where to write.
    QVERIFY(file.remove());
    QVERIFY(QDir().mkpath(crasher.crashDir()));
    QVERIFY(crasher.die());

    QCOMPARE(crasher.program.exitCode(), abortSignal);
    QCOMPARE(crasher.log(), exceptionReports);
    QCOMPARE(crasher.entries(), QStringList{u"crash-<start>.log"_s});
}

void tst_CrashCapture::handlersKeepTheSentinel()
{
    CrasherRun crasher({u"abort"_s});
    QVERIFY(crasher.start());
    QFile sentinel(crasher.crashDir() + "/.running"_L1);
    QVERIFY(sentinel.open(QIODevice::ReadOnly));
    QCOMPARE(sentinel.readAll(), QByteArray("running\n"));
    sentinel.close();
    QVERIFY(crasher.die());

    QVERIFY(sentinel.open(QIODevice::ReadOnly));
    QCOMPARE(sentinel.readAll(), QByteArray("running\n"));
}

CORVANE_TEST(tst_CrashCapture, QCoreApplication)
#include "tst_CrashCapture.moc"
