#pragma once

#include "tools/guardian/Installation.h"
#include "tools/guardian/ManifestFetch.h"
#include "tools/guardian/Marks.h"
#include "tools/guardian/PackageEntries.h"
#include "update/UpdateFiles.h"
#include "update/UpdateManifest.h"

#include <QObject>
#include <QString>

#include <cstddef>
#include <functional>
#include <optional>

namespace corvane::guardian {

class DirectorySwap;

/// Outcome of one attempt at a staged update.
struct UpdateOutcome
{
    enum Kind {
        InPlace, ///< the new version is in place, on trial; the request is still there
        PutOff,  ///< it may not be replaced at this moment: nothing has changed, nothing is held against it
        Refused,
    };
    Kind kind = Refused;
    ReadyUpdate ready;        ///< what was staged, as far as that could be read
    QString digest;           ///< of the package, as the feed has it
    QString reason;           ///< why it isn't in place
    bool mayDoBetter = false; ///< of a refusal: another attempt may succeed
};

/// One attempt at a staged update: a list of steps, first without the feed, then with its answer, up to the
/// swap of the folders, and a value at its end. What the program has left is only believed to say what is
/// staged; what counts is the manifest, fetched again. On the thread of the event loop; copying, hashing and
/// unpacking block it.
class UpdateJob : public QObject
{
    Q_OBJECT

public:
    struct Context
    {
        Installation installation;
        Marks marks;
        QString pinnedKey;        ///< hexadecimal; empty: signatures aren't checked
        QString installedVersion; ///< empty: nobody knows
        PackageLimits limits;
    };

    /// `whyNotReplace` is asked before the first costly step and again before the swap.
    UpdateJob(Context context, DirectorySwap &swap, ManifestSource manifest,
              std::function<QString()> whyNotReplace, QObject *parent = nullptr);

    /// done() follows, be it before it returns.
    void run();

Q_SIGNALS:
    void done(const UpdateOutcome &outcome);
    void logged(const QString &line);

private:
    /// Reason for which the job ends.
    struct Stop
    {
        UpdateOutcome::Kind kind = UpdateOutcome::Refused;
        QString reason;
        bool mayDoBetter = false;
    };
    using Step = std::optional<Stop> (UpdateJob::*)();

    template <std::size_t Count>
    bool take(const Step (&steps)[Count]);
    void finish(const Stop &stop);
    void onManifest(const QByteArray &text, const QString &error);

    std::optional<Stop> readWhatIsStaged();
    std::optional<Stop> passByWhatIsHeld();
    std::optional<Stop> judgePlace();
    std::optional<Stop> judgeManifest();
    std::optional<Stop> passByWhatWasRolledBack();
    std::optional<Stop> askPermission();
    std::optional<Stop> copy();
    std::optional<Stop> unpackCopy();
    std::optional<Stop> judgeStamp();
    std::optional<Stop> reportWhatGoes();
    std::optional<Stop> swapIn();

    Context m_context;
    DirectorySwap &m_swap;
    ManifestSource m_source;
    std::function<QString()> m_whyNotReplace;
    UpdateManifest m_manifest;
    UpdateOutcome m_outcome;
};

} // namespace corvane::guardian
