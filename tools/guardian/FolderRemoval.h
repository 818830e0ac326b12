#pragma once

#include <QString>

namespace corvane::guardian {

/// Removes the folder `path` with all that is in it; answers why not, or an empty text, also if there was
/// none. It is moved aside first, to a new name that begins with "gone-" in the folder `aside` of the same
/// file system, so that under its own name it is whole or absent. Then it is walked without ever entering a
/// link, a junction or another file system: those are removed or left, what they lead to isn't touched.
[[nodiscard]] QString removeFolder(const QString &path, const QString &aside);

/// Removes what an earlier removal, cut off, has left in `aside`.
void removeLeftovers(const QString &aside);

/// Removes `path` where it stands, as removeFolder() does after its move. Platform-dependent.
[[nodiscard]] QString removeTree(const QString &path);

/// True if anything has the name `path`, be it a link that leads nowhere.
[[nodiscard]] bool isTaken(const QString &path);

} // namespace corvane::guardian
