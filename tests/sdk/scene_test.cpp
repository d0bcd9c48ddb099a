// What the cameras see: the patterns, before anything is coded. Texts and the block code stand in
// overlay_test.
#include "sdk/video/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <vector>

namespace {

using namespace sim;

Scene scene_of(Pattern pattern, uint8_t channel = 0, PictureSize size = {352, 288}) {
    Scene scene;
    scene.pattern = pattern;
    scene.channel = channel;
    scene.size = size;
    return scene;
}

Cells drawn(const Scene& scene) {
    Cells cells;
    draw_pattern(scene, cells);
    return cells;
}

bool same(const Cells& a, const Cells& b) { return a.y == b.y && a.u == b.u && a.v == b.v; }

// A luma cell.
int luma(const Cells& cells, int x, int y) {
    return cells.y[static_cast<size_t>(4 * cells.mb_columns * y + x)];
}

std::vector<Pattern> patterns() {
    std::vector<Pattern> all;
    for (int i = 0; i < PATTERNS; ++i) all.push_back(static_cast<Pattern>(i));
    return all;
}

TEST(Scene, CoversWholeMacroblocksAndKeepsToTheNarrowRange) {
    for (const Pattern pattern : patterns()) {
        const Cells cells = drawn(scene_of(pattern, 3, {720, 120}));
        EXPECT_EQ(cells.mb_columns, 45);
        EXPECT_EQ(cells.mb_rows, 8);
        ASSERT_EQ(cells.y.size(), 45U * 8 * 16);
        ASSERT_EQ(cells.u.size(), 45U * 8 * 4);
        ASSERT_EQ(cells.v.size(), 45U * 8 * 4);
        for (const uint8_t y : cells.y) ASSERT_TRUE(y >= 16 && y <= 235);
        for (const uint8_t u : cells.u) ASSERT_TRUE(u >= 16 && u <= 240);
        for (const uint8_t v : cells.v) ASSERT_TRUE(v >= 16 && v <= 240);
    }
}

TEST(Scene, EveryChannelLooksDifferent) {
    for (const Pattern pattern : patterns()) {
        if (pattern == Pattern::black) continue;
        std::vector<Cells> channels;
        for (uint8_t ch = 0; ch < 16; ++ch) channels.push_back(drawn(scene_of(pattern, ch)));
        for (size_t a = 0; a < channels.size(); ++a)
            for (size_t b = 0; b < a; ++b)
                EXPECT_FALSE(same(channels[a], channels[b]))
                    << static_cast<int>(pattern) << ": " << a << " " << b;
    }
}

TEST(Scene, EveryPatternLooksDifferent) {
    for (const Pattern a : patterns())
        for (const Pattern b : patterns())
            EXPECT_EQ(same(drawn(scene_of(a, 3)), drawn(scene_of(b, 3))), a == b);
}

// Y, U and V of 75 % bars, as tables of ITU-R BT.601 colours have them.
TEST(Scene, HasTheColoursOfBars) {
    const int expected[7][3] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                                {84, 184, 198},  {65, 100, 212}, {35, 212, 114}};
    for (const uint8_t first : {uint8_t{0}, uint8_t{2}}) {
        const Cells cells = drawn(scene_of(Pattern::bars, first, {704, 480}));
        for (int bar = 0; bar < 7; ++bar) {
            const int* const colour = expected[(bar + first) % 7];
            const int x = (704 * bar / 7 + 50) / 8;  // of chroma cells: the middle of the bar
            for (const int y : {0, 20, 44}) {        // 45 of 60 are bars
                const auto chroma = static_cast<size_t>(2 * cells.mb_columns * y + x);
                EXPECT_NEAR(luma(cells, 2 * x, 2 * y), colour[0], 1) << bar;
                EXPECT_NEAR(cells.u[chroma], colour[1], 1) << bar;
                EXPECT_NEAR(cells.v[chroma], colour[2], 1) << bar;
            }
        }
        const int below = luma(cells, 0, 2 * 45);
        for (int x = 0; x < 176; ++x) EXPECT_EQ(luma(cells, x, 119), below);
    }
}

