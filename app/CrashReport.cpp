#include "app/CrashReport.h"

#include <csignal>
#include <cstddef>
#include <initializer_list>

namespace corvane::CrashReport {

char crashDir[directorySize];
char runningPath[pathSize];
char crashLogPath[pathSize];
char crashDumpPath[pathSize];

namespace {

std::size_t lengthOf(const char *text)
{
    std::size_t length = 0;
    while (text[length] != '\0')
        ++length;
    return length;
}

void put(int file, const char *text)
{
    write(file, text, lengthOf(text));
}

/// " sig=" and the number, formatted without stdio; 16 bytes hold any number.
void putSignal(int file, int signal)
{
    char buffer[16];
    char *const end = buffer + sizeof buffer;
    char *at = end;
    unsigned rest = signal < 0 ? 0U - static_cast<unsigned>(signal) : static_cast<unsigned>(signal);
    do {
        *--at = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (signal < 0)
        *--at = '-';
    for (const char letter : {'=', 'g', 'i', 's', ' '})
        *--at = letter;
    write(file, at, static_cast<std::size_t>(end - at));
}

} // namespace

const char *reasonOf(int signal)
{
    switch (signal) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGABRT:
        return "SIGABRT";
    case SIGFPE:
        return "SIGFPE";
    case SIGILL:
        return "SIGILL";
    default:
        return "signal";
    }
}

void append(const char *reason, int signal)
{
    const int file = openForAppend(crashLogPath);
    if (file < 0)
        return;
    put(file, "=== CORVANE CRASH ===\nreason: ");
    if (reason)
        put(file, reason);
    if (signal != 0)
        putSignal(file, signal);
    put(file, "\n");
    put(file, "=== end ===\n");
    close(file);
}

} // namespace corvane::CrashReport
