#pragma once

#include <QString>

namespace corvane::guardian {

/// Makes the folder `path` for this user alone, with the folders above it, or takes the one that is there if
/// it is such a one. Answers why not: it is a link, belongs to somebody else, is open to others, can't be
/// made. On Windows a new folder has the rights of the one above it, and only links are refused.
[[nodiscard]] QString makeOwnFolder(const QString &path);

/// True if there is something at `path` and it belongs to another user. Always false on Windows.
[[nodiscard]] bool belongsToAnother(const QString &path);

} // namespace corvane::guardian
