#pragma once

// Monocypher's Ed25519 calls on top of libsodium, for machines that have only that one: the same names, the
// same layouts (a secret key is the seed and the public key), the same answers to every signature and key
// that was made by the rules. Of the broken ones, libsodium refuses a few more.

#include <sodium.h>

#include <cstddef>
#include <cstdint>

/// 0 if the signature is right, -1 otherwise.
inline int crypto_ed25519_check(const std::uint8_t signature[64], const std::uint8_t public_key[32],
                                const std::uint8_t *message, std::size_t message_size)
{
    return crypto_sign_verify_detached(signature, message, message_size, public_key);
}

/// Makes both keys from 32 secret random bytes, which are wiped.
inline void crypto_ed25519_key_pair(std::uint8_t secret_key[64], std::uint8_t public_key[32],
                                    std::uint8_t seed[32])
{
    crypto_sign_seed_keypair(public_key, secret_key, seed);
    sodium_memzero(seed, 32);
}

inline void crypto_ed25519_sign(std::uint8_t signature[64], const std::uint8_t secret_key[64],
                                const std::uint8_t *message, std::size_t message_size)
{
    crypto_sign_detached(signature, nullptr, message, message_size, secret_key);
}

inline void crypto_wipe(void *secret, std::size_t size)
{
    sodium_memzero(secret, size);
}
