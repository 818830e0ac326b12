#pragma once

#include <QString>
#include <QtGlobal>

namespace corvane::guardian {

struct CopiedPackage
{
    QString sha256; ///< lower-case hexadecimal; empty after an error
    QString error;
};

/// Copies the package to where only the guardian writes, readable by its owner alone, and answers the digest
/// of the very bytes that were written: what happens to the original from then on matters no more. Replaces
/// an earlier copy; none is left after an error. One that isn't a regular file, or is longer than `largest`
/// bytes, isn't copied at all. Blocks.
[[nodiscard]] CopiedPackage copyPackage(const QString &from, const QString &to, quint64 largest);

} // namespace corvane::guardian
