#pragma once

#include <QList>
#include <QString>

namespace corvane {

class Pipeline;

/// Present figures of all pipelines in the Prometheus text exposition format 0.0.4
/// (https://prometheus.io/docs/instrumenting/exposition_formats/): nine samples for each pipeline. Only the
/// first metric has HELP and TYPE, on purpose. Numbers have six significant digits.
[[nodiscard]] QString metricsText(const QList<Pipeline *> &pipelines);

} // namespace corvane
