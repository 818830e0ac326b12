#pragma once

#include <QByteArray>
#include <QLatin1String>
#include <QList>
#include <QString>

namespace corvane {

/// The one platform whose packages this program takes.
inline constexpr QLatin1String platformKey{"windows-x64"};

/// Manifest of the latest version, as the feed has it. The field names are the manifest's.
struct UpdateManifest
{
    QString version;
    QString min_version;       ///< stored only
    QString notes_url;         ///< stored only
    int rollout_percent = 100; ///< stored only
    // of the package for one platform
    QString url;
    QString sha256;          ///< digest of the package in hexadecimal, in either letter case
    QString ed25519_sig;     ///< base64
    QString team_id;         ///< stored only
    QString min_os;          ///< stored only
    bool hasPackage = false; ///< there is a package for the platform, with a non-empty `url`
    bool valid = false;
    QString error; ///< why it isn't valid
};

/// Reads the JSON text of a manifest; of its packages, the one for `platform`. Absent and wrongly typed
/// strings read as empty, unknown keys are ignored. Only what is no JSON object or names no version is
/// invalid.
[[nodiscard]] UpdateManifest parseManifest(const QByteArray &data, const QString &platform);

/// "v1.2.3-rc1" as {1, 2, 3}: without a leading v and without what follows the first "-". What isn't a number
/// counts as 0.
[[nodiscard]] QList<int> parseVersion(const QString &text);

/// Compares the first three numbers; missing ones are 0.
[[nodiscard]] bool isNewer(const QString &newVersion, const QString &currentVersion);

} // namespace corvane
