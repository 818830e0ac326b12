#pragma once

namespace corvane {

/// Has every QML engine made from here on collect its garbage in one go instead of in slices of 5 ms.
///
/// Slices came with Qt 6.8. If a busy machine lets the first one pass before anything was done in it, the
/// next component that is made marks what it made on a mark stack that isn't there, and the process is gone:
/// seen with 6.8.2 when the window was made. The window's heap is collected in a few milliseconds.
/// `QV4_GC_TIMELIMIT`, in milliseconds, is Qt's own switch for it; one that was set outside stays as it is.
///
/// Changes the environment: call it before the first thread starts.
void disableIncrementalCollection();

} // namespace corvane
