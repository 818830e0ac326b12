// Guards itself with CrashGuard, waits for a line on standard input and dies as its arguments demand:
//
//   crasher DIRECTORY DEATH [CIRCUMSTANCE...]
//
// Deaths: "null-write", "abort", "divide", "illegal", "throw", "throw-other", "noexcept", "overflow" (of the
// stack), "raise=SIGNAL"; and those of the platform, see dieLikeHere().
// Circumstances: "worker" (a thread of its own dies), "heap-held" (another thread has the heap's lock),
// "heap-own" (the dying one has it), "pieces" (a "|" after every piece of the report),
// "again=NUMBER:DEATH" (a second death, before that piece of the report is written).
//
// The heap is watched: "heap used" on standard error reports that the dying thread allocated or released.

#include "app/CrashGuard.h"
#include "tests/children/CrasherHooks.h"

#include <QString>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

using namespace corvane;

namespace {

/// The exception's construction is the last act of the dying thread: its memory exists by then.
struct Thrown : std::exception
{
    Thrown() { crasher::watchHeap(); }
};

volatile bool deeper = true;

int recurse(int depth)
{
    volatile char frame[1024];
    frame[0] = static_cast<char>(depth);
    return deeper ? recurse(depth + 1) + frame[0] : frame[0];
}

void throwOne()
{
    throw Thrown();
}

void throwPastNoexcept() noexcept // NOLINT(bugprone-exception-escape): that is the death
{
    throwOne();
}

void die(std::string_view death)
{
    if (death == "throw")
        throwOne();
    if (death == "throw-other")
        throw 42;
    if (death == "noexcept")
        throwPastNoexcept();

    crasher::watchHeap();
    if (death == "null-write")
        crasher::writeToNull();
    else if (death == "abort")
        std::abort();
    else if (death == "divide")
        crasher::divideByZero();
    else if (death == "illegal")
        crasher::runIllegalInstruction();
    else if (death == "overflow")
        recurse(0);
    else if (death.starts_with("raise="))
        std::raise(std::atoi(death.substr(6).data()));
    else
        crasher::dieLikeHere(death);
}

struct Circumstances
{
    bool worker = false;
    bool heapHeld = false;
    bool heapOwn = false;
};

std::string secondDeath;

void dieAgain()
{
    die(secondDeath);
}

void dieIn(std::string_view death, const Circumstances &circumstances)
{
    if (circumstances.heapHeld) {
        static std::atomic<bool> held = false;
        std::thread([] {
            crasher::lockHeap();
            held = true;
            held.notify_all();
            held.wait(true); // for ever
        }).detach();
        held.wait(false);
    }
    if (circumstances.heapOwn)
        crasher::lockHeap();
    die(death);
}

} // namespace

int main(int argc, char *argv[]) // NOLINT(bugprone-exception-escape): one death is just that
{
    if (argc < 3)
        return 2;
    crasher::limitResources();
    const std::string_view death = argv[2];
    Circumstances circumstances;
    for (int i = 3; i < argc; ++i) {
        const std::string_view word = argv[i];
        circumstances.worker |= word == "worker";
        circumstances.heapHeld |= word == "heap-held";
        circumstances.heapOwn |= word == "heap-own";
        if (word == "pieces")
            crasher::markPieces();
        if (word.starts_with("again=")) {
            const std::string value(word.substr(6));
            secondDeath = value.substr(value.find(':') + 1);
            crasher::callBeforePiece(std::atoi(value.c_str()), dieAgain);
        }
    }

    CrashGuard::install(QString::fromLocal8Bit(argv[1]));
    std::puts("ready");
    std::fflush(stdout);
    if (std::getchar() == EOF)
        return 3;

    if (circumstances.worker)
        std::thread(dieIn, death, circumstances).join();
    else
        dieIn(death, circumstances);
    return 4; // it lived
}
