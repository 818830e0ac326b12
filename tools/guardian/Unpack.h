#pragma once

#include "tools/guardian/PackageEntries.h"

#include <QString>

namespace corvane::guardian {

/// Unpacks the zip file `package` into the new folder `target`, once all of its entries have been judged, and
/// puts it on the disk for good. `program` is the file in it that has to be there and becomes executable.
/// Answers why it can't be done, or an empty text; after a failure `target` doesn't exist. Blocks; memory
/// doesn't grow with the package.
[[nodiscard]] QString unpack(const QString &package, const QString &target, const QString &program,
                             const PackageLimits &limits = {});

} // namespace corvane::guardian
