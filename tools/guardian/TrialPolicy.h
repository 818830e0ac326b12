#pragma once

#include <chrono>
#include <optional>

namespace corvane::guardian {

/// Observation of a version on trial up to one moment.
struct TrialSight
{
    int beats = 0;                          ///< of the process that was started for the trial, no other
    std::chrono::milliseconds sinceBeat{0}; ///< or since its start
    bool onAir = false;                     ///< it runs an encoder or a transport tool
    std::optional<std::chrono::milliseconds> sinceOnAir; ///< nothing: it never was
};

enum class TrialVerdict {
    Wait,       ///< nothing can be said yet
    Passed,     ///< its event loop has run, and went on
    NoBeatHere, ///< it lives, and the former version showed no heartbeat either: the place is at fault
    LeftAlone,  ///< it has shown no sign of life for too long, but is on air
    Failed,     ///< it has shown no sign of life for too long
};

enum class TrialEnd { Passed, Undecided, Failed };

/// Verdict on a version from its run on trial. Pure: time comes in with the observation.
struct TrialPolicy
{
    std::chrono::milliseconds patience =
        std::chrono::seconds(60); ///< with a version that shows no sign of life
    bool formerNeverBeat = false; ///< the version that it replaces lived for as long without a heartbeat

    /// Two beats pass it. Nothing is ended that is on air, nor in the time after that in which a transmission
    /// that has failed starts again.
    [[nodiscard]] TrialVerdict atLook(const TrialSight &seen) const;

    /// Verdict at its end. An orderly one after a beat passes it; one before may be the operator's hand as
    /// well as a version that can't do better, and so does for `mayClose` times before it counts as a
    /// failure. `closedBefore` is how often this version has ended so.
    [[nodiscard]] TrialEnd atEnd(bool orderly, int beats, int closedBefore) const;
    int mayClose = 2;

    /// A version that came up and ends badly so often before it has proven itself goes back.
    [[nodiscard]] bool goesBack(int badEnds) const { return badEnds >= badEndsToGoBack; }
    int badEndsToGoBack = 3;

    /// A run of this length proves a version: what it does from then on isn't the update's fault.
    std::chrono::milliseconds proof = std::chrono::minutes(10);
};

} // namespace corvane::guardian
