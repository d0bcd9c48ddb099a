// One channel's frames: when they are due and what they are.
#include "sdk/board/encoder_channel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "sdk/video/picture_check.h"

namespace {

using sim::EncoderChannel;
using sim::FrameInfo;
using sim::FrameKind;

constexpr int64_t FIRST_US = 1'000'000'000;

// A moment that many microseconds after the first frame.
sim::Tick after(int64_t us) { return {FIRST_US + us}; }

EncoderChannel channel_of(uint8_t stream, uint32_t rate, uint32_t idr) {
    EncoderChannel channel;
    channel.place(stream, 5);
    channel.set_format(false, after(0));
    channel.set_frame_rate(rate, 0, after(0));
    channel.set_idr_interval(idr);
    channel.switch_on(after(0));
    return channel;
}

std::vector<FrameInfo> frames_of(EncoderChannel& channel, int count) {
    std::vector<FrameInfo> frames;
    for (int i = 0; i < count; ++i) frames.push_back(channel.encode());
    return frames;
}

TEST(Ticker, IsExactOverAnyTime) {
    sim::Ticker ticker;
    ticker.start(after(0), 7);
    for (int i = 0; i < 7'000'000; ++i) ticker.advance();
    EXPECT_EQ(ticker.due_us(), FIRST_US + int64_t{1'000'000} * 1'000'000);
}

TEST(Ticker, PassesOverWhatIsDueBeforeATime) {
    sim::Ticker ticker;
    ticker.start(after(0), 30);
    EXPECT_EQ(ticker.advance_to(FIRST_US), 0u);
    EXPECT_EQ(ticker.advance_to(FIRST_US + 1'000'000), 30u);
    EXPECT_EQ(ticker.due_us(), FIRST_US + 1'000'000);
    EXPECT_EQ(ticker.advance_to(FIRST_US + 1'000'001), 1u);
    EXPECT_EQ(ticker.due_us(), FIRST_US + 1'033'333);
}

TEST(Ticker, MeetsTheOtherChannelsOfItsRateFromWhicheverTickItStarts) {
    sim::Ticker early, late;
    early.start({FIRST_US, 0, 30}, 30);
    late.start({FIRST_US, 17, 30}, 30);
    early.advance_to(late.due_us());
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(early.due_us(), late.due_us());
        early.advance();
        late.advance();
    }
}

TEST(Ticker, PassesOverFromATickToo) {
    for (int64_t us = 0; us < 2'000'000; us += 777) {
        sim::Ticker jumped, walked;
        jumped.start({FIRST_US, 5, 30}, 7);
        walked.start({FIRST_US, 5, 30}, 7);
        uint32_t passed = 0;
        for (; walked.due_us() < FIRST_US + us; walked.advance()) ++passed;
        ASSERT_EQ(jumped.advance_to(FIRST_US + us), passed) << us;
        ASSERT_EQ(jumped.due_us(), walked.due_us()) << us;
    }
}

TEST(Ticker, NeverComesAtRateZero) {
    sim::Ticker ticker;
    ticker.start(after(0), 0);
    EXPECT_EQ(ticker.due_us(), sim::NEVER);
    EXPECT_EQ(ticker.advance_to(FIRST_US + 1), 0u);
}

