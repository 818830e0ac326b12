#pragma once

#include "ndi/NdiReceiver.h"

#include <QObject>
#include <QStringList>

namespace corvane::test {

/// Everything that a receiver says, in order, as the main thread hears it.
class ReceiverLog : public QObject
{
    Q_OBJECT

public:
    explicit ReceiverLog(const NdiReceiver &receiver);

    [[nodiscard]] const QStringList &lines() const { return m_lines; }
    [[nodiscard]] bool contains(const QString &line) const { return m_lines.contains(line); }

private:
    QStringList m_lines;
};

/// A pipe path that nobody else has.
[[nodiscard]] QString freshPipePath();

/// Tells whether something can be opened at `path`; a pipe without a reader has one for a moment.
[[nodiscard]] bool pipeExists(const QString &path);

/// Error numbers of the system the tests run on, as the log shows them.
[[nodiscard]] QString noSuchFolderError();
[[nodiscard]] QString waitEndedError();

} // namespace corvane::test
