#pragma once

#include "tools/guardian/Supervisor.h"

#include <QString>

/// Words to the one who started the guardian. There are two programs of the same work: corvane-guardian is of
/// the console and prints; corvane-start, on Windows, has no console, shows nothing while all goes well and a
/// message box where something doesn't. Each links one implementation.
namespace corvane::guardian::front {

/// To be called first.
void prepare();

/// What was asked for on the command line.
void help(const QString &text);

/// A line of the log.
void line(const QString &text);

/// The guardian doesn't begin its work, for this reason.
void refusal(ExitCode code, const QString &why);

/// Another guardian is at work on `folder`, which is `installation` or the runtime directory, so that the
/// program is open, or about to be.
void alreadyGuarded(const Installation &installation, const QString &folder);

/// The guardian's work is over; `lastLine` is the last one of `log`.
void end(ExitCode code, const QString &lastLine, const QString &log);

} // namespace corvane::guardian::front
