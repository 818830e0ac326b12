#include "tests/support/Runner.h"
#include "tools/guardian/TrialPolicy.h"

#include <QTest>

#include <chrono>
#include <optional>

using namespace std::chrono_literals;
using namespace corvane::guardian;

/// What a run on trial tells, in time that the rows make up.
class tst_TrialPolicy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void looks_data();
    void looks();
    void ends_data();
    void ends();
    void badEnds();
};

void tst_TrialPolicy::looks_data()
{
    QTest::addColumn<int>("beats");
    QTest::addColumn<int>("silentMs");
    QTest::addColumn<bool>("onAir");
    QTest::addColumn<int>("sinceAirMs"); // -1: never
    QTest::addColumn<bool>("formerNeverBeat");
    QTest::addColumn<int>("verdict");
    const auto row = [](const char *title, int beats, int silentMs, bool onAir, int sinceAirMs,
                        bool formerNeverBeat, TrialVerdict verdict) {
        QTest::newRow(title) << beats << silentMs << onAir << sinceAirMs << formerNeverBeat
                             << static_cast<int>(verdict);
    };
    row("just started", 0, 0, false, -1, false, TrialVerdict::Wait);
    row("one beat", 1, 0, false, -1, false, TrialVerdict::Wait);
    row("two beats", 2, 0, false, -1, false, TrialVerdict::Passed);
    row("two beats on air", 2, 0, true, 0, false, TrialVerdict::Passed);
    row("two beats, long ago", 2, 600'000, false, -1, false, TrialVerdict::Passed);
    row("two beats where there were none before", 2, 0, false, -1, true, TrialVerdict::Passed);
    row("no beat, at the last moment", 0, 60'000, false, -1, false, TrialVerdict::Wait);
    row("no beat for too long", 0, 60'001, false, -1, false, TrialVerdict::Failed);
    row("silent after one beat", 1, 60'001, false, -1, false, TrialVerdict::Failed);
    row("silent after one beat, and none before", 1, 60'001, false, -1, true, TrialVerdict::Failed);
    row("no beat, and none before", 0, 60'001, false, -1, true, TrialVerdict::NoBeatHere);
    row("no beat and none before, not for long", 0, 60'000, false, -1, true, TrialVerdict::Wait);
    row("silent on air", 0, 3'600'000, true, 0, false, TrialVerdict::LeftAlone);
    row("silent on air after a beat", 1, 3'600'000, true, 0, false, TrialVerdict::LeftAlone);
    row("silent on air, and none before", 0, 3'600'000, true, 0, true, TrialVerdict::LeftAlone);
    row("on air, not silent for long", 0, 60'000, true, 0, false, TrialVerdict::Wait);
    row("just off air", 0, 3'600'000, false, 0, false, TrialVerdict::Wait);
    row("off air while a stream may start again", 0, 3'600'000, false, 60'000, false, TrialVerdict::Wait);
    row("off air for good", 0, 3'600'000, false, 60'001, false, TrialVerdict::Failed);
    row("off air for good, and none before", 0, 3'600'000, false, 60'001, true, TrialVerdict::NoBeatHere);
}

void tst_TrialPolicy::looks()
{
    QFETCH(const int, beats);
    QFETCH(const int, silentMs);
    QFETCH(const bool, onAir);
    QFETCH(const int, sinceAirMs);
    QFETCH(const bool, formerNeverBeat);
    TrialPolicy policy;
    policy.formerNeverBeat = formerNeverBeat;
    TrialSight seen{beats, std::chrono::milliseconds(silentMs), onAir, std::nullopt};
    if (sinceAirMs >= 0)
        seen.sinceOnAir = std::chrono::milliseconds(sinceAirMs);
    QTEST(static_cast<int>(policy.atLook(seen)), "verdict");
}

void tst_TrialPolicy::ends_data()
{
    QTest::addColumn<bool>("orderly");
    QTest::addColumn<int>("beats");
    QTest::addColumn<int>("closedBefore");
    QTest::addColumn<int>("end");
    const auto row = [](const char *title, bool orderly, int beats, int closedBefore, TrialEnd end) {
        QTest::newRow(title) << orderly << beats << closedBefore << static_cast<int>(end);
    };
    row("a crash at once", false, 0, 0, TrialEnd::Failed);
    row("a crash after a beat", false, 1, 0, TrialEnd::Failed);
    row("closed after a beat", true, 1, 0, TrialEnd::Passed);
    row("closed after a beat, at last", true, 1, 2, TrialEnd::Passed);
    row("closed before a beat", true, 0, 0, TrialEnd::Undecided);
    row("closed before a beat again", true, 0, 1, TrialEnd::Undecided);
    row("closed before a beat once more", true, 0, 2, TrialEnd::Failed);
}

void tst_TrialPolicy::ends()
{
    QFETCH(const bool, orderly);
    QFETCH(const int, beats);
    QFETCH(const int, closedBefore);
    QTEST(static_cast<int>(TrialPolicy().atEnd(orderly, beats, closedBefore)), "end");
}

void tst_TrialPolicy::badEnds()
{
    const TrialPolicy policy;
    QVERIFY(!policy.goesBack(0));
    QVERIFY(!policy.goesBack(2));
    QVERIFY(policy.goesBack(3));
    QVERIFY(policy.goesBack(4));
    QCOMPARE(policy.proof, 10min);
    QCOMPARE(policy.patience, 60s);
}

CORVANE_TEST(tst_TrialPolicy, QCoreApplication)
#include "tst_TrialPolicy.moc"
