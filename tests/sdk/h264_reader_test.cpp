// The H.264 reader on streams made by hand: what it decodes, what it refuses, and that no byte
// makes it do worse. What the writer makes is read in h264_round_trip_test.
#include "sdk/video/h264_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdk/video/bit_reader.h"
#include "tests/sdk/h264_bits.h"

using namespace h264_bits;

namespace {

// Macroblocks: mb_type, intra_chroma_pred_mode, mb_qp_delta, coeff_token of no coefficients.
const std::string PLAIN = "00100 1 1 1";
const std::string P_PLAIN = "0001001 1 1 1";  // mb_type 3 + 5
// One luma level of 1, the mean: coeff_token "01", sign "0", total_zeros "1".
const std::string LIGHTER = "00100 1 1 01 0 1";
const std::string P_LIGHTER = "0001001 1 1 01 0 1";
// Without coefficients beside an I_PCM macroblock: coeff_token of 6 bits.
const std::string BESIDE_PCM = "00100 1 1 000011";

// I_PCM, from the start of a byte on: mb_type 25, zeros up to the next byte, samples.
std::string pcm(Bits before, uint8_t y, uint8_t u, uint8_t v) {
    Bits bits = before;
    bits.ue(25).align('0');
    for (int i = 0; i < 256; ++i) bits.u(8, y);
    for (int i = 0; i < 64; ++i) bits.u(8, u);
    for (int i = 0; i < 64; ++i) bits.u(8, v);
    return bits.text();
}

bool decodes(sim::H264Reader& reader, const Bytes& unit) {
    return reader.decode(unit.data(), unit.size());
}
std::string refusal(const Bytes& unit) {
    sim::H264Reader reader;
    return decodes(reader, unit) ? "decoded" : reader.error();
}
int luma(const sim::H264Reader& reader, int x, int y) {
    const sim::Picture& picture = reader.picture();
    return picture.y.at(static_cast<size_t>(y * picture.size.width + x));
}
int chroma_u(const sim::H264Reader& reader, int x, int y) {
    const sim::Picture& picture = reader.picture();
    return picture.u.at(static_cast<size_t>(y * picture.size.width / 2 + x));
}

// 32 x 16, both macroblocks grey.
Bytes grey_key() { return key_start() + key_slice().unit(PLAIN + PLAIN); }

}  // namespace

TEST(BitReader, ReadsNumbersOfAnyWidthHighestBitFirst) {
    const Bytes bytes = {0xA5, 0xFF, 0x00, 0x00, 0x00, 0x80};
    sim::BitReader bits(bytes.data(), bytes.size());
    EXPECT_EQ(bits.bits(1), 1U);
    EXPECT_EQ(bits.bits(3), 2U);
    EXPECT_EQ(bits.bits(4), 5U);
    EXPECT_EQ(bits.bits(32), 0xFF000000U);
    EXPECT_FALSE(bits.more());
    EXPECT_FALSE(bits.failed());
}

TEST(BitReader, ReadsExpGolombCodes) {
    // 0, 1, 2, 3, 6, 7, 14; then as signed 0, 1, -1, 2, -2.
    const Bytes bytes = Bits()
                            .raw("1 010 011 00100 00111 0001000 0001111")
                            .raw("1 010 011 00100 00101")
                            .stop()
                            .bytes();
    sim::BitReader bits(bytes.data(), bytes.size());
    for (const uint32_t value : {0U, 1U, 2U, 3U, 6U, 7U, 14U}) EXPECT_EQ(bits.ue(), value);
    for (const int32_t value : {0, 1, -1, 2, -2}) EXPECT_EQ(bits.se(), value);
    EXPECT_FALSE(bits.failed());
}

TEST(BitReader, ReadsTheLongestCodeAndRefusesALongerOne) {
    const std::string zeros(31, '0'), ones(31, '1');
    const Bytes longest = Bits().raw(zeros + "1" + ones).stop().bytes();
    sim::BitReader bits(longest.data(), longest.size());
    EXPECT_EQ(bits.ue(), 0xFFFFFFFEU);
    EXPECT_FALSE(bits.failed());

    const Bytes longer = Bits().raw("0" + zeros + "1" + ones + "1").stop().bytes();
    sim::BitReader too_long(longer.data(), longer.size());
    EXPECT_EQ(too_long.ue(), 0U);
    EXPECT_TRUE(too_long.failed());
}

