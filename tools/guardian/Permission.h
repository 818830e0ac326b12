#pragma once

#include "tools/guardian/ProgramProcesses.h"

#include <QList>
#include <QString>

namespace corvane::guardian {

/// Runs of the program at one moment, as its guardian sees them.
struct Runs
{
    QList<qint64>
        own; ///< processes: the guardian's child, and those with their marks in its runtime directory
    QList<qint64>
        others; ///< processes of other sessions, and those of which nobody knows where their marks are
    bool marksStand = false; ///< the sentinel in the runtime directory
    bool marksLive = false;  ///< the heartbeat has changed, lately, since the last own run ended
    bool marksQuiet = false; ///< the heartbeat has been watched for long enough, and hasn't changed
};

/// `processes` by whom they belong to. `child` is the guardian's own, or 0.
[[nodiscard]] Runs sortRuns(const QList<ProgramProcess> &processes, qint64 child,
                            const QString &runtimeDirectory);

/// An act of the guardian on the program or its folder.
enum class Act {
    Start,   ///< of a run with the runtime directory
    Replace, ///< of the installation: an update or a roll-back
    Kill,    ///< of the own runs
};

/// Reason why the guardian must not `act` while there are these `runs`, or empty. To be asked before every
/// act, of what is seen at that very moment.
///
/// One runtime directory has one run at most. What somebody runs isn't replaced, whoever it is: it may be on
/// air. Only a run that is known to be the guardian's own is ever ended.
[[nodiscard]] QString whyNot(Act act, const Runs &runs);

} // namespace corvane::guardian
