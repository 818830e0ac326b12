#pragma once

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/GuardedProgram.h"
#include "tools/guardian/HeartbeatWatch.h"
#include "tools/guardian/Installation.h"
#include "tools/guardian/ManifestFetch.h"
#include "tools/guardian/Marks.h"
#include "tools/guardian/PackageEntries.h"
#include "tools/guardian/Permission.h"
#include "tools/guardian/RestartBudget.h"
#include "tools/guardian/RotatingLog.h"
#include "tools/guardian/TrialPolicy.h"
#include "tools/guardian/UpdateJob.h"
#include "tools/guardian/UpdateLedger.h"
#include "tools/guardian/VersionTrial.h"
#include "update/RuntimeFiles.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>

namespace corvane::guardian {

/// Settings of a guardian.
struct GuardianSettings
{
    Installation installation;
    QString runtimeDirectory;
    QStringList arguments; ///< of the program
    QString pinnedKey;     ///< hexadecimal; empty: signatures aren't checked
    QString ownVersion;    ///< of the guardian: an installation without a stamp came with it
    bool attachOnly = false;
    bool updates = true; ///< false: the program doesn't look for updates, and none is applied
    RestartBudget restarts;
    PackageLimits limits;
    TrialPolicy trial;
    /// Marks of a run are taken for those of a run that lives until its heartbeat has been silent so
    /// long.
    std::chrono::milliseconds silence = std::chrono::seconds(6);
    std::chrono::milliseconds staleHeartbeat = 5 * heartbeatInterval; ///< from when on it has stopped
    std::chrono::milliseconds lookInterval = std::chrono::milliseconds(500);
    /// An update waits so long for runs of other sessions; then the program is started without it.
    std::chrono::milliseconds othersPatience = std::chrono::minutes(1);
    /// Time for which a refused version is held back: less than the six hours between two checks of the feed,
    /// so that the next check but the first may take it up again.
    std::chrono::milliseconds holdTime = std::chrono::hours(5);
    int attempts = 3; ///< at an update that may do better the next time, before it is held back
    std::function<void(const char *step)> beforeSwapStep; ///< DirectorySwap::beforeStep, for tests
};

enum ExitCode : int {
    EndedCleanly = 0, ///< the program, and nothing was asked of the guardian
    GaveUp = 1,       ///< the program can't be kept up
    WrongUsage = 2,
    WrongPlace = 3,      ///< of the guardian or the installation; another guardian is at work there; elevated
    NothingToAttach = 4, ///< no run of the program was found
};

/// Keeps the program up and has staged updates put in its place; see docs/updates.md.
///
///            ┌──────────── permitted: start ───────────┐
///            ▼                                          │
///   ┌─▶ watching ──ended, an update is requested─────▶ waiting ──permitted: update──▶ working
///   │     │ │ ▲                                         ▲ ▲ ▲                           │ │
///   │     │ │ └──opened by somebody─────────────────────┘ │ └──── in place, refused ────┘ │
///   │     │ └──a trial failed: roll back──────────────────┘                               │
///   │     └──ended badly──▶ pausing ──▶ waiting                                           │
///   └─────────────────────────────────────────────── put off ─────────────────────────────┘
///
/// Each act waits for its permission, which is asked of what is seen at that moment
/// (whyNot). An orderly end without a request of that run finishes the guardian: it is the operator's word.
/// Nothing that is on air is ended. An update that failed is recorded and its version held back: the program
/// would only ask for it again, and be away from the operator each time. On the thread of the event loop.
class Supervisor : public QObject
{
    Q_OBJECT

public:
    Supervisor(GuardianSettings settings, ManifestSource manifest, QObject *parent = nullptr);

    /// Takes up what a former guardian left, then starts the program or attaches to its run. finished() may
    /// come before it returns.
    void run();

Q_SIGNALS:
    void finished(int exitCode);
    void logged(const QString &line); ///< each line of the log, without its time

private:
    enum State { Idle, Watching, Waiting, Working, Pausing, Finished };
    enum class Wish { Start, Update, RollBack };

    void log(const QString &line);
    void finish(ExitCode code);
    void look();
    [[nodiscard]] bool takeUp();

    [[nodiscard]] Runs runs() const;
    void wish(Wish what);
    void tryWish();
    void waitFor(const QString &reason);
    void watch(const QString &line);
    void startProgram();
    void onEnded(bool orderly, const QString &how);
    void onBadEnd(const QString &how);
    void lookAtHeartbeat();

    void update();
    void onUpdated(const UpdateOutcome &outcome);
    void putOffForOthers(const QString &reason);

    [[nodiscard]] WatchedRun watched() const;
    void beginTrial();
    void lookAtTrial();
    void goBack();
    void rollBack();

    GuardianSettings m_settings;
    ManifestSource m_manifest;
    Marks m_marks;
    DirectorySwap m_swap;
    GuardedProgram m_program;
    HeartbeatWatch m_heartbeat;
    UpdateLedger m_ledger;
    VersionTrial m_trial;
    RestartBudget m_restarts;
    RotatingLog m_log;
    QElapsedTimer m_clock; ///< of restarts and trials: nobody can set it
    QTimer m_lookTimer;
    QTimer m_pauseTimer;
    QTimer m_releaseTimer;
    State m_state = Idle;

    Wish m_wish = Wish::Start;
    QElapsedTimer m_sinceWish;
    QString m_waitsFor; ///< as reported
    std::unique_ptr<UpdateJob> m_job;

    bool m_closedByOperator = false; ///< what is put back isn't started
    bool m_isFirstStart = true;
    bool m_reportedStale = false;
};

} // namespace corvane::guardian
