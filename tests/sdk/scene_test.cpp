// What the cameras see, dot by dot: patterns, texts and the block code. How it is coded is not
// looked at.
#include "sdk/video/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "sdk/board/rate_control.h"

namespace {

using namespace sim;
using Lines = std::vector<std::string>;

Scene scene_of(Pattern pattern, uint8_t channel = 0, PictureSize size = {352, 288}) {
    Scene scene;
    scene.pattern = pattern;
    scene.channel = channel;
    scene.size = size;
    return scene;
}

Cells drawn(const Scene& scene) {
    Cells cells;
    draw_pattern(scene, cells);
    return cells;
}

bool same(const Cells& a, const Cells& b) { return a.y == b.y && a.u == b.u && a.v == b.v; }

// A luma cell.
int luma(const Cells& cells, int x, int y) {
    return cells.y[static_cast<size_t>(4 * cells.mb_columns * y + x)];
}

std::vector<Pattern> patterns() {
    std::vector<Pattern> all;
    for (int i = 0; i < PATTERNS; ++i) all.push_back(static_cast<Pattern>(i));
    return all;
}

TEST(Scene, CoversWholeMacroblocksAndKeepsToTheNarrowRange) {
    for (const Pattern pattern : patterns()) {
        const Cells cells = drawn(scene_of(pattern, 3, {720, 120}));
        EXPECT_EQ(cells.mb_columns, 45);
        EXPECT_EQ(cells.mb_rows, 8);
        ASSERT_EQ(cells.y.size(), 45U * 8 * 16);
        ASSERT_EQ(cells.u.size(), 45U * 8 * 4);
        ASSERT_EQ(cells.v.size(), 45U * 8 * 4);
        for (const uint8_t y : cells.y) ASSERT_TRUE(y >= 16 && y <= 235);
        for (const uint8_t u : cells.u) ASSERT_TRUE(u >= 16 && u <= 240);
        for (const uint8_t v : cells.v) ASSERT_TRUE(v >= 16 && v <= 240);
    }
}

TEST(Scene, EveryChannelLooksDifferent) {
    for (const Pattern pattern : patterns()) {
        if (pattern == Pattern::black) continue;
        std::vector<Cells> channels;
        for (uint8_t ch = 0; ch < 16; ++ch) channels.push_back(drawn(scene_of(pattern, ch)));
        for (size_t a = 0; a < channels.size(); ++a)
            for (size_t b = 0; b < a; ++b)
                EXPECT_FALSE(same(channels[a], channels[b]))
                    << static_cast<int>(pattern) << ": " << a << " " << b;
    }
}

TEST(Scene, EveryPatternLooksDifferent) {
    for (const Pattern a : patterns())
        for (const Pattern b : patterns())
            EXPECT_EQ(same(drawn(scene_of(a, 3)), drawn(scene_of(b, 3))), a == b);
}

// Y, U and V of 75 % bars, as tables of ITU-R BT.601 colours have them.
TEST(Scene, HasTheColoursOfBars) {
    const int expected[7][3] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                                {84, 184, 198},  {65, 100, 212}, {35, 212, 114}};
    for (const uint8_t first : {uint8_t{0}, uint8_t{2}}) {
        const Cells cells = drawn(scene_of(Pattern::bars, first, {704, 480}));
        for (int bar = 0; bar < 7; ++bar) {
            const int* const colour = expected[(bar + first) % 7];
            const int x = (704 * bar / 7 + 50) / 8;  // of chroma cells: the middle of the bar
            for (const int y : {0, 20, 44}) {        // 45 of 60 are bars
                const auto chroma = static_cast<size_t>(2 * cells.mb_columns * y + x);
                EXPECT_NEAR(luma(cells, 2 * x, 2 * y), colour[0], 1) << bar;
                EXPECT_NEAR(cells.u[chroma], colour[1], 1) << bar;
                EXPECT_NEAR(cells.v[chroma], colour[2], 1) << bar;
            }
        }
        const int below = luma(cells, 0, 2 * 45);
        for (int x = 0; x < 176; ++x) EXPECT_EQ(luma(cells, x, 119), below);
    }
}

