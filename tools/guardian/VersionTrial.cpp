#include "tools/guardian/VersionTrial.h"

#include "tools/guardian/UpdateLedger.h"

#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace corvane::guardian {

VersionTrial::VersionTrial(TrialPolicy policy, Installation installation, DirectorySwap &swap,
                           UpdateLedger &ledger, QObject *parent)
    : QObject(parent)
    , m_policy(policy)
    , m_installation(std::move(installation))
    , m_swap(swap)
    , m_ledger(ledger)
{
}

void VersionTrial::takeUp(const UpdateRecord &last)
{
    const bool isUnproven = last.result == "applied"_L1 && !last.proven &&
                            readStamp(m_installation.directory).sha256 == last.sha256 && m_swap.canRollBack();
    m_standing = isUnproven ? Unproven : Proven;
}

// --- On trial

void VersionTrial::begin()
{
    m_standing = OnTrial;
    m_stamp = m_swap.onTrial();
    m_lastOnAir.reset();
    m_reportedOnAir = false;
    m_failure.clear();
    m_policy.formerNeverBeat = m_formerBeat == false;
}

QString VersionTrial::look(const WatchedRun &run, const QStringList &tools, std::chrono::milliseconds now)
{
    if (isOpen())
        return lookOnTrial(run, tools, now);
    if (m_standing == Unproven && run.sinceBegin >= m_policy.proof) {
        m_standing = Proven;
        m_ledger.showsProof();
    }
    lookAtFormer(run);
    return {};
}

QString VersionTrial::lookOnTrial(const WatchedRun &run, const QStringList &tools,
                                  std::chrono::milliseconds now)
{
    TrialSight seen;
    seen.beats = run.beats;
    seen.sinceBeat = run.sinceBeat;
    seen.onAir = !tools.isEmpty();
    if (seen.onAir)
        m_lastOnAir = now;
    if (m_lastOnAir)
        seen.sinceOnAir = now - *m_lastOnAir;

    QString silence = run.beats == 0 ? u"no heartbeat for %1 s"_s.arg(run.sinceBeat / 1s)
                                     : u"one heartbeat, and none for %1 s"_s.arg(run.sinceBeat / 1s);
    switch (m_policy.atLook(seen)) {
    case TrialVerdict::Wait:
        break;
    case TrialVerdict::Passed:
        pass(u"version %1 is up"_s.arg(m_stamp.version));
        break;
    case TrialVerdict::NoBeatHere:
        pass(u"version %1 runs and shows no heartbeat, as the former one didn't: the place is at fault, not "
             "the version"_s.arg(m_stamp.version));
        break;
    case TrialVerdict::LeftAlone:
        if (!std::exchange(m_reportedOnAir, true))
            Q_EMIT logged(u"version %1: %2; it runs %3 and is left alone until it is off air"_s.arg(
                m_stamp.version, silence, tools.join(", "_L1)));
        break;
    case TrialVerdict::Failed:
        return silence;
    }
    return {};
}

void VersionTrial::notEnded(const QString &reason)
{
    Q_EMIT logged(u"version %1 isn't ended: %2"_s.arg(m_stamp.version, reason));
}

void VersionTrial::pass(const QString &line)
{
    m_ledger.applied(m_stamp);
    m_swap.confirm();
    m_standing = Unproven;
    m_badEnds = 0;
    Q_EMIT logged(line);
}

// --- Ends

VersionTrial::Follows VersionTrial::onEnd(bool orderly, const QString &how, const WatchedRun &run)
{
    if (m_standing != OnTrial) {
        if (run.beats > 0)
            m_formerBeat = true;
        else if (run.sinceBegin > m_policy.patience)
            m_formerBeat = false;
        return Follows::AsEver;
    }
    if (!m_failure.isEmpty()) {
        if (run.beats == 0 && !m_formerBeat)
            m_doubted = m_stamp;
        const QString failure = std::exchange(m_failure, {});
        Q_EMIT logged(u"version %1 didn't come up: %2"_s.arg(m_stamp.version, failure));
        giveUp(m_stamp, failure);
        return Follows::WayBack;
    }
    switch (m_policy.atEnd(orderly, run.beats, m_swap.closedEarly())) {
    case TrialEnd::Passed:
        pass(u"version %1 is up"_s.arg(m_stamp.version));
        return Follows::AsEver;
    case TrialEnd::Undecided:
        Q_EMIT logged(
            u"version %1 was closed before its first heartbeat; it stays on trial"_s.arg(m_stamp.version));
        if (!m_lastOnAir && !m_swap.countEarlyClose())
            Q_EMIT logged(u"%1 can't be written"_s.arg(m_installation.journal()));
        return Follows::Rest;
    case TrialEnd::Failed:
        break;
    }
    const QString reason =
        orderly ? u"it ended %1 times without a heartbeat"_s.arg(m_swap.closedEarly() + 1) : how;
    Q_EMIT logged(u"version %1 didn't come up: %2"_s.arg(m_stamp.version, reason));
    giveUp(m_stamp, reason);
    return orderly ? Follows::WayBackClosed : Follows::WayBack;
}

bool VersionTrial::onBadEnd(const QString &how, bool mayRestart)
{
    if (m_standing != Unproven || !m_swap.canRollBack())
        return false;
    ++m_badEnds;
    if (mayRestart && !m_policy.goesBack(m_badEnds))
        return false;
    const Stamp stamp = readStamp(m_installation.directory);
    const QString reason =
        u"it ended badly %1 times soon after it came up (%2)"_s.arg(QString::number(m_badEnds), how);
    Q_EMIT logged(u"version %1 goes back: %2"_s.arg(stamp.version, reason));
    giveUp(stamp, reason);
    return true;
}

void VersionTrial::giveUp(const Stamp &stamp, const QString &reason)
{
    m_standing = Proven; // the former one, which is put back
    m_ledger.rolledBack(stamp, reason);
}

/// A version that was rolled back for its silence isn't to blame where the one before it is silent too.
void VersionTrial::lookAtFormer(const WatchedRun &run)
{
    if (!m_doubted || m_standing == OnTrial)
        return;
    if (run.beats > 0) {
        m_doubted.reset();
    } else if (run.sinceBegin > m_policy.patience) {
        Q_EMIT logged(
            u"the former version shows no heartbeat either: the place is at fault, and version %1 isn't held "
            "back any longer"_s.arg(m_doubted->version));
        m_ledger.putBack(*m_doubted);
        m_doubted.reset();
        m_formerBeat = false;
    }
}

} // namespace corvane::guardian
