#include "tests/support/ProgramSandbox.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

namespace {

const auto title = u"CORVANE"_s;

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

/// The program on a display, from its start to its end.
class Run
{
public:
    Run(ProgramSandbox &sandbox, const XServer &display, const QStringList &arguments = {})
        : m_display(display)
    {
        sandbox.environment().insert(u"DISPLAY"_s, display.display());
        sandbox.prepare(program, arguments);
    }

    /// True as soon as the window is on the screen.
    [[nodiscard]] bool start()
    {
        startedAtMs = QDateTime::currentMSecsSinceEpoch();
        program.start();
        return waitUntil(
                   [&] { return m_display.showsWindow(title) || program.state() == QProcess::NotRunning; }) &&
               m_display.showsWindow(title);
    }

    /// Closes the window and waits for the end; the exit code, or -1 if there was no orderly end.
    [[nodiscard]] int close()
    {
        if (!m_display.closeWindow(title))
            return -1;
        const bool ended = waitUntil([&] { return program.state() == QProcess::NotRunning; });
        return ended && program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1;
    }

    /// Ends the program as a power cut would.
    [[nodiscard]] bool kill()
    {
        program.kill();
        return waitUntil([&] { return program.state() == QProcess::NotRunning; });
    }

    [[nodiscard]] QString standardError()
    {
        m_standardError += program.readAllStandardError();
        return QString::fromUtf8(m_standardError);
    }

    QProcess program;
    qint64 startedAtMs = 0;

private:
    const XServer &m_display;
    QByteArray m_standardError;
};

} // namespace

/// The built program from outside: its files, its exit code and what it says.
class tst_Program : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void scanPrintsOneReportAndLeavesNothing_data();
    void scanPrintsOneReportAndLeavesNothing();
    void otherSpellingsStartTheInterface();

    void closesByItsWindow();
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

    void startsWithoutAUsableRuntimeDirectory();
    void startsWithoutFfmpeg();
    void startsWithAnFfmpegThatHangs();
    void goesOnAfterAnException_data();
    void goesOnAfterAnException();
    void endsWithoutAnInterface();

private:
    XServer m_display;
};

void tst_Program::initTestCase()
{
    if (!m_display.problem().isEmpty())
        QSKIP(qPrintable(m_display.problem()));
}

// --- Scan options

void tst_Program::scanPrintsOneReportAndLeavesNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray ndi = "NDI suportado: não\nFontes NDI encontradas: 0\n";
    const QByteArray decklink = "DeckLink suportado: não\nDispositivos DeckLink: 0\n";
    QTest::newRow("ndi") << QStringList{u"--ndi-scan"_s} << ndi;
    QTest::newRow("decklink") << QStringList{u"--decklink-scan"_s} << decklink;
    QTest::newRow("ndi, then decklink") << QStringList{u"--ndi-scan"_s, u"--decklink-scan"_s} << ndi;
    QTest::newRow("decklink, then ndi") << QStringList{u"--decklink-scan"_s, u"--ndi-scan"_s} << decklink;
    QTest::newRow("after an option that is none")
        << QStringList{u"--NDI-SCAN"_s, u"--decklink-scan"_s, u"--version"_s} << decklink;
}

void tst_Program::scanPrintsOneReportAndLeavesNothing()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QByteArray, expected);

    ProgramSandbox sandbox; // no display, and no platform to do without one
    const QStringList before = sandbox.contents();
    QProcess program;
    sandbox.prepare(program, arguments);
    program.start();

    QVERIFY(program.waitForFinished());
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);
    QCOMPARE(program.readAllStandardOutput(), expected);
    QCOMPARE(program.readAllStandardError(), QByteArray());
    QCOMPARE(sandbox.contents(), before);
}

void tst_Program::otherSpellingsStartTheInterface()
{
    ProgramSandbox sandbox;
    Run run(sandbox, m_display, {u"--NDI-SCAN"_s, u"--Decklink-Scan"_s});

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.program.readAllStandardOutput(), QByteArray());
}

// --- Start and end

