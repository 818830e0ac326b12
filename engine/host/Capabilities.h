#pragma once

#include <QStringList>

#include <functional>

/// What the platform itself offers, asked in one place. On the platforms built today there is no NDI and no
/// DeckLink runtime, no memory locking and no thermal sensor; a port that has one answers here.
///
/// The two setters are for a build that brings an NDI runtime, and for tests of what hangs on one. Main
/// thread.
namespace corvane {

[[nodiscard]] bool ndiRuntimeAvailable();

/// What ndiRuntimeAvailable() answers from now on; false at first.
void setNdiRuntimeAvailable(bool available);

[[nodiscard]] bool decklinkRuntimeAvailable();

/// Names of the NDI sources on the network, found within `timeoutMs`. Empty without an NDI runtime.
[[nodiscard]] QStringList ndiSourceScan(int timeoutMs);

using NdiSourceScan = std::function<QStringList(int timeoutMs)>;

/// By what ndiSourceScan() looks from now on; by nothing at first.
void setNdiSourceScan(NdiSourceScan scan);

/// Names of the DeckLink devices of this machine. Empty without a DeckLink runtime.
[[nodiscard]] QStringList decklinkDeviceScan();

/// Locks the process's memory against paging; answers whether it is locked.
[[nodiscard]] bool lockProcessMemory();

/// Thermal level of the machine: 0 is unconcerned, 2 and 3 count as overheated.
[[nodiscard]] int thermalState();

} // namespace corvane
