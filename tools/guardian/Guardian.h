#pragma once

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/GuardedProgram.h"
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
    std::chrono::milliseconds lookInterval = std::chrono::milliseconds(500);
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
/// It never ends a program that has shown a heartbeat. An update that failed is recorded, and the program
/// then runs without a feed for as long as this guardian lives: it would only ask for the same update again,
/// and be away from the operator each time. On the thread of the event loop; copying, hashing and unpacking
/// block it.
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
    void verify();
    void onManifest(const QByteArray &text, const QString &error);
    [[nodiscard]] QString apply(const ReadyUpdate &ready, const QString &digest);
    void removeRequest();
    void refuse(const QString &version, const QString &digest, const QString &reason);

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
    qint64 m_firstBeat = 0; ///< on trial
    QString m_trialFailure; ///< set when a run on trial is being ended
    bool m_feedOff = false;
    bool m_heartbeatStale = false;
    bool m_requestTold = false;
};

} // namespace corvane::guardian
