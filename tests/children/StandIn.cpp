#include "tests/children/StandIn.h"

#include "tests/children/FakeChild.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>

namespace corvane::fake {

StandIn::StandIn(std::string program, std::vector<std::string> arguments)
    : m_program(std::move(program))
{
    addStep("exit", [this](const std::string &code) { leave(std::stoi(code)); });
    addStep("crash", [](const std::string &) { crash(); });
    addStep("stderr", [](const std::string &bytes) { writeAll(stderr, bytes); });
    addStep("stdout", [](const std::string &bytes) { writeAll(stdout, bytes); });
    addStep("pause", [this](const std::string &ms) { waitFor(std::stoll(ms)); });
    addStep("await", [this](const std::string &path) {
        while (!std::ifstream(path).good())
            waitFor(10);
    });
    addStep("args",
            [arguments = std::move(arguments)](const std::string &path) { writeLines(path, arguments); });
    addStep("end", [](const std::string &) {});
}

void StandIn::addStep(const std::string &name, std::function<void(const std::string &)> action)
{
    m_steps[name] = std::move(action);
}

void StandIn::readInput(const std::function<void(char)> &onByte)
{
    std::thread([this, onByte] {
        for (int byte = std::getchar(); byte != EOF; byte = std::getchar())
            onByte(static_cast<char>(byte));
        const std::lock_guard lock(m_mutex);
        m_inputClosed = true;
        m_changed.notify_all();
    }).detach();
}

void StandIn::request()
{
    const std::lock_guard lock(m_mutex);
    m_requested = true;
    m_changed.notify_all();
}

void StandIn::waitFor(long long ms)
{
    std::unique_lock lock(m_mutex);
    const auto leaving = [this] { return isLeaving(); };
    if (ms < 0)
        m_changed.wait(lock, leaving);
    else
        m_changed.wait_for(lock, std::chrono::milliseconds(ms), leaving);
    if (leaving())
        leave(m_requested && !m_ignoring ? m_code : 0);
}

void StandIn::run(const std::string &steps)
{
    const std::vector<std::string> all = split(steps, ',');
    for (auto step = all.begin(); step != all.end(); ++step) {
        const std::size_t equals = std::min(step->find('='), step->size());
        const std::string name = step->substr(0, equals);
        const std::string value = equals < step->size() ? decoded(step->substr(equals + 1)) : std::string();

        if (name == "once") {
            if (!std::ifstream(value).good()) {
                std::ofstream(value, std::ios::binary) << "once\n";
                continue;
            }
            step = std::find(step, all.end(), "end");
            if (step == all.end())
                break;
        } else if (const auto known = m_steps.find(name); known != m_steps.end()) {
            known->second(value);
        } else if (!name.empty()) {
            std::fprintf(stderr, "%s: no step is called %s\n", m_program.c_str(), name.c_str());
            leave(64);
        }
    }
    for (;;)
        waitFor(-1);
}

void StandIn::leave(int code)
{
    if (m_lastAction)
        m_lastAction();
    std::fflush(stdout); // not every stream: the thread that waits in standard input holds its lock
    std::_Exit(code);
}

} // namespace corvane::fake
