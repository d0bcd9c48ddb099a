// Frame sizes.
#include "sdk/board/rate_control.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

TEST(PictureSize, IsThatOfTheResolutionCodeAndFormat) {
    struct Row {
        uint32_t code;
        int width, ntsc_height, pal_height;
    };
    const Row rows[] = {{0, 176, 120, 144},         {1, 352, 240, 288},  {2, 352, 480, 576},
                        {3, 704, 480, 576},         {4, 1280, 720, 720}, {5, 704, 480, 576},
                        {0xFFFFFFFF, 704, 480, 576}};
    for (const Row& row : rows) {
        EXPECT_EQ(sim::picture_size(row.code, false).width, row.width);
        EXPECT_EQ(sim::picture_size(row.code, false).height, row.ntsc_height);
        EXPECT_EQ(sim::picture_size(row.code, true).width, row.width);
        EXPECT_EQ(sim::picture_size(row.code, true).height, row.pal_height);
    }
}

TEST(ConstantQuantiser, FollowsItsFormula) {
    const sim::PictureSize d1 = {704, 480};                                 // 337920 pixels
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 27, false, false), 3520u);  // / 12 / 8
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 27, true, false), 6 * 3520u);
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 27, true, true), 12 * 3520u);
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 33, false, false), 1760u);  // half at 6 more
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 21, false, false), 7040u);  // twice at 6 fewer
    const sim::PictureSize half = {352, 480};
    EXPECT_EQ(sim::constant_quantiser_bytes(half, 27, false, false), 1760u);
}

TEST(ConstantQuantiser, NeverGrowsWithTheQuantiser) {
    const sim::PictureSize d1 = {704, 480};
    for (uint8_t qp = 0; qp < 51; ++qp)
        EXPECT_GT(sim::constant_quantiser_bytes(d1, qp, false, false),
                  sim::constant_quantiser_bytes(d1, static_cast<uint8_t>(qp + 1), false, false));
    EXPECT_EQ(sim::constant_quantiser_bytes(d1, 200, false, false),
              sim::constant_quantiser_bytes(d1, 51, false, false));
}

// 20 seconds of one channel's frame sizes.
std::vector<uint32_t> sizes_of(uint32_t bitrate, uint32_t rate, uint32_t group) {
    const sim::ConstantBitRate control(bitrate, rate, group);
    std::vector<uint32_t> sizes;
    for (uint32_t n = 0; n < 20 * rate; ++n)
        sizes.push_back(control.bytes(n, group == 0 ? n == 0 : n % group == 0));
    return sizes;
}

TEST(ConstantBitRate, HoldsWithinOnePerCentOverEveryTwoSeconds) {
    for (const uint32_t bitrate : {64'000u, 512'000u, 2'048'000u, 8'000'000u, 50'000'000u})
        for (const uint32_t rate : {1u, 2u, 3u, 7u, 12u, 15u, 25u, 29u, 30u})
            for (const uint32_t group :
                 {0u, 1u, 2u, 3u, 7u, 15u, 25u, 29u, 30u, 50u, 60u, 250u, 5000u}) {
                const std::vector<uint32_t> sizes = sizes_of(bitrate, rate, group);
                const double wanted = bitrate / 8.0 * 2;
                for (size_t at = 0; at + 2 * rate <= sizes.size(); ++at) {
                    double sum = 0;
                    for (size_t i = at; i < at + 2 * rate; ++i) sum += sizes[i];
                    ASSERT_NEAR(sum, wanted, wanted * 0.01)
                        << bitrate << " bit/s, " << rate << " frames/s, group " << group
                        << ", from frame " << at;
                }
            }
}

TEST(ConstantBitRate, MakesKeyFramesLargerThanTheOthers) {
    for (const uint32_t rate : {1u, 7u, 15u, 30u})
        for (const uint32_t group : {2u, 3u, 7u, 30u, 50u, 250u}) {
            const std::vector<uint32_t> sizes = sizes_of(2'048'000, rate, group);
            for (size_t n = 1; n < sizes.size(); ++n)
                ASSERT_TRUE(n % group == 0 || sizes[0] > sizes[n])
                    << rate << " frames/s, group " << group << ", frame " << n;
        }
}

TEST(ConstantBitRate, HoldsWithOneKeyFrameOutOfTurnInEverySpan) {
    for (const uint32_t rate : {7u, 15u, 30u})
        for (const uint32_t group : {0u, 7u, 30u, 45u}) {
            const sim::ConstantBitRate control(2'048'000, rate, group);
            for (uint32_t at = 0; at < 10 * rate; ++at) {
                double sum = 0;
                for (uint32_t n = at; n < at + 2 * rate; ++n) {
                    const bool in_turn = group == 0 ? n == 0 : n % group == 0;
                    sum += control.bytes(n, in_turn || n == at + rate);
                }
                ASSERT_NEAR(sum, 512'000, 5'120) << rate << " frames/s, group " << group;
            }
        }
}

TEST(ConstantBitRate, GivesAFrameTheSameBytesAfterAnyTime) {
    const sim::ConstantBitRate control(2'048'001, 30, 30);
    const uint32_t period = 30 * 8 * 30;  // frames after which the rounding repeats
    for (uint32_t n = 0; n < 1000; ++n) {
        const bool key = n % 30 == 0;
        const uint32_t late = n + period * 500'000;
        ASSERT_EQ(control.bytes(n, key), control.bytes(late, key)) << n;
    }
}

TEST(ConstantBitRate, LosesNoByteOverAnyTime) {
    for (const uint32_t group : {1u, 5u, 7u, 14u}) {  // 20 seconds are whole groups
        const std::vector<uint32_t> sizes = sizes_of(1'000'001, 7, group);  // divides by nothing
        uint64_t sum = 0;
        for (const uint32_t size : sizes) sum += size;
        EXPECT_EQ(sum, 1'000'001ull * 20 / 8) << group;
    }
}

}  // namespace
