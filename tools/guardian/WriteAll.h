#pragma once

#include <QByteArrayView>
#include <QString>

class QFile;

namespace corvane::guardian {

/// Writes `bytes` to a `file` that is open without a buffer. Answers why not: a disk that is nearly full
/// takes a part without a word, and says so at the next write alone.
[[nodiscard]] QString writeAll(QFile &file, QByteArrayView bytes);

} // namespace corvane::guardian
