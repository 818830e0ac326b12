#pragma once

class QFile;
class QString;

namespace corvane::guardian {

/// Brings the content of the open `file` to the disk: after a power cut a renamed folder isn't to be full of
/// empty files.
[[nodiscard]] bool syncFile(QFile &file);

/// Brings the names in the folder `path` to the disk, where the platform has such a call.
[[nodiscard]] bool syncFolder(const QString &path);

/// syncFolder() of `path` and all folders in it.
[[nodiscard]] bool syncFolders(const QString &path);

} // namespace corvane::guardian
