#include "update/UpdateSignature.h"

#include "update/UpdateManifest.h"

#include <QString>

#include <monocypher-ed25519.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

using namespace Qt::StringLiterals;

namespace corvane {

namespace {

const std::uint8_t *bytes(const QByteArray &array)
{
    return reinterpret_cast<const std::uint8_t *>(array.constData());
}

// The eight points of edwards25519 whose order divides the cofactor 8 (RFC 7748, 4.1; RFC 8032, 5.1), by
// their y-coordinate in hexadecimal, little end first, the sign of x aside: 0, 1, the two of order 8, p - 1,
// and with p and p + 1 the two forms that aren't reduced. The same list stands in
// cmake/CorvaneUpdateKey.cmake.
constexpr QByteArrayView weakKeys[] = {
    "0000000000000000000000000000000000000000000000000000000000000000",
    "0100000000000000000000000000000000000000000000000000000000000000",
    "26e8958fc2b227b045c3f489f2ef98f0d5dfac05d3c63339b13802886d53fc05",
    "c7176a703d4dd84fba3c0b760d10670f2a2053fa2c39ccc64ec7fd7792ac037a",
    "ecffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
    "edffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
    "eeffffffffffffffffffffffffffffffffffffffffffffffffffffffffffff7f",
};

} // namespace

bool isWeakUpdateKey(const QByteArray &key)
{
    constexpr char allButSign = 0x7f;
    if (key.size() != updateKeySize)
        return true;
    QByteArray y = key;
    y.back() = static_cast<char>(y.back() & allButSign);
    return std::find(std::begin(weakKeys), std::end(weakKeys), y.toHex()) != std::end(weakKeys);
}

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
