#include "engine/host/LocalPorts.h"

namespace corvane {

constexpr int allocationAttempts = 300; ///< one fewer than the range holds, on purpose

LocalPort allocateLocalPort(int &nextLocalPort, const std::function<UdpPortProbe(int)> &probe)
{
    for (int attempt = 0; attempt < allocationAttempts; ++attempt) {
        const int candidate = nextLocalPort > lastLocalPort ? firstLocalPort : nextLocalPort;
        nextLocalPort = candidate + 1;
        if (probe(candidate) != UdpPortProbe::Taken)
            return {candidate, false};
    }
    return {nextLocalPort++, true};
}

} // namespace corvane
