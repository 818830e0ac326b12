// A stand-in for srt-live-transmit and srtla_send whose behaviour is named by an argument,
// "fake:STEP,STEP,…", which ends at a "?". Without such an argument the steps come from FAKE_TRANSPORT in the
// environment.
//
// The steps are taken in order; after the last one the program waits to be asked to terminate and exits with
// 0. It also exits when standard input is closed, so that no test leaves one behind. Arguments of steps are
// percent-decoded (a comma is %2C).
//
//   exit=N            exit with code N
//   crash             die of SIGSEGV
//   no-window         have no hidden window: on Windows, as with the real tools, being asked to terminate
//                     changes nothing; elsewhere the step does nothing. Holds from the start, wherever it
//                     stands
//   ignore-term       from here on being asked to terminate changes nothing
//   term-code=N       from here on it leads to exit code N
//   stderr=TEXT       write the bytes to standard error as they stand
//   stdout=TEXT       the same to standard output
//   pause=MS          wait
//   await=PATH        wait until PATH exists
//   args=PATH         write the arguments to PATH, one to a line
//   append=PATH       append the program's name and the process id to PATH, as one line
//   death=PATH        append the program's name, its first argument and the time to PATH when asked to
//                     terminate: microseconds since the Unix epoch

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
bool termAsked = false;
bool inputClosed = false;
bool ignoreTerm = false;
int termCode = 0;
std::string deathPath;

std::string baseName(const std::string &path)
{
    const std::size_t slash = path.find_last_of("/\\");
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name.substr(0, name.rfind(".exe"));
}

[[noreturn]] void leave(int code)
{
    std::fflush(stdout); // not every stream: the thread that waits in standard input holds its lock
    std::_Exit(code);
}

void watchInput()
{
    while (std::getchar() != EOF) {
    }
    const std::lock_guard lock(mutex);
    inputClosed = true;
    changed.notify_all();
}

/// Waits, or leaves if asked to. A negative time is for ever.
void waitFor(long long ms)
{
    std::unique_lock lock(mutex);
    const auto leaving = [] { return inputClosed || (termAsked && !ignoreTerm); };
    if (ms < 0)
        changed.wait(lock, leaving);
    else
        changed.wait_for(lock, std::chrono::milliseconds(ms), leaving);
    if (leaving())
        leave(termAsked && !ignoreTerm ? termCode : 0);
}

std::string stepsIn(const std::vector<std::string> &arguments)
{
    const std::string prefix = "fake:";
    for (const std::string &argument : arguments) {
        if (const std::size_t at = argument.find(prefix); at != std::string::npos) {
            const std::string rest = argument.substr(at + prefix.size());
            return rest.substr(0, rest.find('?'));
        }
    }
    const char *steps = std::getenv("FAKE_TRANSPORT");
    return steps ? steps : "";
}

void runStep(const std::string &step, const std::string &program, const std::vector<std::string> &arguments)
{
    const std::size_t equals = step.find('=');
    const std::string name = step.substr(0, equals);
    const std::string value = equals == std::string::npos ? std::string() : decoded(step.substr(equals + 1));

    if (name == "exit") {
        leave(std::stoi(value));
    } else if (name == "crash") {
        crash();
    } else if (name == "no-window") {
        // main() has looked for it
    } else if (name == "ignore-term") {
        const std::lock_guard lock(mutex);
        ignoreTerm = true;
    } else if (name == "term-code") {
        const std::lock_guard lock(mutex);
        termCode = std::stoi(value);
    } else if (name == "stderr") {
        writeAll(stderr, value);
    } else if (name == "stdout") {
        writeAll(stdout, value);
    } else if (name == "pause") {
        waitFor(std::stoll(value));
    } else if (name == "await") {
        while (!std::ifstream(value).good())
            waitFor(10);
    } else if (name == "args") {
        writeLines(value, arguments);
    } else if (name == "append") {
        appendLine(value, program + ' ' + std::to_string(processId()));
    } else if (name == "death") {
        const std::lock_guard lock(mutex);
        deathPath = value;
    } else if (!name.empty()) {
        std::fprintf(stderr, "fake_transport: no step is called %s\n", name.c_str());
        leave(64);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    useBinaryStreams();
    const std::string program = baseName(argv[0]);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::vector<std::string> steps = split(stepsIn(arguments), ',');
    const bool window = std::find(steps.begin(), steps.end(), "no-window") == steps.end();

    const auto asked = [&] {
        const std::lock_guard lock(mutex);
        if (!deathPath.empty() && !termAsked) {
            const std::string first = arguments.empty() ? std::string() : arguments.front();
            appendLine(deathPath, program + ' ' + first + ' ' + std::to_string(clockMicroseconds()));
        }
        termAsked = true;
        changed.notify_all();
    };
    onTerminate(asked, window);
    std::thread(watchInput).detach();

    for (const std::string &step : steps)
        runStep(step, program, arguments);
    waitFor(-1);
    return 0;
}
