#pragma once

#include "tools/air/AirWatch.h"
#include "tools/air/CorvaneList.h"
#include "tools/air/Recording.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::air {

/// One run of an encoder between the program and its destinations: what is decided, printed and recorded.
/// Processes, pipes and waiting are each system's own, and so is the clock: `now` are milliseconds of one
/// that doesn't jump and stands still while the machine sleeps.
class AirSession
{
public:
    static constexpr int tickMs = 200;                ///< onTick is to be called at least this often
    static constexpr int patienceWithTheDiskMs = 800; ///< the program waits three seconds in all for a stop

    /// `recordings` is the file that switches recording on; `print` writes to the program's side of standard
    /// error, from any thread.
    AirSession(const CorvaneList &list, const std::string &recordings,
               std::function<void(std::string_view)> print);

    /// Bytes of the program for the encoder.
    void onInput(std::string_view bytes, std::int64_t now) { m_watch.onInput(bytes, now); }

    /// Bytes of the encoder's standard error, and its end.
    void onError(std::string_view bytes, std::int64_t now) { m_watch.onErrorBytes(bytes, now); }
    void onErrorEnd(std::int64_t now) { m_watch.onErrorEnd(now); }

    /// Bytes of the stream, of an encoder that runs.
    void onStream(std::string_view bytes, std::int64_t now);

    /// Bytes of the stream that an encoder has left behind.
    void onRestOfStream(std::string_view bytes) { m_recording.add(bytes); }

    /// The encoder has begun to end its outputs.
    void onSignal(std::int64_t now) { m_watch.onEnding(now); }

    /// Time has passed. Prints what there is to print.
    void onTick(std::int64_t now);

    /// The encoder is to be ended now.
    [[nodiscard]] bool endsEncoder() const { return m_watch.verdict().has_value(); }

    /// The encoder may take leave of the servers.
    [[nodiscard]] bool letsThrough() const { return m_watch.letsThrough(); }

    /// The encoder has left, with this code unless a signal ended it: the recording is closed, the last lines
    /// are printed. Returns the exit code of the companion; none: it is to end as the encoder did.
    std::optional<int> finish(std::optional<int> code);

private:
    void print();

    AirWatch m_watch;
    std::function<void(std::string_view)> m_print;
    Recording m_recording;
};

} // namespace corvane::air