TEST(BitReader, StopsAtTheStopBitAndStaysFailed) {
    const Bytes bytes = {0b10110000};
    sim::BitReader bits(bytes.data(), bytes.size());
    EXPECT_EQ(bits.left(), 3U);
    EXPECT_EQ(bits.bits(4), 0U);
    EXPECT_TRUE(bits.failed());
    EXPECT_EQ(bits.bits(1), 0U);
    sim::BitReader none(nullptr, 0);
    EXPECT_FALSE(none.more());
    EXPECT_EQ(none.ue(), 0U);
    EXPECT_TRUE(none.failed());
}

TEST(BitReader, AlignsOverZerosOnly) {
    const Bytes bytes = {0b10000000, 0x12, 0b11000000, 0x80};
    sim::BitReader bits(bytes.data(), bytes.size());
    bits.bits(1);
    EXPECT_TRUE(bits.align());
    const uint8_t* const at = bits.bytes(1);
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(*at, 0x12);
    bits.bits(1);
    EXPECT_FALSE(bits.align());
    EXPECT_EQ(bits.bytes(1), nullptr);
}

TEST(NalUnits, SplitsAtStartCodesOfAnyLength) {
    const Bytes bytes = {0, 0, 0, 1, 9, 0xF0, 0, 0, 1,    0x65, 0,
                         0, 3, 1, 0, 0, 0,    0, 1, 0x0C, 0x80, 0};
    sim::NalUnits units(bytes.data(), bytes.size());
    sim::NalUnit unit;
    ASSERT_TRUE(units.next(unit));
    EXPECT_EQ(Bytes(unit.bytes, unit.bytes + unit.size), (Bytes{9, 0xF0}));
    EXPECT_EQ(unit.type(), sim::NalType::delimiter);
    ASSERT_TRUE(units.next(unit));
    EXPECT_EQ(Bytes(unit.bytes, unit.bytes + unit.size), (Bytes{0x65, 0, 0, 3, 1}));
    ASSERT_TRUE(units.next(unit));
    EXPECT_EQ(Bytes(unit.bytes, unit.bytes + unit.size), (Bytes{0x0C, 0x80}));
    EXPECT_FALSE(units.next(unit));
    EXPECT_FALSE(units.failed());
}

TEST(NalUnits, FailsWhereThereIsNoUnit) {
    const std::vector<Bytes> wrong = {
        {9, 0xF0},                          // no start code
        {0, 1, 9, 0xF0},                    // too short a start code
        {0, 0, 0},                          // only zeros
        {0, 0, 1},                          // nothing behind the start code
        {0, 0, 1, 0, 0, 1, 9},              // nothing between two
        {0, 0, 1, 0x89, 0xF0},              // forbidden_zero_bit
        {0, 0, 1, 9, 0xF0, 0, 0, 0, 2, 1},  // bytes between units
    };
    for (const Bytes& bytes : wrong) {
        sim::NalUnits units(bytes.data(), bytes.size());
        sim::NalUnit unit;
        while (units.next(unit)) {
        }
        EXPECT_TRUE(units.failed()) << testing::PrintToString(bytes);
    }
    sim::NalUnits nothing(nullptr, 0);
    sim::NalUnit unit;
    EXPECT_FALSE(nothing.next(unit));
    EXPECT_FALSE(nothing.failed());
}

TEST(ReadSequence, FindsSizeLevelAndTiming) {
    Sps sps;
    sps.columns = 11;
    sps.rows = 8;
    sps.crop_bottom = 4;
    sps.level = 11;
    sps.ticks = 2;
    sps.time_scale = 50;
    const Bytes bytes = sps.unit();
    sim::NalUnits units(bytes.data(), bytes.size());
    sim::NalUnit unit;
    ASSERT_TRUE(units.next(unit));
    sim::SequenceInfo info;
    ASSERT_TRUE(sim::read_sequence(unit, info));
    EXPECT_EQ(info.size, (sim::PictureSize{176, 120}));
    EXPECT_EQ(info.profile, 66);
    EXPECT_EQ(info.constraints, 0xC0);
    EXPECT_EQ(info.level, 11);
    EXPECT_EQ(info.time_scale, 50U);
    EXPECT_EQ(info.ticks, 2U);
    // Every shorter one is refused, and nothing is found.
    for (size_t size = 0; size < unit.size; ++size) {
        EXPECT_FALSE(sim::read_sequence({unit.bytes, size}, info)) << size;
        EXPECT_EQ(info.level, 0) << size;
    }
}

