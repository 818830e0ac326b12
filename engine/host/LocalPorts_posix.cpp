#include "engine/host/LocalPorts.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace corvane {

UdpPortProbe probeUdpPort(int port)
{
    const int udp = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (udp < 0)
        return UdpPortProbe::NoSocket;

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int bound = bind(udp, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    close(udp);
    return bound == 0 ? UdpPortProbe::Free : UdpPortProbe::Taken;
}

} // namespace corvane