TEST(Scene, BlackIsBlackAndPlainPatternsHaveOneColour) {
    const Cells black = drawn(scene_of(Pattern::black, 5));
    EXPECT_EQ(std::count(black.y.begin(), black.y.end(), 16),
              static_cast<ptrdiff_t>(black.y.size()));
    for (const Pattern pattern : {Pattern::black, Pattern::solid, Pattern::moving_bar}) {
        const Cells cells = drawn(scene_of(pattern, 5));
        EXPECT_EQ(std::set<uint8_t>(cells.y.begin(), cells.y.end()).size(), 1U);
        EXPECT_EQ(std::set<uint8_t>(cells.u.begin(), cells.u.end()).size(), 1U);
        EXPECT_EQ(std::set<uint8_t>(cells.v.begin(), cells.v.end()).size(), 1U);
        if (pattern != Pattern::black) continue;
        EXPECT_EQ(cells.u[0], 128);
        EXPECT_EQ(cells.v[0], 128);
    }
}

// Channel n: squares of 16, 24, 32 or 40 samples, 4 to 10 cells.
TEST(Scene, CheckerboardsHaveSquares) {
    for (uint8_t ch = 0; ch < 8; ++ch) {
        const Cells cells = drawn(scene_of(Pattern::checkerboard, ch));
        const int side = 4 + 2 * (ch % 4);
        const int light = luma(cells, 0, 0), dark = luma(cells, side, 0);
        EXPECT_GT(light, dark + 30);
        for (int y = 0; y < 72; ++y)
            for (int x = 0; x < 88; ++x)
                ASSERT_EQ(luma(cells, x, y), (x / side + y / side) % 2 == 0 ? light : dark) << ch;
    }
}

TEST(Scene, GradientsRiseInTheirDirection) {
    // To the right and down, for channels 0 to 3.
    const int directions[4][2] = {{1, 0}, {0, 1}, {1, 1}, {1, -1}};
    for (uint8_t ch = 0; ch < 4; ++ch) {
        const Cells cells = drawn(scene_of(Pattern::gradient, ch));
        const int right = directions[ch][0], down = directions[ch][1];
        for (int y = 1; y < 72; ++y) {
            for (int x = 1; x < 88; ++x) {
                EXPECT_GE((luma(cells, x, y) - luma(cells, x - 1, y)) * (right != 0 ? right : 1),
                          0);
                EXPECT_GE((luma(cells, x, y) - luma(cells, x, y - 1)) * (down != 0 ? down : 1), 0);
                if (right == 0) EXPECT_EQ(luma(cells, x, y), luma(cells, x - 1, y));
                if (down == 0) EXPECT_EQ(luma(cells, x, y), luma(cells, x, y - 1));
            }
        }
        const int from_y = down < 0 ? 71 : 0;
        EXPECT_GT(luma(cells, 87, 71 - from_y), luma(cells, 0, from_y) + 150);
    }
}

// The same at the same distance from the middle, whichever the direction.
TEST(Scene, ZonePlatesAreRound) {
    const Cells cells = drawn(scene_of(Pattern::zone_plate, 2));
    const auto at = [&](int x, int y) { return luma(cells, 44 + x, 36 + y); };
    for (int y = 0; y < 36; ++y)
        for (int x = 0; x < 44; ++x) {
            EXPECT_EQ(at(-x, y), at(x, y));
            EXPECT_EQ(at(x, -y), at(x, y));
        }
    EXPECT_EQ(at(15, 20), at(25, 0));  // 15 and 20 squared are 25 squared
    EXPECT_EQ(at(7, 24), at(0, 25));
    EXPECT_GT(std::set<uint8_t>(cells.y.begin(), cells.y.end()).size(), 50U);
}

TEST(Scene, NoiseIsOfTheSeedAlone) {
    Scene scene = scene_of(Pattern::noise, 1);
    const Cells one = drawn(scene);
    EXPECT_TRUE(same(one, drawn(scene)));
    EXPECT_GT(std::set<uint8_t>(one.y.begin(), one.y.end()).size(), 150U);
    scene.seed = 2;
    EXPECT_FALSE(same(one, drawn(scene)));
}

TEST(Scene, TheBarGoesDownEveryOtherFrameAndBeginsAgain) {
    const Scene scene = scene_of(Pattern::moving_bar, 0, {176, 120});  // 8 rows, the last one cut
    const int rows[] = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 0, 0, 1};
    for (uint32_t n = 0; n < std::size(rows); ++n) EXPECT_EQ(bar_row(scene, n), rows[n]) << n;
    EXPECT_EQ(bar_row(scene, UINT32_MAX), 7);
    for (const Pattern pattern : patterns())
        EXPECT_EQ(bar_row(scene_of(pattern), 4), pattern == Pattern::moving_bar ? 2 : -1);
}

// Texts, and the block code of every size.

