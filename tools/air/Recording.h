#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace corvane::air {

/// The stream in a file of its own, which no fault of the network touches and whose faults touch nothing
/// else.
///
/// A thread of its own reads the file `recordings` beside the companion and writes, so that a disk that is
/// slow, blocks or has gone holds up nobody: what waits for it is bounded. The first failure ends the
/// recording, and is said once. Files are called "corvane-0001.mkv" and so on, a new one with each start.
class Recording
{
public:
    static constexpr std::size_t mostWaiting =
        std::size_t{32} * 1024 * 1024; ///< bytes: some forty seconds of 6 Mbit/s

    /// `setting` is the file whose first line names the directory; without such a file nothing is recorded.
    /// `say` prints a line, from any thread.
    Recording(const std::string &setting, std::function<void(const std::string &)> say);

    /// Bytes of a Matroska stream, from its first to its last. Never waits.
    void add(std::string_view bytes);

    /// No more will come. To be called once. Waits for the writer, but no longer than `patienceMs`; the
    /// recording lacks its end then, which is said, and the process has to be left without its destructors.
    void finish(int patienceMs);

private:
    struct Shared;

    static void write(const std::shared_ptr<Shared> &shared, const std::string &setting);

    std::shared_ptr<Shared> m_shared;
};

} // namespace corvane::air
