// What a frame is found to be when it is decoded, beside what its record says of it.
#include "sdk/video/picture_check.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "sdk/video/h264_writer.h"
#include "sdk/video/jpeg_writer.h"

namespace {

using namespace sim;
using Found = PictureCheck::Found;
using Frame = std::pair<FrameInfo, std::vector<uint8_t>>;

Scene scene_of(uint8_t stream) {
    Scene scene;
    scene.pattern = Pattern::moving_bar;
    scene.stream = stream;
    scene.channel = 9;
    scene.size = {352, 288};
    return scene;
}

FrameInfo info_of(FrameKind kind, uint8_t stream, uint32_t number, size_t bytes) {
    FrameInfo info;
    info.kind = kind;
    info.stream = stream;
    info.channel = 9;
    info.number = number;
    info.bytes = static_cast<uint32_t>(bytes);
    return info;
}

// Frames with these numbers.
std::vector<Frame> h264(const std::vector<uint32_t>& numbers, const PrivateZone& zone = {},
                        size_t key_every = 10) {
    H264Writer writer;
    writer.configure(scene_of(0), zone, 30);
    std::vector<Frame> frames;
    for (size_t i = 0; i < numbers.size(); ++i) {
        const bool key = i % key_every == 0;
        std::vector<uint8_t> bytes(writer.compose(numbers[i], key));
        writer.write(bytes.size(), bytes.data());
        frames.emplace_back(
            info_of(key ? FrameKind::idr : FrameKind::p, 0, numbers[i], bytes.size()), bytes);
    }
    return frames;
}

std::vector<uint32_t> up_to(uint32_t end) {
    std::vector<uint32_t> numbers;
    for (uint32_t n = 0; n < end; ++n) numbers.push_back(n);
    return numbers;
}

Found check(PictureCheck& checker, const Frame& frame) {
    return checker.check(frame.first, frame.second.data(), frame.second.size());
}

std::vector<Found> check_all(const std::vector<Frame>& frames) {
    PictureCheck checker;
    std::vector<Found> found;
    for (const Frame& frame : frames) found.push_back(check(checker, frame));
    return found;
}

TEST(PictureCheck, FindsFramesFine) {
    PictureCheck checker;
    for (const Frame& frame : h264(up_to(25))) {
        ASSERT_EQ(check(checker, frame), Found::fine) << frame.first.number;
        ASSERT_TRUE(checker.picture());
        EXPECT_EQ(checker.picture()->size, (PictureSize{352, 288}));
    }
}

TEST(PictureCheck, BehindALostFrameAllWaitForTheNextKeyFrame) {
    std::vector<Frame> frames = h264(up_to(25));
    frames.erase(frames.begin() + 7);
    const std::vector<Found> found = check_all(frames);
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i], i == 7 || i == 8 ? Found::waits_for_key : Found::fine) << i;
}

TEST(PictureCheck, ASlotThatWasPassedOverIsNoLoss) {
    for (const Found found : check_all(h264({0, 1, 2, 5, 6, 9, 100})))
        EXPECT_EQ(found, Found::fine);
}

TEST(PictureCheck, BeforeTheFirstKeyFrameAllWait) {
    std::vector<Frame> frames = h264(up_to(12));
    frames.erase(frames.begin());
    const std::vector<Found> found = check_all(frames);
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i], i < 9 ? Found::waits_for_key : Found::fine) << i;
}

TEST(PictureCheck, ADamagedFrameIsWrongAndTheOthersWait) {
    std::vector<Frame> frames = h264(up_to(12));
    for (size_t i = 8; i < frames[4].second.size(); ++i) frames[4].second[i] = 0xFF;
    const std::vector<Found> found = check_all(frames);
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i], i == 4            ? Found::wrong
                            : i > 4 && i < 10 ? Found::waits_for_key
                                              : Found::fine)
            << i;
}

TEST(PictureCheck, ARecordThatSaysSomethingElseIsWrongAlone) {
    for (int what = 0; what < 3; ++what) {
        std::vector<Frame> frames = h264(up_to(12));
        FrameInfo& info = frames[4].first;
        if (what == 0) info.number = 77;
        if (what == 1) info.channel = 3;
        if (what == 2) info.stream = 5;
        PictureCheck checker;
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(check(checker, frames[i]), i == 4 ? Found::wrong : Found::fine) << i;
            EXPECT_EQ(checker.picture() == nullptr, i == 4);
            EXPECT_EQ(checker.error(),
                      i == 4 ? "its picture is that of stream 0, channel 9, frame 4" : "");
        }
    }
}

TEST(PictureCheck, AKeyFrameIsWhatItsRecordSays) {
    std::vector<Frame> frames = h264(up_to(12));
    frames[10].first.kind = FrameKind::p;
    EXPECT_EQ(check_all(frames)[10], Found::wrong);
    frames = h264(up_to(12));
    frames[4].first.kind = FrameKind::idr;
    EXPECT_EQ(check_all(frames)[4], Found::wrong);
}

// Whatever was done to it: what the key picture before shows is not covered.
TEST(PictureCheck, ADecodedFrameThatSpoilsTheCodeIsWrongAndTheOthersWait) {
    std::vector<Frame> frames = h264(up_to(12));
    // What it changes are the squares of other numbers.
    frames[4].second = h264({0, 1, 2, 77'777, 77'778})[4].second;
    PictureCheck checker;
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(check(checker, frames[i]), i == 4            ? Found::wrong
                                             : i > 4 && i < 10 ? Found::waits_for_key
                                                               : Found::fine)
            << i;
        EXPECT_EQ(checker.error(),
                  i == 4 ? "its block code is damaged" : "");
        EXPECT_EQ(checker.picture() != nullptr, i < 4 || i >= 10);
    }
}

