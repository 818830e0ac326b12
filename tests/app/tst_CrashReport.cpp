#include "app/CrashReport.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

void useLog(const QString &path)
{
    const QByteArray bytes = path.toUtf8();
    QVERIFY(static_cast<std::size_t>(bytes.size()) < CrashReport::pathSize);
    std::strcpy(CrashReport::crashLogPath, bytes.constData());
}

} // namespace

/// Text of one report, without anyone dying.
class tst_CrashReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void namesTheHandledSignals_data();
    void namesTheHandledSignals();
    void reportsReasonAndNumber_data();
    void reportsReasonAndNumber();
    void appendsToWhatIsThere();
    void losesAReportWithoutALog_data();
    void losesAReportWithoutALog();

private:
    std::unique_ptr<QTemporaryDir> m_directory;
};

void tst_CrashReport::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void tst_CrashReport::cleanup()
{
    CrashReport::crashLogPath[0] = '\0';
}

void tst_CrashReport::namesTheHandledSignals_data()
{
    QTest::addColumn<int>("posixNumber"); // 0: no such signal there
    QTest::addColumn<int>("windowsNumber");
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("segmentation fault") << 11 << 11 << QByteArray("SIGSEGV");
    QTest::newRow("abort") << 6 << 22 << QByteArray("SIGABRT");
    QTest::newRow("arithmetic") << 8 << 8 << QByteArray("SIGFPE");
    QTest::newRow("illegal instruction") << 4 << 4 << QByteArray("SIGILL");
    QTest::newRow("interrupt") << 2 << 2 << QByteArray("signal");
    QTest::newRow("none") << 0 << 0 << QByteArray("signal");
    QTest::newRow("the other platform's abort") << 22 << 6 << QByteArray("signal");
    QTest::newRow("no signal's number") << 2147483647 << 2147483647 << QByteArray("signal");
    QTest::newRow("negative") << -11 << -11 << QByteArray("signal");
}

void tst_CrashReport::namesTheHandledSignals()
{
    QFETCH(const int, posixNumber);
    QFETCH(const int, windowsNumber);
    QFETCH(const QByteArray, name);
#ifdef Q_OS_WIN
    const int number = windowsNumber;
    Q_UNUSED(posixNumber)
#else
    const int number = posixNumber;
    Q_UNUSED(windowsNumber)
#endif

    QCOMPARE(QByteArray(CrashReport::reasonOf(number)), name);
}

void tst_CrashReport::reportsReasonAndNumber_data()
{
    QTest::addColumn<QByteArray>("reason"); // null: none
    QTest::addColumn<int>("number");
    QTest::addColumn<QByteArray>("report");

    const auto row = [](const char *name, const QByteArray &reason, int number, const QByteArray &report) {
        QTest::newRow(name) << reason << number << report;
    };
    row("reason and number", "SIGSEGV", 11, "=== CORVANE CRASH ===\nreason: SIGSEGV sig=11\n=== end ===\n");
    row("number of one digit", "signal", 5, "=== CORVANE CRASH ===\nreason: signal sig=5\n=== end ===\n");
    row("number 0 is none", "std::terminate (exceção não capturada)", 0,
        "=== CORVANE CRASH ===\nreason: std::terminate (exceção não capturada)\n=== end ===\n");
    row("largest number", "signal", 2147483647,
        "=== CORVANE CRASH ===\nreason: signal sig=2147483647\n=== end ===\n");
    row("negative number", "signal", -1, "=== CORVANE CRASH ===\nreason: signal sig=-1\n=== end ===\n");
    row("smallest number", "signal", -2147483647 - 1,
        "=== CORVANE CRASH ===\nreason: signal sig=-2147483648\n=== end ===\n");
    row("zeros within the number", "signal", 1000,
        "=== CORVANE CRASH ===\nreason: signal sig=1000\n=== end ===\n");
    row("no reason", QByteArray(), 5, "=== CORVANE CRASH ===\nreason:  sig=5\n=== end ===\n");
    row("empty reason", "", 5, "=== CORVANE CRASH ===\nreason:  sig=5\n=== end ===\n");
    row("neither", QByteArray(), 0, "=== CORVANE CRASH ===\nreason: \n=== end ===\n");
    row("reason that looks like a format", "%s%n", 11,
        "=== CORVANE CRASH ===\nreason: %s%n sig=11\n=== end ===\n");
}

void tst_CrashReport::reportsReasonAndNumber()
{
    QFETCH(const QByteArray, reason);
    QFETCH(const int, number);
    QFETCH(const QByteArray, report);

    const QString log = m_directory->filePath(u"crash-1.log"_s);
    useLog(log);
    CrashReport::append(reason.isNull() ? nullptr : reason.constData(), number);

    QCOMPARE(contentsOf(log), report);
}

void tst_CrashReport::appendsToWhatIsThere()
{
    const QString log = m_directory->filePath(u"crash-1.log"_s);
    QFile file(log);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("earlier, without a line end");
    file.close();
    useLog(log);

    CrashReport::append("SIGILL", 4);
    CrashReport::append("SIGFPE", 8);

    QCOMPARE(contentsOf(log), QByteArray("earlier, without a line end"
                                         "=== CORVANE CRASH ===\nreason: SIGILL sig=4\n=== end ===\n"
                                         "=== CORVANE CRASH ===\nreason: SIGFPE sig=8\n=== end ===\n"));
}

void tst_CrashReport::losesAReportWithoutALog_data()
{
    QTest::addColumn<QString>("log"); // in the test's directory; null: no path at all

    QTest::newRow("no path") << QString();
    QTest::newRow("no directory") << u"missing/crash-1.log"_s;
    QTest::newRow("directory in its place") << u""_s;
}

void tst_CrashReport::losesAReportWithoutALog()
{
    QFETCH(const QString, log);

    useLog(log.isNull() ? QString() : m_directory->filePath(log));
    CrashReport::append("SIGSEGV", 11);

    const QDir directory(m_directory->path());
    QCOMPARE(directory.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

CORVANE_TEST(tst_CrashReport, QCoreApplication)
#include "tst_CrashReport.moc"
