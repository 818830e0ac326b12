#pragma once

namespace corvane {

/// The system's SetThreadExecutionState, by which KeepAwake.h makes and lifts its request. Only a test
/// replaces it: the system doesn't report which requests are in force.
extern unsigned long(__stdcall *setThreadExecutionState)(unsigned long);

} // namespace corvane
