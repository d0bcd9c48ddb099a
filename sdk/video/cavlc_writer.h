// Writes the DC levels of a macroblock (ITU-T H.264, 9.2). No AC: h264_writer has none.
#ifndef SDK_VIDEO_CAVLC_WRITER_H
#define SDK_VIDEO_CAVLC_WRITER_H

#include <array>

#include "sdk/video/bit_writer.h"

namespace sim {

// Of levels up to 2000 the codes are short enough for the baseline profile, wherever they stand.
inline constexpr int MOST_LEVEL = 2000;

// Levels in scan order. `beside_pcm`: nC is 8 or more, else it is 0.
void write_luma_dc(BitWriter& bits, bool beside_pcm, const std::array<int, 16>& levels);
void write_chroma_dc(BitWriter& bits, const std::array<int, 4>& levels);

}  // namespace sim

#endif  // SDK_VIDEO_CAVLC_WRITER_H
