#include "pipeline/RestartGate.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace corvane;

namespace {

constexpr qint64 noon = 1'700'000'000'000; // any time of day, ms since the epoch

} // namespace

class tst_RestartGate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsEmpty();
    void delaysOfARepeatedCrash();
    void stableRun_data();
    void stableRun();
    void window_data();
    void window();
    void limit_data();
    void limit();
    void delay_data();
    void delay();
    void oneFailureAMinuteNeverOpens();
    void leavingTheWindowKeepsTheExponent();
    void anOpenCircuitOpensAgainAtOnce();
    void anOpenCircuitClosesByAgeing();
    void clearForgetsEverything();
};

void tst_RestartGate::startsEmpty()
{
    const RestartGate gate;
    QCOMPARE(gate.restartTimes, QList<qint64>());
    QCOMPARE(gate.restartAttempts, 0);
    QCOMPARE(gate.circuitOpened, false);
}

void tst_RestartGate::delaysOfARepeatedCrash()
{
    // A process that dies at once each time, with the default policy.
    constexpr qint64 delays[] = {1000, 2000, 4000, 8000, 16000, 30000};
    const RestartPolicy policy;
    RestartGate gate;
    qint64 now = noon;
    int failures = 0;
    for (const qint64 delay : delays) {
        QCOMPARE(gate.restartAttempts, failures);
        const RestartDecision decision = gate.onFailure(policy, now, now);
        QCOMPARE(decision.circuitOpen, false);
        QCOMPARE(decision.delayMs, delay);
        QCOMPARE(decision.failuresInWindow, ++failures);
        QCOMPARE(gate.circuitOpened, false);
        now += delay;
    }
    QCOMPARE(now - noon, 61000);

    const RestartDecision seventh = gate.onFailure(policy, now, now);
    QCOMPARE(seventh.circuitOpen, true);
    QCOMPARE(seventh.delayMs, 0);
    QCOMPARE(seventh.failuresInWindow, 7);
    QCOMPARE(gate.circuitOpened, true);
    QCOMPARE(gate.restartAttempts, 6);
    QCOMPARE(gate.restartTimes.size(), 7);
}

void tst_RestartGate::stableRun_data()
{
    QTest::addColumn<int>("windowSec");
    QTest::addColumn<qint64>("startedAtMs");
    QTest::addColumn<qint64>("delay");
    QTest::addColumn<int>("attemptsAfter");

    // Three failures so far: the next delay is 8000 ms, or 1000 ms after a stable run.
    QTest::newRow("died at once") << 120 << noon << qint64(8000) << 4;
    QTest::newRow("half the window less 1 ms") << 120 << noon - 59999 << qint64(8000) << 4;
    QTest::newRow("exactly half the window") << 120 << noon - 60000 << qint64(8000) << 4;
    QTest::newRow("half the window and 1 ms") << 120 << noon - 60001 << qint64(1000) << 1;
    QTest::newRow("a day") << 120 << noon - 86'400'000 << qint64(1000) << 1;
    QTest::newRow("never started") << 120 << qint64(0) << qint64(8000) << 4;
    QTest::newRow("started at the first millisecond") << 120 << qint64(1) << qint64(1000) << 1;
    QTest::newRow("time before the epoch") << 120 << qint64(-1) << qint64(8000) << 4;
    QTest::newRow("clock set back") << 120 << noon + 5000 << qint64(8000) << 4;
    QTest::newRow("odd window, exactly half") << 5 << noon - 2500 << qint64(8000) << 4;
    QTest::newRow("odd window, half and 1 ms") << 5 << noon - 2501 << qint64(1000) << 1;
    QTest::newRow("window longer than 32 bits of ms")
        << 5'000'000 << noon - 2'500'000'001 << qint64(1000) << 1;
    QTest::newRow("half of such a window") << 5'000'000 << noon - 2'500'000'000 << qint64(8000) << 4;
}

void tst_RestartGate::stableRun()
{
    QFETCH(const int, windowSec);
    QFETCH(const qint64, startedAtMs);
    RestartPolicy policy;
    policy.windowSec = windowSec;
    RestartGate gate;
    gate.restartAttempts = 3;

    const RestartDecision decision = gate.onFailure(policy, startedAtMs, noon);

    QTEST(decision.delayMs, "delay");
    QTEST(gate.restartAttempts, "attemptsAfter");
}

