#include "tools/air/Supervise.h"

#include "tools/air/AirRewrite.h"
#include "tools/air/AirSession.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace corvane::air {

namespace {

// A name server that was away is asked again within a second after its return, not within five.
constexpr auto nameLookups = "timeout:1 attempts:5";

// Descriptors of the encoder.
constexpr int meterDescriptor = 3;
constexpr int signalDescriptor = 4;
constexpr int gateDescriptor = 5;
constexpr int firstOwn = 10; ///< those of the companion lie above them

std::int64_t now()
{
    // Stands still while the machine sleeps.
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// Both ends of a pipe, above the descriptors of the encoder and closed when it is run.
struct Pipe
{
    int from = -1;
    int to = -1;

    bool open()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return false;
        from = moved(ends[0]);
        to = moved(ends[1]);
        return from >= 0 && to >= 0;
    }

private:
    static int moved(int descriptor)
    {
        const int high = fcntl(descriptor, F_DUPFD_CLOEXEC, firstOwn);
        ::close(descriptor);
        return high;
    }
};

void closeOnce(int &descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

void writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nobody listens
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// Fills a pipe, so that whoever writes to it next waits.
void fill(const Pipe &pipe)
{
    const int flags = fcntl(pipe.to, F_GETFL);
    fcntl(pipe.to, F_SETFL, flags | O_NONBLOCK);
    constexpr std::array<char, 4096> bytes{};
    for (std::size_t size = bytes.size(); size > 0; size /= 2) {
        while (write(pipe.to, bytes.data(), size) > 0)
            ;
    }
    fcntl(pipe.to, F_SETFL, flags);
}

/// Takes everything out of a pipe: who waits to write to it goes on.
void drain(int descriptor)
{
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    std::array<char, 4096> bytes{};
    while (read(descriptor, bytes.data(), bytes.size()) > 0)
        ;
}

/// One read, as the pipe has something or has come to its end, which closes it.
template <typename Use>
void readOnce(int &descriptor, Use use)
{
    std::array<char, 65536> bytes; // read() fills it
    const ssize_t size = read(descriptor, bytes.data(), bytes.size());
    if (size > 0)
        use(std::string_view(bytes.data(), static_cast<std::size_t>(size)));
    else if (size == 0 || errno != EINTR)
        closeOnce(descriptor);
}

/// The encoder and the pipes to it.
class Encoder
{
public:
    bool start(const std::string &ffmpeg, std::vector<std::string> arguments);
    int run(const CorvaneList &list, const std::string &recordings);

private:
    [[noreturn]] void becomeEncoder(const std::string &ffmpeg, const std::vector<char *> &vector,
                                    pid_t parent) const;
    void serve(AirSession &session);
    void passInput(AirSession &session);

    pid_t m_pid = -1;
    Pipe m_input;
    Pipe m_error;
    Pipe m_meter;
    Pipe m_signal;
    Pipe m_gate;
    Pipe m_failure; ///< errno of an encoder that can't be run
    int m_ownInput = STDIN_FILENO;
};

bool Encoder::start(const std::string &ffmpeg, std::vector<std::string> arguments)
{
    for (Pipe *const pipe : {&m_input, &m_error, &m_meter, &m_signal, &m_gate, &m_failure}) {
        if (!pipe->open())
            return false;
    }
    fill(m_gate);
    std::vector<char *> vector{const_cast<char *>(ffmpeg.c_str())};
    for (std::string &argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);

    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid == 0)
        becomeEncoder(ffmpeg, vector, parent);
    for (int *const end : {&m_input.from, &m_error.to, &m_meter.to, &m_signal.to, &m_gate.to, &m_failure.to})
        closeOnce(*end);
    if (m_pid < 0)
        return false;
    int failure = 0;
    if (read(m_failure.from, &failure, sizeof failure) == sizeof failure) {
        errno = failure;
        return false;
    }
    closeOnce(m_failure.from);
    return true;
}

void Encoder::becomeEncoder(const std::string &ffmpeg, const std::vector<char *> &vector, pid_t parent) const
{
    // The program's kill takes the encoder with it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGPIPE, SIG_DFL);
    if (getppid() == parent) {
        dup2(m_input.from, STDIN_FILENO);
        dup2(m_error.to, STDERR_FILENO);
        dup2(m_meter.to, meterDescriptor);
        dup2(m_signal.to, signalDescriptor);
        dup2(m_gate.to, gateDescriptor);
        setenv("RES_OPTIONS", nameLookups, 0);
        execv(ffmpeg.c_str(), vector.data());
        const int failure = errno;
        writeAll(m_failure.to, {reinterpret_cast<const char *>(&failure), sizeof failure});
    }
    _exit(127);
}

void Encoder::passInput(AirSession &session)
{
    readOnce(m_ownInput, [&](std::string_view bytes) {
        writeAll(m_input.to, bytes);
        session.onInput(bytes, now());
    });
    if (m_ownInput < 0)
        closeOnce(m_input.to);
}

void Encoder::serve(AirSession &session)
{
    while (m_error.from >= 0) {
        std::array<pollfd, 4> watched{{{m_ownInput, POLLIN, 0},
                                       {m_error.from, POLLIN, 0},
                                       {m_meter.from, POLLIN, 0},
                                       {m_signal.from, POLLIN, 0}}};
        poll(watched.data(), watched.size(), AirSession::tickMs);
        if (watched[0].revents != 0)
            passInput(session);
        if (watched[1].revents != 0)
            readOnce(m_error.from, [&](std::string_view bytes) { session.onError(bytes, now()); });
        if (watched[2].revents != 0)
            readOnce(m_meter.from, [&](std::string_view bytes) { session.onStream(bytes, now()); });
        if (watched[3].revents != 0)
            readOnce(m_signal.from, [&](std::string_view) { session.onSignal(now()); });
        session.onTick(now());
        if (session.endsEncoder())
            kill(m_pid, SIGKILL);
        else if (session.letsThrough())
            drain(m_gate.from);
    }
    session.onErrorEnd(now());
}

int Encoder::run(const CorvaneList &list, const std::string &recordings)
{
    AirSession session(list, recordings, [](std::string_view text) { writeAll(STDERR_FILENO, text); });
    serve(session);
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
        ;
    while (m_meter.from >= 0) // its end, which the encoder has left in the pipe
        readOnce(m_meter.from, [&](std::string_view bytes) { session.onRestOfStream(bytes); });

    const std::optional<int> left = WIFSIGNALED(status) ? std::nullopt : std::optional(WEXITSTATUS(status));
    if (const auto code = session.finish(left))
        return *code;
    std::signal(WTERMSIG(status), SIG_DFL);
    raise(WTERMSIG(status));
    return 128 + WTERMSIG(status); // of one that ends nobody, as a shell says it
}

} // namespace

std::optional<int> supervise(const std::string &ffmpeg, const CorvaneList &list,
                             std::vector<std::string> arguments, const std::string &recordings)
{
    const auto pipe = [](int descriptor) { return "pipe:" + std::to_string(descriptor); };
    const Plumbing plumbing{pipe(meterDescriptor), pipe(signalDescriptor), pipe(gateDescriptor)};
    std::signal(SIGPIPE, SIG_IGN);
    Encoder encoder;
    if (!encoder.start(ffmpeg, rewrittenForAir(list, std::move(arguments), plumbing)))
        return {};
    return encoder.run(list, recordings);
}

} // namespace corvane::air
