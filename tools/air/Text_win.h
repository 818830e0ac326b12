#pragma once

#include <string>
#include <string_view>

namespace corvane::air {

/// UTF-8 and UTF-16.
[[nodiscard]] std::string narrow(std::wstring_view text);
[[nodiscard]] std::wstring widen(std::string_view bytes);

/// The system's words for an error code of its own, in its language, without a full stop.
[[nodiscard]] std::string systemWords(unsigned long error);

/// Path of this program's file.
[[nodiscard]] std::wstring ownPath();

/// Value of an environment variable; empty if there is none.
[[nodiscard]] std::wstring environment(const wchar_t *name);

} // namespace corvane::air
