#pragma once

class QFile;

namespace corvane {

/// True if others than its owner may read or write `file`, as far as the platform lets one see that.
[[nodiscard]] bool isOpenToOthers(const QFile &file);

} // namespace corvane
