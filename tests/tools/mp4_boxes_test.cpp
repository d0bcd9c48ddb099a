// The bytes of boxes, worked out by hand from ISO/IEC 14496-12.
#include <gtest/gtest.h>

#include <string>

#include "tools/qmtool/mp4_movie.h"

namespace {

// Hexadecimal digits of bytes; four characters in quotes stand for themselves.
std::string hex(const std::vector<uint8_t>& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string expected(const std::string& words) {
    std::string text;
    for (size_t at = 0; at < words.size(); ++at) {
        if (words[at] == ' ') continue;
        if (words[at] != '"') {
            text += words[at];
            continue;
        }
        for (++at; words[at] != '"'; ++at) text += hex({static_cast<uint8_t>(words[at])});
    }
    return text;
}

TEST(Mp4Boxes, HaveTheirSizeBeforeThem) {
    Boxes boxes;
    boxes.begin("outr").u8(1).begin_full("innr", 2, 3).u16(0x1234).end().u24(0xABCDEF).end();
    boxes.begin("next").wide(false, 7).wide(true, 8).end();
    EXPECT_EQ(hex(boxes.out()),
              expected("0000001a \"outr\" 01 0000000e \"innr\" 02 000003 1234 abcdef"
                       "00000014 \"next\" 00000007 0000000000000008"));
}

TEST(Mp4Samples, AreToldInRuns) {
    SampleTable table;
    table.add(0, 100, 1000, 1, true);
    table.add(3600, 50, 1100, 1, false);   // follows: the same chunk
    table.add(7200, 60, 2000, 1, false);   // behind something else: another one
    table.add(10'801, 70, 2060, 2, true);  // another description
    table.end(3600);
    EXPECT_EQ(table.count(), 4u);
    EXPECT_EQ(table.duration(), 14'401u);
    Boxes boxes;
    table.write(boxes);
    EXPECT_EQ(hex(boxes.out()),
              expected("00000028 \"stts\" 00000000 00000003 00000002 00000e10 00000001 00000e11"
                       "00000001 00000e10"
                       "00000018 \"stss\" 00000000 00000002 00000001 00000004"
                       "00000034 \"stsc\" 00000000 00000003 00000001 00000002 00000001"
                       "00000002 00000001 00000001 00000003 00000001 00000002"
                       "0000001c \"stco\" 00000000 00000003 000003e8 000007d0 0000080c"
                       "00000024 \"stsz\" 00000000 00000000 00000004 00000064 00000032 0000003c"
                       "00000046"));
}

// 20 hours between two pictures at 90,000 ticks a second: twice as long ticks have room for it.
TEST(Mp4Samples, AreToldInLongerTicksWhereAStepIsLong) {
    constexpr int64_t PAUSE = int64_t{20} * 3600 * 90'000;
    SampleTable table;
    table.add(0, 10, 8, 1, true);
    table.add(3003, 10, 18, 1, true);
    table.add(6006, 10, 28, 1, true);
    EXPECT_EQ(table.divisor(90'000), 1u);
    table.add(6006 + PAUSE, 10, 38, 1, true);
    table.end(3003);
    EXPECT_EQ(table.duration(), uint64_t{9009} + PAUSE);
    // 6,480,000,000 / 2 are too many for 31 bits, / 4 are not: 1,620,000,000.
    ASSERT_EQ(table.divisor(90'000), 4u);
    Boxes boxes;
    table.write(boxes, 4);
    // 750.75, 1501.5 and so on, each rounded down for itself; the pause is 0x608F3D00.
    EXPECT_EQ(hex(boxes.out()).substr(0, expected("00000030 \"stts\" 00000000 00000004").size()),
              expected("00000030 \"stts\" 00000000 00000004"));
    EXPECT_NE(hex(boxes.out())
                  .find(expected("00000001 000002ee 00000001 000002ef"
                                 "00000001 608f3d00 00000001 000002ef")),
              std::string::npos)
        << hex(boxes.out());
}

TEST(Mp4Samples, CountMoreSoundThanThirtyTwoBits) {
    SampleTable table(1);
    for (int i = 0; i < 5; ++i) table.add_run(1'000'000'000, 64);
    Boxes boxes;
    table.write(boxes);
    // 4 and 1 thousand millions.
    EXPECT_EQ(hex(boxes.out())
                  .find(expected("00000020 \"stts\" 00000000 00000002 ee6b2800 00000001"
                                 "3b9aca00 00000001")),
              0u);
}

TEST(Mp4Samples, NeedNoTableOfKeyFramesWhenAllAre) {
    SampleTable table;
    table.add(0, 10, 8, 1, true);
    table.end(5);
    Boxes boxes;
    table.write(boxes);
    EXPECT_EQ(hex(boxes.out()),
              expected("00000018 \"stts\" 00000000 00000001 00000001 00000005"
                       "0000001c \"stsc\" 00000000 00000001 00000001 00000001 00000001"
                       "00000014 \"stco\" 00000000 00000001 00000008"
                       "00000018 \"stsz\" 00000000 00000000 00000001 0000000a"));
}

// The last offset that 32 bits can hold, and the next one.
TEST(Mp4Samples, HaveOffsetsOf64BitsWhereTheyMust) {
    for (const uint64_t offset : {uint64_t{0xFFFF'FFFF}, uint64_t{0x1'0000'0000}}) {
        SampleTable table(1);
        table.add_run(4000, 64);
        table.add_run(4000, offset);
        table.add_run(0, 5);
        EXPECT_EQ(table.duration(), 8000u);
        Boxes boxes;
        table.write(boxes);
        const std::string offsets =
            offset <= UINT32_MAX
                ? "00000018 \"stco\" 00000000 00000002 00000040 ffffffff"
                : "00000020 \"co64\" 00000000 00000002 0000000000000040 0000000100000000";
        EXPECT_EQ(hex(boxes.out()),
                  expected("00000018 \"stts\" 00000000 00000001 00001f40 00000001"
                           "0000001c \"stsc\" 00000000 00000001 00000001 00000fa0"
                           "00000001" +
                           offsets + "00000014 \"stsz\" 00000000 00000001 00001f40"));
    }
}

// The content of the first box of a type, wherever it is.
std::string content(const std::vector<uint8_t>& bytes, const std::string& type) {
    const std::string all(bytes.begin(), bytes.end());
    const size_t at = all.find(type);
    if (at == std::string::npos) return "none";
    const auto* size = reinterpret_cast<const uint8_t*>(all.data()) + at - 4;
    const size_t length = static_cast<size_t>(size[2] << 8 | size[3]);
    return hex({bytes.begin() + static_cast<long>(at) + 4,
                bytes.begin() + static_cast<long>(at - 4 + length)});
}

Movie small_movie(MovieKind kind) {
    Movie movie;
    movie.kind = kind;
    movie.start_us = 1'000'000;  // 1970-01-01T00:00:01Z
    movie.descriptions.push_back({false, {176, 144}, {0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}});
    movie.pictures.add(0, 10, 40, 1, true);
    movie.pictures.end(3600);
    movie.picture_edit = {0, 0, 3600};
    movie.sound.add_run(320, 50);
    movie.sound_edit = {900, 0, 3600};
    return movie;
}

TEST(Mp4Movie, DescribesItsTracks) {
    Boxes boxes;
    write_movie(boxes, small_movie(MovieKind::mp4));
    EXPECT_EQ(content(boxes.out(), "mvhd").substr(0, 40),
              expected("00000000 7c25b081 7c25b081 00015f90 00001194"));
    EXPECT_EQ(content(boxes.out(), "elst"),
              expected("00000000 00000001 00000e10 00000000 00010000"));
    EXPECT_EQ(content(boxes.out(), "avcC"), expected("01 42c01e ff e1 0004 6742c01e 01 0002 68ce"));
    EXPECT_EQ(content(boxes.out(), "ulaw"),
              expected("000000000000 0001 0000 0000 00000000 0001 0010 0000 0000 1f400000"));
    EXPECT_EQ(content(boxes.out(), "hdlr"),
              expected("00000000 00000000 \"vide\" 000000000000000000000000 \"Pictures\" 00"));
}

TEST(Mp4Movie, IsOtherInQuickTime) {
    Boxes boxes;
    write_movie(boxes, small_movie(MovieKind::quicktime));
    EXPECT_EQ(content(boxes.out(), "hdlr"),
              expected("00000000 \"mhlr\" \"vide\" 000000000000000000000000 08 \"Pictures\""));
    EXPECT_EQ(content(boxes.out(), "ulaw").substr(0, 88),
              expected("000000000000 0001 0001 0000 00000000 0001 0010 0000 0000 1f400000"
                       "00000001 00000001 00000001 00000002"));
    EXPECT_EQ(content(boxes.out(),
                      "\xA9"
                      "day"),
              expected("0018 55c4 \"1970-01-01T00:00:01.000Z\""));
}

TEST(Mp4Movie, SkipsAndWaits) {
    Movie movie = small_movie(MovieKind::mp4);
    movie.picture_edit = {0, 0x12345, 3600};
    Boxes skipping;
    write_movie(skipping, movie);
    EXPECT_EQ(content(skipping.out(), "elst"),
              expected("00000000 00000001 00000e10 00012345 00010000"));
    movie.picture_edit = {900, 0, 3600};
    Boxes waiting;
    write_movie(waiting, movie);
    EXPECT_EQ(content(waiting.out(), "elst"),
              expected("00000000 00000002 00000384 ffffffff 00010000 00000e10 00000000 00010000"));
    movie.picture_edit = {0, 0, uint64_t{1} << 32};  // 13.3 hours
    Boxes longer;
    write_movie(longer, movie);
    EXPECT_EQ(content(longer.out(), "elst"),
              expected("01000000 00000001 0000000100000000 0000000000000000 00010000"));
    EXPECT_EQ(content(longer.out(), "mvhd").substr(0, 64),
              expected("01000000 000000007c25b081 000000007c25b081 00015f90 0000000100000000"));
}

// As ISO/IEC 14496-1 has it: object type 0x6C, visual stream, nothing told of rates.
TEST(Mp4Movie, SaysThatSamplesAreJpeg) {
    Movie movie = small_movie(MovieKind::mp4);
    movie.descriptions = {{true, {704, 576}, {}, {}}};
    Boxes boxes;
    write_movie(boxes, movie);
    EXPECT_EQ(content(boxes.out(), "esds"),
              expected("00000000 03 15 0000 00 04 0d 6c 11 000000 00000000 00000000 06 01 02"));
    EXPECT_EQ(content(boxes.out(), "mp4v").substr(0, 56),
              expected("000000000000 0001 00000000000000000000000000000000 02c0 0240"));
}

}  // namespace
