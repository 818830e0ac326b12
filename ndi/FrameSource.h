#pragma once

#include "ndi/NdiFrameInfo.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

namespace corvane {

/// One NDI source to receive from: all that a build with an NDI runtime has to bring. Made on the main thread
/// and destroyed there, after capture() has returned.
class FrameSource
{
public:
    /// Takes one complete frame: packed UYVY, exactly width × 2 × height bytes. One of another size is
    /// dropped, as the reader of the stream was told a size. Never blocks for longer than an exchange.
    using Deliver = std::function<void(QByteArray frame)>;

    FrameSource() = default;
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource &) = delete;
    FrameSource &operator=(const FrameSource &) = delete;

    /// Attaches to the source and waits for its first frame, for `timeoutMs` at most. Main thread.
    [[nodiscard]] virtual NdiFrameInfo probe(int timeoutMs) = 0;

    /// Hands each frame over while `running` holds. On a thread of its own; has to return well within three
    /// seconds after `running` has become false. What it throws is logged and ends the capture.
    virtual void capture(const std::atomic<bool> &running, const Deliver &deliver) = 0;
};

using FrameSourceFactory = std::function<std::unique_ptr<FrameSource>(const QString &sourceName)>;

/// By what receivers make their sources from now on; none: every probe finds nothing. Main thread.
void setFrameSourceFactory(FrameSourceFactory factory);

/// The source of that name; null without a factory.
[[nodiscard]] std::unique_ptr<FrameSource> makeFrameSource(const QString &sourceName);

} // namespace corvane
