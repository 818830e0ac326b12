#pragma once

#include "tools/guardian/Installation.h"

#include <QString>

#include <functional>
#include <optional>

namespace corvane::guardian {

/// Identity of an installation, from a file in it: one that the guardian has unpacked everything, one from a
/// package its version, one from elsewhere nothing.
struct Stamp
{
    QString id; ///< another one for each unpacking
    QString version;
    QString sha256; ///< of the package that it came from
};

[[nodiscard]] Stamp readStamp(const QString &directory);
/// Answers why it can't be written.
[[nodiscard]] QString writeStamp(const QString &directory, const Stamp &stamp);

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
        Trial,       ///< the new installation is in place and hasn't proven itself
        RolledBack,  ///< a roll-back that was under way has been completed
        RollBackDue, ///< a roll-back was under way, and may not go on at this moment
        Broken       ///< nothing that could be put in place
    };
    /// To be called first: completes or undoes what a former process left half done.
    [[nodiscard]] Found recover();

    /// Removes next(), which isn't in place. Answers why it can't.
    [[nodiscard]] QString discardNext() const { return remove(m_at.next()); }
    /// Puts next() in the installation's place, which becomes previous(); what was previous() is gone.
    /// `stamp` is that of next(). Answers why it couldn't be done: then the old installation is in place,
    /// state idle.
    [[nodiscard]] QString install(const Stamp &stamp);
    /// The new installation has come up.
    void confirm();
    /// Puts previous() back; what was in its place becomes failed(). Allowed on trial, and later for as long
    /// as there is a previous(). Answers why it couldn't be done: then what was in place is in place.
    [[nodiscard]] QString rollBack();
    /// There is a former installation, whole, with the program in it.
    [[nodiscard]] bool canRollBack() const;

    [[nodiscard]] Stamp onTrial() const; ///< from the journal

    /// Number of times that the version on trial has been closed before its first beat; part of the journal.
    [[nodiscard]] int closedEarly() const;
    /// One time more. False if that can't be written down.
    [[nodiscard]] bool countEarlyClose();

    /// Asked before recover() replaces an installation that is whole, why it mustn't; empty: it may.
    std::function<QString()> whyNotReplace;
    /// Asked before a folder is removed, why it mustn't be; empty: it may.
    std::function<QString(const QString &folder)> whyNotRemove;
    /// Asked when an installation has left its place for `folder`, why it mustn't; empty: it may. Between
    /// the last look at who runs the program and the move somebody may have started it, and no lock keeps
    /// anybody from that: then the installation goes back to its place, under its run.
    std::function<QString(const QString &folder)> whyNotLeave;

    std::function<void(const char *step)> beforeStep; ///< told before each change on the disk
    bool mayExchange = true;                          ///< false: as on a file system that can't

private:
    struct Journal
    {
        QString state; ///< "installing", "trial", "rolling back"
        Stamp stamp;   ///< of the new installation
        int closedEarly = 0;
    };
    [[nodiscard]] std::optional<Journal> readJournal() const;
    /// Answers why it can't be written.
    [[nodiscard]] QString writeJournal(const Journal &journal) const;
    void removeJournal() const;

    /// `incoming` to the installation's place, what is there to `outgoing`. Answers why not: then everything
    /// is where it was.
    [[nodiscard]] QString moveIn(const QString &incoming, const QString &outgoing) const;
    [[nodiscard]] QString exchangeOrRename(const QString &incoming, const QString &outgoing) const;
    void syncMoves() const;
    /// The end of a moveIn() that was cut off: true if the incoming folder is in place now.
    [[nodiscard]] bool completeMoveIn(const QString &incoming, const QString &outgoing, bool isIn) const;
    [[nodiscard]] Found recoverInstalling(const Journal &journal);
    [[nodiscard]] Found recoverRollBack(const Journal &journal);
    void step(const char *name) const;
    [[nodiscard]] QString remove(const QString &path) const;

    Installation m_at;
};

} // namespace corvane::guardian
