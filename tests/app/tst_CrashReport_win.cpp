#include "app/CrashReport.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <cstring>
#include <exception>
#include <memory>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::test;

namespace {

template <std::size_t Size>
void usePath(char (&target)[Size], const QString &path)
{
    const QByteArray bytes = path.toUtf8();
    QVERIFY(static_cast<std::size_t>(bytes.size()) < Size);
    std::strcpy(target, bytes.constData());
}

/// True if the dump has a stream for an exception.
bool namesAnException(const QByteArray &dump)
{
    const auto number = [&](quint32 offset) {
        quint32 value = 0;
        if (offset + sizeof value <= static_cast<std::size_t>(dump.size()))
            std::memcpy(&value, dump.constData() + offset, sizeof value);
        return value;
    };
    for (quint32 i = 0; i < number(8); ++i) {
        if (number(number(12) + 12 * i) == 6)
            return true;
    }
    return false;
}

} // namespace

/// The exception filter as the system calls it, without anyone dying; and the installed handlers.
class tst_CrashReport_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void installsOneHandlerForFourSignals();
    void filterReportsAndEndsTheProcess_data();
    void filterReportsAndEndsTheProcess();
    void filterGoesOnWithoutItsFiles_data();
    void filterGoesOnWithoutItsFiles();

private:
    [[nodiscard]] QString log() const { return m_directory->filePath(u"crash-1.log"_s); }
    [[nodiscard]] QString dump() const { return m_directory->filePath(u"crash-1.dmp"_s); }

    std::unique_ptr<QTemporaryDir> m_directory;
    LPTOP_LEVEL_EXCEPTION_FILTER m_formerFilter = nullptr;
    LPTOP_LEVEL_EXCEPTION_FILTER m_filter = nullptr;
    std::terminate_handler m_formerTerminate = nullptr;
};

void tst_CrashReport_win::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
    m_formerTerminate = std::get_terminate();
    m_formerFilter = SetUnhandledExceptionFilter(nullptr);
    CrashReport::installHandlers();
    m_filter = SetUnhandledExceptionFilter(m_formerFilter);
    QVERIFY(m_filter);
    QVERIFY(m_filter != m_formerFilter);
}

void tst_CrashReport_win::cleanup()
{
    for (const int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, SIG_DFL);
    std::set_terminate(m_formerTerminate);
    CrashReport::crashLogPath[0] = '\0';
    CrashReport::crashDumpPath[0] = '\0';
}

void tst_CrashReport_win::installsOneHandlerForFourSignals()
{
    QVERIFY(std::get_terminate() != m_formerTerminate);
    const auto handler = std::signal(11, SIG_DFL);
    QVERIFY(handler != SIG_DFL);
    QVERIFY(handler != SIG_IGN);
    for (const int signal : {22, 8, 4})
        QVERIFY(std::signal(signal, SIG_DFL) == handler);
    for (const int signal : {SIGINT, SIGTERM})
        QVERIFY(std::signal(signal, SIG_DFL) != handler);
}

void tst_CrashReport_win::filterReportsAndEndsTheProcess_data()
{
    QTest::addColumn<bool>("pointers");
    QTest::addColumn<bool>("record");
    QTest::addColumn<quint32>("code");
    QTest::addColumn<quint64>("address");
    QTest::addColumn<QByteArray>("report");

    const QByteArray bare = "=== CORVANE CRASH (Windows SEH) ===\n=== end ===\n";
    QTest::newRow("access violation") << true << true << 0xC0000005U << Q_UINT64_C(0x00007FF6A1B2C3D4)
                                      << QByteArray("=== CORVANE CRASH (Windows SEH) ===\n"
                                                    "code=0xC0000005 address=0x00007FF6A1B2C3D4\n"
                                                    "=== end ===\n");
    QTest::newRow("code of few digits, and the last address")
        << true << true << 0x5U << Q_UINT64_C(0xFFFFFFFFFFFFFFFF)
        << QByteArray("=== CORVANE CRASH (Windows SEH) ===\n"
                      "code=0x00000005 address=0xFFFFFFFFFFFFFFFF\n"
                      "=== end ===\n");
    QTest::newRow("no pointers") << false << false << 0U << Q_UINT64_C(0) << bare;
}

void tst_CrashReport_win::filterReportsAndEndsTheProcess()
{
    QFETCH(const bool, pointers);
    QFETCH(const bool, record);
    QFETCH(const quint32, code);
    QFETCH(const quint64, address);
    QFETCH(const QByteArray, report);

    usePath(CrashReport::crashLogPath, log());
    usePath(CrashReport::crashDumpPath, dump());
    EXCEPTION_RECORD exception{};
    exception.ExceptionCode = code;
    exception.ExceptionAddress = reinterpret_cast<void *>(static_cast<quintptr>(address));
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_POINTERS both{record ? &exception : nullptr, &context};

    QCOMPARE(m_filter(pointers ? &both : nullptr), LONG(EXCEPTION_EXECUTE_HANDLER));
    QCOMPARE(contentsOf(log()).toLower(), report.toLower()); // the run-time chooses the case of an address
    QCOMPARE(contentsOf(dump()).left(4), QByteArray("MDMP"));
    QCOMPARE(namesAnException(contentsOf(dump())), pointers);
}

void tst_CrashReport_win::filterGoesOnWithoutItsFiles_data()
{
    QTest::addColumn<bool>("logCanBeMade");
    QTest::addColumn<QString>("dump"); // in the test's directory; null: no path at all
    QTest::addColumn<QStringList>("made");

    QTest::newRow("no path for a dump") << true << QString() << QStringList{u"crash-1.log"_s};
    QTest::newRow("no directory for the dump")
        << true << u"missing/crash-1.dmp"_s << QStringList{u"crash-1.log"_s};
    QTest::newRow("directory in the dump's place") << true << u""_s << QStringList{u"crash-1.log"_s};
    QTest::newRow("no log") << false << u"crash-1.dmp"_s << QStringList{u"crash-1.dmp"_s};
    QTest::newRow("neither") << false << QString() << QStringList();
}

void tst_CrashReport_win::filterGoesOnWithoutItsFiles()
{
    QFETCH(const bool, logCanBeMade);
    QFETCH(const QString, dump);
    QFETCH(const QStringList, made);

    usePath(CrashReport::crashLogPath,
            logCanBeMade ? log() : m_directory->filePath(u"missing/crash-1.log"_s));
    usePath(CrashReport::crashDumpPath, dump.isNull() ? QString() : m_directory->filePath(dump));

    QCOMPARE(m_filter(nullptr), LONG(EXCEPTION_EXECUTE_HANDLER));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             made);
}

CORVANE_TEST(tst_CrashReport_win, QCoreApplication)
#include "tst_CrashReport_win.moc"
