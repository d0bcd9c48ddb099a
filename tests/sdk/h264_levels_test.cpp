// The H.264 reader's levels and predictions, each worked out by hand: every place of the scan, each
// way a level is written, each edge that a macroblock predicts from.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "sdk/video/h264_reader.h"
#include "tests/sdk/h264_bits.h"

using namespace h264_bits;

namespace {

const std::string PLAIN = "00100 1 1 1";
const std::string LIGHTER = "00100 1 1 01 0 1";
const std::string P_LIGHTER = "0001001 1 1 01 0 1";
const std::string P_PLAIN = "0001001 1 1 1";
const std::string BESIDE_PCM = "00100 1 1 000011";
// Chroma levels of 1 at place 3 of both planes: at luma 40, chroma 36, that is 160 << 6 >> 5 = 320,
// (320 + 32) >> 6 = 5 and, where it is negative, -5: the upper left and lower right are 133, the
// others 123.
const std::string CHECKERED = "0001000 1 1 1 1 0 000 1 0 000";

// At 28, LevelScale is 256 and the shift 2: (256 f + 2) >> 2 = 64 f, so f is what a sample changes.
constexpr int UNIT_QP = 28;

class Levels : public testing::Test {
  protected:
    // A key picture of `columns` x `rows` macroblocks in one slice.
    void decode(const std::string& macroblocks, int qp, uint64_t columns = 1, uint64_t rows = 1) {
        Sps sps;
        sps.columns = columns;
        sps.rows = rows;
        decode_unit(key_start(sps) + key_slice(0, qp).unit(macroblocks));
    }
    void decode_unit(const Bytes& unit) {
        ASSERT_TRUE(m_reader.decode(unit.data(), unit.size())) << m_reader.error();
    }
    int luma(int x, int y) const { return at(m_reader.picture().y, x, y, 1); }
    // In 4 x 4 samples.
    std::array<int, 4> chroma(const std::vector<uint8_t>& plane, int column, int row) const {
        const int x = 8 * column, y = 8 * row;
        return {at(plane, x, y, 2), at(plane, x + 7, y, 2), at(plane, x, y + 7, 2),
                at(plane, x + 7, y + 7, 2)};
    }
    const sim::Picture& picture() const { return m_reader.picture(); }

  private:
    int at(const std::vector<uint8_t>& plane, int x, int y, int step) const {
        return plane.at(static_cast<size_t>(y * m_reader.picture().size.width / step + x));
    }
    sim::H264Reader m_reader;
};

using Sample = std::function<unsigned(int x, int y)>;
// Appends an I_PCM macroblock to the slice.
void pcm(Bits& slice, const Sample& y, const Sample& u, const Sample& v) {
    slice.ue(25).align('0');
    for (int i = 0; i < 256; ++i) slice.u(8, y(i % 16, i / 16));
    for (int i = 0; i < 64; ++i) slice.u(8, u(i % 8, i / 8));
    for (int i = 0; i < 64; ++i) slice.u(8, v(i % 8, i / 8));
}

}  // namespace

TEST_F(Levels, AreAtEveryPlaceOfTheScan) {
    // total_zeros after one coefficient, which is the place of that coefficient.
    const std::vector<std::string> zeros = {"1",        "011",       "010",       "0011",
                                            "0010",     "00011",     "00010",     "000011",
                                            "000010",   "0000011",   "0000010",   "00000011",
                                            "00000010", "000000011", "000000010", "000000001"};
    // The zigzag from the upper left: frequency across, frequency down.
    const std::vector<std::array<size_t, 2>> places = {
        {0, 0}, {1, 0}, {0, 1}, {0, 2}, {1, 1}, {2, 0}, {3, 0}, {2, 1},
        {1, 2}, {0, 3}, {1, 3}, {2, 2}, {3, 1}, {3, 2}, {2, 3}, {3, 3}};
    const std::vector<std::array<int, 4>> signs = {
        {1, 1, 1, 1}, {1, 1, -1, -1}, {1, -1, -1, 1}, {1, -1, 1, -1}};
    for (size_t i = 0; i < places.size(); ++i) {
        ASSERT_NO_FATAL_FAILURE(decode("00100 1 1 01 0" + zeros[i], 40));
        for (size_t y = 0; y < 4; ++y)
            for (size_t x = 0; x < 4; ++x)
                EXPECT_EQ(luma(static_cast<int>(4 * x), static_cast<int>(4 * y)),
                          128 + 4 * signs[places[i][0]][x] * signs[places[i][1]][y])
                    << "place " << i << " at " << x << " " << y;
    }
}

