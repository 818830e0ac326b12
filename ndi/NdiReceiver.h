#pragma once

#include "ndi/FramePipe.h"
#include "ndi/NdiFrameInfo.h"

#include <QByteArray>
#include <QMutex>
#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class QThread;

namespace corvane {

class FrameSource;

/// Frame pump between an NDI source, which may stall or vanish, and one ffmpeg, which must never starve.
///
/// Writes one frame per period to a named pipe, whatever the source does: the newest, the last good one until
/// a newer comes, a grey slate before the first. One thread keeps the newest frame, the other writes; neither
/// waits for the other. All operations belong to the main thread; logLine() also comes from the two threads.
/// One object serves one run: createPipe(), start(), stop(). A failure is a line in the log and never ends a
/// transmission.
class NdiReceiver : public QObject
{
    Q_OBJECT

public:
    explicit NdiReceiver(QString sourceName, QObject *parent = nullptr);
    ~NdiReceiver() override; ///< does what stop() does

    /// Waits for a first frame of the source, for up to `timeoutMs`. Without an NDI runtime it returns a
    /// fresh record at once. A valid result is the format of all further frames.
    NdiFrameInfo probe(int timeoutMs);

    /// Creates the pipe for a reader to open. False, with a line in the log, if that fails.
    bool createPipe(const QString &pipeName);

    /// Starts the two threads. Between the first call and stop() it only stores the name.
    void start(const QString &pipeName);

    /// Closes the pipe, ends the threads, and releases the source and its last frame. Blocks for a frame's
    /// period, for up to 3 s for a thread that doesn't end. Safe in every state and safe to repeat.
    void stop();

Q_SIGNALS:
    void logLine(QString line); ///< without a prefix

private:
    void captureLoop();
    void pumpLoop();
    void pumpFrames(int intervalMs);
    void keep(QByteArray frame);
    [[nodiscard]] QByteArray newestFrame(); ///< shares the bytes
    void guarded(const QString &where, const std::function<void()> &body);
    [[nodiscard]] QString pipeName() const;
    void setPipeName(const QString &pipeName);

    QString m_sourceName;
    mutable QMutex m_pipeNameMutex; ///< start() may rename while the pump runs
    QString m_pipeName;
    QThread *m_captureThread = nullptr; ///< owned, from start() to stop()
    QThread *m_pumpThread = nullptr;    ///< owned, from start() to stop()
    std::atomic<bool> m_running = false;
    FramePipe m_pipe;
    NdiFrameInfo m_frameInfo; ///< written before the threads start
    QMutex m_frameMutex;      ///< guards m_lastFrame, for a few instructions each time
    QByteArray m_lastFrame;
    std::atomic<qint64> m_lastFrameMs = 0; ///< arrival, in ms since the epoch; 0: never
    int m_frameStride = 0;                 ///< bytes per line; below 1: unknown
    std::unique_ptr<FrameSource> m_source; ///< from probe() to stop(); null without an NDI runtime
};

} // namespace corvane
