#pragma once

#include <QStringList>

#include <functional>

/// Capabilities of the platform, asked for in one place. The platforms built today have no NDI and no
/// DeckLink runtime, no memory locking and no thermal sensor; a port to one that has them changes these
/// functions.
///
/// The two setters are for a build with an NDI runtime and for tests. Main thread.
namespace corvane {

[[nodiscard]] bool ndiRuntimeAvailable();

/// Sets the answer of ndiRuntimeAvailable(); false at first.
void setNdiRuntimeAvailable(bool available);

[[nodiscard]] bool decklinkRuntimeAvailable();

/// Names of the NDI sources on the network, found within `timeoutMs`. Empty without an NDI runtime.
[[nodiscard]] QStringList ndiSourceScan(int timeoutMs);

using NdiSourceScan = std::function<QStringList(int timeoutMs)>;

/// Sets the function behind ndiSourceScan(); none at first.
void setNdiSourceScan(NdiSourceScan scan);

/// Names of the DeckLink devices of this machine. Empty without a DeckLink runtime.
[[nodiscard]] QStringList decklinkDeviceScan();

/// Locks the process's memory against paging and returns whether it is locked.
[[nodiscard]] bool lockProcessMemory();

/// Thermal level of the machine: 0 is unconcerned, 2 and 3 count as overheated.
[[nodiscard]] int thermalState();

} // namespace corvane
