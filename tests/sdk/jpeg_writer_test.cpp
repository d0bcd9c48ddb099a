// JPEG pictures whole: their header and markers, what a zone changes, and what stays the same from
// picture to picture. What they are made of, and the reader, have their own tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/sdk/jpeg_pictures.h"

namespace {

using namespace jpeg_pictures;

TEST(JpegWriter, QualityFallsEvenlyFrom100To4) {
    EXPECT_EQ(jpeg_quality(0), 100);
    EXPECT_EQ(jpeg_quality(17), 68);
    EXPECT_EQ(jpeg_quality(34), 36);
    EXPECT_EQ(jpeg_quality(51), 4);
    EXPECT_EQ(jpeg_quality(-1), 100);
    EXPECT_EQ(jpeg_quality(52), 4);
    for (int qp = 1; qp <= 51; ++qp) {
        const int step = jpeg_quality(qp - 1) - jpeg_quality(qp);
        EXPECT_TRUE(step == 1 || step == 2) << qp;
    }
}

TEST(JpegWriter, HeaderNamesThePicture) {
    JpegWriter writer;
    writer.configure(scene_of(704, 480), {}, 17);
    const Bytes bytes = written(writer, 1234);
    const std::string comment = "channel 07 stream JPEG frame 0000001234";
    EXPECT_EQ(
        Bytes(bytes.begin(), bytes.begin() + 20),
        (Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 2, 0, 0, 1, 0, 1, 0, 0}));
    EXPECT_EQ(Bytes(bytes.begin() + 20, bytes.begin() + 24),
              (Bytes{0xFF, 0xFE, 0, static_cast<uint8_t>(comment.size() + 2)}));
    EXPECT_EQ(std::string(bytes.begin() + 24, bytes.begin() + 24 + 39), comment);
    // Quality 68 takes 64 %: in zigzag order of 16, 11, 12, 14 and of 17, 18, 18, 24.
    const auto tables = bytes.begin() + 24 + 39;
    EXPECT_EQ(Bytes(tables, tables + 9), (Bytes{0xFF, 0xDB, 0, 67, 0, 10, 7, 8, 9}));
    EXPECT_EQ(Bytes(tables + 69, tables + 78), (Bytes{0xFF, 0xDB, 0, 67, 1, 11, 12, 12, 15}));
    // Quantisation tables, 69 bytes each, then the frame: 480 rows of 704.
    const auto frame = tables + 2 * 69;
    EXPECT_EQ(Bytes(frame, frame + 19), (Bytes{0xFF, 0xC0, 0, 17, 8, 0x01, 0xE0, 0x02, 0xC0, 3,  //
                                               1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}));
}

TEST(JpegWriter, CommentHasTheSameLengthForAllNumbers) {
    const auto comment = [](uint8_t channel, uint8_t stream, uint32_t number) {
        Scene scene = scene_of(176, 120);
        scene.channel = channel;
        scene.stream = stream;
        JpegWriter writer;
        writer.configure(scene, {}, 40);
        const Bytes bytes = written(writer, number);
        JpegReader reader;
        EXPECT_TRUE(reader.decode(bytes.data(), bytes.size())) << reader.error();
        return reader.comment();
    };
    EXPECT_EQ(comment(0, 0, 0), "channel 01 stream MAIN frame 0000000000");
    EXPECT_EQ(comment(15, 1, 4294967295), "channel 16 stream DUAL frame 4294967295");
    EXPECT_EQ(comment(8, 3, 10), "channel 09 stream PREV frame 0000000010");
    EXPECT_EQ(comment(9, 4, 10), "channel 10 stream 3RD frame 0000000010");
    EXPECT_EQ(comment(9, 5, 10), "channel 10 stream 4TH frame 0000000010");
}

// The markers of a picture behind its header.
std::vector<int> markers_in(const Bytes& bytes) {
    std::vector<int> found;
    const Bytes scan = {0xFF, 0xDA};
    auto at = std::search(bytes.begin(), bytes.end(), scan.begin(), scan.end()) + 2;
    for (; at + 1 < bytes.end(); ++at) {
        if (*at == 0xFF && at[1] != 0 && at[1] != 0xFF) found.push_back(at[1]);
    }
    return found;
}

