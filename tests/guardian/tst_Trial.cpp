#include "tests/guardian/GuardianBench.h"
#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::GuardianBench;
using test::GuardianBenchTest;

/// A version on trial: what passes it, what doesn't, and the way back from one that came up and doesn't hold.
class tst_Trial : public GuardianBenchTest
{
    Q_OBJECT

private Q_SLOTS:
    void twoBeatsNotOne();
    void aSecondRunProvesNothing();
    void closedBeforeABeat();
    void closedAfterABeat();
    void aRequestThatHasBeenGranted();
    void aCrashLoopAfterTheSecondBeat();
    void aCrashLoopOfWhatIsProven();
    void aCrashLoopAfterAnotherGuardiansUpdate();
    void noWayBackWithoutAFormerVersion();
    void theFormerVersionVanishes();
    void toolsBesideTheProgram();
    void noDowngrade_data();
    void noDowngrade();
    void thePackagesOwnStamp();
    void aPackageBeyondTheLimit();
    void aHeldVersionIsNotAskedFor();
};

void tst_Trial::twoBeatsNotOne()
{
    GuardianSettings settings = m_bench->settings();
    settings.trial.patience = GuardianBench::shortPatience();
    m_bench->stageAndRequest("0.2.0", "once");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 didn't come up: one heartbeat, and none for"_s));
    QVERIFY(m_bench->lines().contains("version 0.2.0 is in place, the former installation in "_L1 +
                                      settings.installation.previous()));
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QVERIFY(m_bench->lines().filter(u"is up"_s).isEmpty());
    QVERIFY(m_bench->waitForStarts(2));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QCOMPARE(m_bench->record().result, u"rolled back"_s);
}

/// Nobody knows whose beats they are.
void tst_Trial::aSecondRunProvesNothing()
{
    m_bench->stageAndRequest("0.2.0", "once");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForStarts(1));
    QVERIFY(m_bench->waitForBeats());
    const QByteArray firstBeat = test::contentsOf(m_bench->runtimeDir() + "/.heartbeat"_L1);
    m_bench->startBySomebody(m_bench->runtimeDir());
    QVERIFY(test::waitUntil(
        [&] { return test::contentsOf(m_bench->runtimeDir() + "/.heartbeat"_L1) != firstBeat; }));
    test::passTimersOf(4 * static_cast<int>(m_bench->settings().lookInterval.count()));
    QVERIFY(m_bench->lines().filter(u"is up"_s).isEmpty());
    QVERIFY(m_bench->record().result != "applied"_L1);
}

/// It may be the operator's hand; the third time it isn't.
void tst_Trial::closedBeforeABeat()
{
    m_bench->stageAndRequest("0.2.0", "leaves");
    for (int close = 1; close <= 3; ++close) {
        m_bench->guard(m_bench->settings());
        QVERIFY(m_bench->waitForFinish());
        QCOMPARE(m_bench->exitCode(), 0);
        QCOMPARE(m_bench->starts().size(), close);
        QVERIFY(m_bench->lines().filter(u"is up"_s).isEmpty());
        if (close < 3) {
            QVERIFY(m_bench->waitForLine(u"version 0.2.0 was closed before its first heartbeat"_s));
            QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
            QVERIFY(m_bench->record().result != "applied"_L1);
        }
    }
    // Put back, but an orderly close is never answered by a start.
    QVERIFY(m_bench->waitForLine(u"it ended 3 times without a heartbeat"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QCOMPARE(m_bench->record().result, u"rolled back"_s);
}

void tst_Trial::closedAfterABeat()
{
    m_bench->stageAndRequest("0.2.0", "once");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForStarts(1));
    QVERIFY(m_bench->waitForBeats());
    test::passTimersOf(4 * static_cast<int>(m_bench->settings().lookInterval.count()));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->record().result, u"applied"_s);
}

/// As a guardian leaves it that is killed between the swap and the request's removal.
void tst_Trial::aRequestThatHasBeenGranted()
{
    const Installation at = m_bench->installation();
    GuardedFolder::install(at.next(), "0.2.0", "beats");
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"digest"_s};
    QCOMPARE(writeStamp(at.next(), stamp), QString());
    QCOMPARE(DirectorySwap(at).install(stamp), QString());
    m_bench->request();
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->lines().contains(u"version 0.2.0 was put in place and hasn't proven itself"_s));
    QVERIFY(!m_bench->isRequested());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 0);
    QCOMPARE(m_bench->starts().size(), 1);
    QCOMPARE(m_bench->feedQuestions, 0);
}

void tst_Trial::aCrashLoopAfterTheSecondBeat()
{
    m_bench->stageAndRequest("0.2.0", "falls");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 goes back: it ended badly 3 times soon after it came up"_s));
    QVERIFY(m_bench->waitForLine(u"rolled back to the former installation"_s));
    QVERIFY(m_bench->waitForStarts(4));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QCOMPARE(GuardedFolder::versionIn(m_bench->installation().failed()), QByteArray("0.2.0"));
    QCOMPARE(m_bench->record().result, u"rolled back"_s);
    QVERIFY(HeldVersions{m_bench->runtimeDir()}.isHeld(u"0.2.0"_s));
    QCOMPARE(m_bench->starts().last(), u"0.1.0 https://feed.example/latest.json"_s);
}

