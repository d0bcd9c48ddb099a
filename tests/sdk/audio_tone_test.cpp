// Tones.
#include <gtest/gtest.h>

#include <vector>

#include "sdk/video/audio_tone.h"

namespace {

// Points of the G.711 mu-law characteristic.
TEST(MuLaw, FollowsG711) {
    EXPECT_EQ(sim::mu_law(0), 0xFF);
    EXPECT_EQ(sim::mu_law(-1), 0x7F);
    EXPECT_EQ(sim::mu_law(1000), 0xCE);
    EXPECT_EQ(sim::mu_law(-1000), 0x4E);
    EXPECT_EQ(sim::mu_law(32767), 0x80);
    EXPECT_EQ(sim::mu_law(-32768), 0x00);
}

// Zero crossings of one second, counted in the mu-law sign bit.
TEST(Tone, HasItsChannelsPitch) {
    for (int ch = 0; ch < 16; ++ch) {
        int crossings = 0;
        bool last = true;
        for (uint32_t n = 0; n < 25; ++n) {
            uint8_t samples[sim::AUDIO_FRAME_BYTES];
            sim::write_tone(ch, n, samples);
            for (const uint8_t sample : samples) {
                const bool positive = sample & 0x80;
                if (positive && !last) ++crossings;
                last = positive;
            }
        }
        EXPECT_NEAR(crossings, 300 + 50 * ch, 1) << ch;
    }
}

}  // namespace
