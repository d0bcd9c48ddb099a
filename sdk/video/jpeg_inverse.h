// The inverse transform of JPEG: a block's samples from its coefficients.
#ifndef SDK_VIDEO_JPEG_INVERSE_H
#define SDK_VIDEO_JPEG_INVERSE_H

#include <array>
#include <cstdint>

#include "sdk/video/jpeg_tables.h"

namespace sim::jpeg {

// Dequantised coefficients row by row, each below 2^20 in magnitude; `last` is the place in
// zigzag order behind which all are 0. `out` is the upper left one of 8 x 8 samples in rows
// of `stride`. The result is the exact one (T.81, A.3.3) rounded, at most one off by that.
void inverse_transform(const std::array<int32_t, COEFFICIENTS>& block, int last, uint8_t* out,
                       int stride);

}  // namespace sim::jpeg

#endif  // SDK_VIDEO_JPEG_INVERSE_H
