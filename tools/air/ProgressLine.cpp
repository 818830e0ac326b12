#include "tools/air/ProgressLine.h"

#include <array>
#include <cstdio>

namespace corvane::air {

namespace {

void replaceFirst(std::string &line, std::string_view what, const char *format, double value)
{
    const std::size_t at = line.find(what);
    if (at == std::string::npos)
        return;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, value);
    line.replace(at, what.size(), text.data());
}

} // namespace

std::string withFigures(std::string_view line, std::int64_t bytes, double kbitsPerSecond)
{
    std::string result(line);
    replaceFirst(result, "size=N/A", "size=%8.0fkB", static_cast<double>(bytes) / 1024);
    replaceFirst(result, "bitrate=N/A", "bitrate=%6.1fkbits/s", kbitsPerSecond);
    return result;
}

} // namespace corvane::air
