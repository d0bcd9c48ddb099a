// What a decoder makes of DC levels (ITU-T H.264, 8.5.10 to 8.5.14, flat scaling). Where there is
// nothing but a DC coefficient, all 16 samples of its block change by the same value.
#ifndef SDK_VIDEO_H264_REBUILD_H
#define SDK_VIDEO_H264_REBUILD_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace sim {

inline constexpr int MOST_QP = 51;

// Where luma levels belong, in rows of 4: figure 8-8, the frame scan.
inline constexpr std::array<size_t, 16> LUMA_DC_SCAN = {0, 1,  4,  8,  5, 2,  3,  6,
                                                        9, 12, 13, 10, 7, 11, 14, 15};

// Levels in scan order become what is added to the samples of each 4 x 4 block, blocks row by row.
// False when a coefficient has more than 16 bits. `qp` is that of luma in both.
bool rebuild_luma_dc(std::array<int, 16>& levels, int qp);
bool rebuild_chroma_dc(std::array<int, 4>& levels, int qp);

// The quantiser of chroma for that of luma, 0..51 (table 8-15; chroma_qp_index_offset is 0).
int chroma_qp(int qp);
// The transform of luma DC coefficients, 4 x 4; its own inverse but for a factor of 16.
void hadamard(std::array<int, 16>& values);
// The same of chroma, 2 x 2, with a factor of 4.
void hadamard(std::array<int, 4>& values);

inline uint8_t add_dc(int predicted, int change) {
    return static_cast<uint8_t>(std::clamp(predicted + change, 0, 255));
}

}  // namespace sim

#endif  // SDK_VIDEO_H264_REBUILD_H
