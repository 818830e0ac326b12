#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

namespace corvane::test {

/// Equal frames that came one after the other.
struct FrameRun
{
    QByteArray frame;
    qsizetype count = 0;
};

/// The other end of a frame pipe, in ffmpeg's place: reads frames of one size on a thread of its own, until
/// close() or until the pipe ends. Declare it before the receiver: it waits for the pipe's end.
class PipeReader
{
public:
    explicit PipeReader(qsizetype frameSize);
    ~PipeReader();
    PipeReader(const PipeReader &) = delete;
    PipeReader &operator=(const PipeReader &) = delete;

    /// Opens the pipe before it returns, and starts to read.
    void open(const QString &path);

    /// As open(), but nothing is read before resume().
    void openPaused(const QString &path);
    void resume();

    /// Closes its end of the pipe when the next bytes come.
    void close();

    [[nodiscard]] bool couldOpen() const;
    [[nodiscard]] bool ended() const; ///< by either side
    [[nodiscard]] qsizetype frames() const;
    [[nodiscard]] qsizetype leftover() const; ///< bytes of a frame that isn't complete
    [[nodiscard]] QList<FrameRun> runs() const;
    [[nodiscard]] QByteArray lastFrame() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace corvane::test
