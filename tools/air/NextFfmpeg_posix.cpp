#include "tools/air/NextFfmpeg.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace corvane::air {

namespace {

// Files that have handed this call on already, as ",device:inode," each.
constexpr auto passedVariable = "CORVANE_AIR_PASSED";

std::string identity(const char *path)
{
    struct stat status
    {
    };
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    return ',' + std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino) + ',';
}

} // namespace

std::string nextFfmpeg(bool (*passOver)(const std::string &file))
{
    const char *const before = std::getenv(passedVariable);
    const std::string passed = (before ? before : "") + identity("/proc/self/exe");
    setenv(passedVariable, passed.c_str(), 1);

    const char *const path = std::getenv("PATH");
    std::string_view rest = path ? path : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        const std::string_view folder = rest.substr(0, end);
        std::string candidate = std::string(folder.empty() ? "." : folder) + "/ffmpeg";
        const std::string id = identity(candidate.c_str());
        if (!id.empty() && passed.find(id) == std::string::npos && access(candidate.c_str(), X_OK) == 0 &&
            !(passOver && passOver(candidate)))
            return candidate;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

} // namespace corvane::air
