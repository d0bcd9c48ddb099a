// Payloads and tones.
#include <gtest/gtest.h>

#include <vector>

#include "sdk/video/audio_tone.h"
#include "sdk/video/payload.h"

namespace {

sim::FrameInfo names() {
    sim::FrameInfo info;
    info.kind = sim::FrameKind::idr;
    info.stream = 3;
    info.channel = 7;
    info.number = 0x01020304;
    info.bytes = 1003;
    return info;
}

std::vector<uint8_t> payload_of(const sim::FrameInfo& info, uint64_t seed) {
    std::vector<uint8_t> bytes(info.bytes);
    sim::write_payload(info, seed, bytes.data());
    return bytes;
}

TEST(Payload, CarriesItsNamesInTheHeader) {
    const std::vector<uint8_t> bytes = payload_of(names(), 1);
    const std::vector<uint8_t> head(bytes.begin(), bytes.begin() + 16);
    EXPECT_EQ(head,
              (std::vector<uint8_t>{'Q', 'M', 'F', '1', 0, 3, 7, 0, 4, 3, 2, 1, 0xEB, 3, 0, 0}));
}

TEST(Payload, IsAFunctionOfSeedAndNamesAlone) {
    EXPECT_EQ(payload_of(names(), 1), payload_of(names(), 1));
    EXPECT_NE(payload_of(names(), 1), payload_of(names(), 2));
    sim::FrameInfo later = names();
    later.time_us = 99;
    EXPECT_EQ(payload_of(names(), 1), payload_of(later, 1));
    later.number ^= 1;
    EXPECT_NE(payload_of(names(), 1), payload_of(later, 1));
}

TEST(Payload, IsFoundWholeAndEveryChangedByteIsFound) {
    const std::vector<uint8_t> whole = payload_of(names(), 1);
    EXPECT_TRUE(sim::check_payload(names(), whole.data(), whole.size()));
    for (size_t i = 0; i < whole.size(); ++i) {
        std::vector<uint8_t> bytes = whole;
        bytes[i] ^= 0x10;
        EXPECT_FALSE(sim::check_payload(names(), bytes.data(), bytes.size())) << i;
    }
    EXPECT_FALSE(sim::check_payload(names(), whole.data(), whole.size() - 1));
    EXPECT_FALSE(sim::check_payload(names(), whole.data(), 5));
}

TEST(Payload, OfAnotherFrameIsFound) {
    const std::vector<uint8_t> bytes = payload_of(names(), 1);
    sim::FrameInfo other = names();
    other.channel = 8;
    EXPECT_FALSE(sim::check_payload(other, bytes.data(), bytes.size()));
}

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
