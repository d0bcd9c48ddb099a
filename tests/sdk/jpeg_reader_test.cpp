// JPEG pictures made by hand, bit by bit, and what is refused of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sdk/video/jpeg_inverse.h"
#include "sdk/video/jpeg_reader.h"
#include "sdk/video/jpeg_writer.h"

namespace {

using namespace sim;
using Bytes = std::vector<uint8_t>;

// A picture in pieces; a test changes what it is about. They end at bytes 2 (SOI), 8, 15, 84, 103,
// 127, 152, 166 (the scan's header), 168 and 170. Its Huffman tables are all alike:
//   DC: 0 category 0, 10 category 3, 110 category 11
//   AC: 0 end of block, 10 no zeros and category 1, 110 no zeros and category 3, 1110 sixteen zeros
// Every quantiser is 8, so a DC coefficient is a sample.
struct Made {
    Bytes application = {0xFF, 0xE0, 0, 4, 'J', 'F'};
    Bytes comment = {0xFF, 0xFE, 0, 5, 'o', 'n', 'e'};
    Bytes quantisers = filled({0xFF, 0xDB, 0, 67, 0}, 64, 8);
    Bytes frame = {0xFF, 0xC0, 0, 17, 8, 0, 16, 0, 16, 3, 1, 0x22, 0, 2, 0x11, 0, 3, 0x11, 0};
    Bytes dc = {0xFF, 0xC4, 0, 22, 0x00, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 11};
    Bytes ac = {0xFF, 0xC4, 0, 23, 0x10, 1, 1, 1, 1,    0,    0,    0,   0,
                0,    0,    0, 0,  0,    0, 0, 0, 0x00, 0x01, 0x03, 0xF0};
    Bytes restart;
    Bytes scan = {0xFF, 0xDA, 0, 12, 3, 1, 0, 2, 0, 3, 0, 0, 63, 0};
    Bytes data = bits("00 00 00 00 00 00");  // grey
    Bytes end = {0xFF, 0xD9};

    static Bytes filled(Bytes bytes, size_t more, uint8_t with) {
        bytes.insert(bytes.end(), more, with);
        return bytes;
    }
    // Digits 0 and 1, with stuffing and padding.
    static Bytes bits(std::string text) {
        text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
        while (text.size() % 8 != 0) text += '1';
        Bytes bytes;
        for (size_t i = 0; i < text.size(); i += 8) {
            bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 8), nullptr, 2)));
            if (bytes.back() == 0xFF) bytes.push_back(0);
        }
        return bytes;
    }
    void size(int width, int height) {
        frame[5] = static_cast<uint8_t>(height >> 8);
        frame[6] = static_cast<uint8_t>(height);
        frame[7] = static_cast<uint8_t>(width >> 8);
        frame[8] = static_cast<uint8_t>(width);
    }
    void restart_after(uint8_t macroblocks) { restart = {0xFF, 0xDD, 0, 4, 0, macroblocks}; }
    Bytes bytes() const {
        Bytes all = {0xFF, 0xD8};
        for (const Bytes* piece : {&application, &comment, &quantisers, &frame, &dc, &ac, &restart,
                                   &scan, &data, &end}) {
            all.insert(all.end(), piece->begin(), piece->end());
        }
        return all;
    }
};

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Picture decoded(const Made& made) {
    JpegReader reader;
    const Bytes bytes = made.bytes();
    EXPECT_TRUE(reader.decode(bytes.data(), bytes.size())) << reader.error();
    return reader.picture();
}

std::string refusal(const Bytes& bytes) {
    JpegReader reader;
    EXPECT_FALSE(reader.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.picture().size, PictureSize());
    return reader.error();
}
std::string refusal(const Made& made) { return refusal(made.bytes()); }

int luma(const Picture& picture, int x, int y) {
    return picture.y[static_cast<size_t>(y * picture.size.width + x)];
}

const std::string GREY_BLOCKS = " 00 00 00 00 00 00 ";

