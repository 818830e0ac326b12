#include "tests/children/FakeChild.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>

namespace corvane::fake {

std::string decoded(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            bytes += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::size_t from = 0;
    while (from <= text.size()) {
        const std::size_t to = std::min(text.find(separator, from), text.size());
        parts.push_back(text.substr(from, to - from));
        from = to + 1;
    }
    return parts;
}

void writeAll(std::FILE *stream, const std::string &bytes)
{
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
    std::fflush(stream);
}

void appendLine(const std::string &path, const std::string &line)
{
    const std::string bytes = line + '\n';
    std::ofstream(path, std::ios::binary | std::ios::app)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void writeLines(const std::string &path, const std::vector<std::string> &lines)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    for (const std::string &line : lines)
        file << line << '\n';
}

long long clockMicroseconds()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

} // namespace corvane::fake
