// The patterns. Texts and the block code stand in overlay and block_code.
#include "sdk/video/scene.h"

#include <algorithm>

#include "sdk/video/mix.h"

namespace sim {

namespace {

constexpr int CELLS = 4;         // of a macroblock's side, luma
constexpr int CHROMA_CELLS = 2;  // chroma
constexpr int FRAMES_A_BAR_ROW = 2;

struct Colour {
    int red, green, blue;  // 0..255
};

struct Value {
    uint8_t y, u, v;
};

// ITU-R BT.601, narrow range, in 256ths.
Value value_of(Colour c) {
    return {static_cast<uint8_t>(16 + ((66 * c.red + 129 * c.green + 25 * c.blue + 128) >> 8)),
            static_cast<uint8_t>(128 + ((-38 * c.red - 74 * c.green + 112 * c.blue + 128) >> 8)),
            static_cast<uint8_t>(128 + ((112 * c.red - 94 * c.green - 18 * c.blue + 128) >> 8))};
}

// The colour of a channel: the circle of hues in 16 steps, as bright as asked for (0..255).
Colour channel_colour(int channel, int brightness) {
    const int turn = channel % 16 * 6 * 16;  // of 1536: six sectors of 256
    const int sector = turn / 256;
    const int rising = turn % 256 * brightness / 256;
    const int falling = brightness - rising;
    switch (sector) {
        case 0: return {brightness, rising, 0};
        case 1: return {falling, brightness, 0};
        case 2: return {0, brightness, rising};
        case 3: return {0, falling, brightness};
        case 4: return {rising, 0, brightness};
        default: return {brightness, 0, falling};
    }
}

// One value for the 8 x 8 samples at chroma cell (x, y).
void fill(Cells& out, int x, int y, Value value) {
    const auto luma_row = static_cast<size_t>(CELLS * out.mb_columns);
    const size_t luma = static_cast<size_t>(2 * y) * luma_row + static_cast<size_t>(2 * x);
    out.y[luma] = out.y[luma + 1] = out.y[luma + luma_row] = out.y[luma + luma_row + 1] = value.y;
    const size_t chroma = static_cast<size_t>(y * CHROMA_CELLS * out.mb_columns + x);
    out.u[chroma] = value.u;
    out.v[chroma] = value.v;
}

// Chroma cells of the picture proper.
int across(const Scene& scene) { return std::max(scene.size.width / 8, 1); }
int down(const Scene& scene) { return std::max(scene.size.height / 8, 1); }

template <class ValueAt>
void fill_all(Cells& out, ValueAt value_at) {
    for (int y = 0; y < CHROMA_CELLS * out.mb_rows; ++y)
        for (int x = 0; x < CHROMA_CELLS * out.mb_columns; ++x) fill(out, x, y, value_at(x, y));
}

// The channel's colour everywhere, luma cell by cell.
template <class LumaAt>
void fill_luma(const Scene& scene, Cells& out, LumaAt luma_at) {
    const Value tint = value_of(channel_colour(scene.channel, 160));
    fill_all(out, [tint](int, int) { return tint; });
    size_t at = 0;
    for (int y = 0; y < CELLS * out.mb_rows; ++y)
        for (int x = 0; x < CELLS * out.mb_columns; ++x, ++at)
            out.y[at] = static_cast<uint8_t>(luma_at(x, y));
}

// White, yellow, cyan, green, magenta, red and blue, begun at another place for each channel; below
// them the channel's colour.
void draw_bars(const Scene& scene, Cells& out) {
    constexpr int FULL = 191;  // 75 %
    constexpr Colour BARS[] = {{FULL, FULL, FULL}, {FULL, FULL, 0}, {0, FULL, FULL}, {0, FULL, 0},
                               {FULL, 0, FULL},    {FULL, 0, 0},    {0, 0, FULL}};
    constexpr int COUNT = 7;
    const int width = across(scene), below = down(scene) * 3 / 4;
    const Value own = value_of(channel_colour(scene.channel, 220));
    fill_all(out, [&](int x, int y) {
        const int bar = std::min(x * COUNT / width, COUNT - 1);
        return y < below ? value_of(BARS[(bar + scene.channel) % COUNT]) : own;
    });
}

void draw_checkerboard(const Scene& scene, Cells& out) {
    const int side = 2 + scene.channel % 4;  // of a square, in 8 samples
    const Value light = value_of(channel_colour(scene.channel, 220));
    const Value dark = value_of(channel_colour(scene.channel + 8, 70));
    fill_all(out, [&](int x, int y) { return (x / side + y / side) % 2 == 0 ? light : dark; });
}

// Over the width, the height, and both diagonals.
void draw_gradient(const Scene& scene, Cells& out) {
    constexpr int LEAST = 32, RANGE = 188;
    const int width = 2 * across(scene), height = 2 * down(scene);
    fill_luma(scene, out, [&](int x, int y) {
        const int right = std::min(x, width - 1) * RANGE / width;
        const int low = std::min(y, height - 1) * RANGE / height;
        switch (scene.channel % 4) {
            case 0: return LEAST + right;
            case 1: return LEAST + low;
            case 2: return LEAST + (right + low) / 2;
            default: return LEAST + (right + RANGE - low) / 2;
        }
    });
}

// A wave of 256 steps a turn: two parabolas, -90..90.
int wave(int64_t phase) {
    const int step = static_cast<int>(phase & 127);
    const int height = 90 * step * (128 - step) / (64 * 64);
    return (phase & 128) == 0 ? height : -height;
}

// Rings that grow finer with their distance from the middle, down to three cells.
void draw_zone_plate(const Scene& scene, Cells& out) {
    const int middle_x = across(scene), middle_y = down(scene);
    fill_luma(scene, out, [&](int x, int y) {
        const int64_t dx = x - middle_x, dy = y - middle_y;
        const int64_t turned = (dx * dx + dy * dy) * 256 / (6 * int64_t{middle_x});
        return 128 + wave(turned + scene.channel * 16);
    });
}

void draw_noise(const Scene& scene, Cells& out) {
    uint64_t n = mix(scene.seed) ^ scene.channel;
    fill_luma(scene, out, [&n](int, int) { return 40 + static_cast<int>(mix(n++) % 170); });
}

void draw_plain(Cells& out, Value value) {
    fill_all(out, [value](int, int) { return value; });
}

}  // namespace

void Cells::resize(PictureSize size) {
    mb_columns = macroblocks(size.width);
    mb_rows = macroblocks(size.height);
    const auto count = static_cast<size_t>(mb_columns * mb_rows);
    y.resize(count * CELLS * CELLS);
    u.resize(count * CHROMA_CELLS * CHROMA_CELLS);
    v.resize(count * CHROMA_CELLS * CHROMA_CELLS);
}

void draw_pattern(const Scene& scene, Cells& out) {
    out.resize(scene.size);
    switch (scene.pattern) {
        case Pattern::bars: draw_bars(scene, out); break;
        case Pattern::moving_bar:
            draw_plain(out, value_of(channel_colour(scene.channel, 90)));
            break;
        case Pattern::checkerboard: draw_checkerboard(scene, out); break;
        case Pattern::gradient: draw_gradient(scene, out); break;
        case Pattern::zone_plate: draw_zone_plate(scene, out); break;
        case Pattern::noise: draw_noise(scene, out); break;
        case Pattern::black: draw_plain(out, {BLACK_LUMA, NO_COLOUR, NO_COLOUR}); break;
        case Pattern::solid: draw_plain(out, value_of(channel_colour(scene.channel, 200))); break;
    }
}

int bar_row(const Scene& scene, uint32_t number) {
    if (scene.pattern != Pattern::moving_bar) return -1;
    const auto rows = static_cast<uint32_t>(std::max(macroblocks(scene.size.height), 1));
    return static_cast<int>(number / FRAMES_A_BAR_ROW % rows);
}

}  // namespace sim
