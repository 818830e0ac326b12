#include "tests/children/FakeChild.h"

#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace corvane::fake {

long processId()
{
    return getpid();
}

void crash()
{
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(SIGSEGV, SIG_DFL);
    std::raise(SIGSEGV);
    std::abort();
}

void useBinaryStreams() {}

void onTerminate(std::function<void()> handler, bool /*window*/)
{
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &asked, nullptr);
    std::thread([asked, handler = std::move(handler)] {
        int signal = 0;
        while (sigwait(&asked, &signal) == 0)
            handler();
    }).detach();
}

} // namespace corvane::fake
