#pragma once

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/GuardedProgram.h"
#include "tools/guardian/HeartbeatWatch.h"
#include "tools/guardian/HeldVersions.h"
#include "tools/guardian/Installation.h"
#include "tools/guardian/ManifestFetch.h"
#include "tools/guardian/Marks.h"
#include "tools/guardian/RestartPolicy.h"
#include "tools/guardian/RotatingLog.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>

namespace corvane::guardian {

/// What a guardian is given.
struct GuardianSettings
{
    Installation installation;
    QString runtimeDirectory;
    QStringList arguments; ///< of the program
    QString pinnedKey;     ///< hexadecimal; empty: signatures aren't checked
    bool attachOnly = false;
    RestartPolicy restarts;
    std::chrono::milliseconds heartbeatPatience = std::chrono::seconds(60);
    /// What stands of a run's marks is taken for a run that lives until its heartbeat has been silent so
    /// long.
    std::chrono::milliseconds silence = std::chrono::seconds(6);
    std::chrono::milliseconds lookInterval = std::chrono::milliseconds(500);
    /// How long a refused version is held back: less than the six hours between two checks of the feed, so
    /// that the next check but the first may take it up again.
    std::chrono::milliseconds holdTime = std::chrono::hours(5);
    int attempts = 3; ///< at an update that may do better the next time, before it is held back
};

enum ExitCode : int {
    EndedCleanly = 0, ///< the program, and nothing was asked of the guardian
    GaveUp = 1,       ///< the program can't be kept up
    WrongUsage = 2,
    WrongPlace = 3,      ///< where the guardian or the installation is, or another guardian is at work there
    NothingToAttach = 4, ///< no run of the program was found
};

/// Keeps the program up and puts staged updates in its place; see docs/updates.md.
///
///   watching ──ended, apply-now stands──▶ leaving ──nobody runs it──▶ verifying ──swapped──▶ on trial
///      │ ▲                                                              │ refused                │ │
///      │ └──────────────────────────────────────────────────────────────┴────heartbeat, or back──┘ │
///      └──crashed──▶ pausing ──▶ watching                    crashed, hung: rolled back ◀──────────┘
///
/// It never ends a program that has shown a heartbeat. An update that failed is recorded and its version held
/// back: the program would only ask for it again, and be away from the operator each time. A refused one for
/// some hours, one that was rolled back for as long as the record says so. On the thread of the event loop;
/// copying, hashing and unpacking block it.
class Guardian : public QObject
{
    Q_OBJECT

public:
    Guardian(GuardianSettings settings, ManifestSource manifest, QObject *parent = nullptr);

    /// Takes up what a former guardian left, then starts the program or attaches to its run. finished() may
    /// come before it returns.
    void run();

Q_SIGNALS:
    void finished(int exitCode);
    void logged(const QString &line); ///< each line of the log, without its time

private:
    enum State { Idle, Watching, Leaving, Verifying, Trial, Pausing, Finished };

    void log(const QString &line);
    void finish(ExitCode code);

    void startProgram(State state);
    void onEnded(bool cleanly, const QString &how);
    void onCrash(const QString &how);
    void afterPause();
    void look();
    void lookAtHeartbeat();

    void leave();
    [[nodiscard]] bool isGone() const;
    void verify();
    void onManifest(const QByteArray &text, const QString &error);
    [[nodiscard]] QString apply(const ReadyUpdate &ready, const QString &digest);
    void removeRequest();
    enum class NextTime { TheSame, MayDoBetter };
    void refuse(const ReadyUpdate &ready, const QString &digest, const QString &reason, NextTime next);
    void holdBack(const QString &version);
    void releaseHeld();

    void beginTrial();
    void lookAtTrial();
    void passTrial();
    void failTrial(const QString &reason);
    void rollBack();

    GuardianSettings m_settings;
    ManifestSource m_manifest;
    Marks m_marks;
    DirectorySwap m_swap;
    GuardedProgram m_program;
    RotatingLog m_log;
    RestartPolicy m_restarts;
    QTimer m_lookTimer;
    QTimer m_pauseTimer;
    State m_state = Idle;
    HeldVersions m_held;
    HeartbeatWatch m_heartbeat;
    QTimer m_releaseTimer;
    QString m_trialFailure;   ///< set when a run on trial is being ended
    int m_failedAttempts = 0; ///< in a row, that might have gone better
    bool m_feedOff = false;   ///< of the next run, as nothing else keeps it from asking for an update again
    bool m_heartbeatStale = false;
    bool m_requestTold = false;
};

} // namespace corvane::guardian
