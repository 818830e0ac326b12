#pragma once

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/Installation.h"
#include "tools/guardian/TrialPolicy.h"
#include "tools/guardian/UpdateRecord.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace corvane::guardian {

class UpdateLedger;

/// The run of the program that is being watched, or has just ended.
struct WatchedRun
{
    int beats = 0;
    std::chrono::milliseconds sinceBegin{0};
    std::chrono::milliseconds sinceBeat{0}; ///< or since its begin
};

/// Standing of the version that is installed, from one update to the next:
///
///   proven ──begin()──▶ on trial ──it is up──▶ unproven ──a run has lasted──▶ proven
///                          └─────────┬────────────┘
///                          back to the former version
///
/// Decides by TrialPolicy, and keeps what that needs to know beyond one look: when the run was on air,
/// whether the former version showed a heartbeat, and which version was given up for a silence that may be
/// the place's fault. Writes record and journal; starts and ends no process, and has no clock. On the thread
/// of the event loop.
class VersionTrial : public QObject
{
    Q_OBJECT

public:
    /// `swap` and `ledger`, those of `installation`, live longer.
    VersionTrial(TrialPolicy policy, Installation installation, DirectorySwap &swap, UpdateLedger &ledger,
                 QObject *parent = nullptr);

    /// Takes up a version that a former guardian has seen come up. `last` is the record of the last update.
    void takeUp(const UpdateRecord &last);

    /// The version in place begins its trial: swap and journal say which one it is.
    void begin();

    /// A version is on trial, and nothing has been decided about it: beats have to be those of its run, and
    /// look() has to know its tools.
    [[nodiscard]] bool isOpen() const { return m_standing == OnTrial && m_failure.isEmpty(); }

    /// To be called now and then while a run is watched. `tools` are those that it runs, `now` is a moment
    /// on a clock that nobody can set. Answers why the run has to be ended; empty: it goes on.
    [[nodiscard]] QString look(const WatchedRun &run, const QStringList &tools,
                               std::chrono::milliseconds now);
    /// What look() has asked for can't be done, for this `reason`. It will ask again.
    void notEnded(const QString &reason);
    /// What look() has asked for, with its answer, is under way.
    void beingEnded(const QString &failure) { m_failure = failure; }

    /// What follows the end of a run.
    enum class Follows {
        AsEver,        ///< what follows the end of any run
        Rest,          ///< the operator has closed it, and nothing is decided: the next start goes on
        WayBack,       ///< the former version has to be put back
        WayBackClosed, ///< the same, but the operator has closed the run: nothing is started
    };
    [[nodiscard]] Follows onEnd(bool orderly, const QString &how, const WatchedRun &run);
    /// The same for a bad end, after onEnd() had nothing to say: true if the former version has to be put
    /// back. `mayRestart` is false if the program would be given up otherwise.
    [[nodiscard]] bool onBadEnd(const QString &how, bool mayRestart);

Q_SIGNALS:
    void logged(const QString &line);

private:
    enum Standing { Proven, OnTrial, Unproven };

    [[nodiscard]] QString lookOnTrial(const WatchedRun &run, const QStringList &tools,
                                      std::chrono::milliseconds now);
    void lookAtFormer(const WatchedRun &run);
    void pass(const QString &line);
    void giveUp(const Stamp &stamp, const QString &reason);

    TrialPolicy m_policy;
    Installation m_installation;
    DirectorySwap &m_swap;
    UpdateLedger &m_ledger;

    Standing m_standing = Proven;
    int m_badEnds = 0; ///< of a version that is unproven

    // Of the trial
    Stamp m_stamp;
    std::optional<std::chrono::milliseconds> m_lastOnAir;
    bool m_reportedOnAir = false;
    QString m_failure; ///< for which its run is being ended

    // Of the former version
    std::optional<bool> m_formerBeat; ///< whether the last run that can tell showed a heartbeat
    std::optional<Stamp> m_doubted;   ///< was rolled back for its silence, which may be the place's
};

} // namespace corvane::guardian
