#pragma once

#include <QString>

class QDateTime;

namespace corvane::guardian {

/// Outcome of the last update: for people, and so that what was rolled back isn't tried again.
struct UpdateRecord
{
    /// "applied", "refused", "rolled back", or "put back": as rolled back, but not for a fault of its own, so
    /// that it may be tried again. Empty: there is no record.
    QString result;
    QString version;
    QString sha256;      ///< of the package, as far as that was known
    QString reason;      ///< of a refusal or a roll-back
    bool proven = false; ///< what was applied has run for long enough

    /// True if this very package has been rolled back.
    [[nodiscard]] bool rolledBack(const QString &digest) const;
};

[[nodiscard]] UpdateRecord readRecord(const QString &path);

/// False if it can't be written.
bool writeRecord(const QString &path, const UpdateRecord &record, const QDateTime &now);

} // namespace corvane::guardian
