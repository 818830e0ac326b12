#pragma once

#include <QString>

namespace corvane::guardian {

/// `text` for a log or a terminal, one line: control characters, those that turn the direction of writing or
/// can't be seen, line separators and halves of characters are shown as "?". A file's name can neither write
/// lines of its own nor reorder what is read.
[[nodiscard]] QString printable(const QString &text);

} // namespace corvane::guardian