TEST_F(Levels, OfChromaAreAtEveryPlace) {
    const std::vector<std::string> zeros = {"1", "01", "001", "000"};
    const std::vector<std::array<int, 4>> expected = {
        {133, 133, 133, 133}, {133, 123, 133, 123}, {133, 133, 123, 123}, {133, 123, 123, 133}};
    for (size_t i = 0; i < 4; ++i) {
        ASSERT_NO_FATAL_FAILURE(decode("0001000 1 1 1 01 1 0" + zeros[i], 40));
        EXPECT_EQ(chroma(picture().v, 0, 0), expected[i]) << i;
        EXPECT_EQ(chroma(picture().u, 0, 0), (std::array<int, 4>{128, 128, 128, 128})) << i;
        ASSERT_NO_FATAL_FAILURE(decode("0001000 1 1 1 1 0" + zeros[i] + "01", 40));
        EXPECT_EQ(chroma(picture().u, 0, 0), expected[i]) << i;
    }
}

TEST_F(Levels, AreReadWithPrefixesAlone) {
    // The token (1, 0) "000101": levels 2, -2, 3 are 0, 1, 2 zeros before a one.
    const std::vector<std::pair<std::string, int>> levels = {
        {"1", 2}, {"01", -2}, {"001", 3}, {"0001", -3}, {"00000000000001", -8}};
    for (const auto& [code, level] : levels) {
        ASSERT_NO_FATAL_FAILURE(decode("00100 1 1 000101" + code + "1", UNIT_QP));
        EXPECT_EQ(luma(0, 0), 128 + level) << code;
    }
}

TEST_F(Levels, AreReadWithEscapes) {
    // 14 zeros: 4 bits more. levelCode 14 + 0 + 2 = 16, level 9; 14 + 15 + 2 = 31, level -16.
    // 15 zeros: 12 bits more. 15 + 0 + 15 + 2 = 32, level 17; 15 + 101 + 15 + 2 = 133, level -67.
    const std::vector<std::pair<std::string, int>> levels = {
        {"000000000000001 0000", 9},
        {"000000000000001 1111", -16},
        {"0000000000000001 000000000000", 17},
        {"0000000000000001 000001100101", -67}};
    for (const auto& [code, level] : levels) {
        ASSERT_NO_FATAL_FAILURE(decode("00100 1 1 000101" + code + "1", UNIT_QP));
        EXPECT_EQ(luma(0, 0), 128 + level) << code;
    }
}

TEST_F(Levels, LengthenTheSuffixOfThoseThatFollow) {
    // 16 coefficients, no trailing one: "0000000000000100"; suffixes begin at 1 bit. From the
    // highest frequency down 4, 7, 13, 25, 49, each just above what lengthens the suffix, then -1,
    // then ten times 1, all with 6 bits.
    std::string block = "0000000000000100 0010 000100 0001000 00010000 000100000 1000001";
    for (int i = 0; i < 10; ++i) block += "1000000";
    ASSERT_NO_FATAL_FAILURE(decode("00100 1 1" + block, UNIT_QP));
    EXPECT_EQ(luma(0, 0), 128 + 4 + 7 + 13 + 25 + 49 - 1 + 10);
}

TEST_F(Levels, BeginWithASuffixFromElevenCoefficientsOn) {
    // 11, no trailing one, no zeros: the first 2 is "1 0", the others "01 0".
    std::string eleven = "000000000001111 10";
    for (int i = 0; i < 10; ++i) eleven += "010";
    ASSERT_NO_FATAL_FAILURE(decode("00100 1 1" + eleven + "0000", UNIT_QP));
    EXPECT_EQ(luma(0, 0), 128 + 22);
    // 10: the first 2 is "1".
    std::string ten = "00000000001011 1";
    for (int i = 0; i < 9; ++i) ten += "010";
    ASSERT_NO_FATAL_FAILURE(decode("00100 1 1" + ten + "00001", UNIT_QP));
    EXPECT_EQ(luma(0, 0), 128 + 20);
}

TEST_F(Levels, AreRoundedAtSmallQuantisers) {
    // 115 at 0, after 15 zeros: 115 * 2 - 2 - 2 - 30 = 196. (115 * 160 + 32) >> 6 = 288, and
    // (288 + 32) >> 6 = 5; it would be 4 without rounding the first.
    ASSERT_NO_FATAL_FAILURE(decode("00100 1 1 000101 0000000000000001 000011000100 1", 0));
    EXPECT_EQ(luma(0, 0), 133);
}

TEST_F(Levels, AreClippedToEightBits) {
    // 17 at 40 would be 128 + 68, again 264, and then 332.
    const std::string seventeen = "00100 1 1 000101 0000000000000001 000000000000 1";
    ASSERT_NO_FATAL_FAILURE(decode(seventeen + seventeen + seventeen, 40, 3));
    EXPECT_EQ(luma(0, 0), 196);
    EXPECT_EQ(luma(16, 0), 255);
    EXPECT_EQ(luma(32, 0), 255);
}