void tst_Program::closesByItsWindow()
{
    ProgramSandbox sandbox; // whose environment names buses that don't exist
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);

    QVERIFY(!m_display.showsWindow(title));
    QCOMPARE(run.standardError(), QString());
    QCOMPARE(run.program.readAllStandardOutput(), QByteArray());
}

void tst_Program::fixesTheRuntimeDirectory_data()
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

void tst_Program::fixesTheRuntimeDirectory()
{
    QFETCH(const QString, variable);
    QFETCH(const QString, directory);

    ProgramSandbox sandbox;
    if (variable.isNull())
        sandbox.environment().remove(u"CORVANE_RUNTIME_DIR"_s);
    else
        sandbox.environment().insert(u"CORVANE_RUNTIME_DIR"_s,
                                     QString(variable).replace("%1"_L1, sandbox.path({})));
    Run run(sandbox, m_display);

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

void tst_Program::heartbeatMovesOnEveryTwoSeconds()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    Run run(sandbox, m_display);
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

    // The timer may be early by a twentieth; it is late when the machine is busy, but hardly each time.
    QVERIFY2(beats.first() - run.startedAtMs >= 1900, "the first beat follows after one interval");
    qint64 shortest = std::numeric_limits<qint64>::max();
    for (qsizetype i = 1; i < beats.size(); ++i)
        shortest = std::min(shortest, beats.at(i) - beats.at(i - 1));
    QVERIFY2(shortest >= 1500 && shortest <= 3500, qPrintable(QString::number(shortest)));
}

void tst_Program::heartbeatReplacesAnEarlierOne()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    const QByteArray earlier = "1600000000000 and a longer text than any beat\n";
    writeFile(path, earlier);
    Run run(sandbox, m_display);

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

void tst_Program::heartbeatThatCannotBeWrittenIsSkipped()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.heartbeat"_L1;
    QVERIFY(QDir().mkpath(path));
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    const qint64 firstBeatIsDue = run.startedAtMs + 2000;
    QVERIFY(waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() > firstBeatIsDue + 1000; }));
    QCOMPARE(run.program.state(), QProcess::Running);

    // As soon as it can be written it is.
    QVERIFY(QDir().rmdir(path));
    QVERIFY(waitUntil([&] { return contentsOf(path).size() == 13; }));
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.standardError(), QString());
}

// --- Mark of a clean exit

void tst_Program::cleanExitIsMadeOrEmptied_data()
{
    QTest::addColumn<QByteArray>("earlier"); // null: none

    QTest::newRow("none before") << QByteArray();
    QTest::newRow("one from an earlier run") << QByteArray("");
    QTest::newRow("one with something in it") << QByteArray("not empty");
}

void tst_Program::cleanExitIsMadeOrEmptied()
{
    QFETCH(const QByteArray, earlier);

    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    if (!earlier.isNull())
        writeFile(path, earlier);
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(QFileInfo::exists(path), !earlier.isNull()); // the start neither makes nor removes it
    QCOMPARE(contentsOf(path), earlier);
    QCOMPARE(run.close(), 0);

    QVERIFY(QFileInfo(path).isFile());
    QCOMPARE(QFileInfo(path).size(), 0);
}

void tst_Program::cleanExitThatCannotBeOpenedIsIgnored()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    QVERIFY(QDir().mkpath(path));
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);
    QVERIFY(QFileInfo(path).isDir());
    QCOMPARE(run.standardError(), QString());
}

void tst_Program::killLeavesNoCleanExit()
{
    ProgramSandbox sandbox;
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(run.kill());

    QCOMPARE(run.program.exitStatus(), QProcess::CrashExit);
    QVERIFY(QFileInfo(sandbox.runtimeDir()).isDir());
    QVERIFY(!QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

void tst_Program::killKeepsAnEarlierCleanExit()
{
    ProgramSandbox sandbox;
    const QString path = sandbox.runtimeDir() + "/.cleanexit"_L1;
    writeFile(path, "untouched");
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(run.kill());

    QCOMPARE(contentsOf(path), QByteArray("untouched"));
}

// --- What is missing or fails

void tst_Program::startsWithoutAUsableRuntimeDirectory()
{
    // Below a regular file nothing can be made, whatever the user may do.
    ProgramSandbox sandbox;
    writeFile(sandbox.path(u"file"_s), "a file");
    sandbox.environment().insert(u"CORVANE_RUNTIME_DIR"_s, sandbox.path(u"file/runtime"_s));
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    // One beat is tried and skipped before the window is closed.
    QVERIFY(waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() > run.startedAtMs + 3000; }));
    QCOMPARE(run.close(), 0);

    QCOMPARE(contentsOf(sandbox.path(u"file"_s)), QByteArray("a file"));
    QCOMPARE(sandbox.contents().filter(u".cleanexit"_s), QStringList());
    QCOMPARE(run.standardError(), QString());
}

