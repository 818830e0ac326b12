#include "tests/guardian/GuardianBench.h"
#include "tests/support/Runner.h"
#include "tests/support/TestSupport.h"
#include "update/UpdateFiles.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane;
using namespace corvane::guardian;
using test::GuardedFolder;
using test::GuardianBenchTest;

/// What follows an update that was refused or rolled back: not the same again and again, and yet the next
/// one.
class tst_FailedUpdate : public GuardianBenchTest
{
    Q_OBJECT

private Q_SLOTS:
    void theNextVersionIsWelcome_data();
    void theNextVersionIsWelcome();
    void aFeedThatDoesntAnswerIsAskedAgain();
    void aFeedThatNeverAnswers();
    void nobodyKnowsWhatToHoldBack();
    void aRefusedVersionIsLetGoAfterAWhile();
    void whatWasRolledBackIsntTriedAgain();
    void whatWasRolledBackStaysHeldBack();
    void aRollBackThatWasAboutToBegin();
    void anInstallationThatCantBeReplaced();

private:
    /// The request for what is staged, and the end of the program that makes it.
    void ask() const;
    [[nodiscard]] bool isHeld(const char *version) const
    {
        return HeldVersions{m_bench->runtimeDir()}.isHeld(QString::fromLatin1(version));
    }
};

namespace {

constexpr auto withFeed = " https://feed.example/latest.json"_L1;
constexpr auto withoutFeed = " off"_L1;

} // namespace

void tst_FailedUpdate::ask() const
{
    m_bench->request();
    m_bench->order(u"quit"_s);
}

void tst_FailedUpdate::theNextVersionIsWelcome_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QString>("line");
    QTest::newRow("after a refusal") << QByteArray() << u"update 0.2.0 refused"_s;
    QTest::newRow("after a roll-back")
        << QByteArray("crashes") << u"rolled back to the former installation"_s;
}

/// The same guardian, the same feed.
void tst_FailedUpdate::theNextVersionIsWelcome()
{
    QFETCH(const QByteArray, behaviour);
    QFETCH(const QString, line);
    m_bench->stageAndRequest("0.2.0", behaviour);
    if (behaviour.isEmpty())
        m_bench->manifest.replace("sha256", "sha512");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(line));
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is held back"_s));
    QVERIFY(m_bench->waitForStarts(behaviour.isEmpty() ? 1 : 2));
    QCOMPARE(m_bench->starts().last(), "0.1.0"_L1 + withFeed);
    QVERIFY(isHeld("0.2.0"));

    m_bench->stageAndRequest("0.2.1", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.1 is up"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.1"));
    QCOMPARE(m_bench->starts().last(), "0.2.1"_L1 + withFeed);
    QCOMPARE(m_bench->record().result, u"applied"_s);
}

void tst_FailedUpdate::aFeedThatDoesntAnswerIsAskedAgain()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->feedError = u"no road"_s;
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"update 0.2.0 refused: no road"_s));
    QVERIFY(m_bench->waitForStarts(1));
    QCOMPARE(m_bench->starts().last(), "0.1.0"_L1 + withFeed);
    QVERIFY(!isHeld("0.2.0"));
    QCOMPARE(m_bench->record().result, u"refused"_s);

    m_bench->feedError.clear();
    ask();
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
}

void tst_FailedUpdate::aFeedThatNeverAnswers()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->feedError = u"no road"_s;
    m_bench->guard(m_bench->settings());
    for (int attempt = 1; attempt <= 3; ++attempt) {
        QVERIFY(m_bench->waitForStarts(attempt));
        QCOMPARE(isHeld("0.2.0"), attempt == 3);
        if (attempt < 3)
            ask();
    }
    QCOMPARE(m_bench->starts(), QStringList(3, "0.1.0"_L1 + withFeed));
}

/// A ready file that couldn't be written: the program would be gone every few seconds.
void tst_FailedUpdate::nobodyKnowsWhatToHoldBack()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    QVERIFY(QFile::remove(readyFilePath(m_bench->runtimeDir())));
    m_bench->guard(m_bench->settings());
    for (int attempt = 1; attempt <= 3; ++attempt) {
        QVERIFY(m_bench->waitForStarts(attempt));
        ask();
    }
    QVERIFY(m_bench->waitForStarts(4));
    QCOMPARE(m_bench->starts().mid(0, 3),
             QStringList({"0.1.0"_L1 + withFeed, "0.1.0"_L1 + withFeed, "0.1.0"_L1 + withoutFeed}));

    // For one run: the next has its feed again.
    m_bench->order(u"crash"_s);
    QVERIFY(m_bench->waitForStarts(5));
    QCOMPARE(m_bench->starts().last(), "0.1.0"_L1 + withFeed);
    QVERIFY(m_bench->lines().contains(u"starting the program, its update check switched off"_s));
}

