#include "tests/guardian/GuardianBench.h"
#include "tests/support/Files.h"
#include "tests/support/Processes.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "tools/guardian/ProgramProcesses.h"
#include "update/UpdateFiles.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTest>

#include <chrono>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardianBench;
using test::GuardianBenchTest;
using test::waitUntil;

/// Nothing that somebody runs is replaced, ended or started twice, and what is on air least of all.
class tst_GoldenRule : public GuardianBenchTest
{
    Q_OBJECT

private Q_SLOTS:
    void openedWhileTheFeedIsAsked();
    void openedElsewhereWhileTheFeedIsAsked();
    void openedInTheMiddleOfTheSwap();
    void openedInTheMiddleOfTheRollBack();
    void othersDontKeepTheProgramAwayForEver();
    void noRollBackUnderAnothersRun();
    void anothersRunIsNotAttachedTo();
    void anothersRunIsNeverEnded();
    void aRunOnAirIsNeverEnded();
    void offAirItIsJudged();
    void aCopyThatIsntTheEncoderYet();
    void silentWhereTheFormerWasSilent();
    void silentWhereNobodyKnowsOfTheFormer();
    void aHeartbeatOfAnotherUser();
    void aHeartbeatThatIsAFifo();
    void anOrderlyCloseIsFinal_data();
    void anOrderlyCloseIsFinal();
    void requestsThatCantBeRemoved();
    void theHeartbeatStopsAndComesBack();

private:
    [[nodiscard]] GuardianSettings impatient() const; ///< its patience with a silent version runs out
    /// Guards a 0.1.0 that behaves so, and has 0.2.0 applied, whose behaviour that is.
    void updateTo(const QByteArray &behaviour, const GuardianSettings &settings,
                  const QByteArray &former = "beats");
    [[nodiscard]] QString other() const { return m_bench->path(u"other"_s); }
    void lookOften(const GuardianSettings &settings) const
    {
        test::passTimersOf(10 * static_cast<int>(settings.lookInterval.count()));
    }
};

GuardianSettings tst_GoldenRule::impatient() const
{
    GuardianSettings settings = m_bench->settings();
    settings.trial.patience = GuardianBench::shortPatience();
    return settings;
}

void tst_GoldenRule::updateTo(const QByteArray &behaviour, const GuardianSettings &settings,
                              const QByteArray &former)
{
    test::writeFile(m_bench->path(u"app/behaviour"_s), former);
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForStarts(1));
    m_bench->stageAndRequest("0.2.0", behaviour);
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is in place"_s));
}

void tst_GoldenRule::openedWhileTheFeedIsAsked()
{
    m_bench->feedWaits = true;
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->isFeedAsked());
    m_bench->startBySomebody(m_bench->runtimeDir());
    m_bench->answerFeed();
    QVERIFY(m_bench->waitForLine(u"the update is put off: the program is running"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(m_bench->somebodysRunLives());
    QCOMPARE(m_bench->starts().size(), 1); // no second run on the same marks
    QVERIFY(!m_bench->isRequested());

    // It is watched like a run of the guardian's own, and its end is the operator's word.
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
    QCOMPARE(m_bench->starts().size(), 1);
}

void tst_GoldenRule::openedElsewhereWhileTheFeedIsAsked()
{
    const GuardianSettings settings = m_bench->settings();
    m_bench->feedWaits = true;
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    m_bench->startBySomebody(other());
    m_bench->answerFeed();
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    lookOften(settings);
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(m_bench->somebodysRunLives());
    m_bench->feedWaits = false;
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
}

/// Between the last look at who runs it and the move.
void tst_GoldenRule::openedInTheMiddleOfTheSwap()
{
#ifdef Q_OS_WIN
    QSKIP("Windows doesn't move a folder whose program runs; Wine does, and shows the run at its old place");
#endif
    GuardianSettings settings = m_bench->settings();
    int exchanges = 0;
    settings.beforeSwapStep = [&](const char *step) {
        if (QByteArrayView(step) == "exchange" && ++exchanges == 1)
            m_bench->startBySomebody(other());
    };
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    QCOMPARE(exchanges, 2); // there and back
    lookOften(settings);
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(m_bench->somebodysRunLives());
    QVERIFY(m_bench->record().result.isEmpty()); // nothing is held against the update
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
}

void tst_GoldenRule::openedInTheMiddleOfTheRollBack()
{
#ifdef Q_OS_WIN
    QSKIP("Windows doesn't move a folder whose program runs; Wine does, and shows the run at its old place");
#endif
    GuardianSettings settings = m_bench->settings();
    int exchanges = 0;
    settings.beforeSwapStep = [&](const char *step) {
        if (QByteArrayView(step) == "exchange" && ++exchanges == 2) {
            test::writeFile(m_bench->path(u"app/behaviour"_s), "beats");
            m_bench->startBySomebody(other());
        }
    };
    m_bench->stageAndRequest("0.2.0", "crashes");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    QCOMPARE(exchanges, 3);
    lookOften(settings);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QVERIFY(m_bench->somebodysRunLives());
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QVERIFY(m_bench->waitForStarts(2));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
}

void tst_GoldenRule::othersDontKeepTheProgramAwayForEver()
{
    GuardianSettings settings = m_bench->settings();
    settings.othersPatience = 100ms;
    m_bench->startBySomebody(other());
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"update 0.2.0 refused: somebody else runs the program"_s));
    QVERIFY(m_bench->waitForStarts(1));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(!m_bench->isRequested());
    QVERIFY(m_bench->somebodysRunLives());
}