// As many as H.264 counts before it begins again.
TEST(PictureCheck, BehindTwoHundredAndFiftySixLostFramesAllWait) {
    std::vector<Frame> frames = h264(up_to(320), {}, 310);
    frames.erase(frames.begin() + 20, frames.begin() + 20 + 256);
    const std::vector<Found> found = check_all(frames);
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i], i < 20 || i >= 310 - 256 ? Found::fine : Found::waits_for_key) << i;
}

// The zone comes and goes with key frames; nothing is wrong with either.
TEST(PictureCheck, AZoneOverAPartOfTheCodeIsNoError) {
    PrivateZone zone;
    zone.enabled = true;
    zone.start_x = 60;
    zone.start_y = 250;
    zone.width = 40;
    zone.height = 20;
    std::vector<Frame> frames = h264(up_to(10));
    const std::vector<Frame> covered = h264(up_to(10), zone);
    frames.insert(frames.end(), covered.begin(), covered.end());
    for (const Frame& frame : h264(up_to(10))) frames.push_back(frame);
    const std::vector<Found> found = check_all(frames);
    for (size_t i = 0; i < found.size(); ++i)
        EXPECT_EQ(found[i], i < 10 || i >= 20 ? Found::fine : Found::no_code) << i;
}

// A zone over squares that are dark in the key picture anyway.
TEST(PictureCheck, AZoneOverWhatIsDarkInTheKeyPictureIsNoError) {
    constexpr int COLUMN = 6;
    constexpr uint64_t HIDDEN = 0x0001'0001'0001'0001U << (15 - COLUMN);
    const auto hides = [](uint32_t number) {
        return (sim::block_code_bits({0, 9, number}) & HIDDEN) != 0;
    };
    uint32_t first = 0;
    while (hides(first) || !hides(first + 1)) ++first;
    PrivateZone zone;
    zone.enabled = true;
    zone.start_x = 8 * COLUMN;
    zone.start_y = 288 - 32;
    zone.width = 8;
    zone.height = 32;
    std::vector<uint32_t> numbers;
    for (uint32_t n = first; n < first + 10; ++n) numbers.push_back(n);
    PictureCheck checker;
    for (const Frame& frame : h264(numbers, zone)) {
        const uint32_t number = frame.first.number;
        EXPECT_EQ(check(checker, frame), hides(number) ? Found::no_code : Found::fine) << number;
        EXPECT_EQ(checker.error(), "");
    }
}

TEST(PictureCheck, GarbageIsWrongAndNeverAPicture) {
    constexpr size_t HUGE_BYTES = 8 << 20;
    const std::vector<Frame> good = h264(up_to(11));
    for (const FrameKind kind : {FrameKind::idr, FrameKind::p, FrameKind::jpeg}) {
        for (const size_t bytes : {size_t{0}, size_t{1}, size_t{5}, HUGE_BYTES}) {
            for (const int value : {0x00, 0x01, 0xFF, 0x5A}) {
                PictureCheck checker;
                ASSERT_EQ(check(checker, good[0]), Found::fine);
                const Frame garbage = {info_of(kind, 0, 1, bytes),
                                       std::vector<uint8_t>(bytes, static_cast<uint8_t>(value))};
                EXPECT_EQ(check(checker, garbage), Found::wrong);
                EXPECT_EQ(checker.picture(), nullptr);
                EXPECT_NE(checker.error(), "");
                EXPECT_EQ(check(checker, good[1]), Found::waits_for_key);
                EXPECT_EQ(checker.error(), "");
                EXPECT_EQ(check(checker, good[10]), Found::fine);
            }
        }
    }
}

TEST(PictureCheck, ACoveredCodeIsNoError) {
    PrivateZone zone;
    zone.enabled = true;
    zone.start_y = 144;
    zone.width = 352;
    zone.height = 144;
    for (const Found found : check_all(h264(up_to(12), zone))) EXPECT_EQ(found, Found::no_code);
}

TEST(PictureCheck, JpegPicturesStandAlone) {
    JpegWriter writer;
    writer.configure(scene_of(2), {}, 30);
    std::vector<Frame> frames;
    for (const uint32_t number : {3U, 9U, 2U, 4U}) {
        std::vector<uint8_t> bytes(writer.compose(number));
        writer.write(bytes.size(), bytes.data());
        frames.emplace_back(info_of(FrameKind::jpeg, 2, number, bytes.size()), bytes);
    }
    frames[1].second.resize(300);
    frames[3].first.number = 5;
    EXPECT_EQ(check_all(frames),
              (std::vector<Found>{Found::fine, Found::wrong, Found::fine, Found::wrong}));
}

TEST(PictureCheck, ACoveredCodeOfAJpegIsNoError) {
    PrivateZone zone;
    zone.enabled = true;
    zone.start_y = 144;
    zone.width = 352;
    zone.height = 144;
    JpegWriter writer;
    writer.configure(scene_of(2), zone, 30);
    std::vector<uint8_t> bytes(writer.compose(3));
    writer.write(bytes.size(), bytes.data());
    PictureCheck checker;
    EXPECT_EQ(check(checker, {info_of(FrameKind::jpeg, 2, 3, bytes.size()), bytes}),
              Found::no_code);
    EXPECT_TRUE(checker.picture());
}

}  // namespace
