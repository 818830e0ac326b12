#pragma once

#include "tools/guardian/Installation.h"

#include <QString>

#include <functional>
#include <optional>

namespace corvane::guardian {

/// What an installation that the guardian has unpacked says of itself; one from elsewhere says nothing.
struct Stamp
{
    QString id; ///< another one for each unpacking
    QString version;
    QString sha256; ///< of the package that it came from
};

[[nodiscard]] Stamp readStamp(const QString &directory);
[[nodiscard]] bool writeStamp(const QString &directory, const Stamp &stamp);

/// Replaces the installation by another folder, so that whatever moment the machine stops at, a whole
/// installation is there and recover() knows where.
///
///   idle ──install()──▶ on trial ──confirm()──▶ idle
///                          └──────rollBack()──▶ idle
///
/// A journal on disk tells the state. Where the file system can exchange two folders in one step, the
/// installation is at its place at every moment; elsewhere its place is empty between two renames.
class DirectorySwap
{
public:
    explicit DirectorySwap(Installation installation);

    enum class Found {
        Idle,
        Trial,      ///< the new installation is in place and hasn't proven itself
        RolledBack, ///< a roll-back that was under way has been completed
        Broken      ///< nothing that could be put in place
    };
    /// To be called first: completes or undoes what a former process left half done.
    [[nodiscard]] Found recover();

    /// Puts next() in the installation's place, which becomes previous(); what was previous() is gone.
    /// `stamp` is that of next(). False if it couldn't be done: then the old installation is in place, state
    /// idle.
    [[nodiscard]] bool install(const Stamp &stamp);
    /// The new installation has proven itself.
    void confirm();
    /// Puts previous() back; what was in its place becomes failed(). Allowed on trial only. False if it
    /// couldn't be done.
    [[nodiscard]] bool rollBack();

    [[nodiscard]] Stamp onTrial() const; ///< from the journal

    std::function<void(const char *step)> beforeStep; ///< told before each change on the disk
    bool mayExchange = true;                          ///< false: as on a file system that can't

private:
    struct Journal
    {
        QString state; ///< "installing", "trial", "rolling back"
        Stamp stamp;   ///< of the new installation
    };
    [[nodiscard]] std::optional<Journal> readJournal() const;
    [[nodiscard]] bool writeJournal(const Journal &journal) const;
    void removeJournal() const;

    /// `incoming` to the installation's place, what is there to `outgoing`.
    [[nodiscard]] bool moveIn(const QString &incoming, const QString &outgoing) const;
    void syncMoves() const;
    /// The end of a moveIn() that was cut off: true if the incoming folder is in place now.
    [[nodiscard]] bool completeMoveIn(const QString &incoming, const QString &outgoing, bool isIn) const;
    [[nodiscard]] Found recoverInstalling(const Journal &journal);
    [[nodiscard]] Found recoverRollBack(const Journal &journal);
    void step(const char *name) const;
    void removeFolder(const QString &path) const;

    Installation m_at;
};

} // namespace corvane::guardian
