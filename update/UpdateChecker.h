#pragma once

#include "update/UpdateManifest.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace corvane {

/// Looks at a feed for a newer version, fetches and verifies its package, and leaves it in `update/` of the
/// runtime directory for the guardian, a process outside this program. Nothing is unpacked or replaced here,
/// and nothing is applied while anything transmits.
///
/// Refuses a feed that isn't HTTPS, a manifest of more than 64 MiB or one whose signature doesn't fit the key
/// that the build pins, and a package whose digest isn't the manifest's. Lives for the whole run, on the
/// thread of the event loop; hashing a package blocks it. Checks may overlap: each download is judged by the
/// manifest that started it.
class UpdateChecker : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool updateAvailable READ updateAvailable NOTIFY changed)
    Q_PROPERTY(QString latestVersion READ latestVersion NOTIFY changed)
    Q_PROPERTY(QString status READ status NOTIFY changed)

public:
    /// Fetches nothing yet. `feedUrl` is the address of the manifest; `runtimeDir` needn't exist.
    UpdateChecker(QString currentVersion, QString feedUrl, QString runtimeDir, QObject *parent = nullptr);

    [[nodiscard]] bool updateAvailable() const { return m_updateAvailable; }
    [[nodiscard]] QString latestVersion() const { return m_latestVersion; } ///< as the last manifest has it
    [[nodiscard]] QString status() const { return m_status; }               ///< the last status text

    /// Asked before an update is applied: whether anything transmits. Empty counts as no.
    std::function<bool()> isStreamActive;

Q_SIGNALS:
    void changed(); ///< a property may have changed
    /// A package has been verified and staged; it is a zip file, whatever the first argument is called.
    void readyToApply(QString dmgPath, QString version);
    void logLine(QString line); ///< "[update] " and what happened
    void upToDate();            ///< a check ended with nothing to do
    void checkFailed(QString reason);

public Q_SLOTS:
    /// One check; a newer version is downloaded and staged. Ends with upToDate, checkFailed or a download,
    /// but says nothing beyond its status if the feed's address isn't one that it may ask.
    void checkNow();

    /// Fetches the package of the last manifest. A failure shows in the status alone.
    void downloadAndStage();

    /// Asks the guardian for the staged update and quits the program, unless nothing is staged or something
    /// transmits. Answers whether it quits. A request that can't be written is not noticed.
    bool applyIfSafe();

private:
    void setStatus(const QString &text);
    void onManifestReply(QNetworkReply *reply);
    void refuseLongManifest(QNetworkReply *reply);
    [[nodiscard]] bool verifyManifestSignature();
    void onPackageReply(QNetworkReply *reply, const QString &path, const UpdateManifest &manifest);
    [[nodiscard]] bool verifyPackageHash(const QString &path, const UpdateManifest &manifest);
    void writeReadyFile(const QString &path, const QString &version) const;
    void removePackage(const QString &path) const;
    [[nodiscard]] bool isInUpdateDirectory(const QString &path) const;

    QString m_currentVersion;
    QString m_feedUrl;
    QString m_runtimeDir;
    QString m_latestVersion;
    QString m_status;
    QString m_stagedPackagePath; ///< empty: nothing is staged
    UpdateManifest m_manifest;   ///< the last one that was parsed, valid or not
    bool m_updateAvailable = false;
    QNetworkAccessManager *m_network;
};

} // namespace corvane