TEST(JpegWriter, RestartMarkersCountToEight) {
    struct Case {
        PictureSize size;
        int interval, intervals;
    };
    for (const Case& c : {Case{{176, 120}, 11, 8}, Case{{352, 288}, 11, 36},
                          Case{{704, 480}, 11, 120}, Case{{1280, 720}, 10, 360}}) {
        JpegWriter writer;
        writer.configure(scene_of(c.size.width, c.size.height), {}, 20);
        const Bytes bytes = written(writer, 5);
        const Bytes restart = {0xFF, 0xDD, 0, 4, 0, static_cast<uint8_t>(c.interval)};
        EXPECT_NE(std::search(bytes.begin(), bytes.end(), restart.begin(), restart.end()),
                  bytes.end());
        std::vector<int> expected;
        for (int i = 0; i + 1 < c.intervals; ++i) expected.push_back(0xD0 + i % 8);
        expected.push_back(0xD9);
        EXPECT_EQ(markers_in(bytes), expected) << c.size.width;
    }
}

TEST(JpegWriter, FillsBeforeTheEnd) {
    JpegWriter writer;
    writer.configure(scene_of(176, 144), {}, 30);
    const Bytes plain = written(writer, 9);
    const Picture picture = decoded(plain);
    for (const size_t fill : {1U, 2U, 3U, 64U, 40000U}) {
        Bytes expected(plain.begin(), plain.end() - 2);
        expected.insert(expected.end(), fill, 0xFF);
        expected.insert(expected.end(), {0xFF, 0xD9});
        EXPECT_EQ(written(writer, 9, fill), expected);
        EXPECT_EQ(decoded(expected).y, picture.y);
    }
}

TEST(JpegWriter, WritesNothingBeforeItComposed) {
    JpegWriter writer;
    EXPECT_EQ(writer.compose(1), 0U);
    Bytes bytes(3, 7);
    writer.write(bytes.size(), bytes.data());
    EXPECT_EQ(bytes, Bytes(3, 7));
    writer.configure(scene_of(0, 0), {}, 20);
    EXPECT_EQ(writer.compose(1), 0U);
    writer.configure(scene_of(176, 120), {}, 20);
    EXPECT_GT(writer.compose(1), 600U);
}

// What was kept from the pictures before makes no difference.
TEST(JpegWriter, APictureDoesNotDependOnThoseBefore) {
    for (const PictureSize size :
         {PictureSize{176, 120}, PictureSize{352, 288}, PictureSize{1280, 720}}) {
        for (const Pattern pattern : {Pattern::moving_bar, Pattern::gradient}) {
            for (const PrivateZone& zone : {PrivateZone(), zone_of(21, 13, 75, 300)}) {
                const Scene scene = scene_of(size.width, size.height, pattern);
                JpegWriter writer;
                writer.configure(scene, zone, 25);
                for (const uint32_t number :
                     {0U, 1U, 2U, 3U, 20U, 2U, 9999U, 10000U, 4294967295U}) {
                    JpegWriter fresh;
                    fresh.configure(scene, zone, 25);
                    EXPECT_EQ(written(writer, number), written(fresh, number)) << number;
                }
                writer.configure(scene, zone, 40);
                writer.compose(7);
                writer.configure(scene, zone, 25);
                JpegWriter fresh;
                fresh.configure(scene, zone, 25);
                EXPECT_EQ(written(writer, 7), written(fresh, 7));
            }
        }
    }
}

TEST(JpegWriter, ConfiguresWhateverIsDifferent) {
    Scene scene = scene_of(352, 240, Pattern::noise);
    PrivateZone zone;
    int qp = 20;
    JpegWriter writer;
    Bytes before;
    const auto expect_another = [&](const char* what) {
        writer.configure(scene, zone, qp);
        JpegWriter fresh;
        fresh.configure(scene, zone, qp);
        const Bytes bytes = written(fresh, 4);
        EXPECT_EQ(written(writer, 4), bytes) << what;
        EXPECT_NE(bytes, before) << what;
        before = bytes;
    };
    expect_another("first");
    qp = 21;
    expect_another("qp");
    zone = zone_of(1, 2, 3, 4);
    expect_another("zone");
    scene.seed = 2;
    expect_another("seed");
    scene.channel = 1;
    expect_another("channel");
    scene.stream = 1;
    expect_another("stream");
    scene.rate = 3;
    expect_another("rate");
    scene.text = Text::counters;
    expect_another("text");
    scene.pattern = Pattern::bars;
    expect_another("pattern");
    scene.size.height = 288;
    expect_another("size");
}

