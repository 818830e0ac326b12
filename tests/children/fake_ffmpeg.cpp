// A stand-in for ffmpeg whose behaviour is named by its last argument, "fake:STEP,STEP,…".
//
// The steps are taken in order; after the last one the program waits for a "q" on standard input and exits
// with 0. It also exits when standard input is closed, so that no test leaves one behind. A "q" is honoured
// during every wait. Arguments of steps are percent-decoded (a comma is %2C).
//
//   exit=N            exit with code N
//   crash             die of SIGSEGV
//   ignore-q          from here on a "q" is read and ignored
//   quit-code=N       from here on a "q" leads to exit code N
//   stderr=TEXT       write the bytes to standard error as they stand
//   stdout=TEXT       the same to standard output
//   pause=MS          wait
//   await=PATH        wait until PATH exists
//   input=PATH        from here on append to PATH what comes on standard input
//   progress          one progress line, ended by a carriage return, every 100 ms, for ever
//   progress=N        N progress lines ended by line feeds, at once
//   drops=MS          a progress line every MS milliseconds whose drop total rises by 5 each time, for ever
//   pace=MS           a progress line every MS milliseconds whose frame rate and bit rate differ from those
//   of
//                     the line before, for ever
//   flood=N           N lines of warning on standard error, at once
//   args=PATH         write the arguments to PATH, one to a line
//   append=PATH       append the process id to PATH, as one line
//   clock=PATH        append the time to PATH, as one line: microseconds since the Unix epoch
//   death=PATH        append "ffmpeg" and the time to PATH when leaving
//   once=PATH         if PATH exists, skip to the step after "end"; else make it and go on
//   end               see once
//
// Asked for -encoders or -protocols it answers with FAKE_FFMPEG_ENCODERS or FAKE_FFMPEG_PROTOCOLS from the
// environment; FAKE_FFMPEG_PROBE=hang makes it wait for ever instead, FAKE_FFMPEG_PROBE=exit1 answers with
// code 1, FAKE_FFMPEG_PROBE=long says more before the answer than any pipe holds.

#include "tests/children/FakeChild.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace corvane::fake;

namespace {

std::mutex mutex;
std::condition_variable changed;
bool quitAsked = false;
bool inputClosed = false;
bool ignoreQuit = false;
int quitCode = 0;
std::ofstream inputCopy;
std::string deathPath;

[[noreturn]] void leave(int code)
{
    if (!deathPath.empty())
        appendLine(deathPath, "ffmpeg " + std::to_string(clockMicroseconds()));
    std::fflush(stdout); // not every stream: the thread that waits in standard input holds its lock
    std::_Exit(code);
}

void watchInput()
{
    for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
        const std::lock_guard lock(mutex);
        if (inputCopy.is_open())
            inputCopy << static_cast<char>(byte) << std::flush;
        quitAsked = quitAsked || byte == 'q';
        changed.notify_all();
    }
    const std::lock_guard lock(mutex);
    inputClosed = true;
    changed.notify_all();
}

/// Waits, or leaves if asked to. A negative time is for ever.
void waitFor(long long ms)
{
    std::unique_lock lock(mutex);
    const auto leaving = [] { return inputClosed || (quitAsked && !ignoreQuit); };
    if (ms < 0)
        changed.wait(lock, leaving);
    else
        changed.wait_for(lock, std::chrono::milliseconds(ms), leaving);
    if (leaving())
        leave(quitAsked && !ignoreQuit ? quitCode : 0);
}

std::string progressLine(long frame, long dropped, char end, int fps = 30, double bitrate = 6012.3)
{
    char line[200];
    std::snprintf(line, sizeof line,
                  "frame=%5ld fps= %d q=28.0 size=    %ldkB time=00:00:%05.2f bitrate=%.1fkbits/s drop=%ld "
                  "speed=   1x %c",
                  frame, fps, frame * 25, static_cast<double>(frame) / 30, bitrate, dropped, end);
    return line;
}

