#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/Supervisor.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::waitUntil;

/// The guardian round a program that starts, crashes and ends. Updates are in tst_GuardianUpdate.
class tst_Supervisor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aCleanEndEndsTheGuardian_data();
    void aCleanEndEndsTheGuardian();
    void aBadEndIsFollowedByAStart_data();
    void aBadEndIsFollowedByAStart();
    void tooManyBadEnds();
    void aProgramThatCantBeStarted();
    void attachesToARun();
    void attachedToARunThatCrashes();
    void somebodyElsesStartDuringThePause();
    void nothingToAttachTo();
    void theProgramGetsItsArgumentsAndDirectory();

private:
    void guard(const GuardianSettings &settings);
    [[nodiscard]] bool waitForStarts(qsizetype count) const;
    [[nodiscard]] bool waitForBeat() const;
    [[nodiscard]] QStringList lines() const;

    std::unique_ptr<GuardedFolder> m_folder;
    std::unique_ptr<Supervisor> m_guardian;
    std::unique_ptr<QSignalSpy> m_finished;
    std::unique_ptr<QSignalSpy> m_lines;
};

void tst_Supervisor::init()
{
    m_folder = std::make_unique<GuardedFolder>();
}

void tst_Supervisor::cleanup()
{
    if (QTest::currentTestFailed())
        qInfo().noquote() << lines().join(u'\n');
    m_guardian.reset();
}

void tst_Supervisor::guard(const GuardianSettings &settings)
{
    m_guardian = std::make_unique<Supervisor>(
        settings, [](const ManifestAnswer &answer) { answer({}, u"nobody is to ask for a manifest"_s); });
    m_finished = std::make_unique<QSignalSpy>(m_guardian.get(), &Supervisor::finished);
    m_lines = std::make_unique<QSignalSpy>(m_guardian.get(), &Supervisor::logged);
    m_guardian->run();
}

bool tst_Supervisor::waitForStarts(qsizetype count) const
{
    return waitUntil([&] { return m_folder->starts().size() >= count; });
}

bool tst_Supervisor::waitForBeat() const
{
    return waitUntil([&] { return QFile::exists(m_folder->runtimeDir() + "/.heartbeat"_L1); });
}

QStringList tst_Supervisor::lines() const
{
    QStringList lines;
    if (m_lines) {
        for (const QList<QVariant> &line : *m_lines)
            lines << line.first().toString();
    }
    return lines;
}

void tst_Supervisor::aCleanEndEndsTheGuardian_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::newRow("after a while") << QByteArray("beats");
    QTest::newRow("at once") << QByteArray("leaves");
}

void tst_Supervisor::aCleanEndEndsTheGuardian()
{
    QFETCH(const QByteArray, behaviour);
    test::writeFile(m_folder->path(u"app/behaviour"_s), behaviour);
    guard(m_folder->settings());
    if (behaviour == "beats") {
        QVERIFY(waitForBeat());
        m_folder->order(u"quit"_s);
    }
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 0);
    QCOMPARE(m_folder->starts().size(), 1);
    QCOMPARE(lines().last(), u"the program ended in order"_s);
}

void tst_Supervisor::aBadEndIsFollowedByAStart_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QString>("line");
    QTest::newRow("a crash after a while")
        << QByteArray("beats") << u"the program ended: it crashed or was killed"_s;
    QTest::newRow("a crash at start")
        << QByteArray("crashes") << u"the program ended: it crashed or was killed"_s;
    QTest::newRow("no window") << QByteArray("fails") << u"the program ended: it ended with exit code 255"_s;
}

void tst_Supervisor::aBadEndIsFollowedByAStart()
{
    QFETCH(const QByteArray, behaviour);
    QFETCH(const QString, line);
    test::writeFile(m_folder->path(u"app/behaviour"_s), behaviour);
    guard(m_folder->settings());
    if (behaviour == "beats") {
        QVERIFY(waitForBeat());
        m_folder->order(u"crash"_s);
    }
    QVERIFY(waitForStarts(2));
    QVERIFY2(lines().contains(u"it is started again in 1 ms"_s), qPrintable(lines().join(u'\n')));
    QVERIFY2(!lines().filter(line).isEmpty(), qPrintable(lines().join(u'\n')));
}

