#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QtGlobal>

namespace corvane::guardian {

/// One entry of a package, as its table of contents has it. Nothing of it is to be believed.
struct PackageEntry
{
    QByteArray name;        ///< UTF-8, with "/" between folders and at the end of a folder's own name
    quint64 size = 0;       ///< unpacked
    quint64 packedSize = 0; ///< in the package
    quint16 method = 0;     ///< 0 stored, 8 deflated
    bool encrypted = false;
    quint32 unixMode = 0; ///< type and permission bits where the packer gave them, else 0

    [[nodiscard]] bool isFolder() const { return name.endsWith('/'); }
    [[nodiscard]] bool isExecutable() const { return (unixMode & 0111) != 0; }
};

struct PackageLimits
{
    quint64 packageBytes = 4ULL << 30; ///< of the package itself
    qsizetype entries = 20'000;        ///< with the folders that they imply
    quint64 unpackedBytes = 4ULL << 30;
    quint64 ratio = 100;               ///< unpacked to packed, of the whole package…
    quint64 freeOfRatio = 64ULL << 20; ///< …once it unpacks to more than this
    qsizetype nameBytes = 240;         ///< of one entry, folders included
};

/// File at the top of an installation that says which version it is. A package may bring one, and what the
/// guardian unpacks gets its own in its place.
inline constexpr QByteArrayView stampName(".corvane-installation");
inline constexpr quint64 largestStamp = 65'536;

/// Reason why `name` can't be a path within a folder on every platform, or empty.
[[nodiscard]] QString nameProblem(const QByteArray &name);

/// Reason why a package of `packageBytes` with these entries isn't to be unpacked, or empty. `program` is the
/// file that has to be there.
[[nodiscard]] QString entriesProblem(const QList<PackageEntry> &entries, quint64 packageBytes,
                                     const QByteArray &program, const PackageLimits &limits = {});

} // namespace corvane::guardian