int answerProbe(const char *variable)
{
    const char *mode = std::getenv("FAKE_FFMPEG_PROBE");
    if (mode && std::string_view(mode) == "hang")
        std::this_thread::sleep_for(std::chrono::minutes(1)); // ended by the one that asked
    if (mode && std::string_view(mode) == "long")
        std::fputs(std::string(100000, '\n').c_str(), stdout);
    if (const char *answer = std::getenv(variable))
        std::fputs(answer, stdout);
    return mode && std::string_view(mode) == "exit1" ? 1 : 0;
}

void runSteps(const std::vector<std::string> &steps, const std::vector<std::string> &arguments)
{
    for (auto step = steps.begin(); step != steps.end(); ++step) {
        const std::size_t equals = std::min(step->find('='), step->size());
        const std::string name = step->substr(0, equals);
        const bool hasValue = equals < step->size();
        const std::string value = hasValue ? decoded(step->substr(equals + 1)) : std::string();

        if (name == "exit") {
            leave(std::stoi(value));
        } else if (name == "crash") {
            crash();
        } else if (name == "ignore-q") {
            const std::lock_guard lock(mutex);
            ignoreQuit = true;
        } else if (name == "quit-code") {
            const std::lock_guard lock(mutex);
            quitCode = std::stoi(value);
        } else if (name == "stderr") {
            writeAll(stderr, value);
        } else if (name == "stdout") {
            writeAll(stdout, value);
        } else if (name == "pause") {
            waitFor(std::stoll(value));
        } else if (name == "await") {
            while (!std::ifstream(value).good())
                waitFor(10);
        } else if (name == "progress" && hasValue) {
            const long count = std::stol(value);
            for (long frame = 1; frame <= count; ++frame)
                writeAll(stderr, progressLine(frame, 0, '\n'));
        } else if (name == "progress") {
            for (long frame = 1;; frame += 3, waitFor(100))
                writeAll(stderr, progressLine(frame, 0, '\r'));
        } else if (name == "drops") {
            const long long interval = std::stoll(value);
            for (long frame = 1;; ++frame, waitFor(interval))
                writeAll(stderr, progressLine(frame, frame * 5, '\r'));
        } else if (name == "pace") {
            const long long interval = std::stoll(value);
            for (long frame = 1;; ++frame, waitFor(interval))
                writeAll(stderr, progressLine(frame, 0, '\n', 28 + static_cast<int>(frame % 5),
                                              5900 + static_cast<double>(frame % 97)));
        } else if (name == "flood") {
            const long count = std::stol(value);
            for (long line = 1; line <= count; ++line)
                writeAll(stderr, "[fake @ 0x1] warning number " + std::to_string(line) + " of a flood\n");
        } else if (name == "args") {
            writeLines(value, arguments);
        } else if (name == "input") {
            const std::lock_guard lock(mutex);
            inputCopy.open(value, std::ios::binary | std::ios::app);
        } else if (name == "append") {
            appendLine(value, std::to_string(processId()));
        } else if (name == "clock") {
            appendLine(value, std::to_string(clockMicroseconds()));
        } else if (name == "death") {
            const std::lock_guard lock(mutex);
            deathPath = value;
        } else if (name == "once") {
            if (std::ifstream(value).good()) {
                step = std::find(step, steps.end(), "end");
                if (step == steps.end())
                    return;
            } else {
                std::ofstream(value, std::ios::binary) << "once\n";
            }
        } else if (name != "end") {
            std::fprintf(stderr, "fake_ffmpeg: no step is called %s\n", name.c_str());
            leave(64);
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    useBinaryStreams();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    for (const std::string &argument : arguments) {
        if (argument == "-encoders")
            return answerProbe("FAKE_FFMPEG_ENCODERS");
        if (argument == "-protocols")
            return answerProbe("FAKE_FFMPEG_PROTOCOLS");
    }

    const std::string last = arguments.empty() ? std::string() : arguments.back();
    const std::string_view prefix = "fake:";
    const std::size_t behaviour = last.find(prefix);
    if (behaviour == std::string::npos) {
        std::fprintf(stderr, "fake_ffmpeg: the last argument names no behaviour: %s\n", last.c_str());
        return 64;
    }

    std::thread(watchInput).detach();
    runSteps(split(last.substr(behaviour + prefix.size()), ','), arguments);
    waitFor(-1);
    return 0;
}
