#include "tests/app/CrasherRun.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>
#include <QtEndian>

#include <windows.h>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

// Exit code of the C run-time for the default action of a signal.
constexpr int signalExitCode = 3;

const QByteArray segmentationReport = "=== CORVANE CRASH ===\nreason: SIGSEGV sig=11\n=== end ===\n";
const QByteArray abortReport = "=== CORVANE CRASH ===\nreason: SIGABRT sig=22\n=== end ===\n";
const QByteArray arithmeticReport = "=== CORVANE CRASH ===\nreason: SIGFPE sig=8\n=== end ===\n";
const QByteArray illegalReport = "=== CORVANE CRASH ===\nreason: SIGILL sig=4\n=== end ===\n";
const QByteArray exceptionReports =
    "=== CORVANE CRASH ===\nreason: std::terminate (exceção não capturada)\n=== end ===\n" + abortReport;

template <typename Number>
Number numberAt(const QByteArray &bytes, qsizetype offset)
{
    return offset + qsizetype(sizeof(Number)) <= bytes.size()
               ? qFromLittleEndian<Number>(bytes.constData() + offset)
               : Number();
}

/// Exception of a minidump, for which it was written.
struct DumpedException
{
    bool found = false;
    quint32 thread = 0;
    quint32 code = 0;
    quint64 address = 0;
};

DumpedException exceptionIn(const QByteArray &dump)
{
    constexpr quint32 exceptionStream = 6;
    const auto streams = numberAt<quint32>(dump, 8);
    const auto directory = numberAt<quint32>(dump, 12);
    for (quint32 i = 0; i < streams; ++i) {
        const qsizetype entry = qsizetype(directory) + 12 * qsizetype(i);
        if (numberAt<quint32>(dump, entry) != exceptionStream)
            continue;
        const qsizetype stream = numberAt<quint32>(dump, entry + 8);
        return {.found = true,
                .thread = numberAt<quint32>(dump, stream),
                .code = numberAt<quint32>(dump, stream + 8),
                .address = numberAt<quint64>(dump, stream + 24)};
    }
    return {};
}

/// The report of an exception: its code and address as text; both empty if it isn't one such report.
std::pair<QByteArray, QByteArray> exceptionReported(const QByteArray &log)
{
    static const QRegularExpression form(u"\\A=== CORVANE CRASH \\(Windows SEH\\) ===\n"
                                         "code=0x([0-9A-F]{8}) address=0x([0-9A-Fa-f]{16})\n"
                                         "=== end ===\n\\z"_s);
    const auto match = form.match(QString::fromUtf8(log));
    return {match.captured(1).toLatin1(), match.captured(2).toLatin1()};
}

} // namespace

/// Real deaths of a guarded child: the files that they leave, and the exit codes.
class tst_CrashCapture_win : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reportsSignals_data();
    void reportsSignals();
    void reportsExceptions_data();
    void reportsExceptions();
    void pathsAreUnicode();
    void dumpReplacesAnEarlierOne();
    void lockedLogKeepsTheDump();
    void lockedDumpKeepsTheLog();
    void diesWithoutACrashDirectory();
    void killIsSeenByNobody();
};

void tst_CrashCapture_win::reportsSignals_data()
{
    QTest::addColumn<QStringList>("death");
    QTest::addColumn<QByteArray>("log");

    const auto row = [](const char *name, const QString &death, const QByteArray &log) {
        QTest::newRow(name) << death.split(u' ') << log;
    };
    row("abort", u"abort"_s, abortReport);
    row("raised segmentation fault", u"raise=11"_s, segmentationReport);
    row("raised abort", u"raise=22"_s, abortReport);
    row("raised arithmetic", u"raise=8"_s, arithmeticReport);
    row("raised illegal instruction", u"raise=4"_s, illegalReport);
    row("uncaught exception", u"throw"_s, exceptionReports);
    row("uncaught exception of another kind", u"throw-other"_s, exceptionReports);
    row("exception out of noexcept", u"noexcept"_s, exceptionReports);
    // The run-time turns these into signals in the threads that it starts itself; a handler then comes before
    // the exception filter.
    row("write to null", u"null-write"_s, segmentationReport);
    row("division by zero", u"divide"_s, arithmeticReport);
    row("illegal instruction", u"illegal"_s, illegalReport);
    row("write to null in a worker", u"null-write worker"_s, segmentationReport);
    row("abort in a worker", u"abort worker"_s, abortReport);
    row("uncaught exception in a worker", u"throw worker"_s, exceptionReports);
    row("interrupt, which nobody handles", u"raise=2"_s, {});
    row("termination, which nobody handles", u"raise=15"_s, {});
}

void tst_CrashCapture_win::reportsSignals()
{
    QFETCH(const QStringList, death);
    QFETCH(const QByteArray, log);

    CrasherRun crasher(death);
    QVERIFY(crasher.start());
    QVERIFY2(crasher.die(), "it lives on");

    QCOMPARE(crasher.program.exitCode(), signalExitCode);
    QCOMPARE(crasher.log(), log);
    QStringList entries{u".running"_s};
    if (!log.isEmpty())
        entries << u"crash-<start>.log"_s;
    QCOMPARE(crasher.entries(), entries); // and no dump
}

void tst_CrashCapture_win::reportsExceptions_data()
{
    QTest::addColumn<QStringList>("death");
    QTest::addColumn<quint32>("code");

    const auto row = [](const char *name, const QString &death, quint32 code) {
        QTest::newRow(name) << death.split(u' ') << code;
    };
    row("write to null in a thread of the system's own making", u"bare-thread"_s, 0xC0000005);
    row("stack overflow", u"overflow"_s, 0xC00000FD);
    row("an exception that is no signal", u"exception=E0001234"_s, 0xE0001234);
    row("breakpoint", u"exception=80000003"_s, 0x80000003);
}

