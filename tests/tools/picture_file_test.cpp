// Colours and picture files, worked out by hand from ITU-R BT.601, ISO/IEC 15948 and RFC 1950.
#include "tools/qmtool/picture_file.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Bytes = std::vector<uint8_t>;

sim::Picture one_colour(uint8_t y, uint8_t u, uint8_t v) {
    sim::Picture picture;
    picture.resize({2, 2});
    picture.y.assign(4, y);
    picture.u.assign(1, u);
    picture.v.assign(1, v);
    return picture;
}

Bytes colour_of(uint8_t y, uint8_t u, uint8_t v, bool narrow) {
    const RgbPicture rgb = rgb_of(one_colour(y, u, v), narrow);
    EXPECT_EQ(rgb.bytes.size(), 12U);
    return {rgb.bytes[9], rgb.bytes[10], rgb.bytes[11]};
}

// 255/219 = 1.16438 of luma above 16; red 1.59603 v, green -0.39176 u - 0.81297 v, blue 2.01723 u.
TEST(PictureFile, ConvertsNarrowRange) {
    EXPECT_EQ(colour_of(16, 128, 128, true), (Bytes{0, 0, 0}));
    EXPECT_EQ(colour_of(235, 128, 128, true), (Bytes{255, 255, 255}));
    EXPECT_EQ(colour_of(126, 128, 128, true), (Bytes{128, 128, 128}));  // 110 * 1.16438 = 128.08
    // 75.68 + 178.76 = 254.44; 75.68 + 14.89 - 91.05 = -0.48; 75.68 - 76.65 = -0.97
    EXPECT_EQ(colour_of(81, 90, 240, true), (Bytes{254, 0, 0}));
    // 29.11 - 28.73 = 0.38; 29.11 - 43.88 + 14.63 = -0.13; 29.11 + 225.93 = 255.04
    EXPECT_EQ(colour_of(41, 240, 110, true), (Bytes{0, 0, 255}));
    EXPECT_EQ(colour_of(0, 128, 128, true), (Bytes{0, 0, 0}));
    EXPECT_EQ(colour_of(255, 128, 128, true), (Bytes{255, 255, 255}));
}

// Red 1.402 v, green -0.34414 u - 0.71414 v, blue 1.772 u.
TEST(PictureFile, ConvertsFullRange) {
    EXPECT_EQ(colour_of(0, 128, 128, false), (Bytes{0, 0, 0}));
    EXPECT_EQ(colour_of(255, 128, 128, false), (Bytes{255, 255, 255}));
    // 76 + 178.05; 76 + 14.80 - 90.70 = 0.10; 76 - 76.20
    EXPECT_EQ(colour_of(76, 85, 255, false), (Bytes{254, 0, 0}));
    // 100 - 14.02; 100 - 6.88 + 7.14 = 100.26; 100 + 35.44
    EXPECT_EQ(colour_of(100, 148, 118, false), (Bytes{86, 100, 135}));
}

TEST(PictureFile, GivesEachSampleTheChromaOfItsSquare) {
    sim::Picture picture;
    picture.resize({4, 2});
    picture.y = {16, 16, 16, 16, 235, 16, 16, 16};
    picture.u = {128, 240};
    picture.v = {128, 128};
    const RgbPicture rgb = rgb_of(picture, true);
    EXPECT_EQ(rgb.width, 4);
    EXPECT_EQ(rgb.height, 2);
    const auto blue = [&](size_t sample) { return rgb.bytes[3 * sample + 2]; };
    EXPECT_EQ((Bytes{blue(0), blue(1), blue(2), blue(3)}), (Bytes{0, 0, 226, 226}));
    EXPECT_EQ((Bytes{blue(4), blue(5), blue(6), blue(7)}), (Bytes{255, 0, 226, 226}));
}

TEST(PictureFile, WritesPpm) {
    RgbPicture rgb;
    rgb.width = 2;
    rgb.height = 1;
    rgb.bytes = {1, 2, 3, 4, 5, 6};
    const Bytes out = ppm_of(rgb);
    EXPECT_EQ(std::string(out.begin(), out.end()), std::string("P6\n2 1\n255\n\1\2\3\4\5\6"));
}

// The one-pixel picture of colour 1, 2, 3. Adler-32 of 0, 1, 2, 3: a is 1, 2, 4, 7, b is 1, 3,
// 7, 14. The CRC of an empty IEND is AE426082 in every PNG file.
TEST(PictureFile, WritesPng) {
    RgbPicture rgb;
    rgb.width = rgb.height = 1;
    rgb.bytes = {1, 2, 3};
    const Bytes out = png_of(rgb);
    const Bytes head = {0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0, 13, 'I', 'H', 'D',
                        'R',  0,   0,   0,   1,  0,  0,  0,  1, 8, 2, 0,  0,   0};
    ASSERT_EQ(out.size(), head.size() + 4 + 12 + 15 + 12);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 29), head);
    const Bytes data = {0, 0,    0,    15, 'I', 'D', 'A', 'T', 0x78, 0x01, 1, 4,
                        0, 0xFB, 0xFF, 0,  1,   2,   3,   0,   14,   0,    7};
    EXPECT_EQ(Bytes(out.begin() + 33, out.begin() + 33 + 23), data);
    const Bytes end = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    EXPECT_EQ(Bytes(out.end() - 12, out.end()), end);
}

}  // namespace
