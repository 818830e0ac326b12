#pragma once

namespace corvane {

/// The system's SetThreadExecutionState, by which KeepAwake.h makes and lifts its request. Nobody but a test
/// puts another function in its place: what the system makes of the request can't be asked of it.
extern unsigned long(__stdcall *setThreadExecutionState)(unsigned long);

} // namespace corvane
