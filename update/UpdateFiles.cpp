#include "update/UpdateFiles.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace corvane {

QString updateDirectory(const QString &runtimeDir)
{
    return runtimeDir + "/update"_L1;
}

QString readyFilePath(const QString &runtimeDir)
{
    return updateDirectory(runtimeDir) + "/update-ready.json"_L1;
}

QString applyRequestPath(const QString &runtimeDir)
{
    return updateDirectory(runtimeDir) + "/apply-now"_L1;
}

QString packageFileName(const QString &version)
{
    return "CORVANE-"_L1 + version + ".zip"_L1;
}

bool isPlainFileName(const QString &name)
{
    return !name.isEmpty() && name != "."_L1 && name != ".."_L1 &&
           std::none_of(name.cbegin(), name.cend(),
                        [](QChar c) { return c < u' ' || c == u'/' || c == u'\\' || c == u':'; });
}

QByteArray readyUpdateText(const ReadyUpdate &ready)
{
    return QJsonDocument(QJsonObject{{u"package"_s, ready.package},
                                     {u"version"_s, ready.version},
                                     {u"install_dir"_s, ready.install_dir}})
        .toJson(QJsonDocument::Compact);
}

std::optional<ReadyUpdate> parseReadyUpdate(const QByteArray &text)
{
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    ReadyUpdate ready{object["package"_L1].toString(), object["version"_L1].toString(),
                      object["install_dir"_L1].toString()};
    if (ready.package.isEmpty() || ready.version.isEmpty() || ready.install_dir.isEmpty())
        return {};
    return ready;
}

} // namespace corvane
