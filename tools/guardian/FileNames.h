#pragma once

#include <QString>

namespace corvane::guardian {

[[nodiscard]] QString programFileName(); ///< of CORVANE

/// Whether letter case tells file names apart.
[[nodiscard]] Qt::CaseSensitivity fileNameCase();

} // namespace corvane::guardian