void tst_CrashCapture_win::reportsExceptions()
{
    QFETCH(const QStringList, death);
    QFETCH(const quint32, code);

    const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    if (wine && code == STATUS_STACK_OVERFLOW)
        QSKIP("Wine ends a process whose stack is full before its exception filter has had a say");

    CrasherRun crasher(death);
    QVERIFY(crasher.start());
    QVERIFY2(crasher.die(), "it lives on");

    const auto [codeText, address] = exceptionReported(crasher.log());
    QVERIFY2(!codeText.isEmpty(), crasher.log().constData());
    QCOMPARE(codeText.toUInt(nullptr, 16), code);
    QVERIFY(address.toULongLong(nullptr, 16) != 0);
    QCOMPARE(static_cast<quint32>(crasher.program.exitCode()), code);
    QCOMPARE(crasher.entries(), QStringList({u".running"_s, u"crash-<start>.dmp"_s, u"crash-<start>.log"_s}));

    const QByteArray dump = crasher.dump();
    QCOMPARE(dump.left(4), QByteArray("MDMP"));
    const DumpedException dumped = exceptionIn(dump);
    QVERIFY(dumped.found);
    QCOMPARE(dumped.code, code);
    QCOMPARE(dumped.address, address.toULongLong(nullptr, 16));
    QVERIFY(dumped.thread != 0);
}

// The handlers' calls take narrow names: without the code page of the manifest this file would be elsewhere.
void tst_CrashCapture_win::pathsAreUnicode()
{
    CrasherRun crasher({u"bare-thread"_s}, u"Transmissão ñ Ω 日本"_s);
    QVERIFY(crasher.start());
    QVERIFY(crasher.die());

    QCOMPARE(crasher.entries(), QStringList({u".running"_s, u"crash-<start>.dmp"_s, u"crash-<start>.log"_s}));
    QVERIFY(!exceptionReported(crasher.log()).first.isEmpty());
    QCOMPARE(crasher.dump().left(4), QByteArray("MDMP"));
    QCOMPARE(QDir(crasher.path({})).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{u"Transmissão ñ Ω 日本"_s});
}

namespace {

/// Creates every file that a start within half a minute could have named, and returns their paths.
QStringList makeAllNames(const CrasherRun &crasher, const QString &suffix, const QByteArray &bytes)
{
    QStringList made;
    const qint64 now = coarseSeconds();
    for (qint64 second = now - 30; second <= now; ++second) {
        made << crasher.crashDir() + u"/crash-%1%2"_s.arg(QString::number(second), suffix);
        QFile file(made.last());
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(made.last()));
    }
    return made;
}

/// Creates directories of those names in place of the files: nobody can open them as files.
QStringList blockAllNames(const CrasherRun &crasher, const QString &suffix)
{
    const QStringList names = makeAllNames(crasher, suffix, {});
    for (const QString &name : names) {
        QFile::remove(name);
        QDir().mkpath(name);
    }
    return names;
}

} // namespace

void tst_CrashCapture_win::dumpReplacesAnEarlierOne()
{
    CrasherRun crasher({u"bare-thread"_s});
    QVERIFY(crasher.start());
    const QStringList dumps = makeAllNames(crasher, u".dmp"_s, QByteArray(1'000'000, 'x'));
    QVERIFY(crasher.die());

    int written = 0;
    for (const QString &path : dumps) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        if (file.read(4) != "MDMP")
            continue;
        ++written;
        QVERIFY(file.size() < 1'000'000);
    }
    QCOMPARE(written, 1);
}

void tst_CrashCapture_win::lockedLogKeepsTheDump()
{
    CrasherRun crasher({u"bare-thread"_s});
    QVERIFY(crasher.start());
    blockAllNames(crasher, u".log"_s);
    QVERIFY(crasher.die());

    QCOMPARE(static_cast<quint32>(crasher.program.exitCode()), 0xC0000005U);
    QCOMPARE(crasher.dump().left(4), QByteArray("MDMP"));
}

void tst_CrashCapture_win::lockedDumpKeepsTheLog()
{
    CrasherRun crasher({u"bare-thread"_s});
    QVERIFY(crasher.start());
    blockAllNames(crasher, u".dmp"_s);
    QVERIFY(crasher.die());

    QCOMPARE(static_cast<quint32>(crasher.program.exitCode()), 0xC0000005U);
    QCOMPARE(exceptionReported(crasher.log()).first, QByteArray("C0000005"));
}

void tst_CrashCapture_win::diesWithoutACrashDirectory()
{
    CrasherRun crasher({u"bare-thread"_s});
    QFile file(crasher.path(u"runtime"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(crasher.start());
    QVERIFY(crasher.die());

    QCOMPARE(static_cast<quint32>(crasher.program.exitCode()), 0xC0000005U);
    QCOMPARE(crasher.program.readAllStandardError(), QByteArray());
    QCOMPARE(file.size(), 0);
}

void tst_CrashCapture_win::killIsSeenByNobody()
{
    CrasherRun crasher({u"abort"_s});
    QVERIFY(crasher.start());
    killProcess(crasher.program.processId());
    QVERIFY(crasher.program.waitForFinished(deathPatienceMs));

    QCOMPARE(crasher.entries(), QStringList{u".running"_s});
}

CORVANE_TEST(tst_CrashCapture_win, QCoreApplication)
#include "tst_CrashCapture_win.moc"
