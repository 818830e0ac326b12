#pragma once

#include <QString>

namespace corvane::guardian {

/// Place of an installation, and of the guardian's files beside it. Everything of the guardian's lies in one
/// folder, on the same file system, so that folders go from one to the other by renaming.
struct Installation
{
    QString directory; ///< of the program; canonical
    QString program;   ///< the program's file name in it
    QString ownFolder; ///< of the guardian, instead of the one beside the installation; empty: that one

    [[nodiscard]] QString programPath() const { return directory + u'/' + program; }
    [[nodiscard]] QString own() const
    {
        return ownFolder.isEmpty() ? directory + QStringLiteral(".guardian") : ownFolder;
    }
    [[nodiscard]] QString next() const { return own() + QStringLiteral("/next"); } ///< being unpacked
    [[nodiscard]] QString previous() const
    {
        return own() + QStringLiteral("/previous");
    }                                                                                  ///< to roll back to
    [[nodiscard]] QString failed() const { return own() + QStringLiteral("/failed"); } ///< was rolled back
    [[nodiscard]] QString package() const { return own() + QStringLiteral("/package.zip"); }
    [[nodiscard]] QString journal() const { return own() + QStringLiteral("/journal.json"); }
    [[nodiscard]] QString record() const { return own() + QStringLiteral("/last-update.json"); }
    [[nodiscard]] QString log() const { return own() + QStringLiteral("/guardian.log"); }
    [[nodiscard]] QString lock() const { return own() + QStringLiteral("/lock"); }
};

/// Folder of a guardian's in `runtimeDirectory`: of a guardian without updates everything that it keeps, and
/// of every guardian the lock on the runs that have their marks there.
[[nodiscard]] QString guardianFolder(const QString &runtimeDirectory);

/// Reason why a guardian in the folder `guardianDirectory` can't guard `installation`, or empty. An update
/// moves the installation away with all that is in it: neither the guardian nor the runtime directory may lie
/// there.
[[nodiscard]] QString placeProblem(const Installation &installation, const QString &guardianDirectory,
                                   const QString &runtimeDirectory);

/// True if `path` is `folder` or lies in it, links resolved as far as the path exists.
[[nodiscard]] bool isWithin(const QString &path, const QString &folder);

} // namespace corvane::guardian
