// A stand-in for ffmpeg whose behaviour is named by its last argument, "fake:STEP,STEP,…": the steps of
// StandIn.h and those below. A "q" on standard input asks it to leave.
//
//   ignore-q          from here on a "q" is read and ignored
//   ignore-term       from here on being asked to terminate changes nothing, as with a child without a window
//   quit-code=N       from here on a "q" leads to exit code N
//   input=PATH        from here on append to PATH what comes on standard input
//   progress          one progress line, ended by a carriage return, every 100 ms, for ever
//   progress=N        N progress lines ended by line feeds, at once
//   drops=MS          a progress line every MS milliseconds whose drop total rises by 5 each time, for ever
//   pace=MS           a progress line every MS milliseconds whose frame rate and bit rate differ from
//                     those of the line before, for ever
//   flood=N           N lines of warning on standard error, at once
//   append=PATH       append the process id to PATH, as one line
//   clock=PATH        append the time to PATH, as one line: microseconds since the Unix epoch
//   death=PATH        append "ffmpeg" and the time to PATH when leaving
//   await-input=N     wait until N bytes have come on standard input
//   signal            of an encoder behind the companion of tools/air: it begins to end its outputs
//   gate              the same: it asks to be let through, and waits
//   stream=N          the same: N zero bytes of the stream
//   stream-text=TEXT  the same: these bytes of it
//   variable=NAME     write the value of this environment variable to standard error, and a line feed
//   rest              the remainder of the argument is none of this program's
//
// Asked for -encoders, -protocols or -h it answers with FAKE_FFMPEG_ENCODERS, FAKE_FFMPEG_PROTOCOLS or
// FAKE_FFMPEG_HELP from the environment; FAKE_FFMPEG_PROBE=hang makes it wait for ever instead,
// FAKE_FFMPEG_PROBE=exit1 answers with code 1, FAKE_FFMPEG_PROBE=crash crashes behind the answer,
// FAKE_FFMPEG_PROBE=stderr gives it on standard error, FAKE_FFMPEG_PROBE=long writes more before it than any
// pipe holds. FAKE_FFMPEG_ASKED=PATH makes it append its arguments to PATH, as one line.

#include "tests/children/FakeChild.h"
#include "tests/children/StandIn.h"

#include <array>
#include <chrono>
#include <csignal>
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

/// Copy of what comes on standard input, from the step "input" on.
class InputCopy
{
public:
    void open(const std::string &path)
    {
        const std::lock_guard lock(m_mutex);
        m_file.open(path, std::ios::binary | std::ios::app);
    }

    void write(char byte)
    {
        const std::lock_guard lock(m_mutex);
        ++m_count;
        if (m_file.is_open())
            m_file << byte << std::flush;
    }

    [[nodiscard]] long count()
    {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

private:
    std::mutex m_mutex;
    std::ofstream m_file;
    long m_count = 0; ///< bytes that have come
};

/// Outputs that the companion has put into the last argument: signal and gate before the destinations, the
/// stream behind them. Opened at the first write.
class AirOutputs
{
public:
    enum Output { Signal, Gate, Stream };

    explicit AirOutputs(const std::string &slaves)
    {
        const std::vector<std::string> parts = split(slaves, '|');
        if (parts.size() >= 4)
            m_names = {target(parts[0]), target(parts[1]), target(parts.back())};
    }

    void write(Output output, const std::string &bytes)
    {
        if (!m_files[output])
            m_files[output] = std::fopen(m_names[output].c_str(), "wb");
        if (!m_files[output])
            std::fprintf(stderr, "fake_ffmpeg: there is no output \"%s\"\n", m_names[output].c_str());
        else
            writeAll(m_files[output], bytes);
    }

private:
    static std::string target(const std::string &slave)
    {
        std::string name;
        for (std::size_t at = slave.find(']') + 1; at < slave.size(); ++at) {
            if (slave[at] == '\\')
                ++at;
            name += slave[at];
        }
        const std::string_view descriptor = "pipe:";
        return name.starts_with(descriptor) ? "/dev/fd/" + name.substr(descriptor.size()) : name;
    }