TEST(H264Reader, DecodesGreyWithoutAnyCoefficient) {
    sim::H264Reader reader;
    EXPECT_TRUE(reader.picture().y.empty());
    ASSERT_TRUE(decodes(reader, grey_key())) << reader.error();
    EXPECT_TRUE(reader.was_key());
    EXPECT_EQ(reader.error(), "");
    EXPECT_EQ(reader.picture().size, (sim::PictureSize{32, 16}));
    EXPECT_EQ(reader.picture().y, Bytes(512, 128));
    EXPECT_EQ(reader.picture().u, Bytes(128, 128));
    EXPECT_EQ(reader.picture().v, Bytes(128, 128));
}

TEST(H264Reader, ScalesALevelByTheQuantiser) {
    // LevelScale(40 % 6) = 256, no shift at 40 / 6 = 6: (256 + 32) >> 6 = 4. At 51: 224 << 2 = 896,
    // (896 + 32) >> 6 = 14. At 22: (256 + 4) >> 3 = 32, 64 >> 6 = 1. At 4: 4, 36 >> 6 = 0.
    const std::vector<std::pair<int, int>> changes = {{40, 4}, {51, 14}, {22, 1}, {4, 0}};
    for (const auto& [qp, change] : changes) {
        sim::H264Reader reader;
        ASSERT_TRUE(decodes(reader, key_start() + key_slice(0, qp).unit(LIGHTER + PLAIN)));
        EXPECT_EQ(luma(reader, 0, 0), 128 + change) << qp;
        EXPECT_EQ(luma(reader, 15, 15), 128 + change) << qp;
        EXPECT_EQ(luma(reader, 16, 0), 128 + change) << "from the left at " << qp;
        EXPECT_EQ(chroma_u(reader, 0, 0), 128);
    }
}

TEST(H264Reader, PutsLevelsWhereTheScanSays) {
    // Two levels, 1 at scan position 1 and 1 at position 2: coeff_token (2, 2) "001", signs "00",
    // total_zeros 1 after two coefficients "110", run_before 0 of 1 left "1". They are the
    // coefficients (1, 0) and (0, 1): with a the sign pattern ++-- across and down, 4 (a_x + a_y).
    sim::H264Reader reader;
    ASSERT_TRUE(
        decodes(reader, key_start() + key_slice(0, 40).unit("00100 1 1 001 00 110 1" + PLAIN)))
        << reader.error();
    EXPECT_EQ(luma(reader, 0, 0), 136);
    EXPECT_EQ(luma(reader, 7, 7), 136);
    EXPECT_EQ(luma(reader, 8, 0), 128);
    EXPECT_EQ(luma(reader, 0, 8), 128);
    EXPECT_EQ(luma(reader, 8, 8), 120);
    // Right edge: 8 samples of 128, 8 of 120; their mean is 124.
    EXPECT_EQ(luma(reader, 16, 0), 124);
}

TEST(H264Reader, DecodesChromaAtItsOwnQuantiser) {
    // mb_type 7; no luma. U: coeff_token (1, 1) "1", sign "1" for -1, total_zeros 0 "1"; V: none,
    // "01". Luma 40 is chroma 36: -160 << 6 >> 5 = -320, (-320 + 32) >> 6 = -5 (rounded down from
    // -4.5).
    sim::H264Reader reader;
    ASSERT_TRUE(
        decodes(reader, key_start() + key_slice(0, 40).unit("0001000 1 1 1 111 01" + PLAIN)))
        << reader.error();
    EXPECT_EQ(chroma_u(reader, 0, 0), 123);
    EXPECT_EQ(chroma_u(reader, 15, 7), 123);
    EXPECT_EQ(reader.picture().v, Bytes(128, 128));
}