void tst_FailedUpdate::aRefusedVersionIsLetGoAfterAWhile()
{
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->manifest.replace("sha256", "sha512");
    GuardianSettings settings = m_bench->settings();
    settings.holdTime = 1ms;
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is held back"_s));
    QVERIFY(test::waitUntil([&] { return !isHeld("0.2.0"); }));
    QVERIFY(m_bench->waitForStarts(1));

    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
}

void tst_FailedUpdate::whatWasRolledBackIsntTriedAgain()
{
    m_bench->stageAndRequest("0.2.0", "crashes");
    m_bench->guard(m_bench->settings());
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QVERIFY(m_bench->waitForStarts(2));

    // Somebody has brought the very package back.
    HeldVersions{m_bench->runtimeDir()}.release(0ms, {});
    m_bench->stageAndRequest("0.2.0", "crashes");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForStarts(3));
    QVERIFY(m_bench->lines().contains(u"update 0.2.0 refused: this package has been rolled back before"_s));
    QCOMPARE(m_bench->record().result, u"rolled back"_s);
    QVERIFY(isHeld("0.2.0"));

    // Another package of the same version is another matter.
    HeldVersions{m_bench->runtimeDir()}.release(0ms, {});
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.2.0 is up"_s));
    QCOMPARE(m_bench->installed(), QByteArray("0.2.0"));
    QCOMPARE(m_bench->record().result, u"applied"_s);
}

/// However long ago, under whatever guardian; until another update has been applied.
void tst_FailedUpdate::whatWasRolledBackStaysHeldBack()
{
    GuardianSettings settings = m_bench->settings();
    settings.holdTime = 1ms;
    m_bench->stageAndRequest("0.2.0", "crashes");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"rolled back"_s));
    QVERIFY(m_bench->waitForStarts(2));
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForFinish());
    QVERIFY(isHeld("0.2.0"));

    HeldVersions{m_bench->runtimeDir()}.release(0ms, {});
    m_bench->guard(settings);
    QVERIFY(isHeld("0.2.0"));
    QVERIFY(m_bench->waitForStarts(3));
    QCOMPARE(m_bench->starts().last(), "0.1.0"_L1 + withFeed);

    m_bench->stageAndRequest("0.3.0", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.3.0 is up"_s));
    QVERIFY(test::waitUntil([&] { return !isHeld("0.2.0"); }));
}

/// As a guardian leaves it that is killed when it has recorded the failure, and not done anything about it.
void tst_FailedUpdate::aRollBackThatWasAboutToBegin()
{
    const GuardianSettings settings = m_bench->settings();
    const Installation &at = settings.installation;
    GuardedFolder::install(at.next(), "0.2.0", "beats");
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"digest"_s};
    QCOMPARE(writeStamp(at.next(), stamp), QString());
    QCOMPARE(DirectorySwap(at).install(stamp), QString());
    QVERIFY(writeRecord(at.record(), {u"rolled back"_s, u"0.2.0"_s, u"digest"_s, u"it crashed"_s, false},
                        QDateTime::currentDateTime()));
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForStarts(1));
    QCOMPARE(m_bench->starts().first(), "0.1.0"_L1 + withFeed);
    QVERIFY(isHeld("0.2.0"));
    QVERIFY(!QFile::exists(at.journal()));
}

void tst_FailedUpdate::anInstallationThatCantBeReplaced()
{
    const GuardianSettings settings = m_bench->settings();
    // No journal can be written where a folder is.
    QVERIFY(QDir().mkpath(settings.installation.journal() + "/in the way"_L1));
    m_bench->stageAndRequest("0.2.0", "beats");
    m_bench->guard(settings);
    QVERIFY(m_bench->waitForLine(u"update 0.2.0 refused"_s));
    const QString line =
        u"update 0.2.0 refused: the installation can't be replaced: %1 can't be written: Filename refers to a directory"_s
            .arg(settings.installation.journal());
    QVERIFY2(m_bench->lines().contains(line), qPrintable(m_bench->lines().join(u'\n')));
    QCOMPARE(m_bench->installed(), QByteArray("0.1.0"));
    QVERIFY(m_bench->waitForStarts(1));

    QVERIFY(QDir(settings.installation.journal()).removeRecursively());
    m_bench->stageAndRequest("0.3.0", "beats");
    m_bench->order(u"quit"_s);
    QVERIFY(m_bench->waitForLine(u"version 0.3.0 is up"_s));
}

CORVANE_TEST(tst_FailedUpdate, QCoreApplication)
#include "tst_FailedUpdate.moc"
