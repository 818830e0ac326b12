#pragma once

#include <QByteArray>

namespace corvane {

struct UpdateManifest;

inline constexpr qsizetype updateKeySize = 32;
inline constexpr qsizetype updateSignatureSize = 64;

/// True if `key` is a point of small order, in any form that decodes to one: under such a key everybody can
/// sign everything. True for a key of another size than a key's too.
[[nodiscard]] bool isWeakUpdateKey(const QByteArray &key);

/// The message that the publisher signs and the program checks: version, platform, package address and digest
/// of `manifest`, each as written there. Nothing else of a manifest is signed.
[[nodiscard]] QByteArray updateMessage(const UpdateManifest &manifest);

/// True if `signature` is that of `message` under the Ed25519 public key `key`, both as plain bytes. False
/// for any other size than theirs.
[[nodiscard]] bool checkUpdateSignature(const QByteArray &signature, const QByteArray &key,
                                        const QByteArray &message);

} // namespace corvane
