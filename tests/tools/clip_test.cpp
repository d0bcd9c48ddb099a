// The parts of an export that need no database: times, gaps, places of sound, JPEG from outside.
#include <gtest/gtest.h>

#include "tools/qmtool/clip_gaps.h"
#include "tools/qmtool/clip_jpeg.h"
#include "tools/qmtool/clip_sound.h"
#include "tools/qmtool/clip_times.h"

namespace {

sim::FrameInfo frame(uint32_t number, int64_t time_us, uint32_t run = 1) {
    sim::FrameInfo info;
    info.number = number;
    info.time_us = time_us;
    info.run = run;
    return info;
}

TEST(ClipTimes, AreTheRecordedOnes) {
    ClipTimes times;
    EXPECT_EQ(times.of(frame(0, 5000)), 5000);
    EXPECT_EQ(times.of(frame(1, 4000)), 4000);  // another channel's frame
    EXPECT_EQ(times.of(frame(2, 3'600'000'000)), 3'600'000'000);
    EXPECT_EQ(times.of(frame(0, 7'200'000'000, 2)), 7'200'000'000);
}

TEST(ClipTimes, NeverGoBackFromRunToRun) {
    ClipTimes times;
    times.of(frame(0, 10'000'000));
    EXPECT_EQ(times.of(frame(1, 9'500'000, 2)), 10'040'000);
    EXPECT_EQ(times.of(frame(2, 9'600'000, 2)), 10'140'000);
    EXPECT_EQ(times.of(frame(3, 8'650'000, 2)), 9'190'000);
}

TEST(ClipTimes, HaveNoHoleThatCannotBeCounted) {
    constexpr int64_t HOUR = 3'600'000'000;
    ClipTimes times;
    times.of(frame(0, 0));
    EXPECT_EQ(times.of(frame(1, 6 * HOUR)), 6 * HOUR);
    EXPECT_EQ(times.of(frame(2, 12 * HOUR + 1)), 12 * HOUR);
    EXPECT_EQ(times.of(frame(3, 12 * HOUR + 40'001)), 12 * HOUR + 40'000);
    EXPECT_EQ(times.of(frame(4, INT64_MAX, 3)), 18 * HOUR + 40'000);
    EXPECT_EQ(times.of(frame(5, INT64_MIN, 4)), 18 * HOUR + 80'000);
}

class ClipGapTest : public testing::Test {
  protected:
    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const ClipGap& gap : gaps.items) all.push_back(text_of(gap));
        return all;
    }
    using Texts = std::vector<std::string>;

    ClipGaps gaps;
    GapFinder finder{false, gaps};
};

TEST_F(ClipGapTest, NoneWhileFramesFollow) {
    for (uint32_t i = 0; i < 100; ++i) finder.take(frame(i, i * 40'000), 0);
    finder.end(0, 0);
    EXPECT_EQ(gaps.count, 0u);
    EXPECT_EQ(finder.usual_us(), 40'000);
}

TEST_F(ClipGapTest, TellsMissingNumbersApart) {
    finder.take(frame(0, 0), 0);
    finder.take(frame(2, 80'000), 0);
    finder.take(frame(5, 200'000), 2);
    EXPECT_EQ(texts(),
              (Texts{"frame 1 was not recorded, 0.080 s", "frames 3 to 4 cannot be read"}));
    EXPECT_EQ(gaps.losses, 1u);
}

TEST_F(ClipGapTest, ForgivesRecordsOfOthers) {
    finder.take(frame(0, 0), 0);
    finder.take(frame(1, 40'000), 7);
    EXPECT_EQ(gaps.count, 0u);
}

TEST_F(ClipGapTest, IsAHoleWhenItTakesLongerThanTwoFrames) {
    finder.take(frame(0, 0), 0);
    finder.take(frame(1, 40'000), 0);
    finder.take(frame(2, 120'000), 0);
    EXPECT_EQ(gaps.count, 0u);
    finder.take(frame(3, 160'000), 0);
    finder.take(frame(4, 242'000), 0);
    finder.take(frame(5, 282'000), 0);
    EXPECT_EQ(texts(), Texts{"no frame for 0.082 s"});
    finder.expect_other_rate();
    finder.take(frame(6, 1'302'000), 0);
    finder.take(frame(7, 1'342'000), 0);
    finder.end();
    EXPECT_EQ(gaps.count, 1u);
}

TEST_F(ClipGapTest, IsNoHoleWhereTheRateIsLowerFromThere) {
    // 30 frames a second, then 12: two and three of its slots in turn; then 2.
    uint32_t number = 0;
    int64_t slot = 0;
    const auto take = [&](int64_t slots) {
        slot += slots;
        finder.take(frame(number++, slot * 100'000 / 3), 0);
    };
    for (int i = 0; i < 30; ++i) take(1);
    for (int i = 0; i < 30; ++i) take(2 + i % 2);
    for (int i = 0; i < 30; ++i) take(15);
    EXPECT_EQ(gaps.count, 0u);
    EXPECT_EQ(finder.usual_us(), 500'000);
}

TEST_F(ClipGapTest, IsNoHoleWhereFramesOfALowerRateAreMissing) {
    for (uint32_t i = 0; i < 20; ++i) finder.take(frame(i, i * 40'000), 0);
    finder.take(frame(20, 960'000), 0);
    finder.take(frame(25, 1'960'000), 0);
    finder.take(frame(26, 2'160'000), 0);
    EXPECT_EQ(texts(), Texts{"frames 21 to 24 were not recorded, 1.000 s"});
}

TEST_F(ClipGapTest, IsNoHoleWhereAFewFramesOfALowerRateAreTheLast) {
    for (const int64_t before : {1, 20}) {
        GapFinder other(false, gaps);
        uint32_t number = 0;
        for (int64_t i = 0; i < before; ++i) other.take(frame(number++, i * 40'000), 0);
        for (int64_t i = 0; i < 4; ++i)
            other.take(frame(number++, before * 40'000 + i * 200'000), 0);
        other.end();
        EXPECT_EQ(gaps.count, 0u) << before;
    }
}

TEST_F(ClipGapTest, TellsAPauseBeforeAnotherRate) {
    for (uint32_t i = 0; i < 20; ++i) finder.take(frame(i, i * 40'000), 0);
    for (uint32_t i = 0; i < 20; ++i) finder.take(frame(20 + i, 5'760'000 + i * 200'000), 0);
    finder.end();
    EXPECT_EQ(texts(), Texts{"no frame for 5.000 s"});
}

TEST_F(ClipGapTest, TellsAHoleBeforeWhateverFollows) {
    const auto hole = [&] {
        gaps = {};
        GapFinder other(false, gaps);
        for (uint32_t i = 0; i < 9; ++i) other.take(frame(i, i * 40'000), 0);
        other.take(frame(9, 1'320'000), 0);
        return other;
    };
    const std::string told = "no frame for 1.000 s";
    hole().end();
    EXPECT_EQ(texts(), Texts{told});
    hole().end(1, 1'400'000);
    EXPECT_EQ(texts(), (Texts{told, "1 record cannot be read, perhaps of this channel"}));
    hole().lose(frame(10, 1'360'000));
    EXPECT_EQ(texts(), (Texts{told, "frame 10 cannot be read"}));
    hole().expect_other_rate();
    EXPECT_EQ(texts(), Texts{told});
    hole().take(frame(10, 2'320'000, 2), 0);
    EXPECT_EQ(texts(), (Texts{told,
                              "the recording began again, or the clock was set; 1.000 s from frame "
                              "to frame"}));
    hole().leave_out(frame(10, 1'360'000), 0, ClipGap::Kind::codec);
    EXPECT_EQ(texts(), (Texts{told, "frame 10 is of another codec and left out"}));
}

TEST_F(ClipGapTest, TellsHolesOfSoundAtOnce) {
    GapFinder sound(true, gaps);
    for (uint32_t i = 0; i < 9; ++i) sound.take(frame(i, i * 40'000), 0);
    sound.take(frame(9, 620'000), 0);
    sound.take(frame(10, 920'000), 0);
    EXPECT_EQ(texts(), (Texts{"audio: no frame for 0.300 s", "audio: no frame for 0.300 s"}));
}

TEST_F(ClipGapTest, SaysWhereARunEnds) {
    finder.take(frame(7, 0), 0);
    finder.take(frame(0, 3'000'000, 2), 0);
    finder.take(frame(0, 4'000'000, 3), 5);
    EXPECT_EQ(texts(),
              (Texts{"the recording began again, or the clock was set; 3.000 s from frame to frame",
                     "the recording began again, or the clock was set; 1.000 s from frame to frame",
                     "5 records cannot be read, perhaps of this channel"}));
}

TEST_F(ClipGapTest, JoinsLostFramesThatFollow) {
    finder.take(frame(0, 0), 0);
    finder.lose(frame(1, 40'000));
    finder.lose(frame(2, 80'000));
    finder.lose(frame(4, 160'000));
    finder.take(frame(5, 200'000), 0);
    finder.end(1, 200'000);
    EXPECT_EQ(texts(), (Texts{"frames 1 to 2 cannot be read", "frame 4 cannot be read",
                              "1 record cannot be read, perhaps of this channel"}));
    EXPECT_EQ(gaps.items[0].after_us, 0);
    EXPECT_EQ(gaps.items[0].until_us, 80'000);
    EXPECT_EQ(gaps.losses, 3u);
}

TEST_F(ClipGapTest, JoinsFramesThatAreLeftOut) {
    GapFinder sound(true, gaps);
    finder.take(frame(0, 0), 0);
    finder.take(frame(1, 40'000), 0);
    finder.leave_out(frame(2, 80'000), 0, ClipGap::Kind::codec);
    sound.lose(frame(3, 90'000));
    finder.leave_out(frame(3, 280'000), 0, ClipGap::Kind::codec);
    finder.leave_out(frame(4, 320'000), 0, ClipGap::Kind::no_key);
    finder.leave_out(frame(6, 720'000), 0, ClipGap::Kind::no_key);
    finder.take(frame(7, 760'000), 0);
    finder.take(frame(8, 800'000), 0);
    EXPECT_EQ(texts(), (Texts{"frames 2 to 3 are of another codec and left out",
                              "audio: frame 3 cannot be read",
                              "frame 4 refers to frames outside the span and is left out",
                              "frame 5 was not recorded, 0.400 s",
                              "frame 6 refers to frames outside the span and is left out"}));
    EXPECT_EQ(gaps.items[0].after_us, 80'000);
    EXPECT_EQ(gaps.items[0].until_us, 280'000);
    EXPECT_EQ(gaps.losses, 4u);
}

TEST_F(ClipGapTest, TakesNoRateFromFramesThatAreLeftOut) {
    finder.take(frame(0, 0), 0);
    finder.take(frame(1, 40'000), 0);
    for (uint32_t i = 2; i < 10; ++i)
        finder.leave_out(frame(i, i * 60'000), 0, ClipGap::Kind::codec);
    EXPECT_EQ(finder.usual_us(), 40'000);
}

TEST(SoundPlaces, FollowOneAnother) {
    SoundPlaces places;
    for (int i = 0; i < 10; ++i) {
        // Up to half a frame early or late.
        const SoundPlaces::Place place = places.next(1000 + i * 40'000 + i % 3 * 9000, 320);
        EXPECT_EQ(place.silence, 0u);
        EXPECT_EQ(place.cut, 0u);
    }
    EXPECT_EQ(places.samples(), 3200u);
    EXPECT_EQ(places.start_us(), 1000);
    EXPECT_EQ(places.end_us(), 401'000);
}

TEST(SoundPlaces, AreFilledOrCut) {
    SoundPlaces places;
    places.next(0, 320);
    SoundPlaces::Place place = places.next(80'000, 320);
    EXPECT_EQ(place.silence, 320u);
    place = places.next(90'000, 320);  // 30 ms too early
    EXPECT_EQ(place.cut, 240u);
    EXPECT_EQ(places.samples(), 3u * 320 + 80);
    place = places.next(0, 320);
    EXPECT_EQ(place.cut, 320u);
    EXPECT_EQ(places.samples(), 3u * 320 + 80);
}

std::vector<uint8_t> bytes(std::initializer_list<int> values) {
    std::vector<uint8_t> all;
    for (const int value : values) all.push_back(static_cast<uint8_t>(value));
    return all;
}

const std::vector<uint8_t> HEAD = bytes({0xFF, 0xD8, 0xFF, 0xE0, 0, 4, 1, 2});
const std::vector<uint8_t> COMMENT = bytes({0xFF, 0xFE, 0, 3, 'c'});
const std::vector<uint8_t> TAIL =
    bytes({0xFF, 0xFF, 0xC0, 0, 11, 8, 2, 0x40, 2, 0xC0, 1, 1, 0x11, 0, 0xFF, 0xDA, 0, 2, 9, 9});

std::vector<uint8_t> joined(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

TEST(ClipJpeg, FindsSizeAndPlace) {
    JpegLayout layout;
    std::vector<uint8_t> file = joined({HEAD, TAIL});
    ASSERT_TRUE(look_at_jpeg(file.data(), file.size(), layout));
    EXPECT_EQ(layout.size, (sim::PictureSize{704, 576}));
    EXPECT_EQ(layout.comment_at, 8u);
    file = joined({HEAD, COMMENT, COMMENT, TAIL});
    ASSERT_TRUE(look_at_jpeg(file.data(), file.size(), layout));
    EXPECT_EQ(layout.comment_at, 13u);
}

TEST(ClipJpeg, IsSafeFromWhatIsNone) {
    JpegLayout layout;
    const std::vector<uint8_t> whole = joined({HEAD, COMMENT, TAIL});
    const size_t least = whole.size() - 2;  // up to the scan
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<long>(size));
        EXPECT_EQ(look_at_jpeg(cut.data(), cut.size(), layout), size >= least) << size;
    }
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int value : {0, 1, 0xD9, 0xFF}) {
            std::vector<uint8_t> changed = whole;
            changed[at] = static_cast<uint8_t>(value);
            look_at_jpeg(changed.data(), changed.size(), layout);
        }
    }
}

TEST(ClipJpeg, WritesComments) {
    EXPECT_EQ(comment_segment("hi"), std::string("\xFF\xFE\0\4hi", 6));
    EXPECT_EQ(comment_segment(std::string(300, 'x')).substr(0, 5),
              std::string("\xFF\xFE\1\x2Ex", 5));
}

}  // namespace
