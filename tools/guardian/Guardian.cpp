#include "tools/guardian/Guardian.h"

#include "tools/guardian/StagedPackage.h"
#include "tools/guardian/Unpack.h"
#include "tools/guardian/UpdateRecord.h"
#include "update/UpdateManifest.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace corvane::guardian {

namespace {

// The program beats every two seconds.
constexpr auto staleHeartbeat = 10s;
constexpr std::chrono::milliseconds releaseInterval = 1min;

} // namespace

Guardian::Guardian(GuardianSettings settings, ManifestSource manifest, QObject *parent)
    : QObject(parent)
    , m_settings(std::move(settings))
    , m_manifest(std::move(manifest))
    , m_marks{m_settings.runtimeDirectory}
    , m_swap(m_settings.installation)
    , m_program(m_settings.installation.programPath(), m_settings.arguments, m_marks)
    , m_log(m_settings.installation.log())
    , m_restarts(m_settings.restarts)
    , m_held{m_settings.runtimeDirectory}
    , m_heartbeat(m_marks)
{
    connect(&m_program, &GuardedProgram::ended, this, &Guardian::onEnded);
    connect(&m_lookTimer, &QTimer::timeout, this, &Guardian::look);
    m_pauseTimer.setSingleShot(true);
    connect(&m_pauseTimer, &QTimer::timeout, this, &Guardian::afterPause);
    connect(&m_releaseTimer, &QTimer::timeout, this, &Guardian::releaseHeld);
}

void Guardian::log(const QString &line)
{
    m_log.append(QDateTime::currentDateTime(), line);
    Q_EMIT logged(line);
}

void Guardian::finish(ExitCode code)
{
    m_state = Finished;
    m_lookTimer.stop();
    m_releaseTimer.stop();
    Q_EMIT finished(code);
}

// --- Watching

void Guardian::run()
{
    m_lookTimer.start(m_settings.lookInterval);
    m_releaseTimer.start(std::min(releaseInterval, m_settings.holdTime));
    const DirectorySwap::Found found = m_swap.recover();
    log(u"guarding %1, marks in %2"_s.arg(m_settings.installation.programPath(),
                                          m_settings.runtimeDirectory));
    if (found == DirectorySwap::Found::Broken) {
        log(u"no installation could be put in place; what there is lies in %1"_s.arg(
            m_settings.installation.own()));
        finish(GaveUp);
        return;
    }
    if (found == DirectorySwap::Found::RolledBack)
        log(u"a roll-back that was cut off has been completed"_s);
    const UpdateRecord last = readRecord(m_settings.installation.record());
    if (last.rolledBack(last.sha256) && !m_held.isHeld(last.version))
        holdBack(last.version);
    releaseHeld();

    const bool attached = m_program.attach();
    m_heartbeat.begin();
    if (found == DirectorySwap::Found::Trial && !attached && last.rolledBack(m_swap.onTrial().sha256)) {
        log(u"a roll-back was about to begin"_s);
        removeRequest();
        rollBack();
    } else if (found == DirectorySwap::Found::Trial) {
        log(u"version %1 was put in place and hasn't proven itself"_s.arg(m_swap.onTrial().version));
        // It has been granted already, and would be taken for another one.
        removeRequest();
        beginTrial();
    } else if (attached) {
        log(u"the program is running; it is watched"_s);
        m_state = Watching;
    } else if (m_marks.updateRequested()) {
        leave();
    } else if (m_settings.attachOnly) {
        log(u"the program isn't running"_s);
        finish(NothingToAttach);
    } else {
        startProgram(Watching);
    }
}

void Guardian::startProgram(State state)
{
    m_state = state;
    m_heartbeatStale = false;
    m_requestTold = false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"CORVANE_RUNTIME_DIR"_s, m_settings.runtimeDirectory);
    if (m_feedOff)
        environment.insert(u"CORVANE_UPDATE_FEED"_s, QString());
    log(m_feedOff ? u"starting the program, its update check switched off"_s : u"starting the program"_s);
    m_feedOff = false;
    m_heartbeat.begin();
    m_program.start(environment);
}

void Guardian::onEnded(bool cleanly, const QString &how)
{
    if (m_state == Finished)
        return;
    log(cleanly ? u"the program ended in order"_s : u"the program ended: %1"_s.arg(how));
    if (m_state == Trial) {
        if (!cleanly) {
            failTrial(m_trialFailure.isEmpty() ? how : m_trialFailure);
            return;
        }
        passTrial(); // its event loop has run, and somebody has closed the window
    }
    if (m_marks.updateRequested())
        leave();
    else if (cleanly)
        finish(EndedCleanly);
    else
        onCrash(how);
}

