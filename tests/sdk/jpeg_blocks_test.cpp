// The parts of a JPEG picture: codes bit by bit, coefficients against a plain transform.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sdk/video/jpeg_macroblocks.h"

namespace {

using namespace sim;
using namespace sim::jpeg;
using Bytes = std::vector<uint8_t>;

std::string text_of(const BitString& bits) {
    std::string text;
    const auto put = [&text](uint32_t word, int length) {
        for (int i = length; i-- > 0;) text += word >> i & 1 ? '1' : '0';
    };
    for (const uint32_t word : bits.words()) put(word, 32);
    put(bits.last().bits, bits.last().length);
    return text;
}

std::string joined(std::string bits) {
    bits.erase(std::remove(bits.begin(), bits.end(), ' '), bits.end());
    return bits;
}

Bytes bytes_of(const BitString& bits) {
    Bytes bytes(bits.length() / 4 + 2);
    ByteWriter out(bytes.data());
    out.put(bits);
    bytes.resize(static_cast<size_t>(out.finish() - bytes.data()));
    return bytes;
}

// T.81, A.3.3, as it stands there.
std::vector<double> plain_transform(const Samples& samples) {
    std::vector<double> out(COEFFICIENTS);
    const double pi = std::acos(-1.0);
    for (int v = 0; v < BLOCK; ++v) {
        for (int u = 0; u < BLOCK; ++u) {
            double sum = 0;
            for (int y = 0; y < BLOCK; ++y) {
                for (int x = 0; x < BLOCK; ++x) {
                    sum += (samples[static_cast<size_t>(y * BLOCK + x)] - 128) *
                           std::cos((2 * x + 1) * u * pi / 16) *
                           std::cos((2 * y + 1) * v * pi / 16);
                }
            }
            const double c = (u == 0 ? std::sqrt(0.5) : 1) * (v == 0 ? std::sqrt(0.5) : 1);
            out[static_cast<size_t>(v * BLOCK + u)] = sum * c / 4;
        }
    }
    return out;
}

// Each coefficient is the nearest one to the plain transform's.
void expect_nearest(const Samples& samples, const Quantisers& by, const Coefficients& found) {
    const std::vector<double> exact = plain_transform(samples);
    for (size_t i = 0; i < exact.size(); ++i) {
        EXPECT_NEAR(found[i], exact[i] / by[i], 0.5 + 1e-4) << "coefficient " << i;
    }
}

struct Random {
    uint32_t state = 1;
    uint8_t byte() {
        state = state * 1664525U + 1013904223U;
        return static_cast<uint8_t>(state >> 24);
    }
};

// Diagonal after diagonal, the even ones upwards.
TEST(JpegBlocks, ZigzagGoesAlongTheDiagonals) {
    size_t k = 0;
    for (int diagonal = 0; diagonal < 15; ++diagonal) {
        for (int i = 0; i <= diagonal; ++i) {
            const int x = diagonal % 2 == 0 ? i : diagonal - i, y = diagonal - x;
            if (x >= BLOCK || y >= BLOCK) continue;
            EXPECT_EQ(ZIGZAG[k++], BLOCK * y + x);
        }
    }
    EXPECT_EQ(k, ZIGZAG.size());
}

TEST(JpegBlocks, QuantisersFollowQuality) {
    EXPECT_EQ(scaled(LUMA_QUANTISERS, 50), LUMA_QUANTISERS);
    const Quantisers ones = scaled(CHROMA_QUANTISERS, 100);
    EXPECT_EQ(std::count(ones.begin(), ones.end(), 1), COEFFICIENTS);
    // The first row of luma: 16 11 10 16 24 40 51 61.
    const auto row = [](int quality) {
        const Quantisers all = scaled(LUMA_QUANTISERS, quality);
        return std::vector<int>(all.begin(), all.begin() + BLOCK);
    };
    EXPECT_EQ(row(75), (std::vector<int>{8, 6, 5, 8, 12, 20, 26, 31}));          // 50 %
    EXPECT_EQ(row(25), (std::vector<int>{32, 22, 20, 32, 48, 80, 102, 122}));    // 200 %
    EXPECT_EQ(row(10), (std::vector<int>{80, 55, 50, 80, 120, 200, 255, 255}));  // 500 %
    EXPECT_EQ(row(4), (std::vector<int>{200, 138, 125, 200, 255, 255, 255, 255}));
}

TEST(JpegBlocks, CodesDcDifferences) {
    const auto bits = [](int difference, int component) {
        BitString out;
        out.put(dc_code(difference, dc_codes(component)));
        return text_of(out);
    };
    EXPECT_EQ(bits(0, 0), "00");
    EXPECT_EQ(bits(-1, 0), joined("010 0"));
    EXPECT_EQ(bits(5, 0), joined("100 101"));
    EXPECT_EQ(bits(-5, 0), joined("100 010"));
    EXPECT_EQ(bits(2047, 0), joined("111111110 11111111111"));
    EXPECT_EQ(bits(-2047, 0), joined("111111110 00000000000"));
    EXPECT_EQ(bits(0, 1), "00");
    EXPECT_EQ(bits(-3, 1), joined("10 00"));
}

TEST(JpegBlocks, CodesRunsOfZeros) {
    Coefficients block{};
    block[1] = -2;          // zigzag 1
    block[ZIGZAG[19]] = 1;  // 17 zeros between: sixteen, and one
    block[ZIGZAG[20]] = -1;
    BitString out;
    put_ac(block, ac_codes(0), out);
    EXPECT_EQ(text_of(out), joined("01 01 11111111001 1100 1 00 0 1010"));
    block[63] = 3;  // the last one: no end of block; 42 zeros: twice sixteen, and ten
    out.clear();
    put_ac(block, ac_codes(0), out);
    EXPECT_EQ(text_of(out),
              joined("01 01 11111111001 1100 1 00 0 11111111001 11111111001 1111111111000111 11"));
}

// Fifteen zeros are told with the coefficient behind them, the sixteenth is not.
TEST(JpegBlocks, CodesFifteenAndSixteenZeros) {
    BitString out;
    Coefficients block{};
    block[ZIGZAG[16]] = 1;
    put_ac(block, ac_codes(0), out);
    EXPECT_EQ(text_of(out), joined("1111111111110101 1 1010"));
    block[ZIGZAG[16]] = 0;
    block[ZIGZAG[17]] = 1;
    out.clear();
    put_ac(block, ac_codes(0), out);
    EXPECT_EQ(text_of(out), joined("11111111001 00 1 1010"));
    out.clear();
    put_ac(block, ac_codes(1), out);
    EXPECT_EQ(text_of(out), joined("1111111010 01 1 00"));
}

TEST(JpegBlocks, StuffsBytesOfOnesAndPadsWithOnes) {
    BitString bits;
    bits.put(0xFFFFFFFF, 32);
    bits.put(0x12FF34, 24);
    bits.put(0, 3);
    EXPECT_EQ(bits.length(), 59U);
    EXPECT_EQ(bytes_of(bits),
              (Bytes{0xFF, 0, 0xFF, 0, 0xFF, 0, 0xFF, 0, 0x12, 0xFF, 0, 0x34, 0x1F}));
    bits.clear();
    bits.put(0x7F, 7);  // padding makes it a byte of ones
    EXPECT_EQ(bytes_of(bits), (Bytes{0xFF, 0}));
    bits.clear();
    EXPECT_EQ(bytes_of(bits), Bytes());
}

// Quality 68 halves and a bit: 64 % of 16 is 10. Luma 16: 8 * (16 - 128) / 10 = -89.6, so -90:
// category 7, 11110, and 37 in seven bits. All other differences are 0: 00. Each block ends with
// 1010, in chroma with 00.
TEST(JpegBlocks, CodesABlackMacroblock) {
    Cells cells;
    cells.mb_columns = cells.mb_rows = 1;
    cells.y.assign(16, 16);
    cells.u.assign(4, 128);
    cells.v.assign(4, 128);
    MacroblockCoder coder;
    coder.configure(cells, {16, 16}, {}, 68);
    BitString bits;
    coder.code(Ground::pattern, 0, 0, 1, bits);
    EXPECT_EQ(text_of(bits), joined("11110 0100101 1010 001010 001010 001010 0000 0000"));
    EXPECT_EQ(bytes_of(bits), (Bytes{0xF2, 0x5A, 0x28, 0xA2, 0x80, 0x3F}));

    const Overlay::Mask black = 0;
    Bytes bytes(64);
    ByteWriter out(bytes.data());
    EXPECT_EQ(coder.code_overlay(0, 0, 1, &black, out), -90);
    bytes.resize(static_cast<size_t>(out.finish() - bytes.data()));
    EXPECT_EQ(bytes, bytes_of(bits));
}

TEST(JpegBlocks, CellsHaveTheCoefficientsOfTheirSamples) {
    Random random;
    for (const int quality : {100, 97, 68, 50, 4}) {
        const Quantisers by = scaled(LUMA_QUANTISERS, quality);
        for (int i = 0; i < 40; ++i) {
            std::array<uint8_t, 4> cells;
            for (uint8_t& cell : cells)
                cell = i < 16 ? i >> (&cell - cells.data()) & 1 ? 255 : 0 : random.byte();
            Samples samples;
            for (size_t at = 0; at < samples.size(); ++at) {
                samples[at] = cells[at / 32 * 2 + at % 8 / 4];
            }
            Coefficients closed, long_way;
            transform_cells(cells, by, closed);
            expect_nearest(samples, by, closed);
            transform(samples, by, long_way);
            EXPECT_EQ(closed, long_way);
        }
    }
}

TEST(JpegBlocks, TransformsAnySamples) {
    Random random;
    const Quantisers by = scaled(LUMA_QUANTISERS, 100);
    for (int i = 0; i < 100; ++i) {
        Samples samples;
        for (uint8_t& sample : samples)
            sample = i % 2 ? random.byte() : random.byte() & 1 ? 255 : 0;
        Coefficients found;
        transform(samples, by, found);
        expect_nearest(samples, by, found);
    }
}

}  // namespace