/// It came up in another session while it was on trial in this one, where it fails.
void tst_GoldenRule::noRollBackUnderAnothersRun()
{
    const GuardianSettings settings = m_bench->settings();
    test::GuardedFolder::install(settings.installation.next(), "0.2.0", "beats");
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"digest"_s};
    QCOMPARE(writeStamp(settings.installation.next(), stamp), QString());
    QCOMPARE(DirectorySwap(settings.installation).install(stamp), QString());
    m_bench->startBySomebody(other());
    test::writeFile(m_bench->path(u"app/behaviour"_s), "crashes");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 didn't come up"_s));
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    lookOften(settings);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QVERIFY(m_bench->somebodysRunLives());

    // Nor by the next guardian.
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
}

void tst_GoldenRule::anothersRunIsNotAttachedTo()
{
    GuardianSettings settings = m_bench->settings();
    m_bench->startBySomebody(other());
    settings.attachOnly = true;
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 4);

    settings.attachOnly = false;
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForStarts(1)); // one of its own, with marks of its own
    QVERIFY(m_bench->somebodysRunLives());
}

/// The version on trial is silent in this session, and healthy in another.
void tst_GoldenRule::anothersRunIsNeverEnded()
{
    const GuardianSettings settings = impatient();
    m_bench->onLine = [this](const QString &line) {
        if (line.startsWith("version 0.2.0 is in place"_L1))
            m_bench->launchBySomebody(other());
    };
    updateTo("mute", settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 didn't come up: no heartbeat for"_s));
    QVERIFY(m_bench->waitForLine(u"waiting for every run of the program to end: somebody else runs"_s));
    lookOften(settings);
    QVERIFY(m_bench->somebodysRunLives());
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    m_bench->endSomebodysRun();
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
}

void tst_GoldenRule::aRunOnAirIsNeverEnded()
{
    const GuardianSettings settings = impatient();
    test::writeFile(m_bench->path(u"runtime/on-air"_s), {});
    updateTo("mute", settings);
    QVERIFY(m_bench->waitForLine(u"is left alone until it is off air"_s));
    QVERIFY2(
        !m_bench->lines().filter(u"version 0.2.0: no heartbeat for"_s).filter(u"it runs ffmpeg"_s).isEmpty(),
        qPrintable(m_bench->lines().join(u'\n')));
    test::passTimersOf(3 * static_cast<int>(settings.trial.patience.count()));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QCOMPARE(m_bench->starts().size(), 2);
    QCOMPARE(m_bench->lines().filter(u"is left alone"_s).size(), 1);

    // An orderly end of a version that was on air doesn't speak against it.
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QCOMPARE(DirectorySwap(settings.installation).closedEarly(), 0);
}

void tst_GoldenRule::offAirItIsJudged()
{
    test::writeFile(m_bench->path(u"runtime/on-air"_s), {});
    updateTo("mute", impatient());
    QVERIFY(m_bench->waitForLine(u"is left alone until it is off air"_s));
    QVERIFY(QFile::remove(m_bench->path(u"runtime/on-air"_s)));
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 didn't come up: no heartbeat for"_s));
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QVERIFY(m_bench->waitForStarts(3));
}

void tst_GoldenRule::aCopyThatIsntTheEncoderYet()
{
#ifdef Q_OS_LINUX
    updateTo("copies", m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s)); // its beats are its own
    const QList<ProgramProcess> runs = processesOf(m_bench->installation().programPath());
    QCOMPARE(runs.size(), 1);
    QCOMPARE(childrenOf(runs.first().id), QStringList());
    QCOMPARE(processesWithin(m_bench->installation().directory).size(), 2);
#else
    QSKIP("a process begins as the program that it is to run here");
#endif
}

/// A full disk, a heartbeat that can't be written: an update changes nothing about that.
void tst_GoldenRule::silentWhereTheFormerWasSilent()
{
    const GuardianSettings settings = impatient();
    test::writeFile(m_bench->path(u"app/behaviour"_s), "mute");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForStarts(1));
    test::passTimersOf(2 * static_cast<int>(settings.trial.patience.count()));
    m_bench->stageAndRequest("0.2.0", "mute");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 runs and shows no heartbeat, as the former one didn't"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QCOMPARE(m_bench->record().result, u"applied"_s);
    QVERIFY(!HeldVersions{m_bench->runtimeDir()}.isHeld(u"0.2.0"_s));
    QCOMPARE(m_bench->starts().size(), 2);
}

