#pragma once

#include <QString>

namespace corvane::test {

/// File that exports `symbol` first in this process; empty if none does.
[[nodiscard]] QString exporterOf(const char *symbol);

} // namespace corvane::test
