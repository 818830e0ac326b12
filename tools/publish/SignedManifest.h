#pragma once

#include "update/UpdateManifest.h"

#include <QByteArray>
#include <QString>

namespace corvane {

class PublishKey;

/// Reason why `version` can't be published, or empty. It becomes part of a file's name on every machine, so
/// it is held to digits, letters, ".", "-" and "+"; and it has to mean the same to the programs that compare
/// it, which look at three numbers and at nothing from the first "-" on.
[[nodiscard]] QString versionProblem(const QString &version);

/// Reason why `url` can't be a package's address, or empty.
[[nodiscard]] QString urlProblem(const QString &url);

/// `manifest` with the signature of its message in it.
[[nodiscard]] UpdateManifest signedManifest(UpdateManifest manifest, const PublishKey &key);

/// The JSON text of `manifest`, with the one package that it names.
[[nodiscard]] QByteArray manifestText(const UpdateManifest &manifest);

/// True if the signature in `manifest` is that of its message under `publicKey`, 32 bytes.
[[nodiscard]] bool manifestIsSigned(const UpdateManifest &manifest, const QByteArray &publicKey);

} // namespace corvane