TEST_F(Levels, ArePredictedFromTheLeftAlone) {
    ASSERT_NO_FATAL_FAILURE(decode(CHECKERED + PLAIN, 40, 2, 1));
    EXPECT_EQ(chroma(picture().u, 0, 0), (std::array<int, 4>{133, 123, 123, 133}));
    EXPECT_EQ(chroma(picture().u, 1, 0), (std::array<int, 4>{123, 123, 133, 133}));
    EXPECT_EQ(chroma(picture().v, 1, 0), (std::array<int, 4>{123, 123, 133, 133}));
}

TEST_F(Levels, ArePredictedFromAboveAlone) {
    ASSERT_NO_FATAL_FAILURE(decode(CHECKERED + PLAIN, 40, 1, 2));
    EXPECT_EQ(chroma(picture().u, 0, 1), (std::array<int, 4>{123, 133, 123, 133}));
    EXPECT_EQ(chroma(picture().v, 0, 1), (std::array<int, 4>{123, 133, 123, 133}));
}

TEST_F(Levels, ArePredictedFromTheEdgesOfSamples) {
    // Macroblock 3 is below 1, whose lowest row counts, and right of 2, whose rightmost column
    // does.
    Bits slice = key_slice().bits().raw(PLAIN);
    pcm(
        slice, [](int, int y) { return y == 15 ? 10U : 255U; },
        [](int x, int y) { return y == 7 ? (x < 4 ? 40U : 80U) : 255U; },
        [](int x, int y) { return y == 7 ? (x < 4 ? 1U : 2U) : 255U; });
    pcm(
        slice, [](int x, int) { return x == 15 ? 11U : 255U; },
        [](int x, int y) { return x == 7 ? (y < 4 ? 100U : 200U) : 255U; },
        [](int x, int y) { return x == 7 ? (y < 4 ? 3U : 4U) : 255U; });
    slice.raw(BESIDE_PCM);
    Sps sps;
    sps.rows = 2;
    ASSERT_NO_FATAL_FAILURE(decode_unit(key_start(sps) + nal(IDR, slice)));
    EXPECT_EQ(luma(0, 16), 255);
    // (16 * 10 + 16 * 11 + 16) >> 5.
    EXPECT_EQ(luma(16, 16), 11);
    EXPECT_EQ(luma(31, 31), 11);
    // (400 + 160 + 4) >> 3 = 70; above; left; (800 + 320 + 4) >> 3 = 140.
    EXPECT_EQ(chroma(picture().u, 1, 1), (std::array<int, 4>{70, 80, 200, 140}));
    // (12 + 4 + 4) >> 3 = 2; above; left; (16 + 8 + 4) >> 3 = 3.
    EXPECT_EQ(chroma(picture().v, 1, 1), (std::array<int, 4>{2, 2, 4, 3}));
}

TEST_F(Levels, BesideSamplesHaveTokensOfSixBits) {
    // One trailing one: "000001"; 16 coefficients, no trailing one: "111100".
    Sps sps;
    Bits slice = key_slice(0, 40).bits();
    const Sample grey = [](int, int) { return 100U; };
    pcm(slice, grey, grey, grey);
    ASSERT_NO_FATAL_FAILURE(
        decode_unit(key_start(sps) + nal(IDR, Bits(slice).raw("00100 1 1 000001 0 1"))));
    EXPECT_EQ(luma(16, 0), 104);
    // One coefficient and two trailing ones are too many.
    const Bytes unit = key_start(sps) + nal(IDR, Bits(slice).raw("00100 1 1 000010 00 1"));
    sim::H264Reader reader;
    EXPECT_FALSE(reader.decode(unit.data(), unit.size()));
    EXPECT_EQ(reader.error(), "macroblock 1: its luma levels cannot be read");
}

TEST_F(Levels, AreNotPredictedOverSkippedMacroblocks) {
    ASSERT_NO_FATAL_FAILURE(decode(
        LIGHTER + LIGHTER + LIGHTER + PLAIN + PLAIN + PLAIN + PLAIN + PLAIN + PLAIN, 40, 3, 3));
    // Coded, skipped, coded; three skipped; coded, two skipped.
    ASSERT_NO_FATAL_FAILURE(
        decode_unit(delimiter() + p_slice(1, 0, 40).unit("1" + P_LIGHTER + "010" + P_PLAIN +
                                                         "00100" + P_PLAIN + "011")));
    EXPECT_EQ(luma(0, 0), 132);
    EXPECT_EQ(luma(16, 0), 136);
    EXPECT_EQ(luma(32, 0), 128);
    EXPECT_EQ(luma(0, 32), 128);
    // Nor across the ends of rows: 3 is not right of 2, nor below 0, which is skipped.
    ASSERT_NO_FATAL_FAILURE(decode_unit(
        delimiter() + p_slice(2, 0, 40).unit("011" + P_LIGHTER + "1" + P_PLAIN + "00110")));
    EXPECT_EQ(luma(32, 0), 132);
    EXPECT_EQ(luma(0, 16), 128);
}
