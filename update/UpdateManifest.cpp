#include "update/UpdateManifest.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace corvane {

UpdateManifest parseManifest(const QByteArray &data, const QString &platform)
{
    UpdateManifest manifest;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        manifest.error = u"JSON inválido: "_s + parseError.errorString();
        return manifest;
    }

    const QJsonObject top = document.object();
    manifest.version = top["version"_L1].toString();
    manifest.min_version = top["min_version"_L1].toString();
    manifest.notes_url = top["notes_url"_L1].toString();
    manifest.rollout_percent = top["rollout_percent"_L1].toInt(100);
    if (manifest.version.isEmpty()) {
        manifest.error = u"campo 'version' ausente"_s;
        return manifest;
    }

    const QJsonObject platforms = top["platforms"_L1].toObject();
    if (platforms.contains(platform)) {
        const QJsonObject package = platforms[platform].toObject();
        manifest.url = package["url"_L1].toString();
        manifest.sha256 = package["sha256"_L1].toString();
        manifest.ed25519_sig = package["ed25519_sig"_L1].toString();
        manifest.team_id = package["team_id"_L1].toString();
        manifest.min_os = package["min_os"_L1].toString();
        manifest.hasPackage = !manifest.url.isEmpty();
    }
    manifest.valid = true;
    return manifest;
}

QList<int> parseVersion(const QString &text)
{
    QString numbers = text.trimmed();
    if (numbers.startsWith(u'v', Qt::CaseInsensitive))
        numbers.remove(0, 1);
    numbers = numbers.section(u'-', 0, 0);

    QList<int> version;
    for (const QString &part : numbers.split(u'.', Qt::KeepEmptyParts))
        version.append(part.toInt());
    return version;
}

bool isNewer(const QString &newVersion, const QString &currentVersion)
{
    const QList<int> offered = parseVersion(newVersion);
    const QList<int> current = parseVersion(currentVersion);
    for (qsizetype i = 0; i < 3; ++i) {
        if (offered.value(i) != current.value(i))
            return offered.value(i) > current.value(i);
    }
    return false;
}

} // namespace corvane
