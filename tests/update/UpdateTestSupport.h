#pragma once

#include "tests/support/HttpServer.h"
#include "update/UpdateChecker.h"
#include "update/UpdateManifest.h"

#include <QByteArray>
#include <QJsonObject>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

namespace corvane::test {

/// The key that the program under test pins, whatever the build was configured with: a text as
/// CORVANE_UPDATE_KEY would have it. Empty at first.
void pinKey(const QByteArray &key);

/// A key pair made from a fixed seed.
class Publisher
{
public:
    explicit Publisher(char seed = 'p');

    [[nodiscard]] QByteArray key() const { return m_key.toHex(); }       ///< public, as a build would pin it
    [[nodiscard]] QByteArray signature(const QByteArray &message) const; ///< 64 bytes
    /// The signature that `manifest` should bear, in base64.
    [[nodiscard]] QString signatureOf(const UpdateManifest &manifest) const;

private:
    QByteArray m_secret;
    QByteArray m_key;
};

/// An UpdateChecker of version 0.1.0 at the feed of a server on loopback, with a runtime directory of its
/// own. Everything that it says is recorded in order: "changed", "changed VERSION" or "changed VERSION
/// available", "log LINE", "upToDate", "checkFailed REASON", "readyToApply PATH VERSION", where "DIR" stands
/// for the runtime directory and "HOST" for the server's address.
class UpdateBench : public QObject
{
    Q_OBJECT

    QTemporaryDir m_directory; // there before the updater is

public:
    explicit UpdateBench(HttpServer::Identity identity = HttpServer::Identity::Trusted);

    /// Puts a manifest of `version` and `package`, as it should be, on the server; `change` may spoil it.
    void publish(const QString &version, const QByteArray &package,
                 const std::function<void(UpdateManifest &)> &change = {});
    /// Puts these bytes in the manifest's place.
    void publishText(const QByteArray &manifest);

    /// One check to its end, which is that of the download that may follow from it; false if it has none.
    [[nodiscard]] bool check();
    /// Runs the event loop until nothing is being fetched any more.
    [[nodiscard]] bool settle();

    [[nodiscard]] QString runtimeDir() const { return m_directory.filePath(QStringLiteral("runtime")); }
    /// Path of the package of `version`.
    [[nodiscard]] QString package(const QString &version) const;
    /// Files below the directory in which the runtime directory lies, sorted.
    [[nodiscard]] QStringList files() const;
    [[nodiscard]] QByteArray content(const QString &file) const; ///< as files() names it

    /// `text` with the words "DIR" and "HOST" for what is different in each run.
    [[nodiscard]] QString neutral(QString text) const;

    HttpServer server;
    UpdateChecker updater;
    QStringList events;
};

/// JSON text of a manifest, its package that of this program's platform.
[[nodiscard]] QByteArray manifestText(const UpdateManifest &manifest);

[[nodiscard]] QString sha256Of(const QByteArray &bytes); ///< in lower-case hexadecimal

/// Calls updater.applyIfSafe() in a running event loop.
struct Application
{
    bool answer = false; ///< of the call
    bool quits = false;  ///< whether the event loop was told to end
};
[[nodiscard]] Application apply(UpdateChecker &updater);

/// Path of the package on the servers of the tests.
constexpr QLatin1StringView packagePath("/package.zip");

/// Event with which an UpdateBench reports the version 0.2.0 ready.
[[nodiscard]] QString readyEvent();

} // namespace corvane::test
