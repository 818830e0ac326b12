#pragma once

#include "tools/guardian/Supervisor.h"

#include <QString>

namespace corvane::guardian {

/// Text for the operator who sees no console, in Portuguese: what the end of a guardian with `code` means,
/// the guardian's own `reason` and the path of its `log`. Reason and log are left out if they are empty; the
/// whole is empty for an end in order.
[[nodiscard]] QString endMessage(ExitCode code, const QString &reason, const QString &log);

} // namespace corvane::guardian
