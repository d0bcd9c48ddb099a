// A digest of every byte of the matrix and of the sound: the same on every machine and word size.
#include <cinttypes>
#include <cstdio>

#include "sdk/video/audio_tone.h"
#include "tests/sdk/programs/stream_matrix.h"

namespace {

// FNV-1a, 64 bits.
struct Digest {
    uint64_t value = 0xCBF29CE484222325;
    void add(const uint8_t* bytes, size_t size) {
        for (size_t i = 0; i < size; ++i) value = (value ^ bytes[i]) * 0x100000001B3;
    }
};

}  // namespace

int main() {
    Digest digest;
    int frames = 0;
    for (const bool pal : {false, true})
        make_matrix(pal, [&](const qm_dbframe& frame) {
            digest.add(frame.payload.get(), frame.info.bytes);
            ++frames;
        });
    uint8_t sound[sim::AUDIO_FRAME_BYTES];
    for (int channel = 0; channel < QMCODEC_CHANNELS; ++channel)
        for (uint32_t number = 0; number < 100; ++number) {
            sim::write_tone(channel, number, sound);
            digest.add(sound, sizeof sound);
        }
    printf("%016" PRIx64 " of %d pictures\n", digest.value, frames);
    return 0;
}
