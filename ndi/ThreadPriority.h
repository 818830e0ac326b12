#pragma once

namespace corvane {

/// Raises the calling thread to the highest priority that the system grants an ordinary user. Failures are
/// silent.
void makeThreadTimeCritical();

} // namespace corvane