void tst_RestartGate::window_data()
{
    QTest::addColumn<QList<qint64>>("before");
    QTest::addColumn<QList<qint64>>("after");

    QTest::newRow("first failure") << QList<qint64>{} << QList{noon};
    QTest::newRow("exactly at the limit stays") << QList{noon - 120000} << QList{noon - 120000, noon};
    QTest::newRow("one millisecond older goes") << QList{noon - 120001} << QList{noon};
    QTest::newRow("several go from the front") << QList{noon - 500000, noon - 120001, noon - 120000, noon - 1}
                                               << QList{noon - 120000, noon - 1, noon};
    QTest::newRow("all go but the new one")
        << QList{noon - 300000, noon - 200000, noon - 150000} << QList{noon};
    QTest::newRow("same millisecond twice") << QList{noon} << QList{noon, noon};
    // After the clock was set back, a recent entry at the front keeps the older ones behind it.
    QTest::newRow("only the front ages")
        << QList{noon + 10, noon - 200000} << QList{noon + 10, noon - 200000, noon};
}

void tst_RestartGate::window()
{
    QFETCH(const QList<qint64>, before);
    QFETCH(const QList<qint64>, after);
    RestartGate gate;
    gate.restartTimes = before;

    const RestartDecision decision = gate.onFailure(RestartPolicy(), noon, noon);

    QCOMPARE(gate.restartTimes, after);
    QCOMPARE(decision.failuresInWindow, after.size());
}

void tst_RestartGate::limit_data()
{
    QTest::addColumn<int>("maxRestarts");
    QTest::addColumn<int>("failuresBefore");
    QTest::addColumn<bool>("open");

    QTest::newRow("sixth of six") << 6 << 5 << false;
    QTest::newRow("seventh of six") << 6 << 6 << true;
    QTest::newRow("eighth of six") << 6 << 7 << true;
    QTest::newRow("first of one") << 1 << 0 << false;
    QTest::newRow("second of one") << 1 << 1 << true;
    QTest::newRow("none allowed") << 0 << 0 << true;
    QTest::newRow("negative limit") << -1 << 0 << true;
}

void tst_RestartGate::limit()
{
    QFETCH(const int, maxRestarts);
    QFETCH(const int, failuresBefore);
    QFETCH(const bool, open);
    RestartPolicy policy;
    policy.maxRestartsInWindow = maxRestarts;
    RestartGate gate;
    gate.restartTimes = QList<qint64>(failuresBefore, noon - 1);
    gate.restartAttempts = 2;

    const RestartDecision decision = gate.onFailure(policy, noon, noon);

    QCOMPARE(decision.circuitOpen, open);
    QCOMPARE(gate.circuitOpened, open);
    QCOMPARE(decision.failuresInWindow, failuresBefore + 1);
    QCOMPARE(gate.restartAttempts, open ? 2 : 3);
}

void tst_RestartGate::delay_data()
{
    QTest::addColumn<int>("attempts");
    QTest::addColumn<int>("initialMs");
    QTest::addColumn<int>("maxMs");
    QTest::addColumn<qint64>("delay");

    constexpr int huge = std::numeric_limits<int>::max();
    QTest::newRow("first") << 0 << 1000 << 30000 << qint64(1000);
    QTest::newRow("just below the cap") << 4 << 1000 << 30000 << qint64(16000);
    QTest::newRow("capped") << 5 << 1000 << 30000 << qint64(30000);
    QTest::newRow("exactly the cap") << 4 << 1000 << 16000 << qint64(16000);
    QTest::newRow("exponent 15") << 15 << 1000 << huge << qint64(32'768'000);
    QTest::newRow("exponent 16") << 16 << 1000 << huge << qint64(65'536'000);
    QTest::newRow("exponent 17 counts as 16") << 17 << 1000 << huge << qint64(65'536'000);
    QTest::newRow("exponent 1000 counts as 16") << 1000 << 1000 << huge << qint64(65'536'000);
    QTest::newRow("exponent beyond 16 stays under the cap") << 40 << 1000 << 30000 << qint64(30000);
    QTest::newRow("product beyond 32 bits meets the cap") << 16 << 100'000 << huge << qint64(huge);
    QTest::newRow("cap below the first delay") << 0 << 1000 << 500 << qint64(500);
    QTest::newRow("no delay") << 3 << 0 << 30000 << qint64(0);
}