    std::array<std::string, 3> m_names;
    std::array<std::FILE *, 3> m_files{};
};

std::string progressLine(long frame, long dropped, char end, int fps = 30, double bitrate = 6012.3)
{
    char line[200];
    std::snprintf(line, sizeof line,
                  "frame=%5ld fps= %d q=28.0 size=    %ldkB time=00:00:%05.2f bitrate=%.1fkbits/s drop=%ld "
                  "speed=   1x %c",
                  frame, fps, frame * 25, static_cast<double>(frame) / 30, bitrate, dropped, end);
    return line;
}

void noteQuestion(const std::vector<std::string> &arguments)
{
    const char *path = std::getenv("FAKE_FFMPEG_ASKED");
    if (!path || !*path)
        return;
    std::string line;
    for (const std::string &argument : arguments)
        line += (line.empty() ? "" : " ") + argument;
    appendLine(path, line);
}

int answerProbe(const char *variable)
{
    const char *mode = std::getenv("FAKE_FFMPEG_PROBE");
    if (mode && std::string_view(mode) == "hang")
        std::this_thread::sleep_for(std::chrono::minutes(1)); // ended by the one that asked
    if (mode && std::string_view(mode) == "long")
        std::fputs(std::string(100000, '\n').c_str(), stdout);
    if (const char *answer = std::getenv(variable))
        std::fputs(answer, mode && std::string_view(mode) == "stderr" ? stderr : stdout);
    if (mode && std::string_view(mode) == "crash") {
        std::fflush(stdout);
        crash();
    }
    return mode && std::string_view(mode) == "exit1" ? 1 : 0;
}

void addProgressSteps(StandIn &child)
{
    child.addStep("progress", [&child](const std::string &count) {
        if (!count.empty()) {
            const long frames = std::stol(count);
            for (long frame = 1; frame <= frames; ++frame)
                writeAll(stderr, progressLine(frame, 0, '\n'));
            return;
        }
        for (long frame = 1;; frame += 3, child.waitFor(100))
            writeAll(stderr, progressLine(frame, 0, '\r'));
    });
    child.addStep("drops", [&child](const std::string &interval) {
        const long long ms = std::stoll(interval);
        for (long frame = 1;; ++frame, child.waitFor(ms))
            writeAll(stderr, progressLine(frame, frame * 5, '\r'));
    });
    child.addStep("pace", [&child](const std::string &interval) {
        const long long ms = std::stoll(interval);
        for (long frame = 1;; ++frame, child.waitFor(ms))
            writeAll(stderr, progressLine(frame, 0, '\n', 28 + static_cast<int>(frame % 5),
                                          5900 + static_cast<double>(frame % 97)));
    });
    child.addStep("flood", [](const std::string &count) {
        const long lines = std::stol(count);
        for (long line = 1; line <= lines; ++line)
            writeAll(stderr, "[fake @ 0x1] warning number " + std::to_string(line) + " of a flood\n");
    });
}

void addAirSteps(StandIn &child, AirOutputs &outputs)
{
    child.addStep("signal", [&](const std::string &) { outputs.write(AirOutputs::Signal, "x\n"); });
    child.addStep("gate", [&](const std::string &) { outputs.write(AirOutputs::Gate, "x\n"); });
    child.addStep("stream", [&](const std::string &size) {
        outputs.write(AirOutputs::Stream, std::string(std::stoul(size), '\0'));
    });
    child.addStep("stream-text", [&](const std::string &text) { outputs.write(AirOutputs::Stream, text); });
    child.addStep("rest", [](const std::string &) {});
}

} // namespace

int main(int argc, char *argv[])
{
    useBinaryStreams();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    noteQuestion(arguments);
    for (const std::string &argument : arguments) {
        if (argument == "-encoders")
            return answerProbe("FAKE_FFMPEG_ENCODERS");
        if (argument == "-protocols")
            return answerProbe("FAKE_FFMPEG_PROTOCOLS");
        if (argument == "-h")
            return answerProbe("FAKE_FFMPEG_HELP");
    }

    const std::string last = arguments.empty() ? std::string() : arguments.back();
    const std::string_view prefix = "fake:";
    const std::size_t behaviour = last.find(prefix);
    if (behaviour == std::string::npos) {
        std::fprintf(stderr, "fake_ffmpeg: the last argument names no behaviour: %s\n", last.c_str());
        return 64;
    }

    StandIn child("fake_ffmpeg", arguments);
    InputCopy copy;
    AirOutputs outputs(last);
    addProgressSteps(child);
    addAirSteps(child, outputs);
    child.addStep("await-input", [&](const std::string &count) {
        while (copy.count() < std::stol(count))
            child.waitFor(20);
    });
    child.addStep("variable", [](const std::string &name) {
        const char *value = std::getenv(name.c_str());
        std::fprintf(stderr, "%s\n", value ? value : "");
    });
    child.addStep("ignore-q", [&](const std::string &) { child.ignoreRequests(); });
    child.addStep("ignore-term", [](const std::string &) { std::signal(SIGTERM, SIG_IGN); });
    child.addStep("quit-code", [&](const std::string &code) { child.setRequestCode(std::stoi(code)); });
    child.addStep("input", [&](const std::string &path) { copy.open(path); });
    child.addStep("append", [](const std::string &path) { appendLine(path, std::to_string(processId())); });
    child.addStep("clock",
                  [](const std::string &path) { appendLine(path, std::to_string(clockMicroseconds())); });
    child.addStep("death", [&](const std::string &path) {
        child.onLeave([path] { appendLine(path, "ffmpeg " + std::to_string(clockMicroseconds())); });
    });
    child.readInput([&](char byte) {
        copy.write(byte);
        if (byte == 'q')
            child.request();
    });
    child.run(last.substr(behaviour + prefix.size()));
}
