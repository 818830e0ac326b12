#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Files that tests read and write.
namespace corvane::test {

[[nodiscard]] QByteArray contentsOf(const QString &path); ///< empty too if there is no such file

/// Writes the file at `path`, with the directories that it takes; a failure is one of the test.
void writeFile(const QString &path, const QByteArray &bytes);

/// The lines of the file at `path`; none if there is no such file.
[[nodiscard]] QStringList fileLines(const QString &path);

/// Creates the file at `path`, empty: the sign that the step "await" of a fake child waits for.
void createFile(const QString &path);

/// Makes another user the owner of `path`. False where the system refuses, as to all but root, or has no such
/// call.
[[nodiscard]] bool giveAway(const QString &path);

/// Second since the epoch by the clock that names the crash files: a tick behind QDateTime's.
[[nodiscard]] qint64 coarseSeconds();

/// Names in the directory at `path`, hidden ones too, in order.
[[nodiscard]] QStringList entriesOf(const QString &path);

} // namespace corvane::test
