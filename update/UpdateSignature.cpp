#include "update/UpdateSignature.h"

#include "update/UpdateManifest.h"

#include <QString>

#include <monocypher-ed25519.h>

#include <cstddef>
#include <cstdint>

using namespace Qt::StringLiterals;

namespace corvane {

namespace {

const std::uint8_t *bytes(const QByteArray &array)
{
    return reinterpret_cast<const std::uint8_t *>(array.constData());
}

} // namespace

QByteArray updateMessage(const UpdateManifest &manifest)
{
    // In one substitution: a "%" in a value stays what it is.
    return u"corvane-update-v1\n%1\n%2\n%3\n%4"_s
        .arg(manifest.version, platformKey, manifest.url, manifest.sha256)
        .toUtf8();
}

bool checkUpdateSignature(const QByteArray &signature, const QByteArray &key, const QByteArray &message)
{
    if (signature.size() != updateSignatureSize || key.size() != updateKeySize)
        return false;
    return crypto_ed25519_check(bytes(signature), bytes(key), bytes(message),
                                static_cast<std::size_t>(message.size())) == 0;
}

} // namespace corvane
