#include "tools/guardian/ManifestFetch.h"

#include "update/UpdateManifest.h"
#include "update/UpdateRequest.h"
#include "update/UpdateSignature.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

constexpr qint64 largestManifest = 1 << 20;

} // namespace

ManifestSource httpsSource(const QString &feed, QObject *parent, std::chrono::milliseconds patience)
{
    auto *network = new QNetworkAccessManager(parent);
    return [network, feed, patience](const ManifestAnswer &answer) {
        const QUrl url(feed);
        if (!isAcceptedFeed(url)) {
            answer({}, u"the feed “%1” isn't HTTPS"_s.arg(feed));
            return;
        }
        QNetworkReply *reply = network->get(updateRequest(url));
        // Of the whole answer: a feed that drips would keep the program away for as long as it likes.
        QTimer::singleShot(patience, reply, &QNetworkReply::abort);
        QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received) {
            if (received > largestManifest)
                reply->abort();
        });
        QObject::connect(reply, &QNetworkReply::finished, reply, [reply, answer] {
            reply->deleteLater();
            if (reply->error() != QNetworkReply::NoError)
                answer({}, u"the feed doesn't answer: %1"_s.arg(reply->errorString()));
            else if (reply->bytesAvailable() > largestManifest)
                answer({}, u"the feed's manifest is longer than %1 bytes"_s.arg(largestManifest));
            else
                answer(reply->readAll(), {});
        });
    };
}

QString manifestProblem(const UpdateManifest &manifest, const QString &pinnedKey, const QString &staged,
                        const QString &installed)
{
    if (!manifest.valid)
        return u"the feed's manifest is none: %1"_s.arg(manifest.error);
    if (!manifest.hasPackage || manifest.sha256.isEmpty())
        return u"the feed's manifest names no package, or no digest of it"_s;
    if (!pinnedKey.isEmpty() && isWeakUpdateKey(QByteArray::fromHex(pinnedKey.toLatin1())))
        return u"the key that this guardian pins is no key, or a weak one"_s;
    if (!pinnedKey.isEmpty() &&
        !checkUpdateSignature(QByteArray::fromBase64(manifest.ed25519_sig.toLatin1()),
                              QByteArray::fromHex(pinnedKey.toLatin1()), updateMessage(manifest))) {
        return u"the feed's manifest doesn't bear the publisher's signature"_s;
    }
    if (manifest.version != staged)
        return u"version %1 is staged, and the feed offers %2"_s.arg(staged, manifest.version);
    if (!installed.isEmpty() && !isNewer(staged, installed))
        return u"version %1 is staged, and %2 is installed"_s.arg(staged, installed);
    return {};
}

} // namespace corvane::guardian
