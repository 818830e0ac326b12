#pragma once

#include <QStringList>

#include <functional>

/// Capabilities of the platform, asked for in one place. The platforms built today have no NDI and no
/// DeckLink runtime, no memory locking and no thermal sensor; a port to one that has them changes these
/// functions.
///
/// The setters are for a build with such a runtime or sensor and for tests. Main thread.
namespace corvane {

[[nodiscard]] bool ndiRuntimeAvailable();

/// Sets the answer of ndiRuntimeAvailable(); false at first.
void setNdiRuntimeAvailable(bool available);

[[nodiscard]] bool decklinkRuntimeAvailable();

/// Sets the answer of decklinkRuntimeAvailable(); false at first.
void setDecklinkRuntimeAvailable(bool available);

/// Names of the NDI sources on the network, found within `timeoutMs`. Empty without an NDI runtime.
[[nodiscard]] QStringList ndiSourceScan(int timeoutMs);

using NdiSourceScan = std::function<QStringList(int timeoutMs)>;

/// Sets the function behind ndiSourceScan(); none at first.
void setNdiSourceScan(NdiSourceScan scan);

/// Names of the DeckLink devices of this machine. Empty without a DeckLink runtime.
[[nodiscard]] QStringList decklinkDeviceScan();

using DecklinkDeviceScan = std::function<QStringList()>;

/// Sets the function behind decklinkDeviceScan(); none at first.
void setDecklinkDeviceScan(DecklinkDeviceScan scan);

/// Locks the process's memory against paging and returns whether it is locked.
[[nodiscard]] bool lockProcessMemory();

/// Thermal level of the machine: 0 is unconcerned, 2 and 3 count as overheated.
[[nodiscard]] int thermalState();

/// Sets the answer of thermalState(); 0 at first.
void setThermalState(int level);

} // namespace corvane