void tst_RestartGate::delay()
{
    QFETCH(const int, attempts);
    QFETCH(const int, initialMs);
    QFETCH(const int, maxMs);
    RestartPolicy policy;
    policy.initialBackoffMs = initialMs;
    policy.maxBackoffMs = maxMs;
    RestartGate gate;
    gate.restartAttempts = attempts;

    const RestartDecision decision = gate.onFailure(policy, noon, noon);

    QTEST(decision.delayMs, "delay");
    QCOMPARE(decision.circuitOpen, false);
    QCOMPARE(gate.restartAttempts, attempts + 1);
}

void tst_RestartGate::oneFailureAMinuteNeverOpens()
{
    RestartGate gate;
    qint64 now = noon;
    for (int failure = 1; failure <= 100; ++failure) {
        const qint64 startedAt = now;
        now += 61000;
        const RestartDecision decision = gate.onFailure(RestartPolicy(), startedAt, now);
        QCOMPARE(decision.circuitOpen, false);
        QCOMPARE(decision.delayMs, 1000);
        QCOMPARE(decision.failuresInWindow, failure == 1 ? 1 : 2);
    }
    QCOMPARE(gate.circuitOpened, false);
}

void tst_RestartGate::leavingTheWindowKeepsTheExponent()
{
    RestartGate gate;
    QCOMPARE(gate.onFailure(RestartPolicy(), noon, noon).delayMs, 1000);
    // Long after, but the run itself was short: the pipeline was stopped in between.
    const qint64 later = noon + 600000;
    const RestartDecision decision = gate.onFailure(RestartPolicy(), later - 10, later);
    QCOMPARE(decision.delayMs, 2000);
    QCOMPARE(decision.failuresInWindow, 1);
}

void tst_RestartGate::anOpenCircuitOpensAgainAtOnce()
{
    RestartGate gate;
    gate.restartTimes = QList<qint64>(6, noon);
    QCOMPARE(gate.onFailure(RestartPolicy(), noon, noon).circuitOpen, true);

    const RestartDecision next = gate.onFailure(RestartPolicy(), noon + 1000, noon + 2000);
    QCOMPARE(next.circuitOpen, true);
    QCOMPARE(next.failuresInWindow, 8);
}

void tst_RestartGate::anOpenCircuitClosesByAgeing()
{
    RestartGate gate;
    gate.restartTimes = QList<qint64>(6, noon);
    gate.restartAttempts = 6;
    QCOMPARE(gate.onFailure(RestartPolicy(), noon, noon).circuitOpen, true);

    // All seven are still in the window in its last millisecond.
    RestartGate early = gate;
    QCOMPARE(early.onFailure(RestartPolicy(), noon + 119990, noon + 120000).circuitOpen, true);

    const RestartDecision decision = gate.onFailure(RestartPolicy(), noon + 119990, noon + 120001);
    QCOMPARE(decision.circuitOpen, false);
    QCOMPARE(decision.failuresInWindow, 1);
    QCOMPARE(decision.delayMs, 30000);
    // The mark records that it has been open; only clear() removes it.
    QCOMPARE(gate.circuitOpened, true);
}

void tst_RestartGate::clearForgetsEverything()
{
    RestartGate gate;
    for (int failure = 1; failure <= 7; ++failure)
        QCOMPARE(gate.onFailure(RestartPolicy(), noon, noon).circuitOpen, failure == 7);

    gate.clear();

    QCOMPARE(gate.restartTimes, QList<qint64>());
    QCOMPARE(gate.restartAttempts, 0);
    QCOMPARE(gate.circuitOpened, false);
    const RestartDecision decision = gate.onFailure(RestartPolicy(), noon, noon);
    QCOMPARE(decision.circuitOpen, false);
    QCOMPARE(decision.delayMs, 1000);
    QCOMPARE(decision.failuresInWindow, 1);
}

CORVANE_TEST(tst_RestartGate, QCoreApplication)
#include "tst_RestartGate.moc"
