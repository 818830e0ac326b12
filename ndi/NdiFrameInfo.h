#pragma once

namespace corvane {

/// Format of a source's frames. A fresh record stands for a source without a frame so far.
struct NdiFrameInfo
{
    int width = 0;  ///< pixels
    int height = 0; ///< pixels
    int frameRateN = 30;
    int frameRateD = 1; ///< 0 counts as a rate of 30
    bool valid = false;
};

} // namespace corvane