TEST(EncoderChannel, NamesItsFramesAndTheirTimes) {
    EncoderChannel channel = channel_of(1, 10, 0);
    const std::vector<FrameInfo> frames = frames_of(channel, 3);
    for (uint32_t n = 0; n < 3; ++n) {
        EXPECT_EQ(frames[n].stream, 1);
        EXPECT_EQ(frames[n].channel, 5);
        EXPECT_EQ(frames[n].number, n);
        EXPECT_EQ(frames[n].time_us, FIRST_US + n * 100'000);
    }
}

TEST(EncoderChannel, HasAKeyFrameEveryIdrInterval) {
    EncoderChannel channel = channel_of(0, 30, 4);
    const std::vector<FrameInfo> frames = frames_of(channel, 12);
    for (size_t n = 0; n < frames.size(); ++n)
        EXPECT_EQ(frames[n].kind, n % 4 == 0 ? FrameKind::idr : FrameKind::p) << n;
    EXPECT_GT(frames[4].bytes, frames[5].bytes);
}

TEST(EncoderChannel, HasOneKeyFrameAtIntervalZero) {
    EncoderChannel channel = channel_of(0, 30, 0);
    const std::vector<FrameInfo> frames = frames_of(channel, 1000);
    EXPECT_EQ(frames[0].kind, FrameKind::idr);
    for (size_t n = 1; n < frames.size(); ++n) EXPECT_EQ(frames[n].kind, FrameKind::p);
}

TEST(EncoderChannel, MakesEveryJpegFrameAKeyFrame) {
    EncoderChannel by_stream = channel_of(2, 5, 30);
    for (const FrameInfo& frame : frames_of(by_stream, 5)) EXPECT_EQ(frame.kind, FrameKind::jpeg);
    EncoderChannel by_type = channel_of(0, 5, 30);
    by_type.set_codec_type(2);
    for (const FrameInfo& frame : frames_of(by_type, 5)) EXPECT_EQ(frame.kind, FrameKind::jpeg);
}

TEST(EncoderChannel, HoldsTheFormatsFrameRateLimit) {
    EncoderChannel ntsc = channel_of(0, 31, 0);
    EXPECT_EQ(frames_of(ntsc, 31)[30].time_us, FIRST_US + 1'000'000);
    EncoderChannel pal;
    pal.set_format(true, after(0));
    pal.set_frame_rate(4'294'967'291u, 0, after(0));
    pal.switch_on(after(0));
    EXPECT_EQ(frames_of(pal, 26)[25].time_us, FIRST_US + 1'000'000);
}

TEST(EncoderChannel, GivesNoFramesAtRateZeroAndStartsAgainAtTheNextTick) {
    EncoderChannel channel = channel_of(0, 10, 0);
    frames_of(channel, 2);
    channel.set_frame_rate(0, FIRST_US + 150'000, after(166'666));
    EXPECT_EQ(channel.due_us(), sim::NEVER);
    channel.set_frame_rate(5, FIRST_US + 10'000'000, after(10'033'333));
    EXPECT_EQ(channel.due_us(), FIRST_US + 10'033'333);
}

TEST(EncoderChannel, TakesANewFrameRateFromItsLastFrame) {
    EncoderChannel channel = channel_of(0, 10, 0);
    frames_of(channel, 3);  // the last was due at 200 ms
    channel.set_frame_rate(4, FIRST_US + 210'000, after(233'333));
    EXPECT_EQ(channel.due_us(), FIRST_US + 450'000);
}

TEST(EncoderChannel, DoesNotBunchFramesWhenTheRateGoesUp) {
    EncoderChannel channel = channel_of(0, 1, 0);
    channel.encode();  // due at 0 ms, the next would be at 1000 ms
    channel.set_frame_rate(30, FIRST_US + 900'000, after(933'333));
    EXPECT_EQ(channel.due_us(), FIRST_US + 933'333);
}

TEST(EncoderChannel, StartsANewSizeTypeOrZoneWithAKeyFrame) {
    EncoderChannel channel = channel_of(0, 30, 0);
    frames_of(channel, 3);
    channel.set_resolution(1);
    EXPECT_EQ(channel.encode().kind, FrameKind::idr);
    EXPECT_EQ(channel.encode().kind, FrameKind::p);
    channel.set_zone({true, 0, 0, 16, 16});
    EXPECT_EQ(channel.encode().kind, FrameKind::idr);
    EXPECT_EQ(channel.encode().kind, FrameKind::p);
    channel.set_codec_type(1);
    EXPECT_EQ(channel.encode().kind, FrameKind::idr);
    EXPECT_EQ(channel.encode().kind, FrameKind::p);
}

TEST(EncoderChannel, HasNoKeyFrameForASettingThatStaysTheSame) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.set_resolution(2);
    channel.set_zone({true, 1, 2, 3, 4});
    frames_of(channel, 2);
    channel.set_resolution(2);
    channel.set_zone({true, 1, 2, 3, 4});
    channel.set_codec_type(0);
    channel.set_qp(30);
    EXPECT_EQ(channel.encode().kind, FrameKind::p);
}

