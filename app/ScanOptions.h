#pragma once

#include <QByteArray>

#include <optional>

namespace corvane {

/// The report of the leftmost scan option among the arguments ("--ndi-scan", "--decklink-scan"), as UTF-8
/// text for standard output; nothing if there is none. Needs no application object.
[[nodiscard]] std::optional<QByteArray> scanReport(int argc, const char *const argv[]);

} // namespace corvane
