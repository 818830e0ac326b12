#include "tools/guardian/Supervisor.h"

#include "tools/guardian/PrintableText.h"
#include "tools/guardian/ProgramProcesses.h"

#include <QDateTime>
#include <QProcessEnvironment>

#include <algorithm>
#include <cstdlib>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace corvane::guardian {

namespace {

constexpr std::chrono::milliseconds releaseInterval = 1min;

std::chrono::milliseconds elapsed(const QElapsedTimer &timer)
{
    return std::chrono::milliseconds(timer.elapsed());
}

} // namespace

Supervisor::Supervisor(GuardianSettings settings, ManifestSource manifest, QObject *parent)
    : QObject(parent)
    , m_settings(std::move(settings))
    , m_manifest(std::move(manifest))
    , m_marks{m_settings.runtimeDirectory}
    , m_swap(m_settings.installation)
    , m_program(m_settings.installation.programPath(), m_settings.arguments, m_marks)
    , m_heartbeat(m_marks)
    , m_ledger(
          {m_settings.installation, m_marks, m_settings.updates, m_settings.holdTime, m_settings.attempts})
    , m_trial(m_settings.trial, m_settings.installation, m_swap, m_ledger)
    , m_restarts(m_settings.restarts)
    , m_log(m_settings.installation.log())
{
    m_clock.start();
    m_swap.whyNotRemove = [](const QString &folder) {
        const QList<qint64> processes = processesWithin(folder);
        return processes.isEmpty() ? QString()
                                   : u"a program in it is running (process %1)"_s.arg(processes.first());
    };
    m_swap.beforeStep = m_settings.beforeSwapStep;
    m_swap.whyNotLeave = [program = m_settings.installation.program](const QString &folder) {
        const QList<ProgramProcess> runs = processesOf(folder + u'/' + program);
        return runs.isEmpty()
                   ? QString()
                   : u"somebody has just started the program in it (process %1)"_s.arg(runs.first().id);
    };
    m_swap.whyNotReplace = [this] { return whyNot(Act::Replace, m_program.runs()); };
    connect(&m_ledger, &UpdateLedger::logged, this, &Supervisor::log);
    connect(&m_trial, &VersionTrial::logged, this, &Supervisor::log);
    connect(&m_program, &GuardedProgram::ended, this, &Supervisor::onEnded);
    connect(&m_lookTimer, &QTimer::timeout, this, &Supervisor::look);
    m_pauseTimer.setSingleShot(true);
    connect(&m_pauseTimer, &QTimer::timeout, this,
            [this] { wish(m_ledger.isRequested() ? Wish::Update : Wish::Start); });
    connect(&m_releaseTimer, &QTimer::timeout, &m_ledger, &UpdateLedger::release);
}

void Supervisor::log(const QString &line)
{
    const QString shown = printable(line);
    m_log.append(QDateTime::currentDateTime(), shown);
    Q_EMIT logged(shown);
}

void Supervisor::finish(ExitCode code)
{
    m_state = Finished;
    m_lookTimer.stop();
    m_releaseTimer.stop();
    Q_EMIT finished(code);
}

void Supervisor::run()
{
    m_lookTimer.start(m_settings.lookInterval);
    m_releaseTimer.start(std::min(releaseInterval, m_settings.holdTime));
    log(u"guarding %1, marks in %2"_s.arg(m_settings.installation.programPath(),
                                          m_settings.runtimeDirectory));
    m_heartbeat.begin();
    if (!m_settings.updates) {
        log(u"without updates"_s);
    } else if (!takeUp()) {
        return;
    }
    if (m_state != Idle)
        return;
    if (m_program.attach())
        watch(u"the program is running; it is watched"_s);
    else if (m_ledger.isRequested())
        wish(Wish::Update);
    else if (m_settings.attachOnly) {
        log(u"the program isn't running"_s);
        finish(NothingToAttach);
    } else {
        wish(Wish::Start);
    }
}

