#pragma once

#include "engine/model/PipelineConfig.h"

#include <QList>

/// The list of pipelines in the application's settings: the array "pipelines" of a default-constructed
/// QSettings.
///
/// Deliberately small: identity, source, bit rate and encoder family. Outputs are not stored, so no stream
/// key and no passphrase ever reaches the settings. Failures of the store are not looked at: one that can't
/// be read is an empty one.
namespace corvane::PipelineStore {

/// One record per row, in order, with defaults for what isn't stored. No row is refused: a missing key reads
/// as its default, a number that isn't one as 0.
[[nodiscard]] QList<PipelineConfig> load();

/// Writes the whole array, one row per record in order; what it wrote has reached the store when it returns.
/// Rows behind the new size stay as leftovers that no load reads.
void save(const QList<PipelineConfig> &configs);

} // namespace corvane::PipelineStore
