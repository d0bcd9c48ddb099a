// Once its channel runs, a frame costs no memory; and where memory runs short a frame is missing,
// not more. A program of its own: it counts every `new`, and can make one fail.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "mainwork/qm_codec.h"
#include "sdk/board/encoder_channel.h"

namespace {

std::atomic<uint64_t> allocations{0};
std::atomic<uint64_t> failing_one{UINT64_MAX};  // its number

void* counted(size_t size) {
    void* const place = allocations++ == failing_one ? nullptr : malloc(size ? size : 1);
    if (!place) throw std::bad_alloc();
    return place;
}

// Not inlined: compilers take a free() of what `new` gave for a mistake.
[[gnu::noinline]] void give_back(void* place) noexcept { free(place); }

}  // namespace

void* operator new(size_t size) { return counted(size); }
void* operator new[](size_t size) { return counted(size); }
void operator delete(void* place) noexcept { give_back(place); }
void operator delete[](void* place) noexcept { give_back(place); }
void operator delete(void* place, size_t) noexcept { give_back(place); }
void operator delete[](void* place, size_t) noexcept { give_back(place); }

namespace {

constexpr int FRAMES_UNTIL_IT_RUNS = 120;
constexpr int FRAMES = 600;
constexpr uint32_t MOST_BYTES = 4 << 20;

struct Settings {
    uint32_t resolution;
    uint32_t bitrate_type;  // constant, or by the quantiser
    uint8_t qp;
};

uint64_t allocations_of(sim::EncoderChannel& encoder, const sim::Content& content, int frames,
                        std::vector<uint8_t>& out) {
    const uint64_t before = allocations;
    for (int i = 0; i < frames; ++i) {
        const sim::FrameInfo info = encoder.encode(content);
        if (info.bytes > out.size()) return UINT64_MAX;
        encoder.write(out.data());
    }
    return allocations - before;
}

class EncoderAllocation : public testing::TestWithParam<uint8_t> {};  // the stream

TEST_P(EncoderAllocation, ARunningChannelAllocatesNothing) {
    std::vector<uint8_t> out(MOST_BYTES);
    for (const Settings& settings : {Settings{0, 0, 27}, {0, 1, 27}, {1, 0, 10}, {2, 1, 51}}) {
        for (int pattern = 0; pattern < sim::PATTERNS; ++pattern) {
            sim::EncoderChannel encoder;
            encoder.place(GetParam(), 7);
            encoder.set_format(false, {});
            encoder.set_resolution(settings.resolution);
            encoder.set_bitrate_type(settings.bitrate_type);
            encoder.set_qp(settings.qp);
            encoder.set_zone({true, 33, 41, 77, 45});
            encoder.switch_on({});
            sim::Content content;
            content.pattern = static_cast<sim::Pattern>(pattern);
            EXPECT_GT(allocations_of(encoder, content, FRAMES_UNTIL_IT_RUNS, out), 0u);
            EXPECT_EQ(allocations_of(encoder, content, FRAMES, out), 0u)
                << "pattern " << pattern << ", resolution " << settings.resolution;
        }
    }
}

// Frames of one size, memory short at the first of another, and those after it.
TEST_P(EncoderAllocation, AfterAShortageTheNextFrameIsWhole) {
    std::vector<uint8_t> out(MOST_BYTES), expected(MOST_BYTES);
    const auto begin = [](sim::EncoderChannel& encoder) {
        encoder.place(GetParam(), 7);
        encoder.set_format(false, {});
        encoder.set_resolution(0);
        encoder.switch_on({});
        encoder.encode();
        encoder.set_resolution(2);
    };
    bool failed = true;
    int places = 0;
    for (uint64_t k = 0; failed; ++k, ++places) {
        sim::EncoderChannel encoder, other;
        begin(encoder);
        begin(other);
        failed = false;
        failing_one = allocations + k;
        try {
            encoder.encode();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        failing_one = UINT64_MAX;
        if (!failed) break;
        for (int i = 0; i < 3; ++i) {
            const uint32_t bytes = encoder.encode().bytes;
            ASSERT_EQ(bytes, other.encode().bytes) << k;
            encoder.write(out.data());
            other.write(expected.data());
            ASSERT_EQ(memcmp(out.data(), expected.data(), bytes), 0) << k;
        }
    }
    EXPECT_GT(places, 10);
}

INSTANTIATE_TEST_SUITE_P(Streams, EncoderAllocation,
                         testing::Values(uint8_t{QMCODEC_STREAM_MAIN},
                                         uint8_t{QMCODEC_STREAM_JPEG}));

}  // namespace