/// Takes up an update that a former guardian left half done or on trial. False if no installation is in
/// place.
bool Supervisor::takeUp()
{
    const UpdateRecord last = m_ledger.last();
    const DirectorySwap::Found found = m_swap.recover();
    if (found == DirectorySwap::Found::Broken) {
        log(u"no installation could be put in place; what there is lies in %1"_s.arg(
            m_settings.installation.own()));
        finish(GaveUp);
        return false;
    }
    if (found == DirectorySwap::Found::RolledBack)
        log(u"a roll-back that was cut off has been completed"_s);
    m_ledger.takeUp();
    m_trial.takeUp(last);
    const bool isDue = found == DirectorySwap::Found::RollBackDue;
    if (found != DirectorySwap::Found::Trial && !isDue)
        return true;

    // It has been granted already, and would be taken for another one.
    m_ledger.removeRequest();
    if (isDue || last.rolledBack(m_swap.onTrial().sha256)) {
        log(u"a roll-back was about to begin"_s);
        wish(Wish::RollBack);
    } else {
        log(u"version %1 was put in place and hasn't proven itself"_s.arg(m_swap.onTrial().version));
        beginTrial();
    }
    return true;
}

// --- Permission

Runs Supervisor::runs() const
{
    Runs runs = m_program.runs();
    runs.marksStand = m_marks.sentinelStands();
    runs.marksLive = m_heartbeat.isLive(m_settings.silence);
    runs.marksQuiet = m_heartbeat.sinceBeat() > m_settings.silence;
    if (m_isFirstStart && !runs.marksQuiet) {
        // Before anything has been watched the machine's clock says whether the last beat is worth waiting
        // for.
        const qint64 age = std::abs(QDateTime::currentMSecsSinceEpoch() - m_marks.heartbeat().value_or(0));
        runs.marksLive = runs.marksLive || std::chrono::milliseconds(age) < m_settings.silence;
    }
    return runs;
}

void Supervisor::wish(Wish what)
{
    m_wish = what;
    m_state = Waiting;
    m_waitsFor.clear();
    m_sinceWish.start();
    if (what == Wish::Update)
        log(u"an update is to be applied"_s);
    tryWish();
}

void Supervisor::tryWish()
{
    const Act act = m_wish == Wish::Start ? Act::Start : Act::Replace;
    const Runs now = runs();
    const QString reason = whyNot(act, now);
    if (reason.isEmpty()) {
        if (m_wish == Wish::Start)
            startProgram();
        else if (m_wish == Wish::Update)
            update();
        else
            rollBack();
        return;
    }
    // Its operator has opened the program meanwhile: it runs on, and asks for the update again.
    if (m_wish != Wish::RollBack && m_program.attach()) {
        if (m_wish == Wish::Update) {
            m_ledger.removeRequest();
            log(u"the update is put off: %1"_s.arg(reason));
        }
        watch(u"somebody has started the program; it is watched"_s);
    } else if (m_wish == Wish::Update && !now.others.isEmpty() &&
               elapsed(m_sinceWish) > m_settings.othersPatience) {
        putOffForOthers(reason);
    } else {
        waitFor(reason);
    }
}

void Supervisor::waitFor(const QString &reason)
{
    if (m_waitsFor.isEmpty())
        log(m_wish == Wish::Start ? u"waiting: %1"_s.arg(reason)
                                  : u"waiting for every run of the program to end: %1"_s.arg(reason));
    m_waitsFor = reason;
}

// --- Watching

void Supervisor::watch(const QString &line)
{
    log(line);
    m_heartbeat.begin();
    m_state = Watching;
    m_isFirstStart = false;
    m_reportedStale = false;
    m_ledger.beginRun();
}

void Supervisor::startProgram()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"CORVANE_RUNTIME_DIR"_s, m_settings.runtimeDirectory);
    const bool feedOff = m_ledger.takeFeedOff() || !m_settings.updates;
    if (feedOff)
        environment.insert(u"CORVANE_UPDATE_FEED"_s, u"off"_s);
    watch(feedOff ? u"starting the program, its update check switched off"_s : u"starting the program"_s);
    m_program.start(environment);
}

void Supervisor::onEnded(bool orderly, const QString &how)
{
    if (m_state == Finished)
        return;
    log(orderly ? u"the program ended in order"_s : u"the program ended: %1"_s.arg(how));
    switch (m_trial.onEnd(orderly, how, watched())) {
    case VersionTrial::Follows::AsEver:
        break;
    case VersionTrial::Follows::Rest:
        m_ledger.removeRequest();
        finish(EndedCleanly);
        return;
    case VersionTrial::Follows::WayBackClosed:
        m_closedByOperator = true;
        goBack();
        return;
    case VersionTrial::Follows::WayBack:
        goBack();
        return;
    }
    const bool requested = m_ledger.isRequested();
    m_heartbeat.begin(); // a beat from now on is somebody else's
    if (requested)
        wish(Wish::Update);
    else if (orderly)
        finish(EndedCleanly);
    else
        onBadEnd(how);
}

