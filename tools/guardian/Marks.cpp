#include "tools/guardian/Marks.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 largestReadyFile = 64 * 1024;

} // namespace

std::optional<qint64> Marks::heartbeat() const
{
    QFile file(runtimeDirectory + "/.heartbeat"_L1);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    bool isNumber = false;
    // Between truncation and writing the file is empty for a moment.
    const qint64 beat = file.read(32).toLongLong(&isNumber);
    return isNumber ? std::optional(beat) : std::nullopt;
}

bool Marks::sentinelStands() const
{
    return QFile::exists(runtimeDirectory + "/crashes/.running"_L1);
}

QDateTime Marks::cleanExit() const
{
    return QFileInfo(runtimeDirectory + "/.cleanexit"_L1).lastModified();
}

bool Marks::endedCleanlySince(const QDateTime &before) const
{
    const QDateTime now = cleanExit();
    return !sentinelStands() && now.isValid() && (!before.isValid() || now > before);
}

bool Marks::updateRequested() const
{
    return QFile::exists(runtimeDirectory + "/update/apply-now"_L1);
}

bool Marks::removeRequest() const
{
    QFile::remove(runtimeDirectory + "/update/apply-now"_L1);
    return !updateRequested();
}

std::optional<ReadyUpdate> Marks::readyUpdate(QString &error) const
{
    const QString update = runtimeDirectory + "/update"_L1;
    QFile file(update + "/update-ready.json"_L1);
    if (!file.open(QIODevice::ReadOnly)) {
        error = u"update-ready.json can't be read: %1"_s.arg(file.errorString());
        return std::nullopt;
    }
    const QJsonObject json = QJsonDocument::fromJson(file.read(largestReadyFile)).object();
    ReadyUpdate ready{json["package"_L1].toString(), json["version"_L1].toString(),
                      json["install_dir"_L1].toString()};
    if (ready.package.isEmpty() || ready.version.isEmpty() || ready.installDirectory.isEmpty()) {
        error = u"update-ready.json doesn't say what is staged"_s;
        return std::nullopt;
    }
    const QFileInfo package(ready.package);
    if (!package.isFile() || package.isSymLink() ||
        QFileInfo(package.path()).canonicalFilePath() != QFileInfo(update).canonicalFilePath()) {
        error = u"update-ready.json names “%1”, which is no file in the update directory"_s.arg(ready.package);
        return std::nullopt;
    }
    return ready;
}

} // namespace corvane::guardian
