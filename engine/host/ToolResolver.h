#pragma once

#include <QString>
#include <QStringList>

namespace corvane {

/// Fixed paths at which a tool called `name` is searched before `PATH`, in order; the same on every platform
/// on purpose. `appDir` is the directory of the program. No suffix is added, on Windows neither, and `..`
/// stays in the paths.
[[nodiscard]] QStringList toolCandidates(const QString &appDir, const QString &name);

/// Path of an outside tool: the first of toolCandidates() that exists, as it stands, otherwise the one on
/// `PATH`, otherwise an empty text. Needs an application object.
[[nodiscard]] QString resolveTool(const QString &name);

} // namespace corvane
