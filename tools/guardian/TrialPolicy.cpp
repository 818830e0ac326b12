#include "tools/guardian/TrialPolicy.h"

namespace corvane::guardian {

TrialVerdict TrialPolicy::atLook(const TrialSight &seen) const
{
    constexpr int enoughBeats = 2;
    if (seen.beats >= enoughBeats)
        return TrialVerdict::Passed;
    if (seen.sinceBeat <= patience)
        return TrialVerdict::Wait;
    if (seen.onAir)
        return TrialVerdict::LeftAlone;
    if (seen.sinceOnAir && *seen.sinceOnAir <= patience)
        return TrialVerdict::Wait;
    return seen.beats == 0 && formerNeverBeat ? TrialVerdict::NoBeatHere : TrialVerdict::Failed;
}

TrialEnd TrialPolicy::atEnd(bool orderly, int beats, int closedBefore) const
{
    if (!orderly)
        return TrialEnd::Failed;
    if (beats > 0)
        return TrialEnd::Passed;
    return closedBefore < mayClose ? TrialEnd::Undecided : TrialEnd::Failed;
}

} // namespace corvane::guardian
