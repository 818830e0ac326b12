#include "engine/host/LocalPorts.h"

#include <winsock2.h>

namespace corvane {

namespace {

/// True once Winsock is started for the process; without it no socket can be created.
bool winsockStarted()
{
    static const bool started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return started;
}

} // namespace

UdpPortProbe probeUdpPort(int port)
{
    const SOCKET udp = winsockStarted() ? socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP) : INVALID_SOCKET;
    if (udp == INVALID_SOCKET)
        return UdpPortProbe::NoSocket;

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int bound = bind(udp, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    closesocket(udp);
    return bound == 0 ? UdpPortProbe::Free : UdpPortProbe::Taken;
}

} // namespace corvane
