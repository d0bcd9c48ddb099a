// Tone and mu-law, in integers: the same bytes on every machine.
#include "sdk/video/audio_tone.h"

namespace sim {

namespace {

constexpr int PERIOD = AUDIO_SAMPLES_PER_SECOND;  // phase steps of one turn
constexpr int AMPLITUDE = 8000;

// Bhaskara's approximation of the sine over one half turn, 0 <= phase <= PERIOD / 2.
int half_sine(int64_t phase) {
    constexpr int64_t half = PERIOD / 2;
    const int64_t arch = phase * (half - phase);
    return static_cast<int>(AMPLITUDE * 16 * arch / (5 * half * half - 4 * arch));
}

int16_t sine(int phase) {
    constexpr int half = PERIOD / 2;
    const int value = phase < half ? half_sine(phase) : -half_sine(phase - half);
    return static_cast<int16_t>(value);
}

}  // namespace

int tone_hertz(int channel) { return 300 + 50 * channel; }

uint8_t mu_law(int16_t sample) {
    constexpr int BIAS = 0x84;
    constexpr int CLIP = 32635;
    const int sign = sample < 0 ? 0x80 : 0;
    int magnitude = sample < 0 ? -static_cast<int>(sample) : sample;
    if (magnitude > CLIP) magnitude = CLIP;
    magnitude += BIAS;
    int exponent = 7;
    while (exponent > 0 && !(magnitude & (0x80 << exponent))) --exponent;
    const int mantissa = (magnitude >> (exponent + 3)) & 0x0F;
    return static_cast<uint8_t>(~(sign | exponent << 4 | mantissa));
}

void write_tone(int channel, uint32_t number, uint8_t* out) {
    const uint64_t first = uint64_t{number} * AUDIO_FRAME_BYTES;
    const auto hertz = static_cast<uint64_t>(tone_hertz(channel));
    for (uint32_t i = 0; i < AUDIO_FRAME_BYTES; ++i)
        out[i] = mu_law(sine(static_cast<int>((first + i) * hertz % PERIOD)));
}

}  // namespace sim
