#pragma once

#include "ndi/FrameSource.h"

#include <QByteArray>
#include <QStringList>

#include <functional>
#include <memory>

namespace corvane::test {

/// Frames for the receivers of a test. While it lives, every new source delivers from here.
class FrameFeed
{
public:
    /// `info`: result of every probe.
    explicit FrameFeed(const NdiFrameInfo &info);
    ~FrameFeed();
    FrameFeed(const FrameFeed &) = delete;
    FrameFeed &operator=(const FrameFeed &) = delete;

    void setInfo(const NdiFrameInfo &info);

    /// The capture under way, or the next one, delivers `frame`.
    void show(const QByteArray &frame);

    /// The capture under way, or the next one, calls `thrower`, which throws.
    void failWith(std::function<void()> thrower);

    /// "name timeout" of each probe so far.
    [[nodiscard]] QStringList probes() const;

    /// Frames that no capture has delivered yet.
    [[nodiscard]] qsizetype waiting() const;

    /// Captures that are under way.
    [[nodiscard]] int captures() const;

    /// Sources that receivers hold.
    [[nodiscard]] int sources() const;

private:
    struct State;
    class Source;
    std::shared_ptr<State> m_state;
};

/// Bytes of a frame of 16 by 4 pixels, the small format of the tests.
constexpr qsizetype smallFrameSize = qsizetype(16) * 2 * 4;

/// A valid record.
[[nodiscard]] NdiFrameInfo frameInfo(int width, int height, int frameRateN, int frameRateD = 1);

} // namespace corvane::test
