#pragma once

#include <QString>

class QDateTime;

namespace corvane::guardian {

/// What became of the last update: for people, and so that what was rolled back isn't tried again.
struct UpdateRecord
{
    QString result; ///< "applied", "refused" or "rolled back"; empty: there is no record
    QString version;
    QString sha256; ///< of the package, as far as that was known
    QString reason; ///< of a refusal or a roll-back

    /// True if this very package has been rolled back.
    [[nodiscard]] bool rolledBack(const QString &digest) const;
};

[[nodiscard]] UpdateRecord readRecord(const QString &path);

/// False if it can't be written.
bool writeRecord(const QString &path, const UpdateRecord &record, const QDateTime &now);

} // namespace corvane::guardian