TEST(H264Reader, PredictsFromAboveAndLeftWithinASliceOnly) {
    Sps sps;
    sps.rows = 2;
    // 0 lighter by 4: 132; 1 from the left, by 4 more: 136; 2 from above (132), by 4: 136;
    // 3 from above (136) and left (136).
    sim::H264Reader reader;
    const std::string all = LIGHTER + LIGHTER + LIGHTER + PLAIN;
    ASSERT_TRUE(decodes(reader, key_start(sps) + key_slice(0, 40).unit(all))) << reader.error();
    EXPECT_EQ(luma(reader, 0, 0), 132);
    EXPECT_EQ(luma(reader, 16, 0), 136);
    EXPECT_EQ(luma(reader, 0, 16), 136);
    EXPECT_EQ(luma(reader, 16, 16), 136);
    // Each a slice of its own: nothing is predicted, each is 132.
    Bytes apart = key_start(sps);
    for (uint64_t i = 0; i < 4; ++i) apart = apart + key_slice(i, 40).unit(LIGHTER);
    ASSERT_TRUE(decodes(reader, apart)) << reader.error();
    EXPECT_EQ(reader.picture().y, Bytes(1024, 132));
    // Macroblock 2 sees 1 of its slice, which is neither left of nor above it; 3 sees both.
    const Bytes two = key_start(sps) + key_slice(0, 40).unit(LIGHTER) +
                      key_slice(1, 40).unit(LIGHTER + PLAIN + PLAIN);
    ASSERT_TRUE(decodes(reader, two)) << reader.error();
    EXPECT_EQ(luma(reader, 0, 16), 128);
    EXPECT_EQ(luma(reader, 16, 16), 130);  // (128 + 132) / 2
}

TEST(H264Reader, WrapsTheQuantiser) {
    // 40, then mb_qp_delta 25: 65 - 52 = 13; then -25: -12 + 52 = 40. se(25) is ue(49), se(-25) is
    // ue(50). At 13: LevelScale 176, a shift of 4: 11; 43 >> 6 = 0. Afterwards 4 again.
    const std::string up = "00100 1 00000110010 01 0 1", down = "00100 1 00000110011 01 0 1";
    sim::H264Reader reader;
    ASSERT_TRUE(decodes(reader, key_start() + key_slice(0, 40).unit(up + down))) << reader.error();
    EXPECT_EQ(luma(reader, 0, 0), 128);
    EXPECT_EQ(luma(reader, 16, 0), 132);
}

TEST(H264Reader, CopiesPcmAndCountsItsCoefficients) {
    sim::H264Reader reader;
    // The second macroblock has no coefficients of its own, and is predicted from the samples.
    const std::string first = pcm(key_slice().bits(), 77, 50, 200);
    const Bytes unit = key_start() + nal(IDR, Bits().raw(first + BESIDE_PCM));
    ASSERT_TRUE(decodes(reader, unit)) << reader.error();
    EXPECT_EQ(reader.picture().y, Bytes(512, 77));
    EXPECT_EQ(reader.picture().u, Bytes(128, 50));
    EXPECT_EQ(reader.picture().v, Bytes(128, 200));
    // The code for neighbours without coefficients is another one.
    EXPECT_NE(refusal(key_start() + nal(IDR, Bits().raw(first + PLAIN))), "decoded");
}

TEST(H264Reader, CropsAtTheRightAndTheBottom) {
    Sps sps;
    sps.crop_right = 3;   // 6 samples: 26
    sps.crop_bottom = 4;  // 8 samples: 8
    sim::H264Reader reader;
    ASSERT_TRUE(decodes(reader, key_start(sps) + key_slice(0, 40).unit(PLAIN + LIGHTER)));
    EXPECT_EQ(reader.picture().size, (sim::PictureSize{26, 8}));
    EXPECT_EQ(reader.picture().y.size(), 208U);
    for (int y = 0; y < 8; ++y) {
        EXPECT_EQ(luma(reader, 0, y), 128);
        EXPECT_EQ(luma(reader, 15, y), 128);
    }
    EXPECT_EQ(luma(reader, 16, 0), 132);
    EXPECT_EQ(luma(reader, 25, 7), 132);
}

