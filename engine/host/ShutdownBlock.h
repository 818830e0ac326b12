#pragma once

namespace corvane {

/// Asks the system to put off a shutdown or a restart, and on Windows the end of the session, until
/// allowShutdown(), with the reason "Transmissão no ar" on its own screen. The user can overrule it there.
///
/// On Windows the reason belongs to the visible windows of the calling thread, and SessionEnd.h does the
/// objecting; on Linux it is a lock of the login manager, where that grants one. Main thread; the operating
/// system ends the request with the process. Failures are silent.
void blockShutdown();

/// Lifts the request. Without one it does nothing.
void allowShutdown();

} // namespace corvane
