#include "tools/guardian/ProgramProcesses.h"

#include <algorithm>

namespace corvane::guardian {

QStringList childrenAmong(const QList<ListedProcess> &processes, qint64 id)
{
    QStringList names;
    const auto parent = std::find_if(processes.cbegin(), processes.cend(),
                                     [id](const ListedProcess &one) { return one.id == id; });
    if (parent == processes.cend())
        return names;
    for (const ListedProcess &one : processes) {
        const bool isCopy = !one.program.isEmpty() && one.program == parent->program;
        if (one.parent == id && one.start >= parent->start && !isCopy && !one.name.isEmpty())
            names << one.name;
    }
    return names;
}

} // namespace corvane::guardian
