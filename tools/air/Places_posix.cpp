#include "tools/air/Places.h"

#include <cstdio>
#include <system_error>

namespace corvane::air {

const char *const programFile = "corvane";
const char *const companionFile = "ffmpeg";
const char *const hintOfUse = "";

std::filesystem::path ownFolder()
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
}

void printText(const std::string &text, bool toError)
{
    std::fputs(text.c_str(), toError ? stderr : stdout);
}

} // namespace corvane::air
