// What the camera of a channel sees, and what is written over it. Both encoders draw from here.
#ifndef SDK_VIDEO_SCENE_H
#define SDK_VIDEO_SCENE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "sdk/video/picture.h"

namespace sim {

enum class Pattern : uint8_t {
    bars,        // colour bars, 75 %
    moving_bar,  // a light bar that goes down over a still ground
    checkerboard,
    gradient,
    zone_plate,
    noise,  // seeded, still
    black,  // the camera gives no picture
    solid,  // one colour
};
inline constexpr int PATTERNS = 8;

enum class Text : uint8_t {
    off,
    counters,  // frame number, timecode
    full,      // above them the channel and the stream
};

struct Scene {
    Pattern pattern = Pattern::bars;
    Text text = Text::full;
    uint8_t stream = 0;   // QMCODEC_STREAM
    uint8_t channel = 0;  // 0..15; colours and phases differ from channel to channel
    uint64_t seed = 1;    // of noise
    PictureSize size;
    uint32_t rate = 30;  // frames a second, of the timecode; 0 counts as 1
    bool operator==(const Scene&) const = default;
};

// A picture in cells of one value each: luma cells of 4 x 4 samples, chroma cells of 4 x 4 chroma
// samples (8 x 8 luma samples). It covers whole macroblocks, also beyond the picture's edges.
struct Cells {
    int mb_columns = 0;
    int mb_rows = 0;
    std::vector<uint8_t> y;     // 4 * mb_columns a row, 4 * mb_rows rows
    std::vector<uint8_t> u, v;  // 2 * mb_columns a row, 2 * mb_rows rows

    void resize(PictureSize size);  // to the macroblocks that cover it
};

// The pattern alone: no bar, no text. A function of the scene, nothing else.
void draw_pattern(const Scene& scene, Cells& out);

// The macroblock row of the bar of Pattern::moving_bar in frame `number`; -1 for other patterns.
int bar_row(const Scene& scene, uint32_t number);
// The bar: every luma cell of its macroblocks; they have no colour.
inline constexpr uint8_t BAR_LUMA = 208;

// The macroblocks that texts and the block code take, always at the left edge of the picture. Each
// is 4 x 4 luma cells, INK_LUMA or BLACK_LUMA, without colour.
inline constexpr uint8_t INK_LUMA = 208;
// Smaller pictures have none.
inline bool has_overlay(PictureSize size) { return size.width >= 176 && size.height >= 112; }
class Overlay {
  public:
    // A macroblock: bit 4 * row + column is set where the cell is INK_LUMA.
    using Mask = uint16_t;
    static constexpr int MOST_COLUMNS = 11;
    static constexpr int MOST_ROWS = 7;  // 5 of text, 2 of block code

    explicit Overlay(const Scene& scene);
    Overlay() = default;

    // Macroblocks from column 0 on that macroblock row `row` of the picture gives to the overlay:
    // 0, 8 or 11.
    int columns(int row) const;
    // All masks of frame `number`, in raster order, size() of them. Allocates nothing.
    void draw(uint32_t number, Mask* out) const;
    int size() const { return m_size; }
    static constexpr int MOST = MOST_COLUMNS * MOST_ROWS;

  private:
    Scene m_scene;
    int m_text_rows = 0;  // macroblock rows from the top
    int m_code_row = -1;  // the upper of two macroblock rows
    int m_size = 0;
};

// The block code, in the lowest two whole macroblock rows at the left: 16 x 4 squares of 8 x 8
// samples, INK_LUMA for 1. From the upper left, row by row, highest bit first: stream (3 bits),
// channel (5), frame number (32), 8 bits of 0, CRC-16/CCITT-FALSE of the six bytes before (16).
// Exactly 64 squares.
struct BlockCode {
    uint8_t stream = 0;
    uint8_t channel = 0;
    uint32_t number = 0;
    bool operator==(const BlockCode&) const = default;
};
uint64_t block_code_bits(const BlockCode& code);
// The squares of a decoded picture as they are, in the order of the code, a light one as 1. None
// when the picture has no overlay.
std::optional<uint64_t> light_squares(const Picture& picture);
enum class CodeFound {
    valid,
    blank,  // all squares are dark: a privacy zone covers it
    none,   // squares that are no code: a zone covers a part, or it is not ours
};
// Reads the code from a decoded picture.
CodeFound read_block_code(const Picture& picture, BlockCode& out);

}  // namespace sim

#endif  // SDK_VIDEO_SCENE_H
