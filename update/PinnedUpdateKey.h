#pragma once

namespace corvane {

/// The publisher's Ed25519 public key as 64 hexadecimal digits, fixed when the program is built. An empty
/// text switches the signature check off; nothing else can.
[[nodiscard]] const char *pinnedUpdateKey();

} // namespace corvane
