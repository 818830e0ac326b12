#pragma once

#include <QByteArray>

#include <optional>

class QIODevice;

namespace corvane {

/// The SHA-256 of what is left to read of `device`, 32 bytes; nothing if reading fails.
///
/// OpenSSL's where the build has found it, several times as fast as QCryptographicHash: a package is hashed
/// on the thread of the window, and the window stands still meanwhile.
[[nodiscard]] std::optional<QByteArray> sha256Of(QIODevice &device);

} // namespace corvane
