#include "tests/support/Files.h"
#include "tests/support/Runner.h"
#include "tools/guardian/UpdateLedger.h"
#include "tools/guardian/VersionTrial.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace corvane::guardian;
using Follows = VersionTrial::Follows;

/// A version from its first start on, in time that the tests make up. With real processes: tst_Trial.
class tst_VersionTrial : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void upWithTheSecondBeat();
    void silent_data();
    void silent();
    void thatItMustntBeEndedIsSaidEachTime();
    void leftAloneOnAir();
    void closedBeforeABeat();
    void closedBeforeABeatOnAir();
    void aJournalThatCantBeWritten();
    void closedAfterABeat();
    void crashed();
    void badEndsOfWhatIsUnproven();
    void badEndsThatNothingFollows();
    void badEndsOfWhatIsProven_data();
    void badEndsOfWhatIsProven();
    void noWayBack();
    void takenUp_data();
    void takenUp();
    void whetherTheFormerVersionBeats_data();
    void whetherTheFormerVersionBeats();
    void silentLikeTheFormerVersion_data();
    void silentLikeTheFormerVersion();
    void everyTrialBeginsAnew();

private:
    static constexpr auto patience = 60s;
    static constexpr auto proof = 10min;

    /// 0.2.0 in the place of 0.1.0, on trial.
    void install();
    [[nodiscard]] static WatchedRun silentFor(std::chrono::milliseconds time, int beats = 0)
    {
        return {beats, time, time};
    }
    [[nodiscard]] static WatchedRun beating(std::chrono::milliseconds sinceBegin)
    {
        return {2, sinceBegin, 0ms};
    }
    [[nodiscard]] UpdateRecord record() const { return readRecord(m_at.record()); }
    [[nodiscard]] bool isOnTrial() const { return QFile::exists(m_at.journal()); }
    [[nodiscard]] bool isHeld() const { return HeldVersions{m_marks.runtimeDirectory}.isHeld(u"0.2.0"_s); }

    std::unique_ptr<QTemporaryDir> m_folder;
    Installation m_at;
    Marks m_marks;
    std::unique_ptr<DirectorySwap> m_swap;
    std::unique_ptr<UpdateLedger> m_ledger;
    std::unique_ptr<VersionTrial> m_trial;
    QStringList m_lines;
};

void tst_VersionTrial::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_at = {m_folder->filePath(u"app"_s), u"corvane"_s, {}};
    m_marks = {m_folder->filePath(u"runtime"_s)};
    QVERIFY(QDir().mkpath(m_at.own()));
    QVERIFY(QDir().mkpath(m_marks.runtimeDirectory + "/update"_L1));
    corvane::test::writeFile(m_at.programPath(), "0.1.0");
    m_swap = std::make_unique<DirectorySwap>(m_at);
    m_ledger = std::make_unique<UpdateLedger>(UpdateLedger::Settings{m_at, m_marks, true, 5h, 3});
    m_trial = std::make_unique<VersionTrial>(TrialPolicy(), m_at, *m_swap, *m_ledger);
    m_lines.clear();
    connect(m_trial.get(), &VersionTrial::logged, this, [this](const QString &line) { m_lines << line; });
}

void tst_VersionTrial::install()
{
    corvane::test::writeFile(m_at.next() + "/corvane"_L1, "0.2.0");
    const Stamp stamp{u"id"_s, u"0.2.0"_s, u"ab12"_s};
    QCOMPARE(writeStamp(m_at.next(), stamp), QString());
    QCOMPARE(m_swap->install(stamp), QString());
    m_trial->begin();
    QVERIFY(m_trial->isOpen());
}

