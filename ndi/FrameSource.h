#pragma once

#include "ndi/NdiFrameInfo.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

namespace corvane {

/// One NDI source to receive from: the interface that a build with an NDI runtime implements. Created and
/// destroyed on the main thread, destroyed after capture() has returned.
class FrameSource
{
public:
    /// Takes one complete frame: packed UYVY, exactly width × 2 × height bytes. A frame of another size is
    /// dropped, as the stream's reader expects that size. Blocks for no longer than a pointer swap.
    using Deliver = std::function<void(QByteArray frame)>;

    FrameSource() = default;
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource &) = delete;
    FrameSource &operator=(const FrameSource &) = delete;

    /// Attaches to the source and waits for its first frame, for `timeoutMs` at most. Main thread.
    [[nodiscard]] virtual NdiFrameInfo probe(int timeoutMs) = 0;

    /// Delivers each frame while `running` is true. Runs on a thread of its own and has to return well within
    /// three seconds after `running` has become false. An exception is logged and ends the capture.
    virtual void capture(const std::atomic<bool> &running, const Deliver &deliver) = 0;
};

using FrameSourceFactory = std::function<std::unique_ptr<FrameSource>(const QString &sourceName)>;

/// Sets the function by which receivers create their sources; with none every probe finds nothing. Main
/// thread.
void setFrameSourceFactory(FrameSourceFactory factory);

/// New source of that name; null without a factory.
[[nodiscard]] std::unique_ptr<FrameSource> makeFrameSource(const QString &sourceName);

} // namespace corvane
