// Hands the call on to the next ffmpeg of PATH by replacing itself: process id, signals, standard streams and
// exit code are the encoder's.

#include "tools/air/TeeRewrite.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int notFound = 127; // as a shell says it

// Files that have handed this call on already, as ",device:inode," each: two copies of this program on PATH
// would pass it to each other for ever.
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

std::string nextFfmpeg(const std::string &passed)
{
    const char *path = std::getenv("PATH");
    std::string_view rest = path ? path : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        const std::string_view folder = rest.substr(0, end);
        std::string candidate = std::string(folder.empty() ? "." : folder) + "/ffmpeg";
        const std::string id = identity(candidate.c_str());
        if (!id.empty() && passed.find(id) == std::string::npos && access(candidate.c_str(), X_OK) == 0)
            return candidate;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

} // namespace

int main(int argc, char *argv[])
{
    const char *before = std::getenv(passedVariable);
    const std::string passed = (before ? before : "") + identity("/proc/self/exe");
    const std::string ffmpeg = nextFfmpeg(passed);
    if (ffmpeg.empty()) {
        std::fprintf(stderr, "ffmpeg (air): no other ffmpeg on PATH\n");
        return notFound;
    }
    setenv(passedVariable, passed.c_str(), 1);

    std::vector<std::string> arguments = corvane::air::rewriteTee({argv + 1, argv + argc});
    std::vector<char *> vector{const_cast<char *>(ffmpeg.c_str())};
    for (std::string &argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);
    execv(ffmpeg.c_str(), vector.data());

    std::fprintf(stderr, "ffmpeg (air): %s: %s\n", ffmpeg.c_str(), std::strerror(errno));
    return notFound;
}
