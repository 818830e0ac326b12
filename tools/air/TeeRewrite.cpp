#include "tools/air/TeeRewrite.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace corvane::air {

namespace {

using Arguments = std::vector<std::string>;

/// Position of the "-f" before "tee", or the end.
Arguments::const_iterator teeFormat(const Arguments &arguments)
{
    for (auto at = arguments.begin(); at != arguments.end() && std::next(at) != arguments.end(); ++at) {
        if (*at == "-f" && *std::next(at) == "tee")
            return at;
    }
    return arguments.end();
}

bool namesAudioEncoder(const Arguments &arguments)
{
    return std::any_of(arguments.begin(), arguments.end(), [](const std::string &argument) {
        return argument == "-acodec" || argument.starts_with("-c:a") || argument.starts_with("-codec:a") ||
               argument == "-c" || argument == "-codec" || // of every stream
               argument == "-an";
    });
}

bool asksForGlobalHeader(const Arguments &arguments)
{
    return std::adjacent_find(
               arguments.begin(), arguments.end(), [](const std::string &option, const std::string &value) {
                   return option.starts_with("-flags") && value.find("global_header") != std::string::npos;
               }) != arguments.end();
}

/// Every "\:" inside the brackets of a slave as "\\\:"; one that has more backslashes already stays.
std::string escapedTwice(std::string_view slaves)
{
    std::string result;
    bool inOptions = false;
    std::size_t backslashes = 0;
    for (const char c : slaves) {
        if (backslashes == 0 && (c == '[' || c == ']'))
            inOptions = c == '[';
        if (inOptions && c == ':' && backslashes == 1)
            result += "\\\\";
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result;
}

} // namespace

std::vector<std::string> rewriteTee(std::vector<std::string> arguments)
{
    const auto format = teeFormat(arguments);
    if (format == arguments.end())
        return arguments;

    Arguments added;
    const auto inputs = std::count(arguments.cbegin(), format, "-i");
    if (std::find(arguments.cbegin(), format, "-map") == format)
        added.insert(added.end(), {"-map", "0:v:0", "-map", inputs > 1 ? "1:a:0" : "0:a:0?"});
    if (!namesAudioEncoder(arguments))
        added.insert(added.end(), {"-c:a", "aac"});
    if (!asksForGlobalHeader(arguments))
        added.insert(added.end(), {"-flags", "+global_header"});

    const auto at = arguments.insert(format, added.begin(), added.end());
    const auto slaves = std::next(at, static_cast<std::ptrdiff_t>(added.size()) + 2);
    if (slaves != arguments.end())
        *slaves = escapedTwice(*slaves);
    return arguments;
}

} // namespace corvane::air
