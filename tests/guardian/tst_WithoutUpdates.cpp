#include "tests/guardian/GuardedFolder.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace corvane;
using test::GuardedFolder;
using test::waitUntil;

/// The built guardian with --without-updates, for an installation that its user may only read.
class tst_WithoutUpdates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void keepsUpAProgramThatLooksForNoUpdates();
    void aProgramThatKeepsCrashing();
    void aStagedUpdateIsLeftAlone_data();
    void aStagedUpdateIsLeftAlone();
    void oneGuardianForARuntimeDirectory_data();
    void oneGuardianForARuntimeDirectory();
    void anotherRuntimeDirectoryIsAnothersMatter();

private:
    void start(QProcess &guardian) const { start(guardian, u"app"_s, m_folder->runtimeDir(), false); }
    void start(QProcess &guardian, const QString &app, const QString &runtimeDirectory, bool updates) const;
    [[nodiscard]] QByteArray log() const
    {
        return test::contentsOf(m_folder->runtimeDir() + "/guardian/guardian.log"_L1);
    }
    [[nodiscard]] bool waitForStarts(qsizetype count) const;
    [[nodiscard]] QStringList besideTheRuntimeDirectory() const;
    /// The operator closes the program; with it the guardian ends.
    void close();

    std::unique_ptr<GuardedFolder> m_folder;
    std::unique_ptr<QProcess> m_guardian;
};

void tst_WithoutUpdates::init()
{
    m_folder = std::make_unique<GuardedFolder>();
    QVERIFY(QDir(m_folder->installation().own()).removeRecursively());
    m_guardian = std::make_unique<QProcess>();
}

void tst_WithoutUpdates::cleanup()
{
    if (QTest::currentTestFailed()) {
        qInfo().noquote() << log() << m_guardian->readAllStandardError();
        m_folder->order(u"quit"_s);
    }
    m_guardian.reset();
}

void tst_WithoutUpdates::start(QProcess &guardian, const QString &app, const QString &runtimeDirectory,
                               bool updates) const
{
    QStringList arguments{u"--install-dir"_s, m_folder->path(app), u"--runtime-dir"_s, runtimeDirectory};
    if (!updates)
        arguments << u"--without-updates"_s;
    guardian.start(QStringLiteral(CORVANE_GUARDIAN), arguments);
    QVERIFY(guardian.waitForStarted());
}

bool tst_WithoutUpdates::waitForStarts(qsizetype count) const
{
    return waitUntil([&] { return m_folder->starts().size() >= count; });
}

QStringList tst_WithoutUpdates::besideTheRuntimeDirectory() const
{
    QStringList names = QDir(m_folder->path({}))
                            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    names.removeOne(u"runtime"_s);
    return names;
}

void tst_WithoutUpdates::close()
{
    m_folder->order(u"quit"_s);
    QVERIFY(waitUntil([&] { return m_guardian->state() == QProcess::NotRunning; }));
    QCOMPARE(m_guardian->exitCode(), 0);
}

void tst_WithoutUpdates::keepsUpAProgramThatLooksForNoUpdates()
{
    const QStringList installed = QDir(m_folder->path(u"app"_s)).entryList(QDir::AllEntries, QDir::Name);
    start(*m_guardian);
    QVERIFY(waitForStarts(1));
    m_folder->order(u"crash"_s);
    QVERIFY(waitForStarts(2));
    close();
    QCOMPARE(m_folder->starts(), QStringList({u"0.1.0 off"_s, u"0.1.0 off"_s}));

    // What the guardian keeps lies in the runtime directory.
    QCOMPARE(besideTheRuntimeDirectory(), QStringList{u"app"_s});
    QCOMPARE(QDir(m_folder->path(u"app"_s)).entryList(QDir::AllEntries, QDir::Name), installed);
    for (const char *line :
         {" without updates\n", " starting the program, its update check switched off\n",
          " the program ended: it crashed or was killed", " it is started again in 1000 ms\n"}) {
        QVERIFY2(log().contains(line), log().constData());
    }
    QVERIFY2(log().endsWith(" the program ended in order\n"), log().constData());
}

/// The limit on restarts is the same; its pauses are too long to wait for here, the first two apart.
void tst_WithoutUpdates::aProgramThatKeepsCrashing()
{
    test::writeFile(m_folder->path(u"app/behaviour"_s), "fails");
    start(*m_guardian);
    QVERIFY(waitUntil([&] { return log().contains(" it is started again in 2000 ms\n"); }));
    test::writeFile(m_folder->path(u"app/behaviour"_s), "leaves");
    QVERIFY(waitUntil([&] { return m_guardian->state() == QProcess::NotRunning; }));
    QCOMPARE(m_guardian->exitCode(), 0);
    QCOMPARE(m_folder->starts(), QStringList({u"0.1.0 off"_s, u"0.1.0 off"_s, u"0.1.0 off"_s}));
}

