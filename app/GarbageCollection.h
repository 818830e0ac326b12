#pragma once

namespace corvane {

/// Turns off the incremental garbage collection of QML engines created afterwards: each collection then runs
/// to its end instead of in slices of 5 ms.
///
/// Qt 6.8 introduced the slices. On a busy machine the first slice can expire before it has set up its mark
/// stack, and the next component that is created crashes the process when it marks its objects there; seen
/// with 6.8.2 when the window was created. The window's heap is collected in a few milliseconds.
/// `QV4_GC_TIMELIMIT`, in milliseconds, is Qt's own switch; a value set in the environment stays.
///
/// Changes the environment: call it before the first thread starts.
void disableIncrementalCollection();

} // namespace corvane