void tst_Supervisor::tooManyBadEnds()
{
    test::writeFile(m_folder->path(u"app/behaviour"_s), "fails");
    GuardianSettings settings = m_folder->settings();
    settings.restarts.limit = 3;
    guard(settings);
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 1);
    QCOMPARE(m_folder->starts().size(), 4);
    QVERIFY2(lines().last().endsWith("given up"_L1), qPrintable(lines().last()));
}

void tst_Supervisor::aProgramThatCantBeStarted()
{
    GuardianSettings settings = m_folder->settings();
    test::writeFile(settings.installation.programPath(), "nothing that a system starts");
    settings.restarts.limit = 2;
    guard(settings);
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 1);
    QCOMPARE(m_folder->starts(), QStringList());
    QProcess start;
    start.setProcessEnvironment(QProcessEnvironment::systemEnvironment()); // as the guardian does
    start.start(settings.installation.programPath(), QStringList());
    QVERIFY(!start.waitForStarted());
    const QString line = "the program ended: it can't be started: "_L1 + start.errorString();
    QVERIFY2(lines().count(line) == 3, qPrintable(line));
}

void tst_Supervisor::attachesToARun()
{
    const GuardianSettings settings = m_folder->settings();
    QProcess run;
    run.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
    run.start(settings.installation.programPath(), QStringList());
    QVERIFY(waitForBeat());

    guard(settings);
    QCOMPARE(lines().last(), u"the program is running; it is watched"_s);
    m_folder->order(u"quit"_s);
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 0);
    QCOMPARE(m_folder->starts().size(), 1);
    QVERIFY(run.state() == QProcess::NotRunning || run.waitForFinished());
}

void tst_Supervisor::attachedToARunThatCrashes()
{
    GuardianSettings settings = m_folder->settings();
    settings.attachOnly = true;
    QProcess run;
    run.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
    run.start(settings.installation.programPath(), QStringList());
    QVERIFY(waitForBeat());
    guard(settings);
    m_folder->order(u"crash"_s);
    QVERIFY(waitForStarts(2));
    QVERIFY2(lines().contains(u"the program ended: it ended without its marks"_s),
             qPrintable(lines().join(u'\n')));
}

void tst_Supervisor::somebodyElsesStartDuringThePause()
{
    GuardianSettings settings = m_folder->settings();
    settings.restarts.firstDelayMs = 3000;
    guard(settings);
    QVERIFY(waitForBeat());
    m_folder->order(u"crash"_s);
    QVERIFY(waitUntil([&] { return lines().contains(u"it is started again in 3000 ms"_s); }));
    QProcess run;
    run.setEnvironment({"CORVANE_RUNTIME_DIR="_L1 + settings.runtimeDirectory});
    run.start(settings.installation.programPath(), QStringList());
    QVERIFY(
        waitUntil([&] { return lines().contains(u"somebody has started the program; it is watched"_s); }));
    QCOMPARE(m_folder->starts().size(), 2);
    m_folder->order(u"quit"_s);
    QVERIFY(waitUntil([&] { return !m_finished->isEmpty(); }));
    QCOMPARE(m_finished->first().first().toInt(), 0);
    QVERIFY(run.state() == QProcess::NotRunning || run.waitForFinished());
}

void tst_Supervisor::nothingToAttachTo()
{
    GuardianSettings settings = m_folder->settings();
    settings.attachOnly = true;
    guard(settings);
    QCOMPARE(m_finished->size(), 1);
    QCOMPARE(m_finished->first().first().toInt(), 4);
    QCOMPARE(m_folder->starts(), QStringList());
}

void tst_Supervisor::theProgramGetsItsArgumentsAndDirectory()
{
#ifndef Q_OS_LINUX
    QSKIP("the program is a script of the shell here");
#endif
    GuardianSettings settings = m_folder->settings();
    settings.arguments = {u"-a b"_s, u"ü"_s};
    test::writeFile(settings.installation.programPath(),
                    "#!/bin/sh\nprintf '%s|' \"$@\" \"$CORVANE_RUNTIME_DIR\" >\"$CORVANE_RUNTIME_DIR/told\"\n"
                    "mv \"$CORVANE_RUNTIME_DIR/told\" \"$CORVANE_RUNTIME_DIR/starts\"\nexit 3\n");
    guard(settings);
    QVERIFY(waitForStarts(1));
    QCOMPARE(m_folder->starts(), QStringList{u"-a b|ü|%1|"_s.arg(settings.runtimeDirectory)});
}

CORVANE_TEST(tst_Supervisor, QCoreApplication)
#include "tst_Supervisor.moc"
