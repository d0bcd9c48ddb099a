// The figures of a report, worked out by hand.
#include "tools/qmtool/report_data.h"

#include <gtest/gtest.h>

#include "tools/qmtool/report_text.h"
#include "tools/qmtool/report_thumbnail.h"

namespace {

using sim::FrameKind;

constexpr int64_t T0 = 1'795'225'588'000'000;

sim::FrameInfo frame(uint32_t number, int64_t us, uint32_t bytes, FrameKind kind = FrameKind::p,
                     uint32_t run = 1) {
    sim::FrameInfo info;
    info.kind = kind;
    info.stream = kind == FrameKind::jpeg ? 2 : 0;
    info.channel = 4;
    info.number = number;
    info.time_us = T0 + us;
    info.run = run;
    info.bytes = bytes;
    return info;
}

// Ten frames a second for 3 s, each 100 bytes, key frames of 500 bytes every ten.
void take_usual(ReportData& data, uint32_t without = UINT32_MAX) {
    for (uint32_t n = 0; n < 30; ++n)
        if (n != without)
            data.take(frame(n, 100'000 * int64_t{n}, n % 10 == 0 ? 500 : 100,
                            n % 10 == 0 ? FrameKind::idr : FrameKind::p));
}

TEST(ReportData, CountsAChannel) {
    ReportData data;
    take_usual(data);
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(data.lane(0, 3), nullptr);
    EXPECT_EQ(data.lane(1, 4), nullptr);
    EXPECT_EQ(data.frames(), 30U);
    EXPECT_EQ(data.bytes(), 3 * 500U + 27 * 100U);
    EXPECT_EQ(data.missing(), 0U);
    EXPECT_EQ(data.earliest_us(), T0);
    EXPECT_EQ(data.latest_us(), T0 + 2'900'000);
    EXPECT_EQ(lane.frames(), 30U);
    EXPECT_EQ(lane.sizes.least, 100U);
    EXPECT_EQ(lane.sizes.most, 500U);
    EXPECT_DOUBLE_EQ(lane.sizes.mean(), 140);
    EXPECT_EQ(lane.key_sizes.count, 3U);
    EXPECT_EQ(lane.key_distance.count, 2U);
    EXPECT_EQ(lane.key_distance.least, 10U);
    EXPECT_EQ(lane.key_distance.most, 10U);
    // 29 steps of 0.1 s, and 29 frames of 27 * 100 + 2 * 500 bytes in them.
    EXPECT_DOUBLE_EQ(lane.frame_rate(), 10);
    EXPECT_DOUBLE_EQ(lane.bit_rate(), 8 * 3700 / 2.9);
}

TEST(ReportData, PutsFramesIntoBins) {
    ReportData data;
    take_usual(data);
    const Lane& lane = *data.lane(0, 4);
    ASSERT_EQ(data.bins(), 3U);
    EXPECT_EQ(data.begin_us(), T0);
    EXPECT_EQ(data.bin_us(), 1'000'000);
    for (size_t bin = 0; bin < 3; ++bin) {
        EXPECT_EQ(lane.bins[bin].frames, 10U) << bin;
        EXPECT_EQ(lane.bins[bin].bytes, 1400U) << bin;
        EXPECT_TRUE(lane.bins[bin].covered) << bin;
        EXPECT_DOUBLE_EQ(
            lane.bin_flow(bin, T0 + static_cast<int64_t>(bin) * 1'000'000, 1'000'000).us, 1e6);
    }
}

TEST(ReportData, ABinThatIsNotFullCountsForItsPart) {
    ReportData data;
    data.take(frame(0, 0, 100, FrameKind::idr));
    for (uint32_t n = 0; n < 7; ++n) {  // another channel, from 0.8 s to 1.4 s
        sim::FrameInfo info = frame(n, 800'000 + 100'000 * int64_t{n}, 100);
        info.channel = 5;
        data.take(info);
    }
    const Lane& lane = *data.lane(0, 5);
    ASSERT_EQ(data.bins(), 2U);
    EXPECT_EQ(lane.bins[0].frames, 2U);
    EXPECT_EQ(lane.bins[1].frames, 5U);
    EXPECT_DOUBLE_EQ(lane.bin_flow(0, T0, 1'000'000).us, 200'000);
    EXPECT_DOUBLE_EQ(lane.bin_flow(1, T0 + 1'000'000, 1'000'000).us, 500'000);
}

TEST(ReportData, CountsNumbersThatAreMissing) {
    ReportData data;
    take_usual(data, 14);
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.missing, 1U);
    EXPECT_EQ(data.missing(), 1U);
    EXPECT_EQ(lane.bins[0].missing, 0U);
    EXPECT_EQ(lane.bins[1].missing, 1U);
    EXPECT_DOUBLE_EQ(lane.frame_rate(), 28 / 2.9);
    EXPECT_EQ(lane.key_distance.most, 10U);
}

TEST(ReportData, TheMostCommonKeyDistanceIsTheUsualOne) {
    ReportData data;
    EXPECT_EQ(Lane().usual_key_distance(), 0U);
    // A key frame each second: 10 three times, 7, 10, 20 and 5000 numbers after the one before.
    const uint32_t keys[] = {0, 10, 20, 30, 37, 47, 67, 5067};
    int64_t us = 0;
    for (const uint32_t key : keys) {
        data.take(frame(key, us, 100, FrameKind::idr));
        us += 1'000'000;
    }
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.key_distance.count, 7U);
    EXPECT_EQ(lane.usual_key_distance(), 10U);
    const Range others = lane.other_key_distances(10);
    EXPECT_EQ(others.count, 3U);
    EXPECT_EQ(others.sum, 5027U);
    EXPECT_EQ(others.least, 7U);
    EXPECT_EQ(others.most, 5000U);
    const bool other[] = {false, false, false, false, true, false, true, true};
    for (size_t bin = 0; bin < 8; ++bin)
        EXPECT_EQ(lane.bins[bin].has_other_key(10), other[bin]) << bin;
}

TEST(ReportData, OfKeyDistancesAsCommonTheLeastIsTheUsualOne) {
    ReportData data;
    for (const uint32_t key : {0U, 30U, 37U}) data.take(frame(key, key, 100, FrameKind::idr));
    EXPECT_EQ(data.lane(0, 4)->usual_key_distance(), 7U);
}

TEST(ReportData, KeyDistancesThatAreNotCountedOneByOne) {
    ReportData data;
    for (const uint32_t key : {0U, 5000U, 9096U, 9106U})
        data.take(frame(key, key, 100, FrameKind::idr));
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.usual_key_distance(), 0U);  // 5000 and 4096 outnumber 10
    EXPECT_EQ(lane.other_key_distances(0).count, 3U);
}

