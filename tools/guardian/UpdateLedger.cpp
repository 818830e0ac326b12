#include "tools/guardian/UpdateLedger.h"

#include <QDateTime>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

UpdateLedger::UpdateLedger(Settings settings, QObject *parent)
    : QObject(parent)
    , m_settings(std::move(settings))
    , m_held{m_settings.marks.runtimeDirectory}
{
}

void UpdateLedger::takeUp()
{
    const UpdateRecord known = last();
    if (known.rolledBack(known.sha256) && !m_held.isHeld(known.version))
        holdBack(known.version);
    release();
}

void UpdateLedger::release()
{
    const UpdateRecord known = last();
    m_held.release(m_settings.holdTime, known.rolledBack(known.sha256) ? known.version : QString());
}

// --- The request

bool UpdateLedger::isRequested()
{
    if (!m_settings.updates)
        return false;
    QString error;
    if (m_requestStuck && m_settings.marks.removeRequest(error)) {
        m_requestStuck = false;
        return false;
    }
    return !m_requestStuck && m_settings.marks.updateRequested();
}

void UpdateLedger::removeRequest()
{
    QString error;
    m_requestStuck = !m_settings.marks.removeRequest(error);
    if (m_requestStuck)
        Q_EMIT logged(
            u"apply-now can't be removed (%1); until it is gone, no update is applied"_s.arg(error));
}

void UpdateLedger::beginRun()
{
    m_reportedRequest = false;
    m_reportedBlocked = false;
}

void UpdateLedger::reportRequests()
{
    if (m_settings.marks.requestIsBlocked() && !std::exchange(m_reportedBlocked, true))
        Q_EMIT logged(u"apply-now is no file of this user's: it asks for nothing"_s);
    if (isRequested() && !std::exchange(m_reportedRequest, true))
        Q_EMIT logged(u"an update is requested; waiting for the program to end"_s);
}

// --- What has become of it

UpdateRecord UpdateLedger::last() const
{
    return readRecord(m_settings.installation.record());
}

void UpdateLedger::granted()
{
    // The journal says from here on what is to be done; the program on trial may make a request of its own.
    removeRequest();
    m_failedAttempts = 0;
}

void UpdateLedger::applied(const Stamp &stamp)
{
    record(u"applied"_s, stamp, {});
}

void UpdateLedger::showsProof()
{
    UpdateRecord known = last();
    known.proven = true;
    writeRecord(m_settings.installation.record(), known, QDateTime::currentDateTime());
}

void UpdateLedger::refused(const UpdateOutcome &outcome)
{
    const QString &version = outcome.ready.version;
    Q_EMIT logged(u"update %1 refused: %2"_s.arg(version.isEmpty() ? u"of an unknown version"_s : version,
                                                 outcome.reason));
    // The record of a roll-back is kept: the same package may come again.
    const UpdateRecord known = last();
    if (!known.rolledBack(known.sha256))
        record(u"refused"_s, {{}, version, outcome.digest}, outcome.reason);
    removeRequest();
    m_failedAttempts = outcome.mayDoBetter ? m_failedAttempts + 1 : 0;
    if (!outcome.mayDoBetter || m_failedAttempts >= m_settings.attempts)
        holdBack(version);
}

void UpdateLedger::rolledBack(const Stamp &stamp, const QString &reason)
{
    // First the record: whatever happens next, this package isn't tried a second time.
    record(u"rolled back"_s, stamp, reason);
    removeRequest();
    holdBack(stamp.version);
}

void UpdateLedger::putBack(const Stamp &stamp)
{
    record(u"put back"_s, stamp, u"neither this version nor the former one shows a heartbeat here"_s);
    m_held.letGo(stamp.version);
}

bool UpdateLedger::takeFeedOff()
{
    return std::exchange(m_feedOff, false);
}

void UpdateLedger::holdBack(const QString &version)
{
    m_feedOff = !m_held.isHeld(version) && !m_held.hold(version);
    if (!m_feedOff)
        Q_EMIT logged(u"version %1 is held back"_s.arg(version));
}

void UpdateLedger::record(const QString &result, const Stamp &stamp, const QString &reason)
{
    if (!writeRecord(m_settings.installation.record(), {result, stamp.version, stamp.sha256, reason, false},
                     QDateTime::currentDateTime()))
        Q_EMIT logged(u"%1 can't be written"_s.arg(m_settings.installation.record()));
}

} // namespace corvane::guardian