TEST(JpegReader, DecodesAGreyPicture) {
    const Picture picture = decoded(Made());
    EXPECT_EQ(picture.size, (PictureSize{16, 16}));
    EXPECT_EQ(picture.y, Bytes(256, 128));
    EXPECT_EQ(picture.u, Bytes(64, 128));
    EXPECT_EQ(picture.v, Bytes(64, 128));
}

// Differences +4, 0, -5, +7, then +6 and -4: each component predicts from its own.
TEST(JpegReader, AddsUpDcDifferences) {
    Made made;
    made.data = Made::bits("10 100 0  0 0  10 010 0  10 111 0  10 110 0  10 011 0");
    const Picture picture = decoded(made);
    EXPECT_EQ(luma(picture, 0, 0), 132);
    EXPECT_EQ(luma(picture, 15, 7), 132);
    EXPECT_EQ(luma(picture, 7, 8), 127);
    EXPECT_EQ(luma(picture, 8, 8), 134);
    EXPECT_EQ(picture.u, Bytes(64, 134));
    EXPECT_EQ(picture.v, Bytes(64, 124));
}

// One coefficient of +5 * 8 in the first frequency across: 128 + 40 * sqrt(1 / 8) / 2 *
// cos((2 x + 1) pi / 16), by hand 6.935, 5.880, 3.928, 1.380 and the same negated.
TEST(JpegReader, TransformsACosine) {
    Made made;
    made.data = Made::bits("0 110 101 0" + std::string(" 00 00 00 00 00"));
    const Picture picture = decoded(made);
    const std::vector<int> row = {135, 134, 132, 129, 127, 124, 122, 121};
    for (int x = 0; x < 8; ++x) EXPECT_EQ(luma(picture, x, 5), row[static_cast<size_t>(x)]);
    EXPECT_EQ(luma(picture, 8, 5), 128);
}

// Three times sixteen zeros and fourteen coefficients of 1: up to the very last, without an end.
TEST(JpegReader, FillsABlockToItsLastCoefficient) {
    Made made;
    std::string ones;
    for (int i = 0; i < 15; ++i) ones += "10 1 ";
    made.data = Made::bits("0 1110 1110 1110" + ones + " 00 00 00 00 00");
    EXPECT_EQ(decoded(made).size.width, 16);
    made.data = Made::bits("0 1110 1110 1110" + ones + "0 00 00 00 00 00");  // 0 is the next block
    EXPECT_NE(refusal(made), "");
    made.data = Made::bits("0 1110 1110 1110 1110 00 00 00 00 00");
    EXPECT_EQ(refusal(made), "macroblock 0 of row 0 has more than 64 coefficients in a block");
}

TEST(JpegReader, RestartsItsPredictions) {
    Made made;
    made.size(32, 32);
    made.restart_after(1);
    const Bytes lighter = Made::bits("10 100 0 0 0 0 0 0 0 00 00");
    made.data = lighter + Bytes{0xFF, 0xD0} + lighter + Bytes{0xFF, 0xD1} + lighter +
                Bytes{0xFF, 0xFF, 0xFF, 0xD2} + lighter;  // fill bytes are allowed
    EXPECT_EQ(decoded(made).y, Bytes(1024, 132));
    made.data = lighter + Bytes{0xFF, 0xD0} + lighter + Bytes{0xFF, 0xD2} + lighter +
                Bytes{0xFF, 0xD2} + lighter;
    EXPECT_EQ(refusal(made),
              "macroblock 0 of row 1 has not the restart marker before it that belongs there");
    made.data = lighter + lighter + lighter + lighter;
    EXPECT_EQ(refusal(made),
              "macroblock 0 of row 0 has other bits behind it than ones up to the next byte");
    // Two macroblocks of an interval go on predicting.
    made.restart_after(2);
    const Bytes pair = Made::bits("10 100 0 0 0 0 0 0 0 00 00" + GREY_BLOCKS);
    made.data = pair + Bytes{0xFF, 0xD0} + pair;
    EXPECT_EQ(decoded(made).y, Bytes(1024, 132));
}