TEST(ReportData, OtherKeyDistancesStayInLongerBins) {
    ReportData data;
    for (const uint32_t key : {0U, 1U, 2U, 3U, 5U, 6U, 7U})
        data.take(frame(key, 1'000'000 * int64_t{key}, 100, FrameKind::idr));
    data.take(frame(8, 1'199'000'000, 100));  // bins of 2 s
    const Lane& lane = *data.lane(0, 4);
    ASSERT_EQ(data.bin_us(), 2'000'000);
    const bool other[] = {false, false, true, false};
    for (size_t bin = 0; bin < 4; ++bin)
        EXPECT_EQ(lane.bins[bin].has_other_key(1), other[bin]) << bin;
}

TEST(ReportData, TheNumbersOfARunAreItsOwn) {
    ReportData data;
    take_usual(data);
    data.take(frame(0, 8'000'000, 100, FrameKind::idr, 2));
    data.take(frame(7, 8'700'000, 100, FrameKind::idr, 2));
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.missing, 6U);
    EXPECT_EQ(lane.key_distance.count, 3U);
    EXPECT_EQ(lane.key_distance.least, 7U);
    EXPECT_FALSE(lane.bins[3].covered);
    EXPECT_FALSE(lane.bins[7].covered);
    EXPECT_TRUE(lane.bins[8].covered);
    // The time between the runs counts for nothing: 29 frames in 2.9 s, one in 0.7 s.
    EXPECT_DOUBLE_EQ(lane.frame_rate(), 30 / 3.6);
}

TEST(ReportData, NothingIsMissingBetweenRuns) {
    ReportData data;
    take_usual(data);
    data.take(frame(40, 3'100'000, 100, FrameKind::p, 2));
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.missing, 0U);
    EXPECT_DOUBLE_EQ(lane.frame_rate(), 10);
    EXPECT_EQ(lane.steady_frames, 29U);
}

TEST(ReportData, APauseIsNotCovered) {
    ReportData data;
    take_usual(data);
    data.take(frame(30, 7'500'000, 100));  // the next number, 4.6 s later
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(lane.missing, 0U);
    EXPECT_TRUE(lane.bins[2].covered);
    for (size_t bin = 3; bin < 7; ++bin) EXPECT_FALSE(lane.bins[bin].covered) << bin;
    EXPECT_TRUE(lane.bins[7].covered);
    EXPECT_DOUBLE_EQ(lane.frame_rate(), 10);
}

TEST(ReportData, SlowStreamsAreCoveredBetweenTheirFrames) {
    ReportData data;
    for (uint32_t n = 0; n < 4; ++n) data.take(frame(n, 5'000'000 * int64_t{n}, 100));
    const Lane& lane = *data.lane(0, 4);
    ASSERT_EQ(data.bins(), 16U);
    for (size_t bin = 0; bin < 16; ++bin) EXPECT_TRUE(lane.bins[bin].covered) << bin;
    EXPECT_EQ(lane.bins[5].frames, 1U);
    EXPECT_EQ(lane.bins[6].frames, 0U);
}

