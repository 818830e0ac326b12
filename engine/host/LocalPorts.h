#pragma once

#include <functional>

namespace corvane {

enum class UdpPortProbe {
    Free,     ///< the port could be bound, and is free again
    Taken,    ///< the port could not be bound
    NoSocket, ///< no socket could be created: nothing is known
};

/// Binds an IPv4 datagram socket to 127.0.0.1 and `port` and closes it at once: nothing is reserved.
[[nodiscard]] UdpPortProbe probeUdpPort(int port);

struct LocalPort
{
    int port = 0;
    bool exhausted = false; ///< every attempt failed: `port` is unverified
};

/// Next local UDP port from 8900 to 9200 that can be bound. `nextLocalPort` is the caller's counter, which
/// moves past the returned port and wraps around. After 300 failed attempts the counter's own value is
/// returned, unverified; so is the candidate where no socket can be created.
[[nodiscard]] LocalPort allocateLocalPort(int &nextLocalPort,
                                          const std::function<UdpPortProbe(int)> &probe = probeUdpPort);

inline constexpr int firstLocalPort = 8900;
inline constexpr int lastLocalPort = 9200;

} // namespace corvane
