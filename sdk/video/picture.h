// Pictures: their sizes, and the samples of one.
#ifndef SDK_VIDEO_PICTURE_H
#define SDK_VIDEO_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

// Luma samples.
struct PictureSize {
    int width = 0;
    int height = 0;
    bool operator==(const PictureSize&) const = default;
};

// What the readers decode. Larger ones are refused before anything is allocated for them.
inline constexpr PictureSize LARGEST_PICTURE = {1920, 1088};

// 4:2:0 (ITU-T H.264, figure 6-1): `y` is width x height, `u` and `v` are half of it in both
// directions, row by row from the top. Width and height are even.
struct Picture {
    PictureSize size;
    std::vector<uint8_t> y, u, v;

    void resize(PictureSize to) {
        size = to;
        const size_t samples = static_cast<size_t>(to.width) * static_cast<size_t>(to.height);
        y.resize(samples);
        u.resize(samples / 4);
        v.resize(samples / 4);
    }
};

// A rectangle that the encoder blanks out, in luma samples. It may reach over the picture's edges.
struct PrivateZone {
    bool enabled = false;
    uint16_t start_x = 0, start_y = 0, width = 0, height = 0;
    bool operator==(const PrivateZone&) const = default;
};

// What is blanked out, and the ground of texts.
inline constexpr uint8_t BLACK_LUMA = 16;
inline constexpr uint8_t NO_COLOUR = 128;

inline constexpr int MACROBLOCK = 16;  // luma samples of its side

// Macroblocks that cover `samples`.
inline int macroblocks(int samples) { return (samples + MACROBLOCK - 1) / MACROBLOCK; }

}  // namespace sim

#endif  // SDK_VIDEO_PICTURE_H