TEST(ReportData, BinsBecomeLongerWithTheRecording) {
    ReportData data;
    for (uint32_t n = 0; n < 1201; ++n) data.take(frame(n, 1'000'000 * int64_t{n}, 10));
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(data.bin_us(), 4'000'000);
    EXPECT_EQ(data.bins(), 301U);
    EXPECT_EQ(data.begin_us(), T0);
    for (size_t bin = 0; bin < 300; ++bin) {
        ASSERT_EQ(lane.bins[bin].frames, 4U) << bin;
        ASSERT_EQ(lane.bins[bin].bytes, 40U) << bin;
    }
    EXPECT_EQ(lane.bins[300].frames, 1U);
    EXPECT_EQ(lane.bins.size(), ReportData::MOST_BINS);
}

TEST(ReportData, TimesMayGoBack) {
    ReportData data;
    data.take(frame(0, 0, 10));
    data.take(frame(1, -1'500'000, 20, FrameKind::p, 2));
    const Lane& lane = *data.lane(0, 4);
    EXPECT_EQ(data.begin_us(), T0 - 2'000'000);
    EXPECT_EQ(data.bins(), 3U);
    EXPECT_EQ(lane.bins[2].bytes, 10U);
    EXPECT_EQ(lane.bins[0].bytes, 20U);
    EXPECT_EQ(data.earliest_us(), T0 - 1'500'000);
    EXPECT_EQ(data.latest_us(), T0);
    data.take(frame(2, -700'000'000, 40, FrameKind::p, 3));
    EXPECT_EQ(data.bin_us(), 2'000'000);
    uint64_t bytes = 0;
    for (const Bin& bin : lane.bins) bytes += bin.bytes;
    EXPECT_EQ(bytes, 70U);
    EXPECT_EQ(lane.bins[data.bin_of(T0 - 700'000'000)].bytes, 40U);
    EXPECT_EQ(lane.bins[data.bin_of(T0)].bytes, 10U);
}

TEST(ReportData, AnyTimeIsSafe) {
    ReportData data;
    for (const int64_t us : {int64_t{0}, INT64_MAX, INT64_MIN, int64_t{5}}) {
        sim::FrameInfo info = frame(1, 0, 1);
        info.time_us = us;
        data.take(info);
    }
    uint64_t frames = 0;
    for (const Bin& bin : data.lane(0, 4)->bins) frames += bin.frames;
    EXPECT_EQ(frames, 4U);
    EXPECT_LE(data.bins(), ReportData::MOST_BINS);
}

TEST(ReportText, EscapesWhatHtmlWouldRead) {
    EXPECT_EQ(html_text("a<b>&\"c'\x1b"), "a&lt;b&gt;&amp;&quot;c&#39;\\x1B");
}

TEST(ReportText, WritesFigures) {
    EXPECT_EQ(bytes_text(999), "999 B");
    EXPECT_EQ(bytes_text(1500), "1.5 kB");
    EXPECT_EQ(bytes_text(2'340'000), "2.3 MB");
    EXPECT_EQ(bytes_text(7e9), "7.0 GB");
    EXPECT_EQ(rate_text(64'000), "64.0 kbit/s");
    EXPECT_EQ(rate_text(1'250'000), "1.25 Mbit/s");
    EXPECT_EQ(span_text(2'400'000), "2.40 s");
    EXPECT_EQ(span_text(245'000'000), "4 min 05 s");
    EXPECT_EQ(span_text(11'520'000'000), "3 h 12 min");
    EXPECT_EQ(span_text(int64_t{52} * 3'600'000'000), "2 d 04 h");
    EXPECT_DOUBLE_EQ(round_above(0), 1);
    EXPECT_DOUBLE_EQ(round_above(25), 25);
    EXPECT_DOUBLE_EQ(round_above(25.1), 50);
    EXPECT_DOUBLE_EQ(round_above(0.6), 1);
    EXPECT_DOUBLE_EQ(round_above(1'100'000), 2'000'000);
}

// RFC 4648, 10.
TEST(ReportText, WritesBase64) {
    const std::pair<const char*, const char*> examples[] = {
        {"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
        {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"foobar", "Zm9vYmFy"}};
    for (const auto& [text, coded] : examples) {
        const std::string bytes = text;
        EXPECT_EQ(base64({bytes.begin(), bytes.end()}), coded);
    }
    EXPECT_EQ(base64({0xFF, 0xFE, 0xFD}), "//79");
}

TEST(ReportThumbnail, TakesTheMeans) {
    sim::Picture picture;
    picture.resize({8, 4});
    for (size_t i = 0; i < picture.y.size(); ++i) picture.y[i] = static_cast<uint8_t>(i);
    picture.u = {10, 20, 30, 40, 50, 60, 70, 80};
    picture.v.assign(8, 9);
    const sim::Picture small = sim::Picture(scaled_picture(picture, {4, 2}));
    // 0, 1, 8, 9 make 4.5, which is rounded up.
    EXPECT_EQ(small.y, (std::vector<uint8_t>{5, 7, 9, 11, 21, 23, 25, 27}));
    EXPECT_EQ(small.u, (std::vector<uint8_t>{35, 55}));  // 10, 20, 50, 60
    EXPECT_EQ(small.v, (std::vector<uint8_t>{9, 9}));
}

}  // namespace
