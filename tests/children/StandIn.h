#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace corvane::fake {

/// Stand-in for a child program: performs steps, "NAME" or "NAME=VALUE", in their order, then waits to be
/// asked to leave. It honours that request during every wait, and leaves too when standard input is closed,
/// so that no test leaves one behind. Values are percent-decoded (a comma is %2C). Steps of every stand-in:
///
///   exit=N        exit with code N
///   crash         die of SIGSEGV
///   stderr=TEXT   write the bytes to standard error as they stand
///   stdout=TEXT   the same to standard output
///   pause=MS      wait
///   await=PATH    wait until PATH exists
///   args=PATH     write the arguments to PATH, one to a line
///   once=PATH     if PATH exists, skip to the step after "end"; else create it and go on
///   end           see once
///
/// One object a process, alive until its end. request() may be called on any thread, the rest on the main
/// thread only.
class StandIn
{
public:
    /// `program` names it in error messages.
    StandIn(std::string program, std::vector<std::string> arguments);

    /// Adds a step; its value is empty where it has none.
    void addStep(const std::string &name, std::function<void(const std::string &value)> action);

    /// Starts to read standard input on a thread of its own, which calls `onByte`.
    void readInput(const std::function<void(char byte)> &onByte);

    void request();                                  ///< asks it to leave
    void ignoreRequests() { m_ignoring = true; }     ///< from here on
    void setRequestCode(int code) { m_code = code; } ///< exit code of a request that is honoured, 0 at first

    /// Waits `ms` milliseconds, or for ever if that is negative; leaves if asked to.
    void waitFor(long long ms);

    /// Performs `steps`, separated by commas. Exit code 64 for a step of an unknown name.
    [[noreturn]] void run(const std::string &steps);

    /// Sets what is done last, however it leaves.
    void onLeave(std::function<void()> action) { m_lastAction = std::move(action); }
    [[noreturn]] void leave(int code);

private:
    [[nodiscard]] bool isLeaving() const { return m_inputClosed || (m_requested && !m_ignoring); }

    std::string m_program;
    std::map<std::string, std::function<void(const std::string &)>> m_steps;
    std::function<void()> m_lastAction;
    bool m_ignoring = false;
    int m_code = 0;

    std::mutex m_mutex; ///< of the two below
    std::condition_variable m_changed;
    bool m_requested = false;
    bool m_inputClosed = false;
};

} // namespace corvane::fake