void tst_VersionTrial::upWithTheSecondBeat()
{
    QVERIFY(!m_trial->isOpen());
    install();
    QCOMPARE(m_trial->look(silentFor(patience), {}, 0ms), QString());
    QCOMPARE(m_trial->look(silentFor(0ms, 1), {}, 0ms), QString());
    QVERIFY(m_trial->isOpen());
    QVERIFY(isOnTrial());
    QCOMPARE(record().result, QString());

    QCOMPARE(m_trial->look(silentFor(0ms, 2), {}, 0ms), QString());
    QVERIFY(!m_trial->isOpen());
    QVERIFY(!isOnTrial());
    QCOMPARE(record().result, u"applied"_s);
    QCOMPARE(record().version, u"0.2.0"_s);
    QCOMPARE(record().sha256, u"ab12"_s);
    QCOMPARE(m_lines, QStringList{u"version 0.2.0 is up"_s});

    // A run that lasts proves it; what it does from then on is no matter of the update.
    QCOMPARE(m_trial->look(beating(proof - 1ms), {}, 0ms), QString());
    QVERIFY(!record().proven);
    QCOMPARE(m_trial->look(beating(proof), {}, 0ms), QString());
    QVERIFY(record().proven);
    QCOMPARE(record().result, u"applied"_s);
    QCOMPARE(m_lines.size(), 1);
}

void tst_VersionTrial::silent_data()
{
    QTest::addColumn<int>("beats");
    QTest::addColumn<QString>("words");
    QTest::newRow("from its start") << 0 << u"no heartbeat for 61 s"_s;
    QTest::newRow("after a beat") << 1 << u"one heartbeat, and none for 61 s"_s;
}

void tst_VersionTrial::silent()
{
    QFETCH(const int, beats);
    QFETCH(const QString, words);
    install();
    const WatchedRun run = silentFor(61s, beats);
    QCOMPARE(m_trial->look(run, {}, 0ms), words);
    m_trial->beingEnded(words);
    QVERIFY(!m_trial->isOpen());
    QCOMPARE(m_trial->look(run, {}, 0ms), QString()); // once
    QVERIFY(isOnTrial());

    QCOMPARE(m_trial->onEnd(false, u"it was killed"_s, run), Follows::WayBack);
    QVERIFY(isOnTrial()); // for the swap, which is about to take it back
    QVERIFY(!m_trial->isOpen());
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().reason, words);
    QVERIFY(isHeld());
    QCOMPARE(m_lines, QStringList{"version 0.2.0 didn't come up: "_L1 + words});
    // The former one is judged by its own ends.
    QCOMPARE(m_trial->onEnd(true, {}, silentFor(1s)), Follows::AsEver);
}

void tst_VersionTrial::thatItMustntBeEndedIsSaidEachTime()
{
    install();
    for (int look = 1; look <= 2; ++look) {
        QVERIFY(!m_trial->look(silentFor(61s), {}, 0ms).isEmpty());
        m_trial->notEnded(u"it is another's"_s);
        QVERIFY(m_trial->isOpen());
        QCOMPARE(m_lines, QStringList(look, u"version 0.2.0 isn't ended: it is another's"_s));
    }
}

void tst_VersionTrial::leftAloneOnAir()
{
    install();
    const QStringList tools{u"ffmpeg"_s, u"srtla_send"_s};
    for (const auto now : {10min, 20min})
        QCOMPARE(m_trial->look(silentFor(now), tools, now), QString());
    QCOMPARE(m_lines,
             QStringList{u"version 0.2.0: no heartbeat for 600 s; it runs ffmpeg, srtla_send and is left "
                         "alone until it is off air"_s});
    // A transmission that has failed may start again in this time.
    QCOMPARE(m_trial->look(silentFor(21min), {}, 20min + patience), QString());
    QCOMPARE(m_trial->look(silentFor(21min), {}, 20min + patience + 1ms), u"no heartbeat for 1260 s"_s);
    // It does.
    QCOMPARE(m_trial->look(silentFor(22min), tools, 22min), QString());
    QCOMPARE(m_trial->look(silentFor(22min), {}, 22min + patience), QString());
    QCOMPARE(m_lines.size(), 1);
    QVERIFY(m_trial->isOpen());
}

