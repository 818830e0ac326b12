#pragma once

namespace corvane::guardian {

/// True if this process was given an administrator's rights on top of those that its user works with, as by
/// “Run as administrator”. An account that has one set of rights alone isn't elevated, however much it may
/// do: the built-in administrator, and anybody where user account control is off. Always false on Linux,
/// where such rights make another user of it.
[[nodiscard]] bool isElevated();

} // namespace corvane::guardian
