#pragma once

#include <QJsonObject>

#include <functional>

class QQuickWindow;

namespace corvane::bench {

/// Shows lines in the empty window, CORVANE_MEASURE_PIPELINES of them, of which each changes twice a second,
/// and measures what that costs this process for CORVANE_MEASURE_SECONDS: "cpuShare" of one core and
/// "frames". `then` gets the figures.
void takeLineFigures(QQuickWindow &window, const std::function<void(const QJsonObject &)> &then);

} // namespace corvane::bench
