#include "engine/host/Capabilities.h"

#include <utility>

namespace corvane {

namespace {

bool ndiRuntime = false;
bool decklinkRuntime = false;
int thermalLevel = 0;

NdiSourceScan &currentNdiSourceScan()
{
    static NdiSourceScan scan;
    return scan;
}

DecklinkDeviceScan &currentDecklinkDeviceScan()
{
    static DecklinkDeviceScan scan;
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
    return decklinkRuntime;
}

void setDecklinkRuntimeAvailable(bool available)
{
    decklinkRuntime = available;
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
    const DecklinkDeviceScan &scan = currentDecklinkDeviceScan();
    return scan ? scan() : QStringList();
}

void setDecklinkDeviceScan(DecklinkDeviceScan scan)
{
    currentDecklinkDeviceScan() = std::move(scan);
}

bool lockProcessMemory()
{
    return false;
}

int thermalState()
{
    return thermalLevel;
}

void setThermalState(int level)
{
    thermalLevel = level;
}

} // namespace corvane