void tst_VersionTrial::closedBeforeABeat()
{
    install();
    for (int close = 1; close <= 2; ++close) {
        QCOMPARE(m_trial->onEnd(true, {}, silentFor(1s)), Follows::Rest);
        QCOMPARE(m_swap->closedEarly(), close);
        QCOMPARE(m_lines.last(), u"version 0.2.0 was closed before its first heartbeat; it stays on trial"_s);
        QVERIFY(!isHeld());
    }
    QCOMPARE(m_trial->onEnd(true, {}, silentFor(1s)), Follows::WayBackClosed);
    QCOMPARE(m_lines.last(), u"version 0.2.0 didn't come up: it ended 3 times without a heartbeat"_s);
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().reason, u"it ended 3 times without a heartbeat"_s);
    QVERIFY(isHeld());
}

/// It has shown that it can do its work.
void tst_VersionTrial::closedBeforeABeatOnAir()
{
    install();
    QCOMPARE(m_trial->look(silentFor(1s), {u"ffmpeg"_s}, 1s), QString());
    for (int close = 1; close <= 4; ++close)
        QCOMPARE(m_trial->onEnd(true, {}, silentFor(2s)), Follows::Rest);
    QCOMPARE(m_swap->closedEarly(), 0);
}

void tst_VersionTrial::aJournalThatCantBeWritten()
{
    install();
    QVERIFY(QFile::remove(m_at.journal()));
    QVERIFY(QDir().mkpath(m_at.journal()));
    QCOMPARE(m_trial->onEnd(true, {}, silentFor(1s)), Follows::Rest);
    QCOMPARE(m_lines.last(), u"%1 can't be written"_s.arg(m_at.journal()));
}

void tst_VersionTrial::closedAfterABeat()
{
    install();
    QCOMPARE(m_trial->onEnd(true, {}, silentFor(1s, 1)), Follows::AsEver);
    QCOMPARE(m_lines, QStringList{u"version 0.2.0 is up"_s});
    QCOMPARE(record().result, u"applied"_s);
    QVERIFY(!isOnTrial());
}

void tst_VersionTrial::crashed()
{
    install();
    QCOMPARE(m_trial->onEnd(false, u"it crashed"_s, silentFor(1s, 1)), Follows::WayBack);
    QCOMPARE(m_lines, QStringList{u"version 0.2.0 didn't come up: it crashed"_s});
    QCOMPARE(record().reason, u"it crashed"_s);
    // Back in place, the former one has no trial, and no way back of its own.
    QCOMPARE(m_trial->onEnd(false, u"it crashed"_s, silentFor(1s, 1)), Follows::AsEver);
    QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, false));
}

void tst_VersionTrial::badEndsOfWhatIsUnproven()
{
    install();
    QCOMPARE(m_trial->look(beating(1s), {}, 0ms), QString());
    for (int end = 1; end <= 2; ++end) {
        QCOMPARE(m_trial->onEnd(false, u"it crashed"_s, beating(1s)), Follows::AsEver);
        QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, true));
    }
    QVERIFY(m_trial->onBadEnd(u"it failed"_s, true));
    const QString reason = u"it ended badly 3 times soon after it came up (it failed)"_s;
    QCOMPARE(m_lines.last(), "version 0.2.0 goes back: "_L1 + reason);
    QCOMPARE(record().result, u"rolled back"_s);
    QCOMPARE(record().reason, reason);
    QCOMPARE(record().sha256, u"ab12"_s);
    QVERIFY(isHeld());
    QVERIFY(!m_trial->onBadEnd(u"it failed"_s, false)); // that was the former one
}

/// The former version is better than none.
void tst_VersionTrial::badEndsThatNothingFollows()
{
    install();
    QCOMPARE(m_trial->look(beating(1s), {}, 0ms), QString());
    QVERIFY(m_trial->onBadEnd(u"it crashed"_s, false));
    QCOMPARE(m_lines.last(),
             u"version 0.2.0 goes back: it ended badly 1 times soon after it came up (it crashed)"_s);
}

