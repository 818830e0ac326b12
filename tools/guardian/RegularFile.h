#pragma once

#include <QFile>
#include <QString>

#include <memory>

namespace corvane::guardian {

/// A file that nobody vouches for, opened for reading.
struct RegularFile
{
    std::unique_ptr<QFile> file; ///< null after an error
    bool isOwn = false;          ///< it belongs to the user of this process, as far as the platform says
    QString error;
};

/// Opens `path` if it is a regular file of at most `largest` bytes. A link isn't followed, and nothing that
/// may stand there instead (a FIFO, a device, a folder) is waited for.
[[nodiscard]] RegularFile openRegularFile(const QString &path, qint64 largest);

} // namespace corvane::guardian
