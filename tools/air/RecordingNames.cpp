#include "tools/air/RecordingFile.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace corvane::air {

namespace {

constexpr std::string_view before = "corvane-";
constexpr std::string_view behind = ".mkv";

} // namespace

std::string recordingName(int number)
{
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%04d", number);
    return std::string(before) + digits.data() + std::string(behind);
}

int recordingNumber(std::string_view name)
{
    if (name.size() < before.size() + 4 + behind.size() || !name.starts_with(before) ||
        !name.ends_with(behind))
        return 0;
    const std::string_view digits = name.substr(before.size(), name.size() - before.size() - behind.size());
    int number = 0;
    const char *const end = digits.data() + digits.size();
    const auto [parsed, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && parsed == end ? std::max(number, 0) : 0;
}

std::string firstLineOf(std::string_view text)
{
    text = text.substr(0, text.find('\n'));
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

} // namespace corvane::air
