#include "tools/guardian/Permission.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

namespace {

bool isSameFolder(const QString &one, const QString &other)
{
    if (one.isEmpty())
        return false;
    const QString canonical = QFileInfo(one).canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(one) == QDir::cleanPath(other)
                               : canonical == QFileInfo(other).canonicalFilePath();
}

} // namespace

Runs sortRuns(const QList<ProgramProcess> &processes, qint64 child, const QString &runtimeDirectory)
{
    Runs runs;
    for (const ProgramProcess &process : processes) {
        const bool isOwn = process.id == child || isSameFolder(process.runtimeDirectory, runtimeDirectory);
        (isOwn ? runs.own : runs.others) << process.id;
    }
    if (child != 0 && !runs.own.contains(child))
        runs.own << child;
    return runs;
}

QString whyNot(Act act, const Runs &runs)
{
    switch (act) {
    case Act::Start:
        if (!runs.own.isEmpty())
            return u"the program is running (process %1)"_s.arg(runs.own.first());
        if (runs.marksStand && runs.marksLive)
            return u"the marks in the runtime directory are those of a program that runs"_s;
        return {};
    case Act::Replace:
        if (!runs.own.isEmpty())
            return u"the program is running (process %1)"_s.arg(runs.own.first());
        if (!runs.others.isEmpty())
            return u"somebody else runs the program (process %1)"_s.arg(runs.others.first());
        if (runs.marksStand && !runs.marksQuiet)
            return u"the marks in the runtime directory may be those of a program that runs"_s;
        return {};
    case Act::Kill:
        return runs.own.isEmpty() ? u"no run of the program is the guardian's"_s : QString();
    }
    return u"nobody knows what is to be done"_s;
}

} // namespace corvane::guardian
