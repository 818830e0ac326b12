#pragma once

namespace corvane {

/// Product of two 32-bit numbers, modulo 2^32: a record holds any number, and a signed overflow would be
/// undefined.
[[nodiscard]] constexpr int wrappingProduct(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/// Sum of two 32-bit numbers, modulo 2^32.
[[nodiscard]] constexpr int wrappingSum(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

} // namespace corvane