// Forwards the bar comes from above to rows whose texts stay the same, backwards from below.
TEST(JpegWriter, TheWayToAPictureMakesNoDifference) {
    for (const PictureSize size : {PictureSize{176, 144}, PictureSize{352, 288}}) {
        for (const Text text : {Text::off, Text::counters, Text::full}) {
            Scene scene = scene_of(size.width, size.height, Pattern::moving_bar);
            scene.text = text;
            JpegWriter forwards, backwards;
            forwards.configure(scene, zone_of(90, 3, 30, 141), 22);
            backwards.configure(scene, zone_of(90, 3, 30, 141), 22);
            constexpr uint32_t FRAMES = 80;
            std::vector<Bytes> pictures;
            for (uint32_t number = 0; number < FRAMES; ++number) {
                pictures.push_back(written(forwards, number, number % 3));
            }
            for (uint32_t number = FRAMES; number-- > 0;) {
                ASSERT_EQ(written(backwards, number, number % 3), pictures[number]) << number;
            }
        }
    }
}

int largest_difference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    EXPECT_EQ(a.size(), b.size());
    int most = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        most = std::max(most, std::abs(a[i] - b[i]));
    }
    return most;
}

// Quantised by 1: half a step in each of 64 coefficients, which here never adds up to more than 2.
TEST(JpegWriter, IsTheOriginalAtTheBestQuality) {
    for (const PictureSize size : SIZES) {
        for (int pattern = 0; pattern < PATTERNS; ++pattern) {
            JpegWriter writer;
            const PrivateZone zone = zone_of(size.width - 37, 5, 100, size.height / 2 + 1);
            writer.configure(scene_of(size.width, size.height, static_cast<Pattern>(pattern)),
                             pattern % 2 ? zone : PrivateZone(), 0);
            const Picture picture = decoded(written(writer, 123));
            Picture original;
            writer.original(original);
            ASSERT_EQ(picture.size, size);
            EXPECT_LE(largest_difference(picture.y, original.y), 2) << pattern;
            EXPECT_LE(largest_difference(picture.u, original.u), 2) << pattern;
            EXPECT_LE(largest_difference(picture.v, original.v), 2) << pattern;
        }
    }
}

TEST(JpegWriter, BlockCodeIsReadAtEveryQuality) {
    for (const PictureSize size : SIZES) {
        for (int qp = 0; qp <= 51; ++qp) {
            JpegWriter writer;
            const bool busy = size.width < 704 || qp % 17 == 0;  // noise takes time to decode
            writer.configure(
                scene_of(size.width, size.height, busy ? Pattern::noise : Pattern::moving_bar), {},
                qp);
            const uint32_t number = 0xC0DE0000U + static_cast<uint32_t>(qp);
            BlockCode code;
            ASSERT_EQ(read_block_code(decoded(written(writer, number)), code), CodeFound::valid);
            EXPECT_EQ(code, (BlockCode{2, 6, number})) << size.width << " " << qp;
        }
    }
}

// At the best quality a zone anywhere, also across texts and bar, is what was drawn.
TEST(JpegWriter, AZoneIsWhereItWasSet) {
    const PictureSize size = {176, 120};
    for (const PrivateZone& zone :
         {zone_of(0, 0, 1, 1), zone_of(11, 13, 1, 1), zone_of(5, 7, 33, 41), zone_of(8, 8, 8, 8),
          zone_of(15, 0, 2, 120), zone_of(0, 15, 176, 2), zone_of(155, 107, 100, 100),
          zone_of(175, 119, 65535, 65535), zone_of(3, 40, 169, 79)}) {
        Scene scene = scene_of(size.width, size.height, Pattern::moving_bar);
        JpegWriter writer;
        writer.configure(scene, zone, 0);
        for (uint32_t number = 0; number < 16; ++number) {
            const Picture picture = decoded(written(writer, number));
            Picture original;
            writer.original(original);
            ASSERT_LE(largest_difference(picture.y, original.y), 2) << zone.start_x;
            ASSERT_LE(largest_difference(picture.u, original.u), 2) << zone.start_x;
            ASSERT_LE(largest_difference(picture.v, original.v), 2) << zone.start_x;
        }
    }
}

