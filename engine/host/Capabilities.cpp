#include "engine/host/Capabilities.h"

namespace corvane {

bool ndiRuntimeAvailable()
{
    return false;
}

bool decklinkRuntimeAvailable()
{
    return false;
}

QStringList ndiSourceScan(int /*timeoutMs*/)
{
    return {};
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
