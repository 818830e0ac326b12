#pragma once

#include "engine/model/PipelineConfig.h"

#include <QList>

/// The list of pipelines in the application's settings: the array "pipelines" of a default-constructed
/// QSettings.
///
/// Deliberately small: identity, source, bit rate and encoder family. Outputs are not stored, so their stream
/// keys and passphrases never reach the settings; a source's address is stored as it stands, with whatever
/// passphrase it holds. Failures of the store are ignored: one that can't be read is an empty one.
namespace corvane::PipelineStore {

/// One record per row, in order, with defaults for the fields that aren't stored. No row is refused: a
/// missing key reads as its default, a text that is no number as 0.
[[nodiscard]] QList<PipelineConfig> load();

/// Writes the whole array, one row per record in order, and returns when the store has it. Rows behind the
/// new size stay as leftovers that no load reads.
void save(const QList<PipelineConfig> &configs);

} // namespace corvane::PipelineStore
