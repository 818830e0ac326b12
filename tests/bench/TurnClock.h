#pragma once

#include "tests/bench/Usage.h"

#include <QAbstractEventDispatcher>
#include <QObject>

#include <algorithm>

namespace corvane::bench {

/// The turns of this thread's event loop from construction on, each from one wait for events to the next, in
/// processor time: other load on the machine doesn't count.
class TurnClock : public QObject
{
public:
    explicit TurnClock(QObject *parent = nullptr)
        : QObject(parent)
        , m_from(threadCpuNs())
    {
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this, [this] {
            const qint64 now = threadCpuNs();
            m_longestNs = std::max(m_longestNs, now - m_from);
            ++m_turns;
            m_from = now;
        });
    }

    [[nodiscard]] qint64 longestNs() const { return m_longestNs; }
    [[nodiscard]] int turns() const { return m_turns; }

private:
    qint64 m_from;
    qint64 m_longestNs = 0;
    int m_turns = 0;
};

} // namespace corvane::bench
