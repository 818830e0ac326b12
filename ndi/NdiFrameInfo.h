#pragma once

namespace corvane {

/// Format of a source's frames. A fresh record is that of a source which has shown no frame.
struct NdiFrameInfo
{
    int width = 0;  ///< pixels
    int height = 0; ///< pixels
    int frameRateN = 30;
    int frameRateD = 1; ///< 0 counts as a rate of 30
    bool valid = false;
};

} // namespace corvane