void tst_WithoutUpdates::aStagedUpdateIsLeftAlone_data()
{
    QTest::addColumn<bool>("before");
    QTest::newRow("asked for before the start") << true;
    QTest::newRow("asked for by the program") << false;
}

void tst_WithoutUpdates::aStagedUpdateIsLeftAlone()
{
    QFETCH(const bool, before);
    const auto ask = [&] {
        m_folder->stage("0.2.0", GuardedFolder::packageOf("0.2.0", "beats"));
        m_folder->request();
    };
    if (before)
        ask();
    start(*m_guardian);
    QVERIFY(waitForStarts(1));
    if (!before)
        ask();
    close();
    QCOMPARE(m_folder->starts(), QStringList{u"0.1.0 off"_s});
    QCOMPARE(GuardedFolder::versionIn(m_folder->path(u"app"_s)), QByteArray("0.1.0"));
    QVERIFY(m_folder->isRequested()); // for a guardian that may
    QVERIFY(QFileInfo(m_folder->stagedPath("0.2.0")).isFile());
    QCOMPARE(besideTheRuntimeDirectory(), QStringList{u"app"_s});
    QVERIFY2(!log().contains("update is requested"), log().constData());
}

void tst_WithoutUpdates::oneGuardianForARuntimeDirectory_data()
{
    QTest::addColumn<bool>("firstUpdates");
    QTest::addColumn<bool>("secondUpdates");
    QTest::addColumn<QString>("secondsProgram");
    QTest::newRow("neither with updates") << false << false << u"app"_s;
    QTest::newRow("one that updates comes") << false << true << u"app"_s;
    QTest::newRow("one that updates is there") << true << false << u"app"_s;
    QTest::newRow("one that updates, of another installation") << false << true << u"app2"_s;
    QTest::newRow("each updates its own installation") << true << true << u"app2"_s;
}

/// Both would answer the same crash with a start, one of them perhaps from a folder that the other is about
/// to replace.
void tst_WithoutUpdates::oneGuardianForARuntimeDirectory()
{
    QFETCH(const bool, firstUpdates);
    QFETCH(const bool, secondUpdates);
    QFETCH(const QString, secondsProgram);
    if (secondsProgram != "app"_L1)
        GuardedFolder::install(m_folder->path(secondsProgram), "0.1.0", "beats");
    start(*m_guardian, u"app"_s, m_folder->runtimeDir(), firstUpdates);
    QVERIFY(waitForStarts(1));
    QProcess second;
    start(second, secondsProgram, m_folder->runtimeDir(), secondUpdates);
    QVERIFY(waitUntil([&] { return second.state() == QProcess::NotRunning; }));
    QCOMPARE(second.exitCode(), 3);
    const QString errors = QString::fromLocal8Bit(second.readAllStandardError());
    QVERIFY2(errors.contains("another guardian is at work on "_L1), qPrintable(errors));
    QCOMPARE(m_folder->starts().size(), 1);
    close();

    // The next one finds nobody in its way.
    start(*m_guardian, u"app"_s, m_folder->runtimeDir(), !firstUpdates);
    QVERIFY(waitForStarts(2));
    close();
}

/// On the same installation: the one that updates it waits for the other's run to end.
void tst_WithoutUpdates::anotherRuntimeDirectoryIsAnothersMatter()
{
    start(*m_guardian);
    QVERIFY(waitForStarts(1));
    const QString others = m_folder->path(u"other"_s);
    QProcess second;
    start(second, u"app"_s, others, true);
    QVERIFY(waitUntil([&] { return !test::fileLines(others + "/starts"_L1).isEmpty(); }));
    test::writeFile(others + "/update/apply-now"_L1, {});
    test::writeFile(others + "/do-quit"_L1, {});
    QVERIFY(waitUntil([&] {
        return test::contentsOf(m_folder->installation().log())
            .contains("waiting for every run of the program to end: somebody else runs the program");
    }));
    QCOMPARE(m_guardian->state(), QProcess::Running);
    close();
    // What was asked for isn't there: refused, and its operator has the program back.
    QVERIFY(waitUntil([&] { return test::fileLines(others + "/starts"_L1).size() == 2; }));
    test::writeFile(others + "/do-quit"_L1, {});
    QVERIFY(waitUntil([&] { return second.state() == QProcess::NotRunning; }));
    QCOMPARE(second.exitCode(), 0);
}

CORVANE_TEST(tst_WithoutUpdates, QCoreApplication)
#include "tst_WithoutUpdates.moc"
