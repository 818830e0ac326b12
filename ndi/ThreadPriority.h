#pragma once

namespace corvane {

/// Lets the calling thread come first, as far as the system allows it to an ordinary user. Failures are
/// silent.
void makeThreadTimeCritical();

} // namespace corvane
