#include "tools/publish/SignedManifest.h"

#include "tools/publish/PublishKey.h"
#include "update/UpdateSignature.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace corvane {

QString versionProblem(const QString &version)
{
    static const QRegularExpression plain(
        u"\\Av?[0-9]{1,9}(\\.[0-9]{1,9}){0,2}(-[0-9A-Za-z.+-]*[0-9A-Za-z])?\\z"_s);
    if (version.size() > 64)
        return u"the version is longer than 64 characters"_s;
    if (!plain.match(version).hasMatch())
        return u"the version “%1” isn't one: up to three numbers with dots between them, then a suffix if need be, as 1.2.0 or 1.2.0-rc1"_s
            .arg(version);
    return {};
}

QString urlProblem(const QString &url)
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.host().isEmpty() ||
        (parsed.scheme() != "https"_L1 && parsed.scheme() != "http"_L1)) {
        return u"“%1” is no address that a package can be fetched from: https://… or http://…"_s.arg(url);
    }
    return {};
}

UpdateManifest signedManifest(UpdateManifest manifest, const PublishKey &key)
{
    manifest.ed25519_sig = QString::fromLatin1(key.sign(updateMessage(manifest)).toBase64());
    return manifest;
}

QByteArray manifestText(const UpdateManifest &manifest)
{
    const QJsonObject package{
        {u"url"_s, manifest.url},
        {u"sha256"_s, manifest.sha256},
        {u"ed25519_sig"_s, manifest.ed25519_sig},
    };
    QJsonObject top{
        {u"version"_s, manifest.version},
        {u"platforms"_s, QJsonObject{{platformKey, package}}},
    };
    if (!manifest.notes_url.isEmpty())
        top.insert(u"notes_url"_s, manifest.notes_url);
    return QJsonDocument(top).toJson();
}

bool manifestIsSigned(const UpdateManifest &manifest, const QByteArray &publicKey)
{
    return checkUpdateSignature(QByteArray::fromBase64(manifest.ed25519_sig.toLatin1()), publicKey,
                                updateMessage(manifest));
}

} // namespace corvane
