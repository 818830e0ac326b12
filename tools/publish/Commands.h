#pragma once

#include <QStringList>

class QTextStream;

namespace corvane::publish {

/// Exit code of corvane-publish.
enum ExitCode : int {
    Done = 0,
    Failed = 1, ///< a file that can't be read or written, or a check that isn't passed
    Usage = 2,  ///< the command line
};

/// Runs the command that `arguments` name, which begin with the program's name. Results go to `output`,
/// progress and errors to `errors`. Needs an application object.
[[nodiscard]] ExitCode run(const QStringList &arguments, QTextStream &output, QTextStream &errors);

} // namespace corvane::publish
