#pragma once

class QString;

namespace corvane::guardian {

enum class ExchangeResult { Exchanged, NotSupported, Failed };

/// Swaps two folders' names in one step: at no moment is either name missing. Not every platform and file
/// system can do that.
[[nodiscard]] ExchangeResult exchangeFolders(const QString &one, const QString &other);

/// Renames a folder within its file system; `to` mustn't exist. Where others may hold a file open for a
/// moment (virus scanners), it is tried for a while.
[[nodiscard]] bool moveFolder(const QString &from, const QString &to);

} // namespace corvane::guardian
