#pragma once

#include <QString>

namespace corvane::guardian {

struct ExchangeResult
{
    enum Kind { Exchanged, NotSupported, Failed };
    Kind kind = Failed;
    QString error; ///< the system's words, if it failed
};

/// Swaps two folders' names in one step: at no moment is either name missing. Not every platform and file
/// system can do that.
[[nodiscard]] ExchangeResult exchangeFolders(const QString &one, const QString &other);

/// Renames a folder, or whatever has the name, within its file system; `to` mustn't exist. Where others may
/// hold a file open for a moment (virus scanners), it is tried for a while. Answers the system's words for
/// why it can't be done, or an empty text.
[[nodiscard]] QString moveFolder(const QString &from, const QString &to);

} // namespace corvane::guardian
