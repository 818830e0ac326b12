#include "update/UpdateChecker.h"

#include "update/PinnedUpdateKey.h"
#include "update/Sha256.h"
#include "update/UpdateFiles.h"
#include "update/UpdateRequest.h"
#include "update/UpdateSignature.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane {

namespace {

constexpr qint64 pieceSize = 0x100000;

/// A package up to this size is received into one buffer of its size. Beyond, or if the server doesn't say
/// how long it is, the reply collects it piece by piece, which takes twice the memory.
constexpr qint64 wholeBufferSize = 512 * pieceSize;

/// A manifest is a few hundred bytes. Nobody who serves one without end is to fill the memory beside a
/// stream.
constexpr qint64 largestManifest = 64 * pieceSize;

} // namespace

UpdateChecker::UpdateChecker(QString currentVersion, QString feedUrl, QString runtimeDir, QObject *parent)
    : QObject(parent)
    , m_currentVersion(std::move(currentVersion))
    , m_feedUrl(std::move(feedUrl))
    , m_runtimeDir(std::move(runtimeDir))
    , m_network(new QNetworkAccessManager(this))
{
}

void UpdateChecker::setStatus(const QString &text)
{
    m_status = text;
    Q_EMIT changed();
    Q_EMIT logLine("[update] "_L1 + text);
}

// --- The check

void UpdateChecker::checkNow()
{
    if (m_feedUrl.isEmpty()) {
        setStatus(u"feed de update não configurado"_s);
        return;
    }
    const QUrl feed(m_feedUrl);
    if (!isAcceptedFeed(feed)) {
        setStatus(u"feed precisa ser HTTPS (anti-MITM)"_s);
        return;
    }
    setStatus(u"checando atualizações..."_s);
    QNetworkReply *reply = m_network->get(updateRequest(feed));
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onManifestReply(reply); });
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] {
        if (reply->bytesAvailable() > largestManifest)
            refuseLongManifest(reply);
    });
}

void UpdateChecker::refuseLongManifest(QNetworkReply *reply)
{
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
    const QString reason = u"mais de 64 MiB"_s;
    setStatus(u"manifesto inválido: "_s + reason);
    Q_EMIT checkFailed(reason);
}

void UpdateChecker::onManifestReply(QNetworkReply *reply)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        setStatus("erro de rede: "_L1 + reply->errorString());
        Q_EMIT checkFailed(reply->errorString());
        return;
    }
    m_manifest = parseManifest(reply->readAll(), platformKey);
    if (!m_manifest.valid) {
        setStatus(u"manifesto inválido: "_s + m_manifest.error);
        Q_EMIT checkFailed(m_manifest.error);
        return;
    }

    m_latestVersion = m_manifest.version;
    m_updateAvailable = isNewer(m_latestVersion, m_currentVersion);
    if (m_updateAvailable && !m_manifest.hasPackage) {
        setStatus(u"nova versão "_s + m_latestVersion + " mas sem pacote p/ "_L1 + platformKey);
        m_updateAvailable = false;
    }
    Q_EMIT changed();
    if (!m_updateAvailable) {
        setStatus(u"já atualizado ("_s + m_currentVersion + u')');
        Q_EMIT upToDate();
        return;
    }

    if (verifyManifestSignature()) {
        setStatus(u"nova versão disponível: "_s + m_latestVersion + u" — baixando..."_s);
        downloadAndStage();
    } else {
        m_updateAvailable = false;
        Q_EMIT changed();
        Q_EMIT checkFailed(u"assinatura ed25519 inválida"_s);
    }
}

bool UpdateChecker::verifyManifestSignature()
{
    const QString pinned = QString::fromLatin1(pinnedUpdateKey()).trimmed();
    if (pinned.isEmpty()) {
        Q_EMIT logLine(u"[update] ed25519 desativado (sem chave pinada) — usando HTTPS+sha256"_s);
        return true;
    }
    const QByteArray key = QByteArray::fromHex(pinned.toLatin1());
    const QByteArray signature = QByteArray::fromBase64(m_manifest.ed25519_sig.toLatin1());
    if (key.size() != updateKeySize) {
        setStatus(u"chave ed25519 pinada inválida"_s);
        return false;
    }
    if (signature.size() != updateSignatureSize) {
        setStatus(u"manifesto sem assinatura ed25519 válida — rejeitado"_s);
        return false;
    }
    if (!checkUpdateSignature(signature, key, updateMessage(m_manifest))) {
        setStatus(u"assinatura ed25519 do manifesto NÃO confere — update rejeitado"_s);
        return false;
    }
    Q_EMIT logLine(u"[update] assinatura ed25519 do manifesto OK"_s);
    return true;
}

