#pragma once

#include <QString>

#include <chrono>

namespace corvane::guardian {

/// Versions that the program is kept from staging, and so from quitting for, while it goes on asking its
/// feed: any other version is still found. In the update directory a folder stands where the package of a
/// held version would go, and the program can't write that file. The folder is the whole memory of it, and
/// outlasts the guardian.
struct HeldVersions
{
    QString runtimeDirectory;

    /// Holds `version` back from now on; what is staged of it is removed. False if that can't be done.
    [[nodiscard]] bool hold(const QString &version) const;

    /// True if `version` is being held back.
    [[nodiscard]] bool isHeld(const QString &version) const;

    /// Lets go of `version` at once.
    void letGo(const QString &version) const;

    /// Lets go what has been held for `time` or longer, apart from `exception`, which may be empty.
    void release(std::chrono::milliseconds time, const QString &exception) const;
};

} // namespace corvane::guardian
