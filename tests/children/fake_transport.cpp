// A stand-in for srt-live-transmit and srtla_send whose behaviour is named by an argument,
// "fake:STEP,STEP,…", which ends at a "?": the steps of StandIn.h and those below. Without such an argument
// the steps come from FAKE_TRANSPORT in the environment. A request to terminate asks it to leave.
//
//   no-window         have no hidden window: on Windows, as with the real tools, a request to terminate then
//                     has no effect; elsewhere the step has none. Holds from the start, wherever it stands
//   ignore-term       from here on being asked to terminate changes nothing
//   term-code=N       from here on it leads to exit code N
//   append=PATH       append the program's name and the process id to PATH, as one line
//   death=PATH        append the program's name, its first argument and the time to PATH when asked to
//                     terminate: microseconds since the Unix epoch

#include "tests/children/FakeChild.h"
#include "tests/children/StandIn.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

using namespace corvane::fake;

namespace {

std::string baseName(const std::string &path)
{
    const std::size_t slash = path.find_last_of("/\\");
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name.substr(0, name.rfind(".exe"));
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

} // namespace

int main(int argc, char *argv[])
{
    useBinaryStreams();
    const std::string program = baseName(argv[0]);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::vector<std::string> steps = split(stepsIn(arguments), ',');
    const bool window = std::find(steps.begin(), steps.end(), "no-window") == steps.end();

    StandIn child("fake_transport", arguments);
    std::mutex mutex;
    std::string deathPath; // emptied by the first request
    const auto asked = [&] {
        const std::lock_guard lock(mutex);
        if (const std::string path = std::exchange(deathPath, {}); !path.empty()) {
            const std::string first = arguments.empty() ? std::string() : arguments.front();
            appendLine(path, program + ' ' + first + ' ' + std::to_string(clockMicroseconds()));
        }
        child.request();
    };
    onTerminate(asked, window);
    child.addStep("no-window", [](const std::string &) {}); // looked for above
    child.addStep("ignore-term", [&](const std::string &) { child.ignoreRequests(); });
    child.addStep("term-code", [&](const std::string &code) { child.setRequestCode(std::stoi(code)); });
    child.addStep("append", [&](const std::string &path) {
        appendLine(path, program + ' ' + std::to_string(processId()));
    });
    child.addStep("death", [&](const std::string &path) {
        const std::lock_guard lock(mutex);
        deathPath = path;
    });
    child.readInput([](char) {});
    child.run(stepsIn(arguments));
}