TEST(Scene, BlackIsBlackAndPlainPatternsHaveOneColour) {
    const Cells black = drawn(scene_of(Pattern::black, 5));
    EXPECT_EQ(std::count(black.y.begin(), black.y.end(), 16),
              static_cast<ptrdiff_t>(black.y.size()));
    for (const Pattern pattern : {Pattern::black, Pattern::solid, Pattern::moving_bar}) {
        const Cells cells = drawn(scene_of(pattern, 5));
        EXPECT_EQ(std::set<uint8_t>(cells.y.begin(), cells.y.end()).size(), 1U);
        EXPECT_EQ(std::set<uint8_t>(cells.u.begin(), cells.u.end()).size(), 1U);
        EXPECT_EQ(std::set<uint8_t>(cells.v.begin(), cells.v.end()).size(), 1U);
        if (pattern != Pattern::black) continue;
        EXPECT_EQ(cells.u[0], 128);
        EXPECT_EQ(cells.v[0], 128);
    }
}

// Channel n: squares of 16, 24, 32 or 40 samples, 4 to 10 cells.
TEST(Scene, CheckerboardsHaveSquares) {
    for (uint8_t ch = 0; ch < 8; ++ch) {
        const Cells cells = drawn(scene_of(Pattern::checkerboard, ch));
        const int side = 4 + 2 * (ch % 4);
        const int light = luma(cells, 0, 0), dark = luma(cells, side, 0);
        const auto next = static_cast<size_t>(side / 2);  // chroma cells
        EXPECT_GT(
            abs(light - dark) + abs(cells.u[0] - cells.u[next]) + abs(cells.v[0] - cells.v[next]),
            100);
        for (int y = 0; y < 72; ++y)
            for (int x = 0; x < 88; ++x)
                ASSERT_EQ(luma(cells, x, y), (x / side + y / side) % 2 == 0 ? light : dark) << ch;
    }
}

TEST(Scene, GradientsRiseInTheirDirection) {
    // To the right and down, for channels 0 to 3.
    const int directions[4][2] = {{1, 0}, {0, 1}, {1, 1}, {1, -1}};
    for (uint8_t ch = 0; ch < 4; ++ch) {
        const Cells cells = drawn(scene_of(Pattern::gradient, ch));
        const int right = directions[ch][0], down = directions[ch][1];
        for (int y = 1; y < 72; ++y) {
            for (int x = 1; x < 88; ++x) {
                EXPECT_GE((luma(cells, x, y) - luma(cells, x - 1, y)) * (right != 0 ? right : 1),
                          0);
                EXPECT_GE((luma(cells, x, y) - luma(cells, x, y - 1)) * (down != 0 ? down : 1), 0);
                if (right == 0) {
                    EXPECT_EQ(luma(cells, x, y), luma(cells, x - 1, y));
                }
                if (down == 0) {
                    EXPECT_EQ(luma(cells, x, y), luma(cells, x, y - 1));
                }
            }
        }
        const int from_y = down < 0 ? 71 : 0;
        EXPECT_GT(luma(cells, 87, 71 - from_y), luma(cells, 0, from_y) + 150);
    }
}

// The same at the same distance from the middle, whichever the direction.
TEST(Scene, ZonePlatesAreRound) {
    const Cells cells = drawn(scene_of(Pattern::zone_plate, 2));
    const auto at = [&](int x, int y) { return luma(cells, 44 + x, 36 + y); };
    for (int y = 0; y < 36; ++y)
        for (int x = 0; x < 44; ++x) {
            EXPECT_EQ(at(-x, y), at(x, y));
            EXPECT_EQ(at(x, -y), at(x, y));
        }
    EXPECT_EQ(at(15, 20), at(25, 0));  // 15 and 20 squared are 25 squared
    EXPECT_EQ(at(7, 24), at(0, 25));
    EXPECT_GT(std::set<uint8_t>(cells.y.begin(), cells.y.end()).size(), 50U);
}

TEST(Scene, NoiseIsOfTheSeedAlone) {
    Scene scene = scene_of(Pattern::noise, 1);
    const Cells one = drawn(scene);
    EXPECT_TRUE(same(one, drawn(scene)));
    EXPECT_GT(std::set<uint8_t>(one.y.begin(), one.y.end()).size(), 150U);
    scene.seed = 2;
    EXPECT_FALSE(same(one, drawn(scene)));
}

TEST(Scene, TheBarGoesDownEveryOtherFrameAndBeginsAgain) {
    const Scene scene = scene_of(Pattern::moving_bar, 0, {176, 120});  // 8 rows, the last one cut
    const int rows[] = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 0, 0, 1};
    for (uint32_t n = 0; n < std::size(rows); ++n) EXPECT_EQ(bar_row(scene, n), rows[n]) << n;
    EXPECT_EQ(bar_row(scene, UINT32_MAX), 7);
    for (const Pattern pattern : patterns())
        EXPECT_EQ(bar_row(scene_of(pattern), 4), pattern == Pattern::moving_bar ? 2 : -1);
}

}  // namespace
