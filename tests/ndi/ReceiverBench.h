#pragma once

#include "ndi/NdiReceiver.h"
#include "tests/ndi/FrameFeed.h"
#include "tests/ndi/PipeReader.h"

#include <QObject>
#include <QStringList>

namespace corvane::test {

/// Every log line of a receiver, in order, as the main thread receives it.
class ReceiverLog : public QObject
{
    Q_OBJECT

public:
    explicit ReceiverLog(const NdiReceiver &receiver);

    [[nodiscard]] const QStringList &lines() const { return m_lines; }
    [[nodiscard]] bool contains(const QString &line) const { return m_lines.contains(line); }
    [[nodiscard]] qsizetype count(const QString &line) const { return m_lines.count(line); }

private:
    QStringList m_lines;
};

/// A pipe path that nothing else uses.
[[nodiscard]] QString freshPipePath();

/// A receiver that has probed its source and created its pipe, with the source, its log and a reader. The
/// reader isn't open yet, the receiver not started.
struct ReceiverStand
{
    /// `readSize`: bytes of a frame for the reader.
    explicit ReceiverStand(const NdiFrameInfo &info, qsizetype readSize = smallFrameSize);

    const QString path = freshPipePath();
    FrameFeed feed;
    PipeReader reader;
    NdiReceiver receiver{QStringLiteral("fonte")};
    const ReceiverLog log{receiver};
    bool ready = false; ///< false: the probe or the creation of the pipe has failed
};

/// True if a pipe is being served at `path`.
[[nodiscard]] bool pipeExists(const QString &path);

/// Error numbers of the system that the tests run on, as the log shows them.
[[nodiscard]] QString alreadyServedError(); ///< of a pipe whose name another one serves
[[nodiscard]] QString waitEndedError();     ///< of a wait for a reader that stop() has ended

} // namespace corvane::test