void Guardian::onCrash(const QString &how)
{
    const std::optional<qint64> delay = m_restarts.onCrash(QDateTime::currentMSecsSinceEpoch());
    if (!delay) {
        log(u"it has ended badly %1 times within %2 minutes (%3): given up"_s.arg(m_restarts.crashes.size())
                .arg(m_restarts.windowMs / 60'000)
                .arg(how));
        finish(GaveUp);
        return;
    }
    log(u"it is started again in %1 ms"_s.arg(*delay));
    m_state = Pausing;
    m_pauseTimer.start(std::chrono::milliseconds(*delay));
}

void Guardian::afterPause()
{
    if (m_marks.updateRequested()) {
        leave();
    } else if (m_program.attach()) {
        log(u"somebody has started the program; it is watched"_s);
        m_heartbeat.begin();
        m_state = Watching;
    } else {
        startProgram(Watching);
    }
}

void Guardian::look()
{
    m_program.look();
    m_heartbeat.look();
    if (m_state == Watching)
        lookAtHeartbeat();
    else if (m_state == Leaving)
        leave();
    else if (m_state == Trial)
        lookAtTrial();
}

/// What stands still is only told: the streams are processes of their own and may well go on.
void Guardian::lookAtHeartbeat()
{
    if (m_marks.updateRequested() && !std::exchange(m_requestTold, true))
        log(u"an update is requested; waiting for the program to end"_s);
    if (m_heartbeat.beats() == 0)
        return;
    const bool stale = m_heartbeat.sinceBeat() > staleHeartbeat;
    if (stale != m_heartbeatStale)
        log(stale ? u"the program's heartbeat has stopped"_s : u"the program's heartbeat is back"_s);
    m_heartbeatStale = stale;
}

// --- Applying

/// Whoever runs the program may be on air: nothing is touched before the last one has gone.
void Guardian::leave()
{
    if (m_state != Leaving)
        log(u"an update is to be applied"_s);
    if (!isGone()) {
        if (m_state != Leaving)
            log(u"waiting for every run of the program to end"_s);
        m_state = Leaving;
        return;
    }
    m_state = Verifying;
    verify();
}

/// By its processes, and by its marks: a run of another user may have no process that can be seen from here.
bool Guardian::isGone() const
{
    return !m_program.isRunBySomebody() &&
           (!m_marks.sentinelStands() || m_heartbeat.sinceBeat() > m_settings.silence);
}

void Guardian::verify()
{
    if (m_marks.sentinelStands())
        log(u"the run that asked for the update didn't end in order"_s);
    m_manifest([this](const QByteArray &text, const QString &error) { onManifest(text, error); });
}

void Guardian::onManifest(const QByteArray &text, const QString &error)
{
    if (m_state != Verifying)
        return;
    QString reason = error;
    const std::optional<ReadyUpdate> ready = m_marks.readyUpdate(reason);
    if (!ready || !error.isEmpty()) {
        refuse(ready.value_or(ReadyUpdate()), {}, error.isEmpty() ? reason : error, NextTime::MayDoBetter);
        return;
    }
    const UpdateManifest manifest = parseManifest(text, platformKey);
    reason = manifestProblem(manifest, m_settings.pinnedKey, ready->version,
                             readStamp(m_settings.installation.directory).version);
    if (reason.isEmpty())
        reason = apply(*ready, manifest.sha256.toLower());
    if (!reason.isEmpty()) {
        refuse(*ready, manifest.sha256, reason, NextTime::TheSame);
        return;
    }
    // The journal says from here on what is to be done; the program on trial may make a request of its own.
    removeRequest();
    beginTrial();
}

/// Up to the new installation in place. Answers why not.
QString Guardian::apply(const ReadyUpdate &ready, const QString &digest)
{
    const Installation &at = m_settings.installation;
    if (QFileInfo(ready.install_dir).canonicalFilePath() != at.directory)
        return u"it is for the installation in “%1”"_s.arg(ready.install_dir);
    if (readRecord(at.record()).rolledBack(digest))
        return u"this package has been rolled back before"_s;

    const CopiedPackage copied = copyPackage(ready.package, at.package());
    if (!copied.error.isEmpty())
        return copied.error;
    if (copied.sha256 != digest)
        return u"the package on disk isn't the one that the feed offers: its sha256 is %1"_s.arg(
            copied.sha256);

    log(u"unpacking version %1, sha256 %2"_s.arg(ready.version, digest));
    QDir(at.next()).removeRecursively(); // of an attempt that failed
    QString error = unpack(at.package(), at.next(), at.program);
    QFile::remove(at.package());
    if (!error.isEmpty())
        return u"the package can't be unpacked: %1"_s.arg(error);
    const Stamp stamp{QUuid::createUuid().toString(QUuid::WithoutBraces), ready.version, digest};
    if (!writeStamp(at.next(), stamp) || !m_swap.install(stamp))
        return u"the installation can't be replaced"_s;
    log(u"version %1 is in place, the former installation in %2"_s.arg(ready.version, at.previous()));
    return {};
}

void Guardian::refuse(const ReadyUpdate &ready, const QString &digest, const QString &reason, NextTime next)
{
    log(u"update %1 refused: %2"_s.arg(ready.version.isEmpty() ? u"of an unknown version"_s : ready.version,
                                       reason));
    // What is known of a roll-back is kept: the same package may come again.
    const UpdateRecord known = readRecord(m_settings.installation.record());
    if (!known.rolledBack(known.sha256))
        writeRecord(m_settings.installation.record(), {u"refused"_s, ready.version, digest, reason},
                    QDateTime::currentDateTime());
    QFile::remove(m_settings.installation.package());
    removeRequest();
    m_failedAttempts = next == NextTime::MayDoBetter ? m_failedAttempts + 1 : 0;
    if (next == NextTime::TheSame || m_failedAttempts >= m_settings.attempts)
        holdBack(ready.version);
    startProgram(Watching);
}

void Guardian::holdBack(const QString &version)
{
    m_feedOff = !m_held.hold(version);
    if (!m_feedOff)
        log(u"version %1 is held back"_s.arg(version));
}

void Guardian::releaseHeld()
{
    const UpdateRecord last = readRecord(m_settings.installation.record());
    m_held.release(m_settings.holdTime, last.rolledBack(last.sha256) ? last.version : QString());
}

void Guardian::removeRequest()
{
    if (!m_marks.removeRequest())
        log(u"apply-now can't be removed"_s);
}

// --- On trial

void Guardian::beginTrial()
{
    m_trialFailure.clear();
    m_failedAttempts = 0;
    if (m_program.isRunning())
        m_state = Trial;
    else
        startProgram(Trial);
}

/// Two beats: the event loop has run, and went on.
void Guardian::lookAtTrial()
{
    if (!m_trialFailure.isEmpty())
        return;
    if (m_heartbeat.beats() >= 2) {
        passTrial();
    } else if (m_heartbeat.beats() == 0 && m_heartbeat.sinceBegin() > m_settings.heartbeatPatience) {
        m_trialFailure = u"no heartbeat for %1 s"_s.arg(m_heartbeat.sinceBegin() / 1s);
        m_program.kill();
    }
}

void Guardian::passTrial()
{
    const Stamp stamp = m_swap.onTrial();
    writeRecord(m_settings.installation.record(), {u"applied"_s, stamp.version, stamp.sha256, {}},
                QDateTime::currentDateTime());
    m_swap.confirm();
    m_state = Watching;
    log(u"version %1 is up"_s.arg(stamp.version));
}

void Guardian::failTrial(const QString &reason)
{
    const Stamp stamp = m_swap.onTrial();
    log(u"version %1 didn't come up: %2"_s.arg(stamp.version, reason));
    // First the record: whatever happens next, this package isn't tried a second time.
    writeRecord(m_settings.installation.record(), {u"rolled back"_s, stamp.version, stamp.sha256, reason},
                QDateTime::currentDateTime());
    removeRequest();
    holdBack(stamp.version);
    rollBack();
}

void Guardian::rollBack()
{
    if (!m_swap.rollBack()) {
        log(u"the former installation can't be put back from %1"_s.arg(m_settings.installation.previous()));
        finish(GaveUp);
        return;
    }
    const QString version = readStamp(m_settings.installation.directory).version;
    log(version.isEmpty() ? u"rolled back to the former installation"_s
                          : u"rolled back to version %1"_s.arg(version));
    startProgram(Watching);
}

} // namespace corvane::guardian
