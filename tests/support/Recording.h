#pragma once

#include <QString>

namespace corvane::test {

/// Result of ffprobe for a file that a receiver has recorded.
struct Recording
{
    QString videoCodec;    ///< as ffmpeg names it; empty: no video
    QString audioCodec;    ///< the same for sound
    double seconds = 0;    ///< from the first picture to the last
    double largestGap = 0; ///< seconds between two pictures that follow each other
    QString error;         ///< reason for the lack of a result
};

/// Reads the whole file: one that is still growing gives what it holds so far.
[[nodiscard]] Recording inspectRecording(const QString &path);

} // namespace corvane::test
