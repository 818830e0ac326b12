#include "ndi/ThreadPriority.h"
#include "tests/support/Runner.h"

#include <QTest>

#include <thread>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace corvane;

/// The priority of a thread that must be on time, as the system reports it.
class tst_ThreadPriority : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isTheHighestGranted();
};

#ifdef Q_OS_WIN

void tst_ThreadPriority::isTheHighestGranted()
{
    int priority = 0;
    std::thread([&] {
        makeThreadTimeCritical();
        priority = GetThreadPriority(GetCurrentThread());
    }).join();
    QCOMPARE(priority, THREAD_PRIORITY_TIME_CRITICAL);
    QCOMPARE(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_NORMAL);
}

#else

namespace {

/// What the system reports of a thread.
struct Standing
{
    int slack = 0; ///< in nanoseconds
    int policy = 0;
    int level = 0; ///< of real time
    int niceness = 0;

    static Standing here()
    {
        Standing standing;
        standing.slack = prctl(PR_GET_TIMERSLACK);
        sched_param parameters{};
        pthread_getschedparam(pthread_self(), &standing.policy, &parameters);
        standing.level = parameters.sched_priority;
        standing.niceness = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        return standing;
    }
};

/// The same by this process's limits and rights, tried out on a thread of its own.
Standing wanted()
{
    Standing standing;
    std::thread([&] {
        prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); // newer kernels report 0 for real time
        sched_param lowest{};
        lowest.sched_priority = sched_get_priority_min(SCHED_RR);
        const bool realTime = pthread_setschedparam(pthread_self(), SCHED_RR, &lowest) == 0;
        const auto thread = static_cast<id_t>(gettid());
        int niceness = -20;
        while (!realTime && niceness < 0 && setpriority(PRIO_PROCESS, thread, niceness) != 0)
            ++niceness;
        standing = Standing::here();
    }).join();
    return standing;
}

} // namespace

void tst_ThreadPriority::isTheHighestGranted()
{
    const Standing before = Standing::here();
    Standing reached;
    std::thread([&] {
        makeThreadTimeCritical();
        reached = Standing::here();
    }).join();

    const Standing expected = wanted();
    QCOMPARE(reached.slack, expected.slack);
    QCOMPARE(reached.policy, expected.policy);
    QCOMPARE(reached.level, expected.level);
    QCOMPARE(reached.niceness, expected.niceness);

    // Nobody else gets it.
    const Standing after = Standing::here();
    QCOMPARE(after.slack, before.slack);
    QCOMPARE(after.policy, before.policy);
    QCOMPARE(after.niceness, before.niceness);
}

#endif

CORVANE_TEST(tst_ThreadPriority, corvane::test::NoApplication)
#include "tst_ThreadPriority.moc"
