#pragma once

#include "tools/guardian/Supervisor.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace corvane::guardian {

/// Settings from the command line.
struct Options
{
    std::optional<GuardianSettings> settings; ///< without them: show `text` and leave with `exitCode`
    QString text;                             ///< help, or why the command line is refused
    ExitCode exitCode = EndedCleanly;
};

/// Reads `arguments`, which begin with the program's name. `runtimeDirectory` is the one that the program
/// would choose. The installation is the one that is named or, without a name, the folder "corvane" beside
/// that of this program; it has to exist, at least as something that an update was cut off at. Needs an
/// application object.
[[nodiscard]] Options readOptions(const QStringList &arguments, const QString &runtimeDirectory);

} // namespace corvane::guardian