TEST(EncoderChannel, TakesAnUnknownResolutionForD1) {
    EncoderChannel known = channel_of(0, 30, 0), unknown = channel_of(0, 30, 0);
    known.set_resolution(3);
    unknown.set_resolution(77);
    EXPECT_EQ(unknown.encode().bytes, known.encode().bytes);
}

TEST(EncoderChannel, FollowsQpAtTheNextFrame) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.encode();
    const uint32_t before = channel.encode().bytes;
    channel.set_qp(33);
    EXPECT_EQ(channel.encode().bytes, before / 2);
}

TEST(EncoderChannel, LosesTheFrameAndStillHasItsKeyFrame) {
    EncoderChannel channel = channel_of(0, 10, 3);
    channel.lose();  // number 0, the key frame
    const FrameInfo first = channel.encode();
    EXPECT_EQ(first.number, 1u);
    EXPECT_EQ(first.time_us, FIRST_US + 100'000);
    EXPECT_EQ(first.kind, FrameKind::idr);
}

TEST(EncoderChannel, MovesNoKeyFrameForOneOutOfTurn) {
    EncoderChannel channel = channel_of(0, 30, 10);
    frames_of(channel, 13);
    channel.force_key();
    EXPECT_EQ(channel.encode().kind, FrameKind::idr);  // number 13
    for (const FrameInfo& frame : frames_of(channel, 16))
        EXPECT_EQ(frame.kind, frame.number == 20 ? FrameKind::idr : FrameKind::p) << frame.number;
}

TEST(EncoderChannel, GoesOnWithAKeyFrameAfterFramesThatWereLate) {
    EncoderChannel channel = channel_of(0, 10, 0);
    frames_of(channel, 3);
    EXPECT_EQ(channel.lose_until(FIRST_US + 1'000'000), 7u);
    const FrameInfo frame = channel.encode();
    EXPECT_EQ(frame.number, 10u);
    EXPECT_EQ(frame.kind, FrameKind::idr);
}

TEST(EncoderChannel, RemembersTheRateItWasAskedForWhenTheFormatChanges) {
    EncoderChannel channel;
    channel.set_format(true, after(0));
    channel.set_frame_rate(30, 0, after(0));
    channel.set_format(false, after(0));
    channel.switch_on(after(0));
    EXPECT_EQ(frames_of(channel, 31)[30].time_us, FIRST_US + 1'000'000);
}

TEST(EncoderChannel, TakesANewFrameRateFromItsLastLateFrame) {
    EncoderChannel channel = channel_of(0, 0, 0);
    channel.set_frame_rate(10, FIRST_US, after(0));
    EXPECT_EQ(channel.lose_until(FIRST_US + 1'050'000), 11u);
    channel.set_frame_rate(4, FIRST_US + 1'060'000, after(1'066'666));
    EXPECT_EQ(channel.due_us(), FIRST_US + 1'250'000);
}

TEST(EncoderChannel, ChangesToTheLimitOfANewFormatWhileItIsOn) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.set_format(true, after(40'000));
    EXPECT_EQ(frames_of(channel, 26)[25].time_us, FIRST_US + 1'040'000);
}

TEST(EncoderChannel, StartsOverWhenSwitchedOnAgain) {
    EncoderChannel channel = channel_of(0, 10, 0);
    frames_of(channel, 5);
    channel.switch_on(after(1));  // already on: nothing happens
    EXPECT_EQ(channel.names().number, 5u);
    channel.switch_off();
    EXPECT_EQ(channel.due_us(), sim::NEVER);
    channel.switch_on(after(2'000'000));
    const FrameInfo frame = channel.encode();
    EXPECT_EQ(frame.number, 0u);
    EXPECT_EQ(frame.kind, FrameKind::idr);
    EXPECT_EQ(frame.time_us, FIRST_US + 2'000'000);
}

std::vector<uint8_t> written(const EncoderChannel& channel, const FrameInfo& frame) {
    std::vector<uint8_t> bytes(frame.bytes);
    channel.write(bytes.data());
    return bytes;
}

// The pictures of one channel, each decoded and its block code read.
void expect_fine(EncoderChannel& channel, sim::PictureCheck& check, int frames,
                 const sim::Content& content = {}) {
    for (int i = 0; i < frames; ++i) {
        const FrameInfo frame = channel.encode(content);
        const std::vector<uint8_t> bytes = written(channel, frame);
        ASSERT_EQ(check.check(frame, bytes.data(), bytes.size()), sim::PictureCheck::Found::fine)
            << frame.number << ": " << check.error();
    }
}

TEST(EncoderChannel, IsAsLargeAsItsPictureAtLeast) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.set_bitrate_type(1);
    channel.set_bitrate(1);
    sim::PictureCheck check;
    expect_fine(channel, check, 5);
}

TEST(EncoderChannel, GivesBackWhatAKeyFrameTookAboveTheRate) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.set_bitrate_type(1);
    channel.set_bitrate(400'000);
    sim::Content noise;
    noise.pattern = sim::Pattern::noise;
    noise.text = sim::Text::off;
    uint64_t total = 0;
    uint32_t first = 0;
    for (int i = 0; i < 60; ++i) {
        const uint32_t bytes = channel.encode(noise).bytes;
        if (i == 0) first = bytes;
        total += bytes;
    }
    EXPECT_GT(first, 2500u);  // its share of the rate would be 1667 bytes and a quarter
    EXPECT_NEAR(static_cast<double>(total), 100'000, 1000);
}

TEST(EncoderChannel, KeepsItsPicturesThroughEveryChange) {
    EncoderChannel channel = channel_of(1, 30, 7);
    sim::PictureCheck check;
    expect_fine(channel, check, 10);
    for (const uint32_t resolution : {0u, 4u, 1u, 2u, 3u}) {
        channel.set_resolution(resolution);
        ASSERT_NO_FATAL_FAILURE(expect_fine(channel, check, 9)) << resolution;
        EXPECT_EQ(check.picture()->size, sim::picture_size(resolution, false));
    }
    channel.set_format(true, after(5'000'000));
    channel.force_key();
    expect_fine(channel, check, 9);
    EXPECT_EQ(check.picture()->size, (sim::PictureSize{704, 576}));
    for (const uint8_t qp : {uint8_t{0}, uint8_t{51}, uint8_t{30}}) {
        channel.set_qp(qp);
        expect_fine(channel, check, 9);
    }
    channel.set_codec_type(2);  // JPEG, and back
    expect_fine(channel, check, 3);
    channel.set_codec_type(0);
    channel.set_bitrate_type(1);
    channel.lose();
    expect_fine(channel, check, 20);
    for (int pattern = 0; pattern < sim::PATTERNS; ++pattern) {
        sim::Content content;
        content.pattern = static_cast<sim::Pattern>(pattern);
        ASSERT_NO_FATAL_FAILURE(expect_fine(channel, check, 14, content)) << pattern;
    }
}

TEST(EncoderChannel, BlanksAZoneFromTheFirstPictureAfterTheCommand) {
    EncoderChannel channel = channel_of(0, 30, 0);
    sim::PictureCheck check;
    expect_fine(channel, check, 5);
    const std::vector<uint8_t> before = check.picture()->y;
    channel.set_zone({true, 301, 203, 77, 55});
    expect_fine(channel, check, 1);
    const auto hidden = [](size_t x, size_t y) {
        return x >= 301 && x < 378 && y >= 203 && y < 258;
    };
    const std::vector<uint8_t>& now = check.picture()->y;
    for (size_t y = 96; y < 448; ++y)  // between the texts and the block code
        for (size_t x = 0; x < 704; ++x)
            ASSERT_EQ(now[y * 704 + x], hidden(x, y) ? 16 : before[y * 704 + x]) << x << " " << y;
    channel.set_zone({});
    expect_fine(channel, check, 1);
    EXPECT_TRUE(std::equal(before.begin() + 96 * 704, before.begin() + 448 * 704,
                           check.picture()->y.begin() + 96 * 704));
}

TEST(EncoderChannel, MakesTheSameBytesOfTheSameSettings) {
    EncoderChannel first = channel_of(0, 30, 10), second = channel_of(0, 30, 10);
    for (int i = 0; i < 25; ++i) {
        const FrameInfo a = first.encode(), b = second.encode();
        ASSERT_EQ(written(first, a), written(second, b)) << i;
    }
}

TEST(EncoderChannel, KeepsItsBitRateWhenItIsToldNone) {
    EncoderChannel channel = channel_of(0, 10, 1);  // key frames only: all of one size
    channel.set_bitrate(800'000);
    channel.set_bitrate(0);
    channel.set_bitrate_type(1);
    EXPECT_EQ(channel.encode().bytes, 10'000u);
}

// Bytes of the next two seconds at 30 frames a second.
uint64_t two_seconds(EncoderChannel& channel) {
    uint64_t bytes = 0;
    for (int i = 0; i < 60; ++i) bytes += channel.encode().bytes;
    return bytes;
}

// Above its rate for minutes, and at its rate from the change on that ends the cause.
TEST(EncoderChannel, OwesNothingBehindAChangeOfZoneOrSize) {
    constexpr uint32_t BIT_RATE = 64'000;
    constexpr uint64_t BYTES = BIT_RATE / 8 * 2;
    for (const bool of_zone : {true, false}) {
        EncoderChannel channel = channel_of(0, 30, 30);
        channel.set_bitrate_type(1);
        channel.set_bitrate(BIT_RATE);
        channel.set_resolution(of_zone ? 1 : 4);
        if (of_zone) channel.set_zone({true, 11, 9, 301, 201});
        uint64_t least = UINT64_MAX;
        for (int i = 0; i < 60; ++i) least = std::min(least, two_seconds(channel));
        ASSERT_GT(least, BYTES + BYTES / 100) << of_zone;
        channel.set_resolution(1);
        channel.set_zone({});
        for (int i = 0; i < 5; ++i) {
            const uint64_t bytes = two_seconds(channel);
            EXPECT_GE(bytes, BYTES - BYTES / 100) << of_zone << " " << i;
            EXPECT_LE(bytes, BYTES + BYTES / 100) << of_zone << " " << i;
        }
    }
}

// The picture alone changes.
TEST(EncoderChannel, GivesBackASecondAtTheMost) {
    constexpr uint32_t BIT_RATE = 64'000;
    constexpr uint64_t A_SECOND = BIT_RATE / 8;
    EncoderChannel channel = channel_of(0, 30, 30);
    channel.set_bitrate_type(1);
    channel.set_bitrate(BIT_RATE);
    channel.set_resolution(3);
    sim::Content content;
    content.pattern = sim::Pattern::noise;
    const auto seconds = [&](int count) {
        uint64_t bytes = 0;
        for (int i = 0; i < 30 * count; ++i) bytes += channel.encode(content).bytes;
        return bytes;
    };
    ASSERT_GT(seconds(60), 61 * A_SECOND);
    content.pattern = sim::Pattern::black;
    const uint64_t given = seconds(40);
    EXPECT_LT(given, 40 * A_SECOND);
    EXPECT_GE(given, 39 * A_SECOND);
}

TEST(EncoderChannel, ANewFormatBeginsWithAKeyFrame) {
    EncoderChannel channel = channel_of(0, 30, 0);
    channel.encode();
    channel.set_format(true, after(1'000'000));
    EXPECT_EQ(channel.encode().kind, FrameKind::idr);
    channel.set_format(true, after(2'000'000));
    EXPECT_EQ(channel.encode().kind, FrameKind::p);
}

}  // namespace
