#pragma once

#include <QtGlobal>

namespace corvane {

/// The machine's clock in milliseconds since the epoch. It may be set at any moment.
[[nodiscard]] qint64 nowMs();

} // namespace corvane
