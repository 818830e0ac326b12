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
    void oneGuardianForARuntimeDirectory();

private:
    void start(QProcess &guardian) const;
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

void tst_WithoutUpdates::start(QProcess &guardian) const
{
    guardian.start(QStringLiteral(CORVANE_GUARDIAN),
                   {u"--install-dir"_s, m_folder->path(u"app"_s), u"--runtime-dir"_s, m_folder->runtimeDir(),
                    u"--without-updates"_s});
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

void tst_WithoutUpdates::oneGuardianForARuntimeDirectory()
{
    start(*m_guardian);
    QVERIFY(waitForStarts(1));
    QProcess second;
    start(second);
    QVERIFY(waitUntil([&] { return second.state() == QProcess::NotRunning; }));
    QCOMPARE(second.exitCode(), 3);
    QVERIFY(second.readAllStandardError().contains("another guardian is at work"));
    close();
}

CORVANE_TEST(tst_WithoutUpdates, QCoreApplication)
#include "tst_WithoutUpdates.moc"
