#pragma once

#include <QString>
#include <QStringList>

namespace corvane {

/// The fixed places in which a tool called `name` is looked for before `PATH`, in order. `appDir` is the
/// directory of the program. No suffix is added on any platform, and `..` stays in the paths.
[[nodiscard]] QStringList toolCandidates(const QString &appDir, const QString &name);

/// Path of an outside tool: the first candidate that exists, as it stands, else what `PATH` holds, else an
/// empty text. Needs an application object.
[[nodiscard]] QString resolveTool(const QString &name);

} // namespace corvane
