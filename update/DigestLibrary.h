#pragma once

#include <cstddef>

namespace corvane {

/// Functions of OpenSSL 3's libcrypto that compute a digest, under the names and with the parameters that
/// they have there (EVP_MD_CTX_new and the like); a context and an algorithm are opaque.
struct DigestLibrary
{
    void *(*newContext)() = nullptr;
    void (*freeContext)(void *context) = nullptr;
    const void *(*sha256)() = nullptr;
    int (*init)(void *context, const void *algorithm, void *engine) = nullptr;
    int (*update)(void *context, const void *bytes, std::size_t size) = nullptr;
    int (*final)(void *context, unsigned char *digest, unsigned int *size) = nullptr;
};

/// The library, loaded by the first call and kept; null where there is none.
[[nodiscard]] const DigestLibrary *digestLibrary();

} // namespace corvane
