#include "app/CrashReport.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <initializer_list>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace corvane::CrashReport {

namespace {

constexpr mode_t permissions = 0644;

// Second stack of the main thread: after a stack overflow its handler can't run on the first. Other threads
// have none, as no outside input decides how deep they call.
alignas(16) char handlerStack[64 * 1024];

void onSignal(int signal)
{
    append(reasonOf(signal), signal);
    // The process ends by the signal that it got, with the usual exit status.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

[[noreturn]] void onTerminate()
{
    append("std::terminate (exceção não capturada)", 0);
    std::abort();
}

void handle(int signal)
{
    struct sigaction action
    {
    };
    action.sa_handler = onSignal;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

} // namespace

void installHandlers()
{
    stack_t stack{};
    stack.ss_sp = handlerStack;
    stack.ss_size = sizeof handlerStack;
    sigaltstack(&stack, nullptr);

    for (const int signal : {SIGSEGV, SIGABRT, SIGFPE, SIGILL})
        handle(signal);
    std::set_terminate(onTerminate);
}

int openForAppend(const char *path)
{
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, permissions);
}

void write(int file, const char *text, std::size_t size)
{
    // A failed write is ignored: nothing is left to report it to.
    [[maybe_unused]] const ssize_t written = ::write(file, text, size);
}

void close(int file)
{
    ::close(file);
}

void writeSentinel()
{
    const int file = open(runningPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, permissions);
    if (file < 0)
        return;
    write(file, "running\n", 8);
    close(file);
}

bool exists(const char *path)
{
    struct stat status
    {
    };
    return stat(path, &status) == 0;
}

void remove(const char *path)
{
    unlink(path);
}

} // namespace corvane::CrashReport