void tst_GoldenRule::silentWhereNobodyKnowsOfTheFormer()
{
    test::writeFile(m_bench->path(u"app/behaviour"_s), "mute");
    m_bench->stageAndRequest("0.2.0", "mute");
    m_bench->guard(impatient());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 didn't come up: no heartbeat for"_s));
    QVERIFY(m_bench->waitForLine(u"the place is at fault, and version 0.2.0 isn't held back any longer"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(!HeldVersions{m_bench->runtimeDir()}.isHeld(u"0.2.0"_s));
    QCOMPARE(m_bench->record().result, u"put back"_s);

    m_bench->stageAndRequest("0.2.0", "mute");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 runs and shows no heartbeat, as the former one didn't"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
}

void tst_GoldenRule::aHeartbeatOfAnotherUser()
{
    const QString heartbeat = m_bench->path(u"runtime/.heartbeat"_s);
    test::writeFile(heartbeat, "1");
    if (!test::giveAway(heartbeat))
        QSKIP("this user can't give files away");
    // As root the program writes it all the same; the beats aren't known to be its own.
    updateTo("beats", impatient());
    QVERIFY(waitUntil([&] {
        return !m_bench->lines().filter(u"version 0.2.0 runs and shows no heartbeat"_s).isEmpty() ||
               !m_bench->lines().filter(u"rolled back"_s).isEmpty();
    }));
    QVERIFY(m_bench->lines().filter(u"version 0.2.0 is up"_s).isEmpty());
}

void tst_GoldenRule::aHeartbeatThatIsAFifo()
{
#ifdef Q_OS_UNIX
    test::writeFile(m_bench->path(u"app/behaviour"_s), "mute");
    QCOMPARE(::mkfifo(QFile::encodeName(m_bench->path(u"runtime/.heartbeat"_s)).constData(), 0600), 0);
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForStarts(1));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
#else
    QSKIP("there are no FIFOs in the file system here");
#endif
}

void tst_GoldenRule::anOrderlyCloseIsFinal_data()
{
    QTest::addColumn<QString>("inTheWay");
    QTest::newRow("nothing asked for") << QString();
    QTest::newRow("a folder of the request's name") << u"update/apply-now"_s;
    QTest::newRow("a folder of that name, and not empty") << u"update/apply-now/in"_s;
}

void tst_GoldenRule::anOrderlyCloseIsFinal()
{
    QFETCH(const QString, inTheWay);
    if (!inTheWay.isEmpty())
        QVERIFY(QDir().mkpath(m_bench->runtimeDir() + u'/' + inTheWay));
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForBeats());
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
    QCOMPARE(m_bench->starts().size(), 1);
    QCOMPARE(m_bench->feedQuestions, 0);
    QCOMPARE(m_bench->lines().filter(u"apply-now is no file of this user's: it asks for nothing"_s).size(),
             inTheWay.isEmpty() ? 0 : 1);
}

/// It was granted or refused once; the next orderly end of the program is one.
void tst_GoldenRule::requestsThatCantBeRemoved()
{
#ifdef Q_OS_LINUX
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->manifest.replace("sha256", "sha512");
    const QByteArray folder = QFile::encodeName(updateDirectory(m_bench->runtimeDir()));
    QCOMPARE(::chmod(folder.constData(), 0555), 0);
    const auto restored = qScopeGuard([&folder] { ::chmod(folder.constData(), 0755); });
    const test::Unprivileged bound;
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"apply-now can't be removed"_s));
    QVERIFY(m_bench->waitForStarts(1));
    QVERIFY(m_bench->waitForBeats());
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->starts().size(), 1);
    QVERIFY(m_bench->isRequested());
#else
    QSKIP("whoever may write a file here may remove it");
#endif
}

void tst_GoldenRule::theHeartbeatStopsAndComesBack()
{
    GuardianSettings settings = m_bench->settings();
    settings.staleHeartbeat = 500ms;
    test::writeFile(m_bench->path(u"app/behaviour"_s), "once");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"the program's heartbeat has stopped"_s));
    test::writeFile(m_bench->path(u"runtime/.heartbeat"_s), "1");
    QVERIFY(m_bench->waitForLine(u"the program's heartbeat is back"_s));
    QCOMPARE(m_bench->starts().size(), 1);

    // The next run has a heart of its own: its first beat isn't the former one's that comes back.
    const auto stops = [this] { return m_bench->lines().count(u"the program's heartbeat has stopped"_s); };
    QVERIFY(waitUntil([&] { return stops() == 2; }));
    m_bench->order(u"crash"_s);
    QVERIFY(m_bench->waitForStarts(2));
    QVERIFY(waitUntil([&] { return stops() == 3; }));
    QCOMPARE(m_bench->lines().count(u"the program's heartbeat is back"_s), 1);
}

CORVANE_TEST(tst_GoldenRule, QCoreApplication)
#include "tst_GoldenRule.moc"
