// What is written over pictures, dot by dot: texts and the block code. How it is coded is not
// looked at.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sdk/board/rate_control.h"
#include "sdk/video/scene.h"

namespace {

using namespace sim;
using Lines = std::vector<std::string>;

Scene text_scene(Text text, PictureSize size = {176, 120}) {
    Scene scene;
    scene.pattern = Pattern::black;
    scene.channel = 7;
    scene.size = size;
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
         {PictureSize{0, 0}, PictureSize{174, 112}, PictureSize{352, 110}, PictureSize{2, 2}}) {
        Picture picture;
        picture.resize(size);
        EXPECT_EQ(read_block_code(picture, code), CodeFound::none);
    }
}

// Coded pictures differ from what was drawn, most at the edges of squares.
TEST(BlockCode, IsReadFromPicturesThatAreNotExact) {
    Picture picture = with_squares({176, 120}, 80, 0x49499602'D20069D5U, 120);
    for (size_t i = 0; i < picture.y.size(); ++i)
        picture.y[i] = static_cast<uint8_t>(picture.y[i] + static_cast<int>(i * 37 % 33) - 16);
    BlockCode code;
    EXPECT_EQ(read_block_code(picture, code), CodeFound::valid);
    EXPECT_EQ(code.number, 1'234'567'890U);
    for (size_t y = 80; y < 112; ++y)
        for (size_t x = 0; x < 128; ++x) {
            const bool inside = y % 8 >= 2 && y % 8 < 6 && x % 8 >= 2 && x % 8 < 6;
            if (!inside) picture.y[176 * y + x] = y % 16 < 8 ? 16 : 208;
        }
    code = {};
    EXPECT_EQ(read_block_code(picture, code), CodeFound::valid);
    EXPECT_EQ(code.number, 1'234'567'890U);
}

}  // namespace
