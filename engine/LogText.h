#pragma once

#include <QString>

class QTime;

namespace corvane {

/// Appends `line` to `log`, stamped "HH:mm:ss " and ended by a line feed. A log longer than 60000 characters
/// is cut to its last 40000; the cut may fall inside a line.
void appendLogLine(QString &log, const QString &line, const QTime &now);

} // namespace corvane
