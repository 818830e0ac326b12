#include "tools/guardian/UpdateJob.h"

#include "tools/guardian/DirectorySwap.h"
#include "tools/guardian/HeldVersions.h"
#include "tools/guardian/StagedPackage.h"
#include "tools/guardian/Unpack.h"
#include "tools/guardian/UpdateRecord.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QUuid>

#include <utility>

using namespace Qt::StringLiterals;

namespace corvane::guardian {

UpdateJob::UpdateJob(Context context, DirectorySwap &swap, ManifestSource manifest,
                     std::function<QString()> whyNotReplace, QObject *parent)
    : QObject(parent)
    , m_context(std::move(context))
    , m_swap(swap)
    , m_source(std::move(manifest))
    , m_whyNotReplace(std::move(whyNotReplace))
{
}

template <std::size_t Count>
bool UpdateJob::take(const Step (&steps)[Count])
{
    for (const Step step : steps) {
        if (const std::optional<Stop> stop = (this->*step)()) {
            finish(*stop);
            return false;
        }
    }
    return true;
}

void UpdateJob::finish(const Stop &stop)
{
    QFile::remove(m_context.installation.package());
    m_outcome.kind = stop.kind;
    m_outcome.reason = stop.reason;
    m_outcome.mayDoBetter = stop.mayDoBetter;
    Q_EMIT done(m_outcome);
}

void UpdateJob::run()
{
    static constexpr Step steps[] = {&UpdateJob::readWhatIsStaged, &UpdateJob::passByWhatIsHeld,
                                     &UpdateJob::judgePlace};
    if (!take(steps))
        return;
    m_source([job = QPointer<UpdateJob>(this)](const QByteArray &text, const QString &error) {
        if (job)
            job->onManifest(text, error);
    });
}

void UpdateJob::onManifest(const QByteArray &text, const QString &error)
{
    if (!error.isEmpty()) {
        finish({UpdateOutcome::Refused, error, true});
        return;
    }
    m_manifest = parseManifest(text, platformKey);
    m_outcome.digest = m_manifest.sha256.toLower();
    static constexpr Step steps[] = {
        &UpdateJob::judgeManifest,  &UpdateJob::passByWhatWasRolledBack,
        &UpdateJob::askPermission,  &UpdateJob::copy,
        &UpdateJob::unpackCopy,     &UpdateJob::judgeStamp,
        &UpdateJob::reportWhatGoes, &UpdateJob::swapIn,
    };
    if (take(steps))
        finish({UpdateOutcome::InPlace, {}, false});
}

// --- Without the feed

std::optional<UpdateJob::Stop> UpdateJob::readWhatIsStaged()
{
    QString reason;
    const std::optional<ReadyUpdate> ready = m_context.marks.readyUpdate(reason);
    if (!ready)
        return Stop{UpdateOutcome::Refused, reason, true};
    m_outcome.ready = *ready;
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::passByWhatIsHeld()
{
    if (HeldVersions{m_context.marks.runtimeDirectory}.isHeld(m_outcome.ready.version))
        return Stop{UpdateOutcome::Refused, u"it is held back"_s};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::judgePlace()
{
    if (QFileInfo(m_outcome.ready.install_dir).canonicalFilePath() != m_context.installation.directory)
        return Stop{UpdateOutcome::Refused,
                    u"it is for the installation in “%1”"_s.arg(m_outcome.ready.install_dir)};
    return {};
}

// --- With the feed's answer

std::optional<UpdateJob::Stop> UpdateJob::judgeManifest()
{
    const QString problem =
        manifestProblem(m_manifest, m_context.pinnedKey, m_outcome.ready.version, m_context.installedVersion);
    if (!problem.isEmpty())
        return Stop{UpdateOutcome::Refused, problem};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::passByWhatWasRolledBack()
{
    if (readRecord(m_context.installation.record()).rolledBack(m_outcome.digest))
        return Stop{UpdateOutcome::Refused, u"this package has been rolled back before"_s};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::askPermission()
{
    if (const QString reason = m_whyNotReplace(); !reason.isEmpty())
        return Stop{UpdateOutcome::PutOff, reason};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::copy()
{
    const CopiedPackage copied =
        copyPackage(m_outcome.ready.package, m_context.installation.package(), m_context.limits.packageBytes);
    if (!copied.error.isEmpty())
        return Stop{UpdateOutcome::Refused, copied.error};
    if (copied.sha256 != m_outcome.digest)
        return Stop{
            UpdateOutcome::Refused,
            u"the package on disk isn't the one that the feed offers: its sha256 is %1"_s.arg(copied.sha256)};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::unpackCopy()
{
    const Installation &at = m_context.installation;
    Q_EMIT logged(u"unpacking version %1, sha256 %2"_s.arg(m_outcome.ready.version, m_outcome.digest));
    QString error = m_swap.discardNext(); // of an attempt that failed
    if (error.isEmpty())
        error = unpack(at.package(), at.next(), at.program, m_context.limits);
    QFile::remove(at.package());
    if (!error.isEmpty())
        return Stop{UpdateOutcome::Refused, u"the package can't be unpacked: %1"_s.arg(error)};
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::judgeStamp()
{
    const QString version = readStamp(m_context.installation.next()).version;
    if (version.isEmpty() || version == m_outcome.ready.version)
        return {};
    (void)m_swap.discardNext();
    return Stop{UpdateOutcome::Refused, u"what is in the package calls itself version %1"_s.arg(version)};
}

/// Of a folder that somebody has put beside the program there is one copy left now, and none after the next
/// update.
std::optional<UpdateJob::Stop> UpdateJob::reportWhatGoes()
{
    constexpr auto all = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    const Installation &at = m_context.installation;
    const QStringList coming = QDir(at.next()).entryList(all);
    QStringList going = QDir(at.directory).entryList(all);
    going.removeIf([&coming](const QString &name) {
        return coming.contains(name) || name == QLatin1StringView(stampName.data(), stampName.size());
    });
    if (!going.isEmpty())
        Q_EMIT logged(u"version %1 doesn't have %2: that goes to %3, and is gone after the next update"_s.arg(
            m_outcome.ready.version, going.join(", "_L1), at.previous()));
    return {};
}

std::optional<UpdateJob::Stop> UpdateJob::swapIn()
{
    const Installation &at = m_context.installation;
    const Stamp stamp{QUuid::createUuid().toString(QUuid::WithoutBraces), m_outcome.ready.version,
                      m_outcome.digest};
    QString error = writeStamp(at.next(), stamp);
    if (error.isEmpty()) {
        // Another look at the very last moment: unpacking has taken a while.
        if (std::optional<Stop> stop = askPermission())
            return stop;
        error = m_swap.install(stamp);
        if (!error.isEmpty()) {
            // Somebody may have started the program even after that.
            if (std::optional<Stop> stop = askPermission())
                return stop;
        }
    }
    if (!error.isEmpty())
        return Stop{UpdateOutcome::Refused, u"the installation can't be replaced: %1"_s.arg(error)};
    Q_EMIT logged(u"version %1 is in place, the former installation in %2"_s.arg(m_outcome.ready.version,
                                                                                 at.previous()));
    return {};
}

} // namespace corvane::guardian
