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

    /// The last beat, in milliseconds since the epoch; nothing if there is none that can be read.
    [[nodiscard]] std::optional<qint64> heartbeat() const;

    /// A run is up, or the last one didn't end in order.
    [[nodiscard]] bool sentinelStands() const;

    /// When a run last ended in order; invalid if none has.
    [[nodiscard]] QDateTime cleanExit() const;

    /// True if a run has ended in order since cleanExit() answered `before`. The mark is never removed, so
    /// its presence alone says nothing.
    [[nodiscard]] bool endedCleanlySince(const QDateTime &before) const;

    [[nodiscard]] bool updateRequested() const;
    [[nodiscard]] bool removeRequest() const; ///< true if there is none any more

    /// What is staged; nothing, and why in `error`, if the file doesn't say or names a package that isn't a
    /// plain file in the update directory.
    [[nodiscard]] std::optional<ReadyUpdate> readyUpdate(QString &error) const;
};

} // namespace corvane::guardian