void tst_Program::startsWithoutFfmpeg()
{
    for (const QString &place : {u"/usr/local/bin/ffmpeg"_s, u"/opt/homebrew/bin/ffmpeg"_s}) {
        if (QFileInfo::exists(place))
            QSKIP(qPrintable(u"this machine has %1, which is found without a PATH"_s.arg(place)));
    }
    ProgramSandbox sandbox;
    QVERIFY(QFile::remove(sandbox.path(u"bin/ffmpeg"_s)));
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    const QString heartbeat = sandbox.runtimeDir() + "/.heartbeat"_L1;
    QVERIFY(waitUntil([&] { return !contentsOf(heartbeat).isEmpty(); }));
    QVERIFY(m_display.showsWindow(title));
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.standardError(), QString());
}

void tst_Program::startsWithAnFfmpegThatHangs()
{
    ProgramSandbox sandbox;
    sandbox.environment().insert(u"FAKE_FFMPEG_PROBE"_s, u"hang"_s);
    Run run(sandbox, m_display);

    run.startedAtMs = QDateTime::currentMSecsSinceEpoch();
    run.program.start();
    QVERIFY(waitUntil([&] { return m_display.showsWindow(title); }, 60000));
    // Two questions of at most five seconds each: the window comes after both.
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - run.startedAtMs >= 9000);
    QCOMPARE(run.close(), 0);
}

void tst_Program::goesOnAfterAnException_data()
{
    QTest::addColumn<QString>("thrown");
    QTest::addColumn<QString>("warning");

    QTest::newRow("standard exception")
        << u"throw"_s << u"Exceção capturada no event loop: falha de propósito\n"_s;
    QTest::newRow("any other") << u"throw-other"_s << u"Exceção desconhecida capturada no event loop\n"_s;
}

void tst_Program::goesOnAfterAnException()
{
    QFETCH(const QString, thrown);
    QFETCH(const QString, warning);

    ProgramSandbox sandbox;
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_inspector"_s);
    environment.insert(u"CORVANE_INSPECT_THEN"_s, thrown);
    Run run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(waitUntil([&] { return !run.standardError().isEmpty(); }));
    const QString heartbeat = sandbox.runtimeDir() + "/.heartbeat"_L1;
    QVERIFY(waitUntil([&] { return !contentsOf(heartbeat).isEmpty(); }));
    QCOMPARE(run.close(), 0);

    QCOMPARE(run.standardError(), warning);
    QVERIFY(QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

void tst_Program::endsWithoutAnInterface()
{
    // A copy of the program that looks for QML modules where there are none.
    ProgramSandbox sandbox;
    const QString copy = sandbox.path(u"bin/corvane"_s);
    QVERIFY(QFile::copy(corvaneProgram(), copy));
    writeFile(sandbox.path(u"bin/qt.conf"_s), "[Paths]\nQmlImports=/nonexistent\nPlugins=" +
                                                  QLibraryInfo::path(QLibraryInfo::PluginsPath).toUtf8() +
                                                  '\n');
    Run run(sandbox, m_display);
    run.program.setProgram(copy);

    run.program.start();
    QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));

    QCOMPARE(run.program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.program.exitCode() & 0xff, 0xff); // -1, of which some platforms keep eight bits
    QVERIFY(QFileInfo(sandbox.runtimeDir()).isDir());
    QVERIFY(!QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

QTEST_GUILESS_MAIN(tst_Program)
#include "tst_Program.moc"
