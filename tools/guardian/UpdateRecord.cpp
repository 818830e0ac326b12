#include "tools/guardian/UpdateRecord.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

bool UpdateRecord::rolledBack(const QString &digest) const
{
    return result == "rolled back"_L1 && sha256.compare(digest, Qt::CaseInsensitive) == 0;
}

UpdateRecord readRecord(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject json = QJsonDocument::fromJson(file.readAll()).object();
    return {json["result"_L1].toString(), json["version"_L1].toString(), json["sha256"_L1].toString(),
            json["reason"_L1].toString(), json["proven"_L1].toBool()};
}

bool writeRecord(const QString &path, const UpdateRecord &record, const QDateTime &now)
{
    QJsonObject json{
        {u"at"_s, now.toString(Qt::ISODate)}, {u"result"_s, record.result}, {u"version"_s, record.version},
        {u"sha256"_s, record.sha256},         {u"reason"_s, record.reason},
    };
    if (record.result == "applied"_L1)
        json.insert(u"proven"_s, record.proven);
    const QByteArray text = QJsonDocument(json).toJson();
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
}

} // namespace corvane::guardian
