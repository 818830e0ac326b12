#pragma once

#include <QString>

namespace corvane::guardian {

[[nodiscard]] QString programFileName(); ///< of CORVANE

/// Case sensitivity of file names.
[[nodiscard]] Qt::CaseSensitivity fileNameCase();

} // namespace corvane::guardian