TEST(JpegReader, CutsMacroblocksAtTheEdges) {
    Made made;
    made.size(18, 10);
    made.data = Made::bits(GREY_BLOCKS + "10 100 0 0 0 10 111 0 0 0 10 100 0 00");
    const Picture picture = decoded(made);
    EXPECT_EQ(picture.y.size(), 180U);
    EXPECT_EQ(luma(picture, 15, 9), 128);
    EXPECT_EQ(luma(picture, 17, 7), 132);
    EXPECT_EQ(luma(picture, 17, 8), 139);
    EXPECT_EQ(picture.u.size(), 45U);
    EXPECT_EQ(picture.u[8], 132);  // the ninth of the first row
    EXPECT_EQ(picture.u[7], 128);
    EXPECT_EQ(picture.v, Bytes(45, 128));
}

TEST(JpegReader, ReadsStuffedBytes) {
    Made made;
    made.quantisers = Made::filled({0xFF, 0xDB, 0, 67, 0}, 64, 1);
    made.data = Made::bits("0 0 110 11111111111 0 0 0 0 0 00 00");
    // Five bits, eight ones, the 0 that is stuffed.
    ASSERT_EQ(Bytes(made.data.begin(), made.data.begin() + 3), (Bytes{0x37, 0xFF, 0}));
    const Picture picture = decoded(made);
    EXPECT_EQ(luma(picture, 0, 0), 128);
    EXPECT_EQ(luma(picture, 8, 0), 255);  // 2047 / 8 above grey
    EXPECT_EQ(picture.u, Bytes(64, 128));
}

TEST(JpegReader, RefusesADcThatNoSamplesHave) {
    Made made;
    made.data = Made::bits("10 100 0 110 11111111111 0 0 0 0 0 00 00");  // 4 + 2047
    EXPECT_EQ(refusal(made), "macroblock 0 of row 0 has a DC out of range");
    made.data = Made::bits("10 011 0 110 11111111111 0 0 0 0 0 00 00");  // -4 + 2047
    EXPECT_EQ(decoded(made).size.width, 16);
    made.data = Made::bits("10 011 0 110 00000000000 0 0 0 0 0 00 00");  // -4 - 2047
    EXPECT_EQ(refusal(made), "macroblock 0 of row 0 has a DC out of range");
}

TEST(JpegReader, AllowsFillBytesBeforeMarkers) {
    Made made;
    made.quantisers = Bytes(5, 0xFF) + made.quantisers;
    made.end = Bytes(1000, 0xFF) + made.end;
    EXPECT_EQ(decoded(made).y, Bytes(256, 128));
}

TEST(JpegReader, KeepsTheFirstComment) {
    Made made;
    JpegReader reader;
    made.end = Bytes{0xFF, 0xFE, 0, 5, 't', 'w', 'o'} + made.end;
    Bytes bytes = made.bytes();
    ASSERT_TRUE(reader.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.comment(), "one");
    made.comment.clear();
    bytes = made.bytes();
    ASSERT_TRUE(reader.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.comment(), "two");
    made.end = {0xFF, 0xD9};
    bytes = made.bytes();
    ASSERT_TRUE(reader.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.comment(), "");
}