void Supervisor::onBadEnd(const QString &how)
{
    const std::optional<qint64> delay = m_restarts.onCrash(m_clock.elapsed());
    if (m_trial.onBadEnd(how, delay.has_value())) {
        goBack();
        return;
    }
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

void Supervisor::look()
{
    m_heartbeat.look();
    m_program.look();
    if (m_state == Waiting) {
        tryWish();
    } else if (m_state == Watching) {
        lookAtHeartbeat();
        lookAtTrial();
    }
}

/// A heartbeat that stops is only reported: the streams are processes of their own and may well go on.
void Supervisor::lookAtHeartbeat()
{
    m_ledger.reportRequests();
    if (m_heartbeat.beats() == 0)
        return;
    const bool stale = m_heartbeat.sinceBeat() > m_settings.staleHeartbeat;
    if (stale != m_reportedStale)
        log(stale ? u"the program's heartbeat has stopped"_s : u"the program's heartbeat is back"_s);
    m_reportedStale = stale;
}

// --- Updating

void Supervisor::update()
{
    m_state = Working;
    if (m_marks.sentinelStands())
        log(u"the run that asked for the update didn't end in order"_s);
    const Stamp installed = readStamp(m_settings.installation.directory);
    m_job = std::make_unique<UpdateJob>(
        UpdateJob::Context{m_settings.installation, m_marks, m_settings.pinnedKey,
                           installed.version.isEmpty() ? m_settings.ownVersion : installed.version,
                           m_settings.limits},
        m_swap, m_manifest, [this] { return whyNot(Act::Replace, runs()); });
    connect(m_job.get(), &UpdateJob::logged, this, &Supervisor::log);
    connect(m_job.get(), &UpdateJob::done, this, &Supervisor::onUpdated);
    m_job->run();
}

void Supervisor::onUpdated(const UpdateOutcome &outcome)
{
    if (m_state != Working)
        return;
    m_job.release()->deleteLater(); // it is the one that calls
    switch (outcome.kind) {
    case UpdateOutcome::InPlace:
        m_ledger.granted();
        beginTrial();
        break;
    case UpdateOutcome::PutOff:
        wish(Wish::Update);
        break;
    case UpdateOutcome::Refused:
        m_ledger.refused(outcome);
        wish(Wish::Start);
        break;
    }
}

/// The program has left for the update, and its operator hasn't got it meanwhile.
void Supervisor::putOffForOthers(const QString &reason)
{
    UpdateOutcome outcome;
    QString error;
    outcome.ready = m_marks.readyUpdate(error).value_or(ReadyUpdate());
    outcome.reason = reason;
    m_ledger.refused(outcome);
    wish(Wish::Start);
}

// --- On trial

WatchedRun Supervisor::watched() const
{
    return {m_heartbeat.beats(), m_heartbeat.sinceBegin(), m_heartbeat.sinceBeat()};
}

void Supervisor::beginTrial()
{
    m_trial.begin();
    if (m_program.attach())
        watch(u"the program is running; it is watched"_s);
    else
        wish(Wish::Start);
}

void Supervisor::lookAtTrial()
{
    const bool isOpen = m_trial.isOpen();
    if (isOpen && runs().own.size() > 1) {
        m_heartbeat.begin(); // nobody knows whose beats these are
        return;
    }
    const QString failure =
        m_trial.look(watched(), isOpen ? m_program.tools() : QStringList(), elapsed(m_clock));
    if (failure.isEmpty())
        return;
    if (const QString reason = whyNot(Act::Kill, runs()); !reason.isEmpty()) {
        m_trial.notEnded(reason);
        return;
    }
    m_trial.beingEnded(failure);
    m_program.kill();
}

void Supervisor::goBack()
{
    m_heartbeat.begin();
    wish(Wish::RollBack);
}

void Supervisor::rollBack()
{
    if (const QString error = m_swap.rollBack(); !error.isEmpty()) {
        if (!whyNot(Act::Replace, runs()).isEmpty()) {
            wish(Wish::RollBack); // somebody has just started the program
            return;
        }
        log(u"the former installation can't be put back: %1"_s.arg(error));
        finish(GaveUp);
        return;
    }
    const QString version = readStamp(m_settings.installation.directory).version;
    log(version.isEmpty() ? u"rolled back to the former installation"_s
                          : u"rolled back to version %1"_s.arg(version));
    if (m_closedByOperator)
        finish(EndedCleanly);
    else
        wish(Wish::Start);
}

} // namespace corvane::guardian
