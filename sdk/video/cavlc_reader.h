// Reads transform coefficient levels (ITU-T H.264, 9.2): only of the blocks that h264_writer
// writes, which hold DC coefficients. Writing is in cavlc.
#ifndef SDK_VIDEO_CAVLC_READER_H
#define SDK_VIDEO_CAVLC_READER_H

#include <array>

#include "sdk/video/bit_reader.h"

namespace sim {

// The levels in scan order. False when the bits are no block, or there are not enough of them.
// `beside_pcm`: a neighbour is I_PCM, which counts as 16 coefficients; all others count as none.
bool read_luma_dc(BitReader& bits, bool beside_pcm, std::array<int, 16>& levels);
bool read_chroma_dc(BitReader& bits, std::array<int, 4>& levels);

}  // namespace sim

#endif  // SDK_VIDEO_CAVLC_READER_H
