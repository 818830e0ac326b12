#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace corvane {

// The files by which the program and the guardian talk, all in one directory under the runtime directory.

[[nodiscard]] QString updateDirectory(const QString &runtimeDir);  ///< "…/update"
[[nodiscard]] QString readyFilePath(const QString &runtimeDir);    ///< "…/update/update-ready.json"
[[nodiscard]] QString applyRequestPath(const QString &runtimeDir); ///< "…/update/apply-now"
[[nodiscard]] QString packageFileName(const QString &version);     ///< "CORVANE-<version>.zip", unchecked

/// True if a file of this name lies in the directory that it is made in, on every platform: no separator, no
/// drive or stream letter, no control character. The version in packageFileName() is the publisher's text,
/// and the name has to be asked about before it is used.
[[nodiscard]] bool isPlainFileName(const QString &name);

/// Content of the ready file: the package that the program has verified and left for the guardian.
struct ReadyUpdate
{
    QString package;     ///< full path of the zip file
    QString version;     ///< as the manifest has it
    QString install_dir; ///< the directory of the program that staged it
};

[[nodiscard]] QByteArray readyUpdateText(const ReadyUpdate &ready); ///< one line of JSON, keys in order

/// Nothing if `text` is no JSON object, or if one of the three is missing, empty or no string.
[[nodiscard]] std::optional<ReadyUpdate> parseReadyUpdate(const QByteArray &text);

} // namespace corvane
