#include "tools/air/Supervise.h"

#include "tools/air/AirRewrite.h"
#include "tools/air/AirSession.h"
#include "tools/air/Child_win.h"
#include "tools/air/Text_win.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace corvane::air {

namespace {

constexpr DWORD pieceSize = 65536;

/// Milliseconds; they stand still while the machine sleeps.
std::int64_t now()
{
    ULONGLONG ticks = 0; // of 100 ns
    QueryUnbiasedInterruptTime(&ticks);
    return static_cast<std::int64_t>(ticks / 10000);
}

/// What has come in from four sides, each read on a thread of its own: reads block here, and those of the
/// program's standard input can't be made not to.
class Inbox
{
public:
    enum Side { Input, Error, Stream, Signal };
    static constexpr std::size_t sides = 4;

    struct Piece
    {
        std::string bytes;
        bool ended = false; ///< no more will come
    };
    using Pieces = std::array<Piece, sides>;

    /// Waits until what came before from this side has been taken.
    void post(Side side, std::string_view bytes)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_pieces[side].bytes.empty(); });
        m_pieces[side].bytes = bytes;
        m_changed.notify_all();
    }

    void end(Side side)
    {
        const std::lock_guard lock(m_mutex);
        m_pieces[side].ended = true;
        m_isNew = true;
        m_changed.notify_all();
    }

    /// What is there, or what comes first within `ms` milliseconds.
    Pieces take(int ms)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::milliseconds(ms), [this] {
            return m_isNew || std::any_of(m_pieces.begin(), m_pieces.end(),
                                          [](const Piece &piece) { return !piece.bytes.empty(); });
        });
        m_isNew = false;
        Pieces taken;
        for (std::size_t side = 0; side < sides; ++side) {
            taken[side].ended = m_pieces[side].ended;
            taken[side].bytes = std::exchange(m_pieces[side].bytes, {});
        }
        m_changed.notify_all();
        return taken;
    }

private:
    std::mutex m_mutex; ///< of the ones below
    std::condition_variable m_changed;
    Pieces m_pieces;
    bool m_isNew = false; ///< an end that nobody has taken
};

/// A named pipe that one client may write to. The encoder opens it by its name, as it would a file; an
/// inherited handle would be lost in the small programs that some package managers put in place of the real
/// one.
class Mouth
{
public:
    /// With `size` 0 whoever writes waits until that is read.
    bool open(const std::string &purpose, DWORD size)
    {
        m_name = R"(\\.\pipe\corvane-air-)" + std::to_string(GetCurrentProcessId()) + '-' + purpose;
        m_pipe.reset(
            CreateNamedPipeW(widen(m_name).c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE,
                             PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                             0, size, 0, nullptr));
        return m_pipe.isOpen();
    }

    /// Waits for the client.
    void awaitClient() const { ConnectNamedPipe(m_pipe.get(), nullptr); }