void tst_VersionTrial::badEndsOfWhatIsProven_data()
{
    QTest::addColumn<bool>("updated");
    QTest::newRow("by a run that has lasted") << true;
    QTest::newRow("as it was always there") << false;
}

void tst_VersionTrial::badEndsOfWhatIsProven()
{
    QFETCH(const bool, updated);
    if (updated) {
        install();
        QCOMPARE(m_trial->look(beating(1s), {}, 0ms), QString());
        QCOMPARE(m_trial->look(beating(proof), {}, 0ms), QString());
    }
    for (int end = 1; end <= 4; ++end)
        QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, end < 4));
    QVERIFY(!isHeld());
}

void tst_VersionTrial::noWayBack()
{
    install();
    QCOMPARE(m_trial->look(beating(1s), {}, 0ms), QString());
    QVERIFY(QFile::remove(m_at.previous() + "/corvane"_L1));
    for (int end = 1; end <= 4; ++end)
        QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, end < 4));
    QVERIFY(!isHeld());
}

void tst_VersionTrial::takenUp_data()
{
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<bool>("proven");
    QTest::addColumn<bool>("hasFormer");
    QTest::addColumn<bool>("unproven");
    QTest::newRow("lately applied") << u"applied"_s << u"ab12"_s << false << true << true;
    QTest::newRow("proven") << u"applied"_s << u"ab12"_s << true << true << false;
    QTest::newRow("installed by other means since") << u"applied"_s << u"ab13"_s << false << true << false;
    QTest::newRow("without a former version") << u"applied"_s << u"ab12"_s << false << false << false;
    QTest::newRow("refused") << u"refused"_s << u"ab12"_s << false << true << false;
    QTest::newRow("rolled back") << u"rolled back"_s << u"ab12"_s << false << true << false;
    QTest::newRow("nothing known") << QString() << QString() << false << true << false;
}

/// By a guardian that comes after the one that has applied it.
void tst_VersionTrial::takenUp()
{
    QFETCH(const QString, result);
    QFETCH(const QString, digest);
    QFETCH(const bool, proven);
    QFETCH(const bool, hasFormer);
    QFETCH(const bool, unproven);
    install();
    m_swap->confirm();
    if (!hasFormer)
        QVERIFY(QDir(m_at.previous()).removeRecursively());
    VersionTrial next(TrialPolicy(), m_at, *m_swap, *m_ledger);
    next.takeUp({result, u"0.2.0"_s, digest, {}, proven});
    QVERIFY(!next.isOpen());
    // The program comes back meanwhile, with or without the way back.
    QVERIFY(QDir().mkpath(m_at.previous()));
    corvane::test::writeFile(m_at.previous() + "/corvane"_L1, "0.1.0");
    QCOMPARE(next.onBadEnd(u"it crashed"_s, false), unproven);
}

void tst_VersionTrial::whetherTheFormerVersionBeats_data()
{
    QTest::addColumn<int>("beats");
    QTest::addColumn<int>("seconds"); // of its run
    QTest::addColumn<bool>("passes");
    QTest::newRow("it did") << 1 << 3600 << false;
    QTest::newRow("it didn't") << 0 << 61 << true;
    QTest::newRow("not for long enough to tell") << 0 << 60 << false;
}

void tst_VersionTrial::whetherTheFormerVersionBeats()
{
    QFETCH(const int, beats);
    QFETCH(const int, seconds);
    QFETCH(const bool, passes);
    QCOMPARE(m_trial->onEnd(true, {}, silentFor(std::chrono::seconds(seconds), beats)), Follows::AsEver);
    install();
    QCOMPARE(m_trial->look(silentFor(61s), {}, 0ms), passes ? QString() : u"no heartbeat for 61 s"_s);
    QCOMPARE(m_trial->isOpen(), !passes);
    if (passes) {
        QCOMPARE(m_lines,
                 QStringList{u"version 0.2.0 runs and shows no heartbeat, as the former one didn't: the "
                             "place is at fault, not the version"_s});
        QCOMPARE(record().result, u"applied"_s);
    }
}

