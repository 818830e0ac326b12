#include "engine/host/Capabilities.h"

namespace corvane {

namespace {

bool ndiRuntime = false;

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
