#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

namespace corvane {

struct PackageDigest
{
    QString sha256; ///< lower-case hexadecimal; empty after an error
    QString error;
};

/// Digest of the file at `path`, read in pieces. `progress`, if there is one, hears of bytes read and bytes
/// in all after each piece.
[[nodiscard]] PackageDigest packageDigest(const QString &path,
                                          const std::function<void(qint64, qint64)> &progress = {});

} // namespace corvane
