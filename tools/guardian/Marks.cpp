#include "tools/guardian/Marks.h"

#include "tools/guardian/FolderRemoval.h"
#include "tools/guardian/OwnFolder.h"
#include "tools/guardian/RegularFile.h"
#include "update/RuntimeFiles.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 largestBeat = 32;
constexpr qint64 largestReadyFile = 65'536;

bool isRequest(const QString &path)
{
    const QFileInfo at(path);
    return at.isFile() && !at.isSymLink() && !belongsToAnother(path);
}

} // namespace

std::optional<qint64> Marks::heartbeat() const
{
    // Between truncation and writing the file is empty for a moment.
    const RegularFile opened = openRegularFile(heartbeatPath(runtimeDirectory), largestBeat);
    if (!opened.file || !opened.isOwn)
        return std::nullopt;
    bool isNumber = false;
    const qint64 beat = opened.file->read(largestBeat).toLongLong(&isNumber);
    return isNumber ? std::optional(beat) : std::nullopt;
}

bool Marks::sentinelStands() const
{
    return QFile::exists(sentinelPath(crashDirectory(runtimeDirectory)));
}

QDateTime Marks::cleanExit() const
{
    return QFileInfo(cleanExitPath(runtimeDirectory)).lastModified();
}

bool Marks::endedCleanlySince(const QDateTime &before) const
{
    const QDateTime now = cleanExit();
    return !sentinelStands() || (now.isValid() && now != before);
}

bool Marks::updateRequested() const
{
    return isRequest(applyRequestPath(runtimeDirectory));
}

bool Marks::requestIsBlocked() const
{
    const QString path = applyRequestPath(runtimeDirectory);
    return isTaken(path) && !isRequest(path);
}

bool Marks::removeRequest(QString &error) const
{
    if (!updateRequested())
        return true;
    QFile request(applyRequestPath(runtimeDirectory));
    if (request.remove())
        return true;
    error = request.errorString();
    return false;
}

std::optional<ReadyUpdate> Marks::readyUpdate(QString &error) const
{
    const RegularFile opened = openRegularFile(readyFilePath(runtimeDirectory), largestReadyFile);
    if (!opened.file) {
        error = u"update-ready.json can't be read: %1"_s.arg(opened.error);
        return std::nullopt;
    }
    std::optional<ReadyUpdate> ready = parseReadyUpdate(opened.file->read(largestReadyFile));
    if (!ready) {
        error = u"update-ready.json doesn't say what is staged"_s;
        return std::nullopt;
    }
    if (QFileInfo(QFileInfo(ready->package).path()).canonicalFilePath() !=
        QFileInfo(updateDirectory(runtimeDirectory)).canonicalFilePath()) {
        error =
            u"update-ready.json names “%1”, which is no file in the update directory"_s.arg(ready->package);
        return std::nullopt;
    }
    return ready;
}

} // namespace corvane::guardian