// --- The package

void UpdateChecker::downloadAndStage()
{
    if (!m_updateAvailable || !m_manifest.hasPackage) {
        setStatus(u"nada para baixar"_s);
        return;
    }
    QDir().mkpath(updateDirectory(m_runtimeDir));
    const QString path = updateDirectory(m_runtimeDir) + u'/' + packageFileName(m_latestVersion);
    setStatus("baixando "_L1 + m_latestVersion + "..."_L1);

    QNetworkRequest package = updateRequest(QUrl(m_manifest.url));
    package.setAttribute(QNetworkRequest::MaximumDownloadBufferSizeAttribute, wholeBufferSize);
    QNetworkReply *reply = m_network->get(package);
    // With the manifest that has just been verified: a later check may put another one in its place
    // meanwhile.
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, path, manifest = m_manifest] { onPackageReply(reply, path, manifest); });
}

void UpdateChecker::onPackageReply(QNetworkReply *reply, const QString &path, const UpdateManifest &manifest)
{
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        setStatus("download falhou: "_L1 + reply->errorString());
        removePackage(path);
        return;
    }
    QFile file(path);
    if (!isInUpdateDirectory(path) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        setStatus(u"não gravou "_s + path);
        return;
    }
    // The reply holds the whole package; taken out in one piece it would be in memory twice.
    qint64 written = 0;
    while (written >= 0 && reply->bytesAvailable() > 0)
        written = file.write(reply->read(pieceSize));
    file.close();
    if (written < 0) {
        setStatus(u"erro ao gravar pacote"_s);
        removePackage(path);
        return;
    }
    if (!verifyPackageHash(path, manifest)) {
        removePackage(path);
        return;
    }
    m_stagedPackagePath = path;
    writeReadyFile(path, manifest.version);
    setStatus("update "_L1 + manifest.version + u" baixado e validado — aplica na próxima janela segura"_s);
    Q_EMIT readyToApply(path, manifest.version);
}

bool UpdateChecker::verifyPackageHash(const QString &path, const UpdateManifest &manifest)
{
    if (manifest.sha256.isEmpty()) {
        setStatus(u"manifesto sem sha256 — pacote rejeitado"_s);
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setStatus(u"não abriu p/ hash"_s);
        return false;
    }
    const auto digest = sha256Of(file);
    if (!digest) {
        setStatus(u"falha no hash"_s);
        return false;
    }
    if (QString::fromLatin1(digest->toHex()).compare(manifest.sha256, Qt::CaseInsensitive) != 0) {
        setStatus(u"sha256 NÃO confere — pacote rejeitado"_s);
        return false;
    }
    return true;
}

void UpdateChecker::writeReadyFile(const QString &path, const QString &version) const
{
    QFile file(readyFilePath(m_runtimeDir));
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(readyUpdateText({path, version, QCoreApplication::applicationDirPath()}));
}

void UpdateChecker::removePackage(const QString &path) const
{
    if (isInUpdateDirectory(path))
        QFile::remove(path);
}

/// The version is part of the path as the manifest has it. One that would lead elsewhere, on this system or
/// on another, is neither written nor removed.
bool UpdateChecker::isInUpdateDirectory(const QString &path) const
{
    return isPlainFileName(path.sliced(updateDirectory(m_runtimeDir).size() + 1));
}

// --- The safe moment

bool UpdateChecker::applyIfSafe()
{
    if (m_stagedPackagePath.isEmpty()) {
        setStatus(u"nenhum update staged"_s);
        return false;
    }
    if (isStreamActive && isStreamActive()) {
        setStatus(u"transmissão ativa — update adiado (regra de ouro: não derrubar a stream)"_s);
        return false;
    }
    setStatus(u"aplicando update — reiniciando via guardião..."_s);
    QFile request(applyRequestPath(m_runtimeDir));
    if (request.open(QIODevice::WriteOnly))
        request.close();
    QCoreApplication::quit();
    return true;
}

} // namespace corvane