Scene text_scene(Text text, PictureSize size = {176, 120}) {
    Scene scene = scene_of(Pattern::black, 7, size);
    scene.text = text;
    return scene;
}

std::vector<Overlay::Mask> masks_of(const Scene& scene, uint32_t number) {
    const Overlay overlay(scene);
    std::vector<Overlay::Mask> masks(static_cast<size_t>(overlay.size()));
    overlay.draw(number, masks.data());
    return masks;
}

// The rows of texts, '#' for a light cell, without spaces at the end of lines.
Lines text_of(const Scene& scene, uint32_t number) {
    const std::vector<Overlay::Mask> masks = masks_of(scene, number);
    const size_t rows = (masks.size() - 16) / 11;
    Lines lines(4 * rows);
    for (size_t y = 0; y < lines.size(); ++y) {
        for (size_t x = 0; x < 44; ++x) {
            const size_t cell = 4 * (y % 4) + x % 4;
            lines[y] += (masks[y / 4 * 11 + x / 4] >> cell & 1) != 0 ? '#' : ' ';
        }
        lines[y].erase(lines[y].find_last_not_of(' ') + 1);
    }
    return lines;
}

// By bits: row r, column c of a macroblock is bit 4 r + c. The upper line begins one cell down.
TEST(Overlay, HasTheDotsOfNoughtAndColon) {
    const std::vector<Overlay::Mask> masks = masks_of(text_scene(Text::counters), 0);
    ASSERT_EQ(masks.size(), 3U * 11 + 2 * 8);
    for (size_t column = 0; column < 10; ++column) EXPECT_EQ(masks[column], 0x5570) << column;
    EXPECT_EQ(masks[10], 0);            // the number has ten digits
    EXPECT_EQ(masks[11], 0x7075);       // the end of a nought, the start of the one below
    EXPECT_EQ(masks[11 + 2], 0x0075);   // a colon begins with an empty row
    EXPECT_EQ(masks[11 + 10], 0x7000);  // under no digit
    EXPECT_EQ(masks[22], 0x7555);
    EXPECT_EQ(masks[22 + 2], 0x0202);
}

