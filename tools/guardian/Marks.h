#pragma once

#include "update/UpdateFiles.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace corvane::guardian {

/// The files by which the program speaks to its guardian, in the runtime directory.
struct Marks
{
    QString runtimeDirectory;

    /// The last beat, in milliseconds since the epoch; nothing if there is none that can be read, or if the
    /// file is another user's, whose beats aren't those of the program here.
    [[nodiscard]] std::optional<qint64> heartbeat() const;

    /// A run is up, or the last one didn't end in order.
    [[nodiscard]] bool sentinelStands() const;

    /// When a run last ended in order; invalid if none has.
    [[nodiscard]] QDateTime cleanExit() const;

    /// True if the marks say that the run has ended in order that began when cleanExit() answered `before`:
    /// its sentinel is gone, or the mark of an orderly exit is new. That mark is never removed, and on some
    /// file systems the time of an empty file doesn't change: neither its presence nor its age says anything
    /// against.
    [[nodiscard]] bool endedCleanlySince(const QDateTime &before) const;

    /// A request is a file of this user's; what else may stand under its name asks for nothing.
    [[nodiscard]] bool updateRequested() const;
    [[nodiscard]] bool removeRequest(QString &error) const; ///< true if there is none any more
    /// Something else than a request stands under its name.
    [[nodiscard]] bool requestIsBlocked() const;

    /// Staged update; nothing, and the reason in `error`, if the file doesn't say or names a package that
    /// isn't a plain file in the update directory.
    [[nodiscard]] std::optional<ReadyUpdate> readyUpdate(QString &error) const;
};

} // namespace corvane::guardian
