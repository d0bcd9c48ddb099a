// What an Intra 16x16 macroblock with DC prediction is made from: the edges of its neighbours
// (ITU-T H.264, 8.3.3 and 8.3.4), in a picture whose 4 x 4 squares of samples have one value each.
#ifndef SDK_VIDEO_H264_PREDICT_H
#define SDK_VIDEO_H264_PREDICT_H

#include <array>
#include <cstdint>

namespace sim {

// A macroblock, one value for each 4 x 4 samples, row by row.
struct FlatBlocks {
    std::array<uint8_t, 16> y;
    std::array<uint8_t, 4> u, v;
    bool operator==(const FlatBlocks&) const = default;
};

// All samples of a macroblock, row by row.
struct MacroblockSamples {
    std::array<uint8_t, 256> y;
    std::array<uint8_t, 64> u, v;
    bool operator==(const MacroblockSamples&) const = default;
};

// Sums of the samples along an edge: of luma all 16, of chroma each half.
struct Edge {
    int y = 0;
    std::array<int, 2> u{}, v{};
};
struct Edges {
    Edge right, bottom;
};
Edges edges_of(const FlatBlocks& blocks);
// `y`, `u` and `v` as those of MacroblockSamples.
Edges edges_of(const uint8_t* y, const uint8_t* u, const uint8_t* v);

// What is predicted: of luma for all samples, of chroma for each 4 x 4.
struct Prediction {
    int y;
    std::array<int, 4> u, v;
};
// `left` is the right edge of the left neighbour, `above` the bottom edge of the one above; null
// where there is none to predict from.
Prediction predict_dc(const Edge* left, const Edge* above);

}  // namespace sim

#endif  // SDK_VIDEO_H264_PREDICT_H