// 1234567890 frames at 30 a second are 11431 hours, 11 minutes, 3 seconds.
TEST(Overlay, WritesTheNumberAndTheTimecode) {
    EXPECT_EQ(text_of(text_scene(Text::counters), 1'234'567'890),
              (Lines{
                  "",
                  " #  ### ### # # ### ### ### ### ### ###",
                  "##    #   # # # #   #     # # # # # # #",
                  " #  ### ### ### ### ###   # ### ### # #",
                  " #  #     #   #   # # #   # # #   # # #",
                  "### ### ###   # ### ###   # ### ### ###",
                  "",
                  "###  #       #   #      ### ###     ### ###",
                  "  # ##   #  ##  ##   #  # #   #  #  # # # #",
                  "###  #       #   #      # # ###     # # # #",
                  "  #  #   #   #   #   #  # #   #  #  # # # #",
                  "### ###     ### ###     ### ###     ### ###",
              }));
}

TEST(Overlay, WritesTheChannelAndTheStreamAboveThem) {
    const auto label = [](uint8_t stream, uint8_t channel) {
        Scene scene = text_scene(Text::full);
        scene.stream = stream;
        scene.channel = channel;
        Lines lines = text_of(scene, 0);
        EXPECT_EQ(lines.size(), 20U);
        EXPECT_EQ(lines[6], "");
        EXPECT_EQ(lines[7].substr(0, 12), "### ### ### ");  // the number begins
        return Lines(lines.begin() + 1, lines.begin() + 6);
    };
    EXPECT_EQ(label(0, 0), (Lines{
                               "### # # ###  #      # #  #  ### ###",
                               "#   # # # # ##      ### # #  #  # #",
                               "#   ### # #  #      ### ###  #  # #",
                               "#   # # # #  #      # # # #  #  # #",
                               "### # # ### ###     # # # # ### # #",
                           }));
    EXPECT_EQ(label(2, 15), (Lines{
                                "### # #  #  ###       # ### ### ###",
                                "#   # # ##  #         # # # #   #",
                                "#   ###  #  ###       # ### ### # #",
                                "#   # #  #  # #     # # #   #   # #",
                                "### # # ### ###     ### #   ### ###",
                            }));
    std::set<Lines> all;
    for (uint8_t stream = 0; stream < 6; ++stream)
        for (uint8_t channel = 0; channel < 16; ++channel) all.insert(label(stream, channel));
    EXPECT_EQ(all.size(), 96U);
}

TEST(Overlay, CountsSecondsWithTheRate) {
    Scene scene = text_scene(Text::counters);
    const auto timecode = [&](uint32_t number) {
        const Lines lines = text_of(scene, number);
        return Lines(lines.begin() + 7, lines.end());
    };
    const Lines start = timecode(0);
    EXPECT_NE(timecode(29), start);
    scene.rate = 1;
    const Lines a_second = timecode(1);
    scene.rate = 25;
    EXPECT_EQ(timecode(25), a_second);
    EXPECT_EQ(timecode(100U * 3600 * 25), start);  // hours begin again at 100
    scene.rate = 0;                                // counts as 1
    EXPECT_EQ(timecode(1), a_second);
}

std::vector<PictureSize> sizes() {
    std::vector<PictureSize> all = {{1920, 1080}, {176, 112}};
    for (uint32_t resolution = 0; resolution < 16; ++resolution)
        for (const bool pal : {false, true}) all.push_back(picture_size(resolution, pal));
    return all;
}

TEST(Overlay, TakesElevenColumnsOfTextAndEightOfCode) {
    for (const PictureSize size : sizes()) {
        for (const auto& [text, rows] :
             {std::pair(Text::off, 0), std::pair(Text::counters, 3), std::pair(Text::full, 5)}) {
            const Overlay overlay(text_scene(text, size));
            const int code = size.height / 16 - 2;
            ASSERT_GE(code, rows) << size.height;  // they do not lie over each other
            int all = 0;
            for (int row = -1; row <= macroblocks(size.height); ++row) {
                const int wanted = row == code || row == code + 1 ? 8 : 0;
                EXPECT_EQ(overlay.columns(row), row >= 0 && row < rows ? 11 : wanted)
                    << size.width << " x " << size.height << ": " << row;
                all += overlay.columns(row);
            }
            EXPECT_EQ(overlay.size(), all);
            EXPECT_LE(all, Overlay::MOST);
            EXPECT_GE(size.width, 11 * 16);
        }
    }
}

TEST(Overlay, IsNotThereInSmallPictures) {
    for (const PictureSize size : {PictureSize{160, 120}, PictureSize{176, 96}}) {
        const Overlay overlay(text_scene(Text::full, size));
        EXPECT_EQ(overlay.size(), 0);
        for (int row = 0; row < 8; ++row) EXPECT_EQ(overlay.columns(row), 0);
    }
    EXPECT_EQ(Overlay().size(), 0);
}

// CRC-16/CCITT-FALSE, bit by bit.
uint16_t crc_of(const std::string& bytes) {
    uint32_t crc = 0xFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<uint32_t>(static_cast<uint8_t>(byte)) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) != 0 ? (crc << 1 ^ 0x1021) & 0xFFFF : crc << 1;
    }
    return static_cast<uint16_t>(crc);
}

TEST(BlockCode, EndsInItsCrc) {
    ASSERT_EQ(crc_of("123456789"), 0x29B1);  // the published check value
    for (uint32_t i = 0; i < 96; ++i) {
        // Numbers in which every bit is met.
        const BlockCode code = {static_cast<uint8_t>(i % 6), static_cast<uint8_t>(i / 6),
                                i * 44'739'242 + 5};
        std::string six(6, '\0');
        six[0] = static_cast<char>(code.stream << 5 | code.channel);
        for (int byte = 0; byte < 4; ++byte)
            six[static_cast<size_t>(1 + byte)] = static_cast<char>(code.number >> (24 - 8 * byte));
        uint64_t bits = 0;
        for (const char byte : six) bits = bits << 8 | static_cast<uint8_t>(byte);
        EXPECT_EQ(block_code_bits(code), bits << 16 | crc_of(six));
    }
}

