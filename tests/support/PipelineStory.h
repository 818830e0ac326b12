#pragma once

#include "tests/support/TestSupport.h"

#include <QString>
#include <QStringList>

/// Events of a pipeline as outline() and the Recorder write them, in the order in which they come.
namespace corvane::test {

/// Start of an encoder that can be launched.
[[nodiscard]] QStringList launched();

/// Announcement of the relaunch that follows a step of the quality ladder.
[[nodiscard]] QString relaunchLine();

/// True from the first progress line of the encoder on.
[[nodiscard]] bool hasProgress(const Recorder &recorder);

/// Runs the event loop until hasProgress(); false after waitUntil()'s time.
[[nodiscard]] bool awaitProgress(const Recorder &recorder);

} // namespace corvane::test
