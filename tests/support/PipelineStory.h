#pragma once

#include <QString>
#include <QStringList>

/// Events of a pipeline as outline() and the Recorder write them, in the order in which they come.
namespace corvane::test {

/// Start of an encoder that can be launched.
[[nodiscard]] QStringList launched();

/// Announcement of the relaunch that follows a step of the quality ladder.
[[nodiscard]] QString relaunchLine();

} // namespace corvane::test
