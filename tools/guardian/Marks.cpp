#include "tools/guardian/Marks.h"

#include "update/RuntimeFiles.h"

#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 largestReadyFile = 65'536;

} // namespace

std::optional<qint64> Marks::heartbeat() const
{
    QFile file(heartbeatPath(runtimeDirectory));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    bool isNumber = false;
    // Between truncation and writing the file is empty for a moment.
    const qint64 beat = file.read(32).toLongLong(&isNumber);
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
    return !sentinelStands() && now.isValid() && now != before;
}

bool Marks::updateRequested() const
{
    return QFile::exists(applyRequestPath(runtimeDirectory));
}

bool Marks::removeRequest() const
{
    QFile::remove(applyRequestPath(runtimeDirectory));
    return !updateRequested();
}

std::optional<ReadyUpdate> Marks::readyUpdate(QString &error) const
{
    QFile file(readyFilePath(runtimeDirectory));
    if (!file.open(QIODevice::ReadOnly)) {
        error = u"update-ready.json can't be read: %1"_s.arg(file.errorString());
        return std::nullopt;
    }
    std::optional<ReadyUpdate> ready = parseReadyUpdate(file.read(largestReadyFile));
    if (!ready) {
        error = u"update-ready.json doesn't say what is staged"_s;
        return std::nullopt;
    }
    const QFileInfo package(ready->package);
    if (!package.isFile() || package.isSymLink() ||
        QFileInfo(package.path()).canonicalFilePath() !=
            QFileInfo(updateDirectory(runtimeDirectory)).canonicalFilePath()) {
        error =
            u"update-ready.json names “%1”, which is no file in the update directory"_s.arg(ready->package);
        return std::nullopt;
    }
    return ready;
}

} // namespace corvane::guardian