TEST(H264Reader, KeepsWhatAPictureSkips) {
    sim::H264Reader reader;
    ASSERT_TRUE(decodes(reader, key_start() + key_slice(0, 40).unit(LIGHTER + PLAIN)));
    // Skip both: mb_skip_run 2.
    ASSERT_TRUE(decodes(reader, delimiter() + p_slice(1).unit("011"))) << reader.error();
    EXPECT_FALSE(reader.was_key());
    EXPECT_EQ(reader.picture().y, Bytes(512, 132));
    // Skip one, then intra: a skipped neighbour is not predicted from.
    ASSERT_TRUE(decodes(reader, delimiter(1) + p_slice(2).unit("010" + P_PLAIN))) << reader.error();
    EXPECT_EQ(luma(reader, 15, 0), 132);
    EXPECT_EQ(luma(reader, 16, 0), 128);
    // Intra first (no run: "1"), then skip one.
    ASSERT_TRUE(decodes(reader, delimiter(1) + p_slice(3, 0, 40).unit("1" + P_LIGHTER + "010")))
        << reader.error();
    EXPECT_EQ(luma(reader, 0, 0), 132);
    EXPECT_EQ(luma(reader, 16, 0), 128);
}

TEST(H264Reader, CountsFramesModulo256) {
    sim::H264Reader reader;
    ASSERT_TRUE(decodes(reader, grey_key()));
    for (unsigned i = 1; i < 600; ++i)
        ASSERT_TRUE(decodes(reader, delimiter() + p_slice(i % 256).unit("011"))) << i;
    // A key picture begins at 0 again.
    ASSERT_TRUE(decodes(reader, grey_key()));
    ASSERT_TRUE(decodes(reader, delimiter() + p_slice(1).unit("011")));
    EXPECT_FALSE(decodes(reader, delimiter() + p_slice(3).unit("011")));
    EXPECT_EQ(reader.error(), "slice 0: frame_num does not follow that of the picture before");
}

TEST(H264Reader, WaitsForAKeyPictureAndKeepsTheLastWholeOne) {
    sim::H264Reader reader;
    const Bytes skip = delimiter() + p_slice(1).unit("011");
    EXPECT_FALSE(decodes(reader, skip));
    EXPECT_EQ(reader.error(), "slice 0: the picture that it refers to was not decoded");
    ASSERT_TRUE(decodes(reader, key_start() + key_slice(0, 40).unit(LIGHTER + PLAIN)));
    // The first macroblock is replaced, the second one is missing.
    EXPECT_FALSE(decodes(reader, delimiter() + p_slice(1).unit("1" + P_PLAIN)));
    EXPECT_EQ(reader.error(), "macroblock 1: it is missing, and all behind it");
    EXPECT_EQ(reader.picture().y, Bytes(512, 132));
    EXPECT_FALSE(decodes(reader, skip));
    // A damaged key picture is not shown either.
    EXPECT_FALSE(decodes(reader, key_start() + key_slice().unit(PLAIN)));
    EXPECT_EQ(reader.picture().y, Bytes(512, 132));
    EXPECT_FALSE(decodes(reader, skip));
    ASSERT_TRUE(decodes(reader, grey_key()));
    EXPECT_TRUE(decodes(reader, skip));
    // A picture that was whole is not taken back by damage that comes later.
    ASSERT_TRUE(decodes(reader, delimiter() + p_slice(2, 0, 40).unit("1" + P_LIGHTER + "010")));
    EXPECT_FALSE(decodes(reader, delimiter()));
    EXPECT_EQ(luma(reader, 0, 0), 132);
}

TEST(H264Reader, TakesFillerAndTrailingZeros) {
    for (size_t count = 0; count < 70; ++count)
        EXPECT_EQ(refusal(grey_key() + filler(count)), "decoded");
    EXPECT_EQ(refusal(grey_key() + filler(4000) + Bytes(4, 0)), "decoded");
    EXPECT_EQ(refusal(grey_key() + Bytes(4, 0)), "decoded");
}
