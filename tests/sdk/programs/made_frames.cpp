// Writes frames as the board makes them to standard output, for tests that put them into databases
// of their own: of each its kind (one byte), number and size (32 bits, little-endian), then its
// bytes.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "sdk/video/audio_tone.h"
#include "sdk/video/frame.h"
#include "sdk/video/h264_writer.h"
#include "sdk/video/jpeg_writer.h"

namespace {

constexpr int QP = 30;

struct Wish {
    sim::Scene scene;
    uint32_t first = 0;  // frame number
    uint32_t count = 0;
    uint32_t key_every = 1;  // frames
    size_t fill = 0;         // bytes of a frame at least
};

void put(sim::FrameKind kind, uint32_t number, const std::vector<uint8_t>& bytes) {
    uint8_t head[9] = {static_cast<uint8_t>(kind)};
    for (size_t i = 0; i < 4; ++i) {
        head[1 + i] = static_cast<uint8_t>(number >> (8 * i));
        head[5 + i] = static_cast<uint8_t>(bytes.size() >> (8 * i));
    }
    fwrite(head, 1, sizeof head, stdout);
    fwrite(bytes.data(), 1, bytes.size(), stdout);
}

void put_h264(const Wish& wish) {
    sim::H264Writer writer;
    writer.configure(wish.scene, {}, QP);
    std::vector<uint8_t> bytes;
    for (uint32_t i = 0; i < wish.count; ++i) {
        const bool key = i % wish.key_every == 0;
        const size_t size = writer.compose(wish.first + i, key);
        bytes.resize(size > wish.fill ? size : wish.fill);
        writer.write(bytes.size(), bytes.data());
        put(key ? sim::FrameKind::idr : sim::FrameKind::p, wish.first + i, bytes);
    }
}

void put_jpeg(const Wish& wish) {
    sim::JpegWriter writer;
    writer.configure(wish.scene, {}, QP);
    std::vector<uint8_t> bytes;
    for (uint32_t i = 0; i < wish.count; ++i) {
        const size_t size = writer.compose(wish.first + i);
        bytes.resize(size > wish.fill ? size : wish.fill);
        writer.write(bytes.size(), bytes.data());
        put(sim::FrameKind::jpeg, wish.first + i, bytes);
    }
}

void put_tone(const Wish& wish) {
    std::vector<uint8_t> bytes(sim::AUDIO_FRAME_BYTES);
    for (uint32_t i = 0; i < wish.count; ++i) {
        sim::write_tone(wish.scene.channel, wish.first + i, bytes.data());
        put(sim::FrameKind::audio, wish.first + i, bytes);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 11) {
        fprintf(stderr,
                "Usage: made_frames h264|jpeg|tone STREAM CHANNEL WIDTH HEIGHT RATE FIRST COUNT "
                "KEY_EVERY FILL\n");
        return 2;
    }
    const auto number = [&](int at) {
        return static_cast<uint32_t>(strtoul(argv[at], nullptr, 10));
    };
    Wish wish;
    wish.scene.pattern = sim::Pattern::moving_bar;
    wish.scene.stream = static_cast<uint8_t>(number(2));
    wish.scene.channel = static_cast<uint8_t>(number(3));
    wish.scene.size = {static_cast<int>(number(4)), static_cast<int>(number(5))};
    wish.scene.rate = number(6);
    wish.first = number(7);
    wish.count = number(8);
    wish.key_every = number(9) > 0 ? number(9) : 1;
    wish.fill = number(10);
    if (strcmp(argv[1], "h264") == 0)
        put_h264(wish);
    else if (strcmp(argv[1], "jpeg") == 0)
        put_jpeg(wish);
    else
        put_tone(wish);
    return fflush(stdout) == 0 ? 0 : 1;
}
