#pragma once

namespace corvane {

class Engine;

/// Cancels the end of the session, a restart or a shutdown that the system announces while one of the
/// engine's pipelines is on air: on Windows the answer to WM_QUERYENDSESSION, on X11 that to the session
/// manager. The system then asks the user, or gives up. Idle, nothing is objected to.
///
/// Lasts as long as the engine and takes an application object.
void objectToSessionEnd(const Engine &engine);

} // namespace corvane
