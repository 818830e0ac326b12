#include "update/Sha256.h"

#include <QIODevice>

#include <openssl/evp.h>

#include <cstddef>
#include <memory>

namespace corvane {

namespace {

struct FreeContext
{
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

} // namespace

std::optional<QByteArray> sha256Of(QIODevice &device)
{
    const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return {};
    QByteArray piece(0x20000, Qt::Uninitialized);
    qint64 size = 0;
    while ((size = device.read(piece.data(), piece.size())) > 0) {
        if (EVP_DigestUpdate(context.get(), piece.constData(), static_cast<std::size_t>(size)) != 1)
            return {};
    }
    QByteArray digest(EVP_MD_get_size(EVP_sha256()), Qt::Uninitialized);
    if (size < 0 ||
        EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char *>(digest.data()), nullptr) != 1)
        return {};
    return digest;
}

} // namespace corvane