TEST(JpegReader, RefusesOtherKindsOfPictures) {
    const auto with = [](auto change) {
        Made made;
        change(made);
        return refusal(made);
    };
    EXPECT_EQ(with([](Made& m) { m.frame[1] = 0xC2; }),
              "the segment FFC2 before byte 103 is of no baseline picture");
    EXPECT_EQ(with([](Made& m) { m.frame[11] = 0x21; }),
              "the segment FFC0 before byte 103 is not 4:2:0");
    EXPECT_EQ(with([](Made& m) { m.frame[4] = 12; }),
              "the segment FFC0 before byte 103 does not have samples of 8 bits");
    EXPECT_EQ(with([](Made& m) { m.frame[9] = 4; }),
              "the segment FFC0 before byte 103 does not have three components");
    EXPECT_EQ(with([](Made& m) { m.frame[13] = 1; }),
              "the segment FFC0 before byte 103 names a component twice");
    for (const auto& [width, height] :
         {std::pair(17, 16), std::pair(16, 0), std::pair(1922, 16), std::pair(16, 1090)}) {
        EXPECT_EQ(
            with([w = width, h = height](Made& m) { m.size(w, h); }),
            "the segment FFC0 before byte 103 has a size that is odd, 0 or above 1920 x 1088");
    }
    EXPECT_EQ(with([](Made& m) { m.size(1920, 1088); }), "the picture is too short for its size");
    EXPECT_EQ(with([](Made& m) { m.quantisers[4] = 0x10; }),
              "the segment FFDB before byte 84 has a table that is not baseline");
    EXPECT_EQ(with([](Made& m) { m.quantisers[40] = 0; }),
              "the segment FFDB before byte 84 has a 0 in it");
    EXPECT_EQ(with([](Made& m) { m.dc.back() = 12; }),
              "the segment FFC4 before byte 127 has a symbol that is not baseline");
    EXPECT_EQ(with([](Made& m) { m.ac.back() = 0x10; }),
              "the segment FFC4 before byte 152 has a symbol that is not baseline");
    EXPECT_EQ(with([](Made& m) { m.dc[5] = 2, m.dc[6] = 0; }),
              "the segment FFC4 before byte 127 has more codes than fit");
    // Three codes 0, 10 and 11: one of ones alone is none.
    EXPECT_EQ(with([](Made& m) { m.dc[6] = 2, m.dc[7] = 0; }),
              "the segment FFC4 before byte 127 has more codes than fit");
    EXPECT_EQ(with([](Made& m) { m.scan[12] = 62; }),
              "the segment FFDA before byte 166 is not baseline");
    EXPECT_EQ(with([](Made& m) { std::swap(m.scan[5], m.scan[7]); }),
              "the segment FFDA before byte 166 has the components in another order");
    EXPECT_EQ(with([](Made& m) { m.scan[6] = 0x10; }),
              "the segment FFDA before byte 166 names a Huffman table that is missing");
}

TEST(JpegReader, RefusesWhatIsMissingOrTooMuch) {
    const auto with = [](auto change) {
        Made made;
        change(made);
        return refusal(made);
    };
    EXPECT_EQ(refusal(Bytes()), "the picture does not begin with SOI");
    EXPECT_EQ(refusal(Bytes{0xFF, 0xD8}), "there is no marker at byte 2");
    EXPECT_EQ(refusal(Bytes{0xFF, 0xD8, 0xFF, 0xD9}), "the picture ends before its scan");
    EXPECT_EQ(with([](Made& m) { m.quantisers.clear(); }),
              "the segment FFDA before byte 97 needs a quantisation table that is missing");
    EXPECT_EQ(with([](Made& m) { m.frame.clear(); }),
              "the segment FFDA before byte 147 comes before the frame's header");
    EXPECT_EQ(with([](Made& m) { m.frame = m.frame + m.frame; }),
              "the segment FFC0 before byte 122 is the second one");
    EXPECT_EQ(with([](Made& m) { m.end = m.scan + m.end; }),
              "the segment FFDA before byte 182 is behind the scan");
    EXPECT_EQ(with([](Made& m) {
                  m.end = {0xFF, 0xD8, 0xFF, 0xD9};
              }),
              "the segment FFD8 before byte 170 is not allowed here");
    EXPECT_EQ(with([](Made& m) { m.end.push_back(0); }), "there are bytes behind EOI");
    EXPECT_EQ(with([](Made& m) { m.end = {0xFF, 0xFF}; }), "there is no marker at byte 170");
    EXPECT_EQ(with([](Made& m) { m.comment[3] = 1; }),
              "the segment FFFE before byte 10 has a wrong length");
    EXPECT_EQ(with([](Made& m) { m.data = Made::bits("00 00 00 00 00 111"); }),
              "macroblock 0 of row 0 has a wrong code, or ends in one");
    EXPECT_EQ(with([](Made& m) { m.data = {0}; }),
              "macroblock 0 of row 0 has a wrong code, or ends in one");
    EXPECT_EQ(with([](Made& m) {
                  m.data = {0, 0x0E};
              }),
              "macroblock 0 of row 0 has other bits behind it than ones up to the next byte");
    EXPECT_EQ(with([](Made& m) {
                  m.data = {0, 0x0F, 0};
              }),
              "macroblock 0 of row 0 has other bits behind it than ones up to the next byte");
}

