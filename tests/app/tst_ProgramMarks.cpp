#include "tests/app/Inspection.h"
#include "tests/support/Files.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// Files by which a supervisor follows the program's health: the runtime directory, its heartbeat and its
/// mark of a clean exit.
class tst_ProgramMarks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void fixesTheRuntimeDirectory_data();
    void fixesTheRuntimeDirectory();

    void heartbeatMovesOnEveryTwoSeconds();
    void heartbeatReplacesAnEarlierOne();
    void heartbeatThatCannotBeWrittenIsSkipped();

    void cleanExitIsMadeOrEmptied_data();
    void cleanExitIsMadeOrEmptied();
    void cleanExitThatCannotBeOpenedIsIgnored();
    void killLeavesNoCleanExit();
    void killKeepsAnEarlierCleanExit();

private:
    XServer m_display;
};

void tst_ProgramMarks::initTestCase()
{
    if (!m_display.problem().isEmpty())
        QSKIP(qPrintable(m_display.problem()));
}

void tst_ProgramMarks::fixesTheRuntimeDirectory_data()
{
    QTest::addColumn<QString>("variable"); // null: not set; %1 stands for the sandbox
    QTest::addColumn<QString>("directory");

    const QString writableLocation = u"data/halvorndev/CORVANE/runtime"_s;
    QTest::newRow("as the variable says") << u"%1/given"_s << u"given"_s;
    QTest::newRow("several levels that don't exist") << u"%1/a/b c/ç"_s << u"a/b c/ç"_s;
    QTest::newRow("relative to the working directory, as it stands") << u"beside"_s << u"beside"_s;
    QTest::newRow("variable not set") << QString() << writableLocation;
    QTest::newRow("variable empty") << u""_s << writableLocation;
}

void tst_ProgramMarks::fixesTheRuntimeDirectory()
{
    QFETCH(const QString, variable);
    QFETCH(const QString, directory);

#ifdef Q_OS_WIN
    if (variable.isEmpty())
        QSKIP("the folder for programs' data is the user's own here, whatever the environment says");
#endif
    ProgramSandbox sandbox;
    if (variable.isNull())
        sandbox.environment().remove(u"CORVANE_RUNTIME_DIR"_s);
    else
        sandbox.environment().insert(u"CORVANE_RUNTIME_DIR"_s,
                                     QString(variable).replace("%1"_L1, sandbox.path({})));
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(QFileInfo(sandbox.path(directory + "/crashes"_L1)).isDir());
    const QString heartbeat = sandbox.path(directory + "/.heartbeat"_L1);
    QVERIFY(waitUntil([&] { return !contentsOf(heartbeat).isEmpty(); }));
    QCOMPARE(run.close(), 0);

    const QStringList made = sandbox.contents();
    QCOMPARE(made.filter(u"/.cleanexit"_s), QStringList{directory + "/.cleanexit"_L1});
    QCOMPARE(made.filter(u"/.heartbeat"_s), QStringList{directory + "/.heartbeat"_L1});
}

// --- Heartbeat

void tst_ProgramMarks::heartbeatMovesOnEveryTwoSeconds()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    ProgramRun run(sandbox, m_display);
    QVERIFY(run.start());

    QList<qint64> beats;
    QByteArray last;
    while (beats.size() < 4) {
        QByteArray seen;
        QVERIFY(waitUntil([&] {
            seen = contentsOf(path); // empty for the moment between truncation and writing
            return !seen.isEmpty() && seen != last;
        }));
        static const QRegularExpression digitsOnly(u"\\A[0-9]{13}\\z"_s);
        QVERIFY2(digitsOnly.match(QString::fromLatin1(seen)).hasMatch(), seen.constData());
        last = seen;
        beats << seen.toLongLong();
        QVERIFY(beats.last() <= QDateTime::currentMSecsSinceEpoch());
    }
    QCOMPARE(run.close(), 0);

    // The timer may be early by a twentieth. On a busy machine one beat may be late: then one gap is longer
    // and the next one shorter, and the middle one of the three is neither. None comes before its time.
    for (qsizetype i = 0; i < beats.size(); ++i)
        QVERIFY2(beats.at(i) - run.startedAtMs >= 1900 * (i + 1), qPrintable(u"beat %1 is early"_s.arg(i)));
    QList<qint64> gaps;
    for (qsizetype i = 1; i < beats.size(); ++i)
        gaps << beats.at(i) - beats.at(i - 1);
    std::sort(gaps.begin(), gaps.end());
    QVERIFY2(gaps.at(1) >= 1500 && gaps.at(1) <= 3500, qPrintable(QString::number(gaps.at(1))));
}

void tst_ProgramMarks::heartbeatReplacesAnEarlierOne()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    const QByteArray earlier = "1600000000000 and a longer text than any beat\n";
    writeFile(path, earlier);
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(waitUntil([&] {
        const QByteArray seen = contentsOf(path);
        return !seen.isEmpty() && seen != earlier;
    }));

    const QByteArray beat = contentsOf(path);
    QCOMPARE(beat.size(), 13);
    QVERIFY(beat.toLongLong() >= run.startedAtMs);
    QCOMPARE(run.close(), 0);
    QVERIFY(!contentsOf(path).isEmpty()); // the last one stays
}

void tst_ProgramMarks::heartbeatThatCannotBeWrittenIsSkipped()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    QVERIFY(QDir().mkpath(path));
    inspectProgram(sandbox, u"beats"_s);
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(waitUntil([&] { return !contentsOf(inspectedBeats(sandbox)).isEmpty(); }));
    QCOMPARE(run.program.state(), QProcess::Running);

    // It is written as soon as it can be.
    QVERIFY(QDir().rmdir(path));
    QVERIFY(waitUntil([&] { return contentsOf(path).size() == 13; }));
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.standardError(), QString());
}

// --- Mark of a clean exit

void tst_ProgramMarks::cleanExitIsMadeOrEmptied_data()
{
    QTest::addColumn<QByteArray>("earlier"); // null: none

    QTest::newRow("none before") << QByteArray();
    QTest::newRow("one from an earlier run") << QByteArray("");
    QTest::newRow("one with something in it") << QByteArray("not empty");
}

void tst_ProgramMarks::cleanExitIsMadeOrEmptied()
{
    QFETCH(const QByteArray, earlier);

    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    if (!earlier.isNull())
        writeFile(path, earlier);
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(QFileInfo::exists(path), !earlier.isNull()); // the start neither creates nor removes it
    QCOMPARE(contentsOf(path), earlier);
    QCOMPARE(run.close(), 0);

    QVERIFY(QFileInfo(path).isFile());
    QCOMPARE(QFileInfo(path).size(), 0);
}

void tst_ProgramMarks::cleanExitThatCannotBeOpenedIsIgnored()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    QVERIFY(QDir().mkpath(path));
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);
    QVERIFY(QFileInfo(path).isDir());
    QCOMPARE(run.standardError(), QString());
}

void tst_ProgramMarks::killLeavesNoCleanExit()
{
    ProgramSandbox sandbox;
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(run.kill());

    QCOMPARE(run.program.exitStatus(), QProcess::CrashExit);
    QVERIFY(QFileInfo(sandbox.runtimeDir()).isDir());
    QVERIFY(!QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

void tst_ProgramMarks::killKeepsAnEarlierCleanExit()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    writeFile(path, "untouched");
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(run.kill());

    QCOMPARE(contentsOf(path), QByteArray("untouched"));
}

CORVANE_TEST(tst_ProgramMarks, QCoreApplication)
#include "tst_ProgramMarks.moc"
