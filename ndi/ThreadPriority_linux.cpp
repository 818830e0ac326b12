#include "ndi/ThreadPriority.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace corvane {

void makeThreadTimeCritical()
{
    // No slack: the kernel delays other threads' wake-ups by up to 50 µs, to bundle them.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);

    // Real time where the user's limits (rtprio) grant it. Its lowest level is above every ordinary thread.
    sched_param lowest{};
    lowest.sched_priority = sched_get_priority_min(SCHED_RR);
    if (pthread_setschedparam(pthread_self(), SCHED_RR, &lowest) == 0)
        return;

    // Otherwise the best niceness that the limits (nice) grant. On Linux it belongs to the thread.
    const auto thread = static_cast<id_t>(gettid());
    for (int niceness = -20; niceness < 0; ++niceness) {
        if (setpriority(PRIO_PROCESS, thread, niceness) == 0)
            return;
    }
}

} // namespace corvane
