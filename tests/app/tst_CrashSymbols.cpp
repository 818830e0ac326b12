#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

/// Functions that a handler may call: async-signal-safe by POSIX, and those that compilers insert by
/// themselves.
const QSet<QString> safe{
    u"abort"_s,  u"close"_s, u"open"_s,   u"open64"_s,           u"raise"_s,
    u"signal"_s, u"write"_s, u"memcpy"_s, u"__stack_chk_fail"_s, u"_GLOBAL_OFFSET_TABLE_"_s,
};

struct Excused
{
    QString symbol;
    QString reason;
};

/// Functions that only the start and the clean exit call, outside of any crash.
const QList<Excused> outsideHandlers{
    {u"sigaction"_s, u"installs the handlers"_s},
    {u"sigemptyset"_s, u"for sigaction"_s},
    {u"sigaltstack"_s, u"gives the main thread its second stack"_s},
    {u"std::set_terminate(void (*)())"_s, u"installs the terminate handler"_s},
    {u"memset"_s, u"clears a record at install time"_s},
    {u"stat"_s, u"looks for the sentinel"_s},
    {u"stat64"_s, u"the same, for large files"_s},
    {u"unlink"_s, u"removes the sentinel"_s},
};

} // namespace

/// The objects that hold the handlers, by the names that they leave undefined.
class tst_CrashSymbols : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void callsOnlyWhatIsSafe_data();
    void callsOnlyWhatIsSafe();
    void listsMeetNowhere();
    void readsSymbolsAtAll();
    void programIsBoundAtItsStart();

private:
    /// Names in the objects under `selection`, an option of nm.
    static QSet<QString> symbols(const QString &object, const QString &selection);

    const QStringList m_objects = QStringLiteral(CORVANE_HANDLER_OBJECTS).split(u'|');
    QSet<QString> m_defined;
};

QSet<QString> tst_CrashSymbols::symbols(const QString &object, const QString &selection)
{
    QProcess nm;
    nm.start(QStringLiteral(CORVANE_NM), {u"-C"_s, u"-j"_s, selection, object});
    if (!nm.waitForFinished() || nm.exitStatus() != QProcess::NormalExit || nm.exitCode() != 0)
        return {};
    const QStringList names = QString::fromUtf8(nm.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    return {names.begin(), names.end()};
}

void tst_CrashSymbols::initTestCase()
{
    if (!QStringLiteral(CORVANE_INSTRUMENTATION).isEmpty())
        QSKIP("instrumented with " CORVANE_INSTRUMENTATION ", whose calls are in every object");
    for (const QString &object : m_objects)
        m_defined += symbols(object, u"--defined-only"_s);
}

void tst_CrashSymbols::callsOnlyWhatIsSafe_data()
{
    QTest::addColumn<QString>("object");

    QCOMPARE(m_objects.size(), 2);
    for (const QString &object : m_objects)
        QTest::newRow(qPrintable(object.section(u'/', -1))) << object;
}

void tst_CrashSymbols::callsOnlyWhatIsSafe()
{
    QFETCH(const QString, object);

    QStringList others;
    const QSet<QString> open = symbols(object, u"--undefined-only"_s);
    QVERIFY2(!open.isEmpty(), "nm tells of no symbol");
    for (const QString &symbol : open) {
        const bool excused = std::ranges::any_of(
            outsideHandlers, [&](const Excused &entry) { return entry.symbol == symbol; });
        if (!safe.contains(symbol) && !excused && !m_defined.contains(symbol))
            others << symbol;
    }
    others.sort();

    QCOMPARE(others, QStringList());
}

void tst_CrashSymbols::listsMeetNowhere()
{
    for (const Excused &entry : outsideHandlers) {
        QVERIFY2(!safe.contains(entry.symbol), qPrintable(entry.symbol));
        QVERIFY(!entry.reason.isEmpty());
    }
}

void tst_CrashSymbols::readsSymbolsAtAll()
{
    // Control: without these names the comparison above would have looked at other objects.
    QVERIFY(m_defined.contains(u"corvane::CrashReport::append(char const*, int)"_s));
    QVERIFY(m_defined.contains(u"corvane::CrashReport::installHandlers()"_s));
    QSet<QString> open;
    for (const QString &object : m_objects)
        open += symbols(object, u"--undefined-only"_s);
    for (const QString &expected : {u"write"_s, u"raise"_s, u"abort"_s, u"sigaction"_s})
        QVERIFY2(open.contains(expected), qPrintable(expected));
}

void tst_CrashSymbols::programIsBoundAtItsStart()
{
    QProcess readelf;
    readelf.start(QStringLiteral(CORVANE_READELF),
                  {u"--wide"_s, u"--dynamic"_s, u"--segments"_s, corvaneProgram()});
    QVERIFY(readelf.waitForFinished());
    const QString said = QString::fromUtf8(readelf.readAllStandardOutput());

    // Otherwise a handler's first call of a function would run the dynamic linker.
    static const QRegularExpression now(u"\\(FLAGS_1\\) +Flags: .*\\bNOW\\b"_s);
    QVERIFY2(now.match(said).hasMatch(), qPrintable(said));
    static const QRegularExpression readOnly(u"^ +GNU_RELRO "_s, QRegularExpression::MultilineOption);
    QVERIFY2(readOnly.match(said).hasMatch(), qPrintable(said));
}

CORVANE_TEST(tst_CrashSymbols, QCoreApplication)
#include "tst_CrashSymbols.moc"