void tst_Trial::aCrashLoopOfWhatIsProven()
{
    GuardianSettings settings = m_bench->settings();
    settings.trial.proof = 0ms;
    settings.restarts.limit = 4;
    m_bench->stageAndRequest("0.2.0", "falls");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 1);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QVERIFY(m_bench->record().proven);
}

void tst_Trial::aCrashLoopAfterAnotherGuardiansUpdate()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());

    test::writeFile(m_bench->path(u"app/behaviour"_s), "crashes");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 goes back"_s));
    QVERIFY(m_bench->waitForStarts(5));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
}

void tst_Trial::noWayBackWithoutAFormerVersion()
{
    GuardianSettings settings = m_bench->settings();
    settings.restarts.limit = 4;
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    // Not whole: without the program.
    QVERIFY(QFile::remove(m_bench->installation().previous() + u'/' + m_bench->installation().program));
    test::writeFile(m_bench->path(u"app/behaviour"_s), "crashes");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 1);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
}

/// Removed by somebody when it is to be put back.
void tst_Trial::theFormerVersionVanishes()
{
    const QString former = m_bench->installation().previous();
    m_bench->stageAndRequest("0.2.0", "falls");
    m_bench->onLine = [&](const QString &line) {
        if (line.contains("goes back"_L1))
            QDir(former).removeRecursively();
    };
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine("the former installation can't be put back: "
                                 "there is no former installation in "_L1 +
                                 former));
    QVERIFY(m_bench->waitForFinish());
    QCOMPARE(m_bench->exitCode(), 1);
    QCOMPARE(m_bench->starts().size(), 3);
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
}

void tst_Trial::toolsBesideTheProgram()
{
    test::writeFile(m_bench->path(u"app/tools/ffmpeg"_s), "x");
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 doesn't have tools: that goes to "_s));
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(QFile::exists(m_bench->installation().previous() + "/tools/ffmpeg"_L1));
}

void tst_Trial::noDowngrade_data()
{
    QTest::addColumn<QByteArray>("stamp"); // of what is installed, as its package brought it
    QTest::addColumn<QString>("guardians");
    QTest::addColumn<QString>("line");
    const QString refused = u"update 0.0.9 refused: version 0.0.9 is staged, and 0.5.0 is installed"_s;
    QTest::newRow("from a package") << QByteArray(R"({"version":"0.5.0"})") << QString() << refused;
    QTest::newRow("the stamp counts") << QByteArray(R"({"version":"0.5.0"})") << u"0.0.1"_s << refused;
    QTest::newRow("without a stamp, of the guardian's version") << QByteArray() << u"0.5.0"_s << refused;
    QTest::newRow("nobody knows") << QByteArray() << QString() << u"version 0.0.9 is up"_s;
}

/// An old manifest, validly signed or not, with marks that ask for it.
void tst_Trial::noDowngrade()
{
    QFETCH(const QByteArray, stamp);
    QFETCH(const QString, guardians);
    QFETCH(const QString, line);
    if (!stamp.isEmpty())
        test::writeFile(m_bench->path(u"app/.corvane-installation"_s), stamp);
    GuardianSettings settings = m_bench->settings();
    settings.ownVersion = guardians;
    m_bench->stageAndRequest("0.0.9", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(line));
}

void tst_Trial::thePackagesOwnStamp()
{
    const auto packageSaying = [](const QByteArray &version) {
        return GuardedFolder::packageOf("0.2.0", "beats") +
               QList<test::ZipItem>{{".corvane-installation", R"({"version":")" + version + R"("})"}};
    };
    m_bench->stage("0.2.0", packageSaying("0.1.0"));
    m_bench->manifest = m_bench->manifestOf("0.2.0");
    m_bench->request();
    m_bench->guard(m_bench->settings());
    QVERIFY(
        m_bench->waitForLine(u"update 0.2.0 refused: what is in the package calls itself version 0.1.0"_s));
    QVERIFY(m_bench->waitForStarts(1));
    QVERIFY(!QFile::exists(m_bench->installation().next()));

    HeldVersions{m_bench->runtimeDir()}.letGo(u"0.2.0"_s);
    m_bench->stage("0.2.0", packageSaying("0.2.0"));
    m_bench->manifest = m_bench->manifestOf("0.2.0");
    m_bench->request();
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QVERIFY(!readStamp(m_bench->installation().directory).id.isEmpty()); // the guardian's in its place
}

void tst_Trial::aPackageBeyondTheLimit()
{
    GuardianSettings settings = m_bench->settings();
    settings.limits.packageBytes = 1000;
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(
        u"update 0.2.0 refused: the package can't be read: it is longer than 1000 bytes"_s));
    QVERIFY(!QFile::exists(settings.installation.package()));
}

void tst_Trial::aHeldVersionIsNotAskedFor()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    const QString aside = m_bench->path(u"runtime/update/p.zip"_s);
    QVERIFY(QFile::rename(m_bench->stagedPath("0.2.0"), aside));
    test::writeFile(readyFilePath(m_bench->runtimeDir()),
                    readyUpdateText({aside, u"0.2.0"_s, m_bench->installation().directory}));
    QVERIFY(HeldVersions{m_bench->runtimeDir()}.hold(u"0.2.0"_s));
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForStarts(1));
    QVERIFY(m_bench->lines().contains(u"update 0.2.0 refused: it is held back"_s));
    QCOMPARE(m_bench->feedQuestions, 0);
}

CORVANE_TEST(tst_Trial, QCoreApplication)
#include "tst_Trial.moc"
