#pragma once

#include <QString>

namespace corvane::guardian {

struct CopiedPackage
{
    QString sha256; ///< lower-case hexadecimal; empty after an error
    QString error;
};

/// Copies the package to where only the guardian writes, readable by its owner alone, and answers the digest
/// of the very bytes that were written: what happens to the original from then on matters no more. Replaces
/// an earlier copy. Blocks.
[[nodiscard]] CopiedPackage copyPackage(const QString &from, const QString &to);

} // namespace corvane::guardian
