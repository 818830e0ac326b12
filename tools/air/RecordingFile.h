#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::air {

/// A file that is written as it comes and kept on the disk. Every operation may block as long as the disk
/// does, and gives the reason of a failure in words of the system; empty is success.
class RecordingFile
{
public:
    RecordingFile() = default;
    ~RecordingFile();
    RecordingFile(const RecordingFile &) = delete;
    RecordingFile &operator=(const RecordingFile &) = delete;
    RecordingFile(RecordingFile &&) = delete;
    RecordingFile &operator=(RecordingFile &&) = delete;

    /// Creates the file that follows the last of `directory` in number. path() is its path then.
    std::string create(const std::string &directory);
    std::string append(std::string_view bytes);
    std::string sync(); ///< to the disk; a failure too if the file has been removed meanwhile

    [[nodiscard]] const std::string &path() const { return m_path; }

private:
    std::string m_path;
    std::intptr_t m_handle = -1;
};

/// First line of the regular file `setting`, without blanks around it; empty if there is none.
[[nodiscard]] std::string directoryNamedIn(const std::string &setting);

/// First line of a text, without blanks around it.
[[nodiscard]] std::string firstLineOf(std::string_view text);

/// Name of the recording with this number, such as "corvane-0001.mkv".
[[nodiscard]] std::string recordingName(int number);

/// Number of the recording of this name; 0 if it isn't one.
[[nodiscard]] int recordingNumber(std::string_view name);

} // namespace corvane::air