// T.81, A.3.3, as it stands there.
double plain_inverse(const std::array<int32_t, 64>& block, int x, int y) {
    const double pi = std::acos(-1.0);
    double sum = 0;
    for (int v = 0; v < 8; ++v) {
        for (int u = 0; u < 8; ++u) {
            const double c = (u == 0 ? std::sqrt(0.5) : 1) * (v == 0 ? std::sqrt(0.5) : 1);
            sum += c * block[static_cast<size_t>(v * 8 + u)] * std::cos((2 * x + 1) * u * pi / 16) *
                   std::cos((2 * y + 1) * v * pi / 16);
        }
    }
    return sum / 4 + 128;
}

TEST(JpegReader, InverseTransformIsTheExactOneRounded) {
    uint32_t state = 7;
    const auto random = [&state](int below) {
        state = state * 1664525U + 1013904223U;
        return static_cast<int>((state >> 8) % static_cast<uint32_t>(below));
    };
    for (int i = 0; i < 3000; ++i) {
        std::array<int32_t, 64> block{};
        int last = 0;
        const int most = i % 3 == 0 ? 30 : i % 3 == 1 ? 300 : 2047 * 255;
        const double allowed = most <= 300 ? 0.501 : 1;
        for (int n = random(20); n >= 0; --n) {
            const int k = random(i % 7 == 0 ? 1 : 64);
            block[jpeg::ZIGZAG[static_cast<size_t>(k)]] = random(2 * most + 1) - most;
            last = std::max(last, k);
        }
        std::array<uint8_t, 64> samples;
        jpeg::inverse_transform(block, last, samples.data(), 8);
        for (int at = 0; at < 64; ++at) {
            const double exact = std::clamp(plain_inverse(block, at % 8, at / 8), 0.0, 255.0);
            ASSERT_NEAR(samples[static_cast<size_t>(at)], exact, allowed) << "block " << i;
        }
    }
}

Bytes written(const Scene& scene, uint32_t number) {
    JpegWriter writer;
    writer.configure(scene, {}, 30);
    Bytes bytes(writer.compose(number) + 5);
    writer.write(bytes.size(), bytes.data());
    return bytes;
}

Scene small_scene() {
    Scene scene;
    scene.size = {176, 120};
    scene.pattern = Pattern::checkerboard;
    return scene;
}

TEST(JpegReader, RefusesEveryPictureCutShort) {
    const Bytes bytes = written(small_scene(), 1);
    JpegReader reader;
    for (size_t size = 0; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
        ASSERT_FALSE(reader.decode(cut.data(), cut.size())) << size;
        ASSERT_NE(reader.error(), "") << size;
    }
    EXPECT_TRUE(reader.decode(bytes.data(), bytes.size())) << reader.error();
}

// Damage is refused or gives another picture; it never does harm, and nothing of it stays.
TEST(JpegReader, SurvivesEveryDamagedByte) {
    Bytes bytes = written(small_scene(), 1);
    JpegReader reader;
    ASSERT_TRUE(reader.decode(bytes.data(), bytes.size()));
    const Picture good = reader.picture();
    int refused = 0;
    for (uint8_t& byte : bytes) {
        const uint8_t kept = byte;
        for (const int flip : {0x01, 0x10, 0x80, 0xFF}) {
            byte = static_cast<uint8_t>(kept ^ flip);
            if (!reader.decode(bytes.data(), bytes.size())) {
                ++refused;
                ASSERT_NE(reader.error(), "");
                ASSERT_TRUE(reader.picture().y.empty());
            }
        }
        byte = kept;
    }
    EXPECT_GT(refused, static_cast<int>(bytes.size()));
    ASSERT_TRUE(reader.decode(bytes.data(), bytes.size()));
    EXPECT_EQ(reader.picture().y, good.y);
    EXPECT_EQ(reader.comment(), "channel 01 stream MAIN frame 0000000001");
}

}  // namespace
