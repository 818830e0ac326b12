#pragma once

#include <QList>
#include <QString>

namespace corvane {

class Pipeline;

/// The figures of all pipelines as they stand, in the Prometheus text exposition format 0.0.4
/// (https://prometheus.io/docs/instrumenting/exposition_formats/). Nine samples each; only the first metric
/// has HELP and TYPE. Numbers have six significant digits.
[[nodiscard]] QString metricsText(const QList<Pipeline *> &pipelines);

} // namespace corvane
