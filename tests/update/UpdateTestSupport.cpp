#include "tests/update/UpdateTestSupport.h"

#include "tests/support/TestSupport.h"
#include "update/PinnedUpdateKey.h"
#include "update/UpdateSignature.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QTimer>

#include <monocypher-ed25519.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray pinned;

} // namespace

namespace corvane {

// In the place of the library's.
const char *pinnedUpdateKey()
{
    return pinned.constData();
}

} // namespace corvane

namespace corvane::test {

namespace {

std::uint8_t *bytes(QByteArray &array)
{
    return reinterpret_cast<std::uint8_t *>(array.data());
}

const std::uint8_t *bytes(const QByteArray &array)
{
    return reinterpret_cast<const std::uint8_t *>(array.constData());
}

constexpr int leftByItself = 1;

} // namespace

void pinKey(const QByteArray &key)
{
    pinned = key;
}

Publisher::Publisher(char seed)
    : m_secret(64, '\0')
    , m_key(updateKeySize, '\0')
{
    QByteArray seedBytes(32, seed);
    crypto_ed25519_key_pair(bytes(m_secret), bytes(m_key), bytes(seedBytes));
}

QByteArray Publisher::signature(const QByteArray &message) const
{
    QByteArray made(updateSignatureSize, '\0');
    crypto_ed25519_sign(bytes(made), bytes(m_secret), bytes(message),
                        static_cast<std::size_t>(message.size()));
    return made;
}

QString Publisher::signatureOf(const UpdateManifest &manifest) const
{
    return QString::fromLatin1(signature(updateMessage(manifest)).toBase64());
}

QString sha256Of(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

QByteArray manifestText(const UpdateManifest &manifest)
{
    const QJsonObject package{{u"url"_s, manifest.url},
                              {u"sha256"_s, manifest.sha256},
                              {u"ed25519_sig"_s, manifest.ed25519_sig},
                              {u"team_id"_s, manifest.team_id},
                              {u"min_os"_s, manifest.min_os}};
    return QJsonDocument(QJsonObject{{u"version"_s, manifest.version},
                                     {u"min_version"_s, manifest.min_version},
                                     {u"notes_url"_s, manifest.notes_url},
                                     {u"rollout_percent"_s, manifest.rollout_percent},
                                     {u"platforms"_s, QJsonObject{{u"windows-x64"_s, package}}}})
        .toJson();
}

UpdateBench::UpdateBench(HttpServer::Identity identity)
    : server(identity)
    , updater(u"0.1.0"_s, server.url(u"/latest.json"_s), m_directory.filePath(u"runtime"_s))
{
    connect(&updater, &UpdateChecker::changed, this, [this] {
        const QStringList words{u"changed"_s, updater.latestVersion(),
                                updater.updateAvailable() ? u"available"_s : QString()};
        events << words.join(u' ').simplified();
    });
    connect(&updater, &UpdateChecker::logLine, this,
            [this](const QString &line) { events << neutral("log "_L1 + line); });
    connect(&updater, &UpdateChecker::upToDate, this, [this] { events << u"upToDate"_s; });
    connect(&updater, &UpdateChecker::checkFailed, this,
            [this](const QString &reason) { events << neutral("checkFailed "_L1 + reason); });
    connect(&updater, &UpdateChecker::readyToApply, this,
            [this](const QString &path, const QString &version) {
                events << neutral("readyToApply "_L1 + path + u' ' + version);
            });
}

void UpdateBench::publish(const QString &version, const QByteArray &package,
                          const std::function<void(UpdateManifest &)> &change)
{
    UpdateManifest manifest;
    manifest.version = version;
    manifest.url = server.url(u"/package.zip"_s);
    manifest.sha256 = sha256Of(package);
    if (change)
        change(manifest);
    publishText(manifestText(manifest));
    HttpAnswer answer;
    answer.body = package;
    server.put(u"/package.zip"_s, answer);
}

void UpdateBench::publishText(const QByteArray &manifest)
{
    HttpAnswer answer;
    answer.body = manifest;
    server.put(u"/latest.json"_s, answer);
}

bool UpdateBench::check()
{
    updater.checkNow();
    return settle();
}

bool UpdateBench::settle()
{
    return waitUntil([this] { return updater.findChildren<QNetworkReply *>().isEmpty(); });
}

QString UpdateBench::package(const QString &version) const
{
    return runtimeDir() + "/update/CORVANE-"_L1 + version + ".zip"_L1;
}

QStringList UpdateBench::files() const
{
    QStringList found;
    QDirIterator entries(m_directory.path(), QDir::Files | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        found << QDir(m_directory.path()).relativeFilePath(entries.next());
    found.sort();
    return found;
}

QByteArray UpdateBench::content(const QString &file) const
{
    QFile opened(m_directory.filePath(file));
    return opened.open(QIODevice::ReadOnly) ? opened.readAll() : QByteArray();
}

QString UpdateBench::neutral(QString text) const
{
    text.replace(runtimeDir(), "DIR"_L1);
    return text.replace(u"127.0.0.1:%1"_s.arg(server.serverPort()), "HOST"_L1);
}

Application apply(UpdateChecker &updater)
{
    Application result;
    QTimer::singleShot(0, &updater, [&] {
        result.answer = updater.applyIfSafe();
        // Comes to nothing in a loop that ends anyway.
        QTimer::singleShot(0, &updater, [] { QCoreApplication::exit(leftByItself); });
    });
    result.quits = QCoreApplication::exec() != leftByItself;
    return result;
}

QString readyEvent()
{
    return u"readyToApply DIR/update/CORVANE-0.2.0.zip 0.2.0"_s;
}

} // namespace corvane::test
