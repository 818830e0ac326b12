#pragma once

#include <QList>
#include <QtGlobal>

#include <optional>

namespace corvane::guardian {

/// Limit on restarts of a program that ends badly. Pure: the caller brings the time, in milliseconds of
/// a clock that nobody can set.
struct RestartBudget
{
    qint64 firstDelayMs = 1000;
    qint64 longestDelayMs = 60'000;
    qint64 windowMs = 600'000; ///< crashes count for as long as this
    qsizetype limit = 8;       ///< restarts within the window

    QList<qint64> crashes = {}; ///< within the window, oldest first

    /// Time to wait before the next start, doubled with each crash in the window; nothing if there have been
    /// too many.
    std::optional<qint64> onCrash(qint64 nowMs);
};

} // namespace corvane::guardian
