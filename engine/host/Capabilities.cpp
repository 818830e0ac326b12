#include "engine/host/Capabilities.h"

#include <utility>

namespace corvane {

namespace {

bool ndiRuntime = false;

NdiSourceScan &currentNdiSourceScan()
{
    static NdiSourceScan scan;
    return scan;
}

} // namespace

bool ndiRuntimeAvailable()
{
    return ndiRuntime;
}

void setNdiRuntimeAvailable(bool available)
{
    ndiRuntime = available;
}

bool decklinkRuntimeAvailable()
{
    return false;
}

QStringList ndiSourceScan(int timeoutMs)
{
    const NdiSourceScan &scan = currentNdiSourceScan();
    return scan ? scan(timeoutMs) : QStringList();
}

void setNdiSourceScan(NdiSourceScan scan)
{
    currentNdiSourceScan() = std::move(scan);
}

QStringList decklinkDeviceScan()
{
    return {};
}

bool lockProcessMemory()
{
    return false;
}

int thermalState()
{
    return 0;
}

} // namespace corvane
