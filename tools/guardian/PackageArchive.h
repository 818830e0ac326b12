#pragma once

#include "tools/guardian/PackageEntries.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

#include <functional>
#include <memory>

struct zip;

namespace corvane::guardian {

/// A package that has been opened for reading, and whose entries have been judged before any of them is read.
class PackageArchive
{
public:
    /// Opens the zip file `path`. Nothing may be read unless error() is empty: it says why the package isn't
    /// to be unpacked. `program` is the file that has to be in it.
    PackageArchive(const QString &path, const QString &program, const PackageLimits &limits = {});

    [[nodiscard]] QString error() const { return m_error; }
    [[nodiscard]] const QList<PackageEntry> &entries() const { return m_entries; }

    /// Takes a piece of an entry's content; answers why it can't, or an empty text.
    using Sink = std::function<QString(QByteArrayView piece)>;

    /// Gives the content of the entry of this number to `sink`, piece by piece. Answers what is wrong with
    /// it, as part of a sentence about the entry: it is damaged, or longer or shorter than was announced.
    [[nodiscard]] QString read(qsizetype index, const Sink &sink) const;

private:
    [[nodiscard]] QString open(const QString &path);
    [[nodiscard]] QString readEntries(const PackageLimits &limits);

    struct Discard
    {
        void operator()(zip *archive) const;
    };
    std::unique_ptr<zip, Discard> m_archive;
    QList<PackageEntry> m_entries;
    QString m_error;
};

/// Reason why the package isn't one that a guardian unpacks, content and all, or empty. `version`, if it
/// isn't empty, is what a stamp in it has to say. Blocks.
[[nodiscard]] QString packageProblem(const QString &path, const QString &program, const QString &version,
                                     const PackageLimits &limits = {});

/// Version in the text of a stamp; empty if it says none.
[[nodiscard]] QString stampedVersion(const QByteArray &stamp);

} // namespace corvane::guardian