TEST(JpegWriter, AZoneOfNothingChangesNothing) {
    const Scene scene = scene_of(352, 240, Pattern::gradient);
    JpegWriter without;
    without.configure(scene, {}, 20);
    const Bytes expected = written(without, 5);
    PrivateZone off = zone_of(201, 8, 50, 50);
    off.enabled = false;
    // The one that is off and those without an area lie beside the texts, over colours.
    for (const PrivateZone& zone : {off, zone_of(201, 9, 0, 50), zone_of(201, 99, 50, 0),
                                    zone_of(352, 0, 50, 50), zone_of(0, 240, 50, 50)}) {
        JpegWriter writer;
        writer.configure(scene, zone, 20);
        EXPECT_EQ(written(writer, 5), expected) << zone.start_x << "," << zone.start_y;
    }
}

TEST(JpegWriter, AZoneOverAllHidesTheCode) {
    JpegWriter writer;
    writer.configure(scene_of(352, 240), zone_of(0, 0, 352, 240), 51);
    BlockCode code;
    EXPECT_EQ(read_block_code(decoded(written(writer, 3)), code), CodeFound::blank);
}

// A plane with a zone and without; `inside` says of a place how much of it is blank.
void expect_blanked(const std::vector<uint8_t>& with, const std::vector<uint8_t>& without,
                    int width, int from_x, int to_x, int from_y, int to_y, uint8_t blank) {
    for (size_t i = 0; i < with.size(); ++i) {
        const int x = static_cast<int>(i) % width, y = static_cast<int>(i) / width;
        const bool inside = x >= from_x && x < to_x && y >= from_y && y < to_y;
        ASSERT_EQ(with[i], inside ? blank : without[i]) << x << "," << y;
    }
}

TEST(JpegWriter, AZoneIsExactInTheOriginal) {
    Scene scene = scene_of(176, 144, Pattern::noise);
    scene.text = Text::off;  // texts have no colour to be blanked
    JpegWriter writer;
    writer.configure(scene, {}, 30);
    writer.compose(77);
    Picture without, with;
    writer.original(without);
    writer.configure(scene, zone_of(13, 9, 20, 51), 30);
    writer.compose(77);
    writer.original(with);
    expect_blanked(with.y, without.y, 176, 13, 33, 9, 60, BLACK_LUMA);
    // Samples 13, 33 and 9 share a chroma sample with one outside.
    ASSERT_EQ(std::count(without.u.begin(), without.u.begin() + 50 * 88, NO_COLOUR), 0);
    expect_blanked(with.u, without.u, 88, 6, 17, 4, 30, NO_COLOUR);
    expect_blanked(with.v, without.v, 88, 6, 17, 4, 30, NO_COLOUR);
}

// Nothing outside the blocks that the zone touches is another.
TEST(JpegWriter, AZoneChangesOnlyItsBlocks) {
    const Scene scene = scene_of(352, 288, Pattern::gradient);
    JpegWriter writer;
    writer.configure(scene, {}, 35);
    const Picture without = decoded(written(writer, 77));
    writer.configure(scene, zone_of(67, 21, 100, 90), 35);
    const Picture with = decoded(written(writer, 77));
    for (int y = 0; y < 288; ++y) {
        for (int x = 0; x < 352; ++x) {
            const auto at = static_cast<size_t>(y * 352 + x);
            // 67..166 and 21..110: blocks from 64 to 167 and from 16 to 111.
            const bool touched = x >= 64 && x < 168 && y >= 16 && y < 112;
            ASSERT_TRUE(touched || with.y[at] == without.y[at]) << x << "," << y;
        }
    }
    // Wholly inside: one flat value, what black becomes.
    const uint8_t black = with.y[40 * 352 + 100];
    EXPECT_NEAR(black, BLACK_LUMA, 8);
    for (int x = 72; x < 160; ++x) EXPECT_EQ(with.y[static_cast<size_t>(40 * 352 + x)], black);
}

}  // namespace
