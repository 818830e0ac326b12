// Hands the call on to the next ffmpeg of PATH: with the list of a transmission by staying between, with any
// other by replacing itself, so that process id, signals, standard streams and exit code are the encoder's.

#include "tools/air/CorvaneList.h"
#include "tools/air/NextFfmpeg.h"
#include "tools/air/Supervise.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int notFound = 127; // as a shell says it

int cannotBeRun(const std::string &ffmpeg)
{
    std::fprintf(stderr, "[air] %s: %s\n", ffmpeg.c_str(), std::strerror(errno));
    return notFound;
}

/// File beside this program that switches recording on.
std::string recordings()
{
    std::string path(4096, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    path.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    return path.substr(0, path.rfind('/') + 1) + "recordings";
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string ffmpeg = corvane::air::nextFfmpeg();
    if (ffmpeg.empty()) {
        std::fprintf(stderr, "[air] nenhum outro ffmpeg no PATH\n");
        return notFound;
    }

    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (const auto list = corvane::air::readCorvaneList(arguments)) {
        const auto code = corvane::air::supervise(ffmpeg, *list, std::move(arguments), recordings());
        // A recording may still wait for its disk, and nothing waits for that.
        _exit(code ? *code : cannotBeRun(ffmpeg));
    }
    argv[0] = const_cast<char *>(ffmpeg.c_str());
    execv(ffmpeg.c_str(), argv);
    return cannotBeRun(ffmpeg);
}