// The checksums were worked out apart from this.
TEST(BlockCode, HasTheBitsOfItsNames) {
    EXPECT_EQ(block_code_bits({0, 0, 0}), 0x00000000'00000E10U);
    EXPECT_EQ(block_code_bits({5, 15, 0xFFFFFFFF}), 0xAFFFFFFF'FF00F7ABU);
    EXPECT_EQ(block_code_bits({2, 9, 1'234'567'890}), 0x49499602'D20069D5U);
}

// Squares of 8 x 8 samples at the left, from line `top` on.
Picture with_squares(PictureSize size, int top, uint64_t bits, uint8_t ground) {
    Picture picture;
    picture.resize(size);
    std::fill(picture.y.begin(), picture.y.end(), ground);
    for (int square = 0; square < 64; ++square)
        for (int y = 0; y < 8; ++y)
            std::fill_n(
                picture.y.begin() + (top + square / 16 * 8 + y) * size.width + square % 16 * 8, 8,
                (bits >> (63 - square) & 1) != 0 ? uint8_t{208} : uint8_t{16});
    return picture;
}

TEST(BlockCode, StandsInTheLowestTwoWholeRowsOfMacroblocks) {
    // Size, first line.
    const int rows[][3] = {{176, 120, 80}, {352, 288, 256}, {704, 480, 448}, {1920, 1080, 1040}};
    for (const auto& [width, height, top] : rows) {
        BlockCode code;
        const Picture picture = with_squares({width, height}, top, 0x49499602'D20069D5U, 120);
        EXPECT_EQ(read_block_code(picture, code), CodeFound::valid) << height;
        EXPECT_EQ(code, (BlockCode{2, 9, 1'234'567'890}));
        const Picture below = with_squares({width, height}, top - 8, 0x49499602'D20069D5U, 120);
        EXPECT_EQ(read_block_code(below, code), CodeFound::none);
    }
}

TEST(BlockCode, IsDrawnWhereItIsRead) {
    Scene scene = text_scene(Text::off);
    scene.channel = 9;
    scene.stream = 2;
    const std::vector<Overlay::Mask> masks = masks_of(scene, 1'234'567'890);
    ASSERT_EQ(masks.size(), 16U);
    uint64_t bits = 0;
    for (size_t square = 0; square < 64; ++square) {
        const size_t row = square / 16, column = square % 16;
        const auto mask = masks[row / 2 * 8 + column / 2];
        const uint32_t cells = mask >> (row % 2 * 8 + column % 2 * 2) & 0x33U;
        ASSERT_TRUE(cells == 0 || cells == 0x33);
        bits = bits << 1 | (cells != 0 ? 1 : 0);
    }
    EXPECT_EQ(bits, 0x49499602'D20069D5U);
}

TEST(BlockCode, OneWrongSquareIsNoCode) {
    for (int square = 0; square < 64; ++square) {
        BlockCode code;
        const uint64_t bits = 0x49499602'D20069D5U ^ uint64_t { 1 } << square;
        EXPECT_EQ(read_block_code(with_squares({176, 120}, 80, bits, 16), code), CodeFound::none)
            << square;
    }
}

TEST(BlockCode, DarkSquaresAreBlankAndOthersNone) {
    BlockCode code;
    EXPECT_EQ(read_block_code(with_squares({176, 120}, 80, 0, 208), code), CodeFound::blank);
    EXPECT_EQ(read_block_code(with_squares({176, 120}, 80, ~uint64_t{0}, 16), code),
              CodeFound::none);
    // The checksum of 0xFF in the byte that is to be 0 holds: 00 00 00 00 00 FF.
    const uint64_t filled = uint64_t{0xFF} << 16 | crc_of(std::string(5, '\0') + '\xFF');
    EXPECT_EQ(read_block_code(with_squares({176, 120}, 80, filled, 16), code), CodeFound::none);
}

TEST(BlockCode, PicturesWithoutRoomHaveNone) {
    BlockCode code;
    for (const PictureSize size :
         {PictureSize{0, 0}, PictureSize{112, 96}, PictureSize{352, 30}, PictureSize{2, 2}}) {
        Picture picture;
        picture.resize(size);
        EXPECT_EQ(read_block_code(picture, code), CodeFound::none);
    }
}

// Coded pictures differ a little from what was drawn.
TEST(BlockCode, IsReadFromPicturesThatAreNotExact) {
    Picture picture = with_squares({176, 120}, 80, 0x49499602'D20069D5U, 120);
    for (size_t i = 0; i < picture.y.size(); ++i)
        picture.y[i] = static_cast<uint8_t>(picture.y[i] + static_cast<int>(i * 37 % 101) - 16);
    BlockCode code;
    EXPECT_EQ(read_block_code(picture, code), CodeFound::none);
    picture = with_squares({176, 120}, 80, 0x49499602'D20069D5U, 120);
    for (size_t i = 0; i < picture.y.size(); ++i)
        picture.y[i] = static_cast<uint8_t>(picture.y[i] + static_cast<int>(i * 37 % 33) - 16);
    EXPECT_EQ(read_block_code(picture, code), CodeFound::valid);
    EXPECT_EQ(code.number, 1'234'567'890U);
}

}  // namespace