void tst_VersionTrial::silentLikeTheFormerVersion_data()
{
    QTest::addColumn<int>("formerBeats"); // before the update; -1: nobody knows
    QTest::addColumn<int>("beats");       // on trial
    QTest::addColumn<int>("beatsBack");   // of the former one, once it is back
    QTest::addColumn<bool>("putBack");
    QTest::newRow("silent before and after") << -1 << 0 << 0 << true;
    QTest::newRow("it beats once it is back") << -1 << 0 << 1 << false;
    QTest::newRow("it had beaten before") << 1 << 0 << 0 << false;
    QTest::newRow("the failed one had beaten") << -1 << 1 << 0 << false;
}

void tst_VersionTrial::silentLikeTheFormerVersion()
{
    QFETCH(const int, formerBeats);
    QFETCH(const int, beats);
    QFETCH(const int, beatsBack);
    QFETCH(const bool, putBack);
    if (formerBeats > 0)
        QCOMPARE(m_trial->onEnd(true, {}, silentFor(61s, formerBeats)), Follows::AsEver);
    install();
    m_trial->beingEnded(m_trial->look(silentFor(61s, beats), {}, 0ms));
    QCOMPARE(m_trial->onEnd(false, {}, silentFor(61s, beats)), Follows::WayBack);
    QVERIFY(isHeld());

    QCOMPARE(m_trial->look(silentFor(patience), {}, 0ms), QString());
    QVERIFY(isHeld());
    QCOMPARE(m_trial->look(silentFor(61s, beatsBack), {}, 0ms), QString());
    QCOMPARE(isHeld(), !putBack);
    QCOMPARE(record().result, putBack ? u"put back"_s : u"rolled back"_s);
    const qsizetype lines = m_lines.size();
    QCOMPARE(m_lines.last() ==
                 u"the former version shows no heartbeat either: the place is at fault, and version 0.2.0 "
                 "isn't held back any longer"_s,
             putBack);
    QCOMPARE(m_trial->look(silentFor(2 * patience), {}, 0ms), QString());
    QCOMPARE(m_lines.size(), lines); // once, and a beat settles it for good

    // The next one is not to blame for silence either where the former one is known to be silent.
    install();
    QCOMPARE(m_trial->look(silentFor(61s), {}, 0ms).isEmpty(), putBack);
}

void tst_VersionTrial::everyTrialBeginsAnew()
{
    install();
    QCOMPARE(m_trial->look(silentFor(61s), {u"ffmpeg"_s}, 61s), QString());
    QCOMPARE(m_trial->onEnd(false, u"it crashed"_s, silentFor(61s)), Follows::WayBack);
    QCOMPARE(m_swap->rollBack(), QString());

    install();
    QCOMPARE(m_trial->look(silentFor(61s), {}, 62s), u"no heartbeat for 61 s"_s); // never on air
    QCOMPARE(m_trial->look(silentFor(61s), {u"ffmpeg"_s}, 62s), QString());
    QCOMPARE(m_lines.filter(u"is left alone"_s).size(), 2); // said of each
    QCOMPARE(m_trial->look(beating(1s), {}, 62s), QString());
    QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, true));
    QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, true));

    install();
    QCOMPARE(m_trial->look(beating(1s), {}, 63s), QString());
    QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, true)); // counted from one again
    QVERIFY(!m_trial->onBadEnd(u"it crashed"_s, true));
    QVERIFY(m_trial->onBadEnd(u"it crashed"_s, true));
}

CORVANE_TEST(tst_VersionTrial, QCoreApplication)
#include "tst_VersionTrial.moc"
