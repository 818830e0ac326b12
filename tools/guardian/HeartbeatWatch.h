#pragma once

#include "tools/guardian/Marks.h"

#include <QElapsedTimer>
#include <QtGlobal>

#include <chrono>
#include <optional>

namespace corvane::guardian {

/// The heartbeat of one run after the other. A beat is a change of what stands in the file: what a former run
/// has left isn't one, and nothing depends on the machine's clock, which may be set at any moment.
class HeartbeatWatch
{
public:
    explicit HeartbeatWatch(Marks marks);

    void begin(); ///< a run begins, or begins to be watched
    void look();  ///< to be called more often than the program beats

    [[nodiscard]] int beats() const { return m_beats; } ///< seen since begin()
    /// The last beat was seen since begin(), at most `silence` ago.
    [[nodiscard]] bool isLive(std::chrono::milliseconds silence) const;
    [[nodiscard]] std::chrono::milliseconds sinceBegin() const;
    [[nodiscard]] std::chrono::milliseconds sinceBeat() const; ///< or since begin()

private:
    Marks m_marks;
    std::optional<qint64> m_last;
    int m_beats = 0;
    QElapsedTimer m_sinceBegin;
    QElapsedTimer m_sinceBeat;
};

} // namespace corvane::guardian
