#include "tests/app/Inspection.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ProgramSandbox.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tests/support/XServer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace corvane::test;

/// The built program from outside: its output, its exit code, and its behaviour where something is missing.
class tst_Program : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void scanPrintsOneReportAndLeavesNothing_data();
    void scanPrintsOneReportAndLeavesNothing();
    void otherSpellingsStartTheInterface();

    void closesByItsWindow();
    void closesOnAir();
    void leavesWithTheCodeOfTheLoop();
    void timers();
    void looksForUpdatesEverySixHours();

    void startsWithoutAUsableRuntimeDirectory();
    void startsWithoutFfmpeg();
    void startsWithAnFfmpegThatHangs();
    void goesOnAfterAnException_data();
    void goesOnAfterAnException();
    void endsWithoutAnInterface();

private:
    [[nodiscard]] static QJsonObject report(const ProgramSandbox &sandbox)
    {
        return QJsonDocument::fromJson(contentsOf(inspectionReport(sandbox))).object();
    }

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
    program.start(QIODevice::ReadOnly | QIODevice::Text); // the system's own line ends

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
    ProgramRun run(sandbox, m_display, {u"--NDI-SCAN"_s, u"--Decklink-Scan"_s});

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.program.readAllStandardOutput(), QByteArray());
}

// --- Start and end

void tst_Program::closesByItsWindow()
{
    ProgramSandbox sandbox; // whose environment names buses that don't exist
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QCOMPARE(run.close(), 0);

    QVERIFY(!m_display.showsWindow(u"CORVANE"_s));
    QCOMPARE(run.standardError(), QString());
    QCOMPARE(run.program.readAllStandardOutput(), QByteArray());
}

/// What it has started is asked to leave, as by its operator.
void tst_Program::closesOnAir()
{
    ProgramSandbox sandbox;
    QProcessEnvironment &environment = sandbox.environment();
    environment.insert(u"QT_PLUGIN_PATH"_s, QStringLiteral(CORVANE_TEST_PLUGINS));
    environment.insert(u"QT_QPA_GENERIC_PLUGINS"_s, u"corvane_operator"_s);
    environment.insert(u"CORVANE_OPERATE"_s, sandbox.path(u"operate"_s));
    const QString asked = sandbox.path(u"asked"_s);
    const QString started = sandbox.path(u"started"_s);
    writeFile(sandbox.path(u"operate/air"_s),
              u"fake:input=%1,append=%2,progress"_s.arg(asked, started).toUtf8());
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    QVERIFY(waitUntil([&] { return !contentsOf(started).isEmpty(); }));
    QCOMPARE(contentsOf(asked), QByteArray());
    QCOMPARE(run.close(), 0);
    QVERIFY(contentsOf(asked).startsWith('q'));
    QVERIFY(QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

void tst_Program::leavesWithTheCodeOfTheLoop()
{
    ProgramSandbox sandbox;
    inspectProgram(sandbox, u"exit-7"_s);
    ProgramRun run(sandbox, m_display);

    run.program.start();
    QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));

    QCOMPARE(run.program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.program.exitCode(), 7);
    QVERIFY(QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

void tst_Program::timers()
{
    ProgramSandbox sandbox;
    inspectProgram(sandbox, u"quit"_s);
    ProgramRun run(sandbox, m_display);

    run.program.start();
    QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));

    const QJsonObject expected{{u"heartbeatTimer"_s, u"every 2000 ms"_s},
                               {u"updateTimer"_s, u"every 21600000 ms"_s},
                               {u"firstUpdateTimer"_s, u"once after 5000 ms"_s}};
    QCOMPARE(report(sandbox).value("timers"_L1).toObject(), expected);
}

void tst_Program::looksForUpdatesEverySixHours()
{
    ProgramSandbox sandbox;
    inspectProgram(sandbox, u"six-hours"_s);
    ProgramRun run(sandbox, m_display);

    run.program.start();
    QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));
    QCOMPARE(run.program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.program.exitCode(), 0);
}

// --- What is missing or fails

void tst_Program::startsWithoutAUsableRuntimeDirectory()
{
    // Below a regular file nothing can be created, whatever rights the user has.
    ProgramSandbox sandbox;
    writeFile(sandbox.path(u"file"_s), "a file");
    sandbox.environment().insert(u"CORVANE_RUNTIME_DIR"_s, sandbox.path(u"file/runtime"_s));
    inspectProgram(sandbox, u"beats"_s);
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    // One beat is tried and skipped before the window is closed.
    QVERIFY(waitUntil([&] { return !contentsOf(inspectedBeats(sandbox)).isEmpty(); }));
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
    QVERIFY(QFile::remove(sandbox.fakeFfmpegCopy()));
    ProgramRun run(sandbox, m_display);

    QVERIFY(run.start());
    const QString heartbeat = sandbox.runtimeDir() + "/.heartbeat"_L1;
    QVERIFY(waitUntil([&] { return !contentsOf(heartbeat).isEmpty(); }));
    QVERIFY(m_display.showsWindow(u"CORVANE"_s));
    QCOMPARE(run.close(), 0);
    QCOMPARE(run.standardError(), QString());
}

void tst_Program::startsWithAnFfmpegThatHangs()
{
    ProgramSandbox sandbox;
    sandbox.environment().insert(u"FAKE_FFMPEG_PROBE"_s, u"hang"_s);
    inspectProgram(sandbox, {});
    ProgramRun run(sandbox, m_display);
    const QString sentinel = sandbox.runtimeDir() + "/crashes/.running"_L1;

    run.startedAtMs = QDateTime::currentMSecsSinceEpoch();
    run.program.start();
    // Whatever kills it while it waits for the probes is noticed.
    QVERIFY(waitUntil(
        [&] { return QFileInfo::exists(sentinel) && !childProcesses(run.program.processId()).isEmpty(); }));
    QVERIFY(waitUntil([&] { return m_display.showsWindow(u"CORVANE"_s); }, 60000));
    // Two probes of at most five seconds each: the window comes after both.
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - run.startedAtMs >= 9000);
    // Its heart beats from before the probes on.
    QVERIFY(waitUntil([&] { return !report(sandbox).isEmpty(); }));
    QVERIFY(report(sandbox).value("heartbeatIsDue"_L1).toBool());
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
    inspectProgram(sandbox, thrown);
    ProgramRun run(sandbox, m_display);

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
    // Copy of the program that looks for QML modules in a directory without any.
    ProgramSandbox sandbox;
    const QString copy = sandbox.path("bin/"_L1 + QFileInfo(corvaneProgram()).fileName());
    QVERIFY(QFile::copy(corvaneProgram(), copy));
    writeFile(sandbox.path(u"bin/qt.conf"_s), "[Paths]\nQmlImports=/nonexistent\nPlugins=" +
                                                  QLibraryInfo::path(QLibraryInfo::PluginsPath).toUtf8() +
                                                  '\n');
    ProgramRun run(sandbox, m_display);
    run.program.setProgram(copy);

    run.program.start();
    QVERIFY(waitUntil([&] { return run.program.state() == QProcess::NotRunning; }));

    QCOMPARE(run.program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.program.exitCode() & 0xff, 0xff); // -1, of which some platforms keep eight bits
    QVERIFY(QFileInfo(sandbox.runtimeDir()).isDir());
    QVERIFY(!QFileInfo::exists(sandbox.runtimeDir() + "/.cleanexit"_L1));
}

CORVANE_TEST(tst_Program, QCoreApplication)
#include "tst_Program.moc"
