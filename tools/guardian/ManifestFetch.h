#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>
#include <functional>

class QObject;

namespace corvane {
struct UpdateManifest;
}

namespace corvane::guardian {

/// Takes the manifest's text, or an error in words.
using ManifestAnswer = std::function<void(const QByteArray &text, const QString &error)>;
/// Asks for the manifest; the answer comes later, once.
using ManifestSource = std::function<void(const ManifestAnswer &)>;

/// A source that asks `feed` over HTTPS under the rules of the program: any other scheme, and a redirect to
/// one, is an error, and so is an answer that isn't complete within `patience`. Its requests live as long as
/// `parent`.
[[nodiscard]] ManifestSource httpsSource(const QString &feed, QObject *parent,
                                         std::chrono::milliseconds patience = std::chrono::seconds(30));

/// Reason why `manifest` doesn't vouch for a staged update of version `staged`, or empty. With a `pinnedKey`,
/// in hexadecimal, its signature has to be right; without one HTTPS and the digest are what there is, as in
/// the program. `installed`, where it is known, has to be older.
[[nodiscard]] QString manifestProblem(const UpdateManifest &manifest, const QString &pinnedKey,
                                      const QString &staged, const QString &installed);

} // namespace corvane::guardian
