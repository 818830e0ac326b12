#pragma once

namespace corvane {

/// Asks the system to keep itself and the display awake until allowSleep(). One request for the whole
/// process, from the main thread; the operating system ends it with the process. Failures are silent.
void preventSleep();

/// Lifts the request. Without one it does nothing.
void allowSleep();

} // namespace corvane
