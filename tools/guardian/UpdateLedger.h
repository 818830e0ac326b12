#pragma once

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/HeldVersions.h"
#include "tools/guardian/Marks.h"
#include "tools/guardian/UpdateJob.h"
#include "tools/guardian/UpdateRecord.h"

#include <QObject>
#include <QString>

#include <chrono>

namespace corvane::guardian {

/// Requests for updates and what has become of them: apply-now, the record of the last update, the versions
/// that are held back. Knows nothing of the program and its runs. On the thread of the event loop.
class UpdateLedger : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        Installation installation;
        Marks marks;
        bool updates = true;                   ///< false: nobody asks for one
        std::chrono::milliseconds holdTime{0}; ///< for which a refused version is held back
        int attempts = 1; ///< at an update that may do better the next time, before it is held back
    };
    explicit UpdateLedger(Settings settings, QObject *parent = nullptr);

    /// Takes up what a former guardian has written: what was rolled back is held back again, what has been
    /// held for long enough is let go.
    void takeUp();
    /// Lets go what has been held for long enough; to be called now and then.
    void release();

    /// An update is asked for. A request that couldn't be removed has been dealt with: it counts no more
    /// until it is gone.
    [[nodiscard]] bool isRequested();
    /// The request has been dealt with.
    void removeRequest();
    /// Reports a request, and what stands in the place of one: each once for a run.
    void reportRequests();
    void beginRun();

    [[nodiscard]] UpdateRecord last() const;
    void applied(const Stamp &stamp);
    void granted();    ///< the request; what follows is the trial
    void showsProof(); ///< what was applied has run for long enough
    void refused(const UpdateOutcome &outcome);
    void rolledBack(const Stamp &stamp, const QString &reason);
    /// It was rolled back, and isn't to blame for that.
    void putBack(const Stamp &stamp);

    /// True if the next run has to go without its update check, as nothing else keeps it from asking for the
    /// same again. For that one run: the answer is false from then on.
    [[nodiscard]] bool takeFeedOff();

Q_SIGNALS:
    void logged(const QString &line);

private:
    void holdBack(const QString &version);
    void record(const QString &result, const Stamp &stamp, const QString &reason);

    Settings m_settings;
    HeldVersions m_held;
    int m_failedAttempts = 0;    ///< in a row, that might have gone better
    bool m_requestStuck = false; ///< it has been dealt with, and can't be removed
    bool m_reportedBlocked = false;
    bool m_reportedRequest = false;
    bool m_feedOff = false;
};

} // namespace corvane::guardian