    /// No client will come any more: who waits for one goes on.
    void awaitNoMore() const
    {
        const Handle client(
            CreateFileW(widen(m_name).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    }

    [[nodiscard]] const std::string &name() const { return m_name; }
    [[nodiscard]] HANDLE handle() const { return m_pipe.get(); }

private:
    std::string m_name;
    Handle m_pipe;
};

/// Reads to the end, and hands on each piece.
template <typename Use>
void readAll(HANDLE handle, Use use)
{
    std::string bytes(pieceSize, '\0');
    DWORD size = 0;
    while (ReadFile(handle, bytes.data(), pieceSize, &size, nullptr)) {
        // A pipe gives nothing for a write of nothing; everything else for its end.
        if (size == 0 && GetFileType(handle) != FILE_TYPE_PIPE)
            return;
        use(std::string_view(bytes.data(), size));
    }
}

/// The encoder and the pipes to it. Threads wait at them that nothing ends but the end of the process, so it
/// is never destroyed.
class Encoder
{
public:
    bool start(const std::string &ffmpeg, const CorvaneList &list, std::vector<std::string> arguments);
    int run(const CorvaneList &list, const std::string &recordings);

private:
    void watch(Inbox::Side side, HANDLE handle, const Mouth *mouth = nullptr);
    void openGateWhenLetThrough();
    void serve(AirSession &session);
    void takeRestOfStream(AirSession &session);

    Child m_child;
    PipeEnds m_input;
    PipeEnds m_error;
    Mouth m_meter;
    Mouth m_signal;
    Mouth m_gate;
    Handle m_letsThrough; ///< event
    Inbox m_inbox;
};

bool Encoder::start(const std::string &ffmpeg, const CorvaneList &list, std::vector<std::string> arguments)
{
    m_letsThrough.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_input.open() || !m_error.open() || !m_meter.open("stream", 4 * pieceSize) ||
        !m_signal.open("signal", pieceSize) || !m_gate.open("gate", 0))
        return false;
    const HANDLE ownInput = GetStdHandle(STD_INPUT_HANDLE);
    // Nothing of what the encoder doesn't use: a pipe ends when its last holder does.
    shareWithChildren(ownInput, false);
    shareWithChildren(GetStdHandle(STD_ERROR_HANDLE), false);
    shareWithChildren(m_input.from.get(), true);
    shareWithChildren(m_error.to.get(), true);
    const Plumbing plumbing{m_meter.name(), m_signal.name(), m_gate.name()};
    if (!m_child.start(ffmpeg, rewrittenForAir(list, std::move(arguments), plumbing),
                       {m_input.from.get(), GetStdHandle(STD_OUTPUT_HANDLE), m_error.to.get()}))
        return false;
    m_input.from.close();
    m_error.to.close();
    watch(Inbox::Input, ownInput);
    watch(Inbox::Error, m_error.from.get());
    watch(Inbox::Stream, m_meter.handle(), &m_meter);
    watch(Inbox::Signal, m_signal.handle(), &m_signal);
    openGateWhenLetThrough();
    return true;
}

void Encoder::watch(Inbox::Side side, HANDLE handle, const Mouth *mouth)
{
    std::thread([this, side, handle, mouth] {
        if (mouth)
            mouth->awaitClient();
        readAll(handle, [&](std::string_view bytes) {
            if (!bytes.empty())
                m_inbox.post(side, bytes);
        });
        m_inbox.end(side);
    }).detach();
}

void Encoder::openGateWhenLetThrough()
{
    std::thread([this] {
        m_gate.awaitClient();
        WaitForSingleObject(m_letsThrough.get(), INFINITE);
        readAll(m_gate.handle(), [](std::string_view) {});
    }).detach();
}

void Encoder::serve(AirSession &session)
{
    for (bool ended = false; !ended;) {
        const Inbox::Pieces pieces = m_inbox.take(AirSession::tickMs);
        if (const auto &[bytes, over] = pieces[Inbox::Input]; !bytes.empty() || over) {
            writeAll(m_input.to.get(), bytes);
            session.onInput(bytes, now());
            if (over)
                m_input.to.close();
        }
        if (const std::string &bytes = pieces[Inbox::Error].bytes; !bytes.empty())
            session.onError(bytes, now());
        if (const std::string &bytes = pieces[Inbox::Stream].bytes; !bytes.empty())
            session.onStream(bytes, now());
        if (!pieces[Inbox::Signal].bytes.empty())
            session.onSignal(now());
        session.onTick(now());
        if (session.endsEncoder())
            m_child.kill(1);
        else if (session.letsThrough())
            SetEvent(m_letsThrough.get());
        ended = pieces[Inbox::Error].ended;
    }
    session.onErrorEnd(now());
}

void Encoder::takeRestOfStream(AirSession &session)
{
    m_meter.awaitNoMore();
    for (bool ended = false; !ended;) {
        const Inbox::Pieces pieces = m_inbox.take(AirSession::tickMs);
        session.onRestOfStream(pieces[Inbox::Stream].bytes);
        ended = pieces[Inbox::Stream].ended;
    }
}

int Encoder::run(const CorvaneList &list, const std::string &recordings)
{
    AirSession session(list, recordings,
                       [](std::string_view text) { writeAll(GetStdHandle(STD_ERROR_HANDLE), text); });
    serve(session);
    const int code = m_child.wait();
    takeRestOfStream(session);
    return session.finish(code).value_or(code);
}

} // namespace

std::optional<int> supervise(const std::string &ffmpeg, const CorvaneList &list,
                             std::vector<std::string> arguments, const std::string &recordings)
{
    auto *const encoder = new Encoder;
    if (!encoder->start(ffmpeg, list, std::move(arguments)))
        return {};
    return encoder->run(list, recordings);
}

} // namespace corvane::air
