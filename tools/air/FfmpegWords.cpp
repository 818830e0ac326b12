#include "tools/air/FfmpegWords.h"

#include <algorithm>
#include <array>

namespace corvane::air {

namespace {

struct LevelName
{
    std::string_view name;
    FfmpegLine::Level level;
};

constexpr std::array<LevelName, 9> levelNames{{{"quiet", FfmpegLine::Level::Shown},
                                               {"panic", FfmpegLine::Level::Shown},
                                               {"fatal", FfmpegLine::Level::Shown},
                                               {"error", FfmpegLine::Level::Shown},
                                               {"warning", FfmpegLine::Level::Shown},
                                               {"info", FfmpegLine::Level::Silent},
                                               {"verbose", FfmpegLine::Level::Silent},
                                               {"debug", FfmpegLine::Level::Silent},
                                               {"trace", FfmpegLine::Level::Silent}}};

// Those of SRT, UDP, RTMP in all its forms, and what writes to them.
constexpr std::array<std::string_view, 15> legContexts{"fifo",  "flv",   "mpegts", "AVIOContext", "rtmp",
                                                       "rtmpe", "rtmps", "rtmpt",  "rtmpte",      "rtmpts",
                                                       "tcp",   "tls",   "http",   "srt",         "udp"};

/// Length of the part "[…] " at the beginning of `line`; 0 if there is none.
std::size_t bracketAt(std::string_view line)
{
    const std::size_t end = line.starts_with('[') ? line.find("] ") : std::string_view::npos;
    return end == std::string_view::npos ? 0 : end + 2;
}

const LevelName *levelNamed(std::string_view name)
{
    const auto *const found = std::find_if(levelNames.begin(), levelNames.end(),
                                           [&](const LevelName &level) { return level.name == name; });
    return found == levelNames.end() ? nullptr : found;
}

/// Position of the part with the level, and its length; {0, 0} if there is none.
std::pair<std::size_t, std::size_t> levelPart(std::string_view line)
{
    std::size_t at = 0;
    for (std::size_t length = bracketAt(line); length > 0; length = bracketAt(line.substr(at))) {
        const std::string_view inside = line.substr(at + 1, length - 3);
        if (levelNamed(inside))
            return {at, length};
        if (inside.find(" @ ") == std::string_view::npos)
            break;
        at += length;
    }
    return {0, 0};
}

} // namespace

FfmpegLine readFfmpegLine(std::string_view line)
{
    FfmpegLine result;
    const auto [at, length] = levelPart(line);
    if (length == 0) {
        result.text = line;
        return result;
    }
    result.level = levelNamed(line.substr(at + 1, length - 3))->level;
    result.text = line.substr(at + length);
    if (at > 0) {
        const std::string_view contexts = line.substr(0, at - 2);
        result.context = contexts.substr(contexts.rfind('[') + 1);
    }
    return result;
}

std::string withoutLevel(std::string_view line)
{
    const auto [at, length] = levelPart(line);
    return std::string(line.substr(0, at)) + std::string(line.substr(at + length));
}

bool isProgress(std::string_view text)
{
    return text.starts_with("frame=") || (text.starts_with("size=") && text.find("bitrate=") != text.npos);
}

bool isOfALeg(std::string_view context)
{
    const std::string_view name = context.substr(0, context.find(" @ "));
    return std::find(legContexts.begin(), legContexts.end(), name) != legContexts.end();
}

} // namespace corvane::air
