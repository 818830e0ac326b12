#pragma once

#include <QByteArray>

#include <optional>

namespace corvane {

/// Report of the leftmost scan option among the arguments ("--ndi-scan", "--decklink-scan"), as UTF-8 text
/// for standard output; nothing without such an option. Needs no application object.
[[nodiscard]] std::optional<QByteArray> scanReport(int argc, const char *const argv[]);

} // namespace corvane
