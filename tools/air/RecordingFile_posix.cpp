#include "tools/air/RecordingFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace corvane::air {

namespace {

constexpr int mostAttempts = 1000; // of other encoders that take a number first

std::string reason()
{
    return std::strerror(errno);
}

int highestNumber(DIR *directory)
{
    int highest = 0;
    while (const dirent *const entry = readdir(directory))
        highest = std::max(highest, recordingNumber(entry->d_name));
    return highest;
}

} // namespace

RecordingFile::~RecordingFile()
{
    close(static_cast<int>(m_handle)); // without a file it does nothing
}

std::string RecordingFile::create(const std::string &directory)
{
    DIR *const entries = opendir(directory.c_str());
    if (!entries)
        return reason();
    const int highest = highestNumber(entries);
    closedir(entries);
    for (int number = highest + 1; number <= highest + mostAttempts; ++number) {
        const std::string path = directory + '/' + recordingName(number);
        m_handle = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (m_handle >= 0) {
            m_path = path;
            return {};
        }
        if (errno != EEXIST)
            break;
    }
    return reason();
}

std::string RecordingFile::append(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(static_cast<int>(m_handle), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return reason();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return {};
}

std::string RecordingFile::sync()
{
    struct stat status
    {
    };
    if (fdatasync(static_cast<int>(m_handle)) != 0)
        return reason();
    fstat(static_cast<int>(m_handle), &status); // of an open file
    return status.st_nlink == 0 ? std::strerror(ENOENT) : std::string();
}

std::string directoryNamedIn(const std::string &setting)
{
    const int file = open(setting.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return {};
    struct stat status
    {
    };
    std::array<char, 4096> bytes{};
    ssize_t size = 0;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode))
        size = read(file, bytes.data(), bytes.size());
    close(file);
    return firstLineOf({bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0});
}

} // namespace corvane::air
