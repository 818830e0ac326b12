#pragma once

#include <QList>
#include <QtGlobal>

class QString;

namespace corvane::guardian {

/// Ids of the processes that run the program file `path`, as far as this user may see them; those that have
/// ended and are only waited for don't count.
[[nodiscard]] QList<qint64> processesOf(const QString &path);

/// Ends a process without asking it.
void endProcess(qint64 id);

} // namespace corvane::guardian
