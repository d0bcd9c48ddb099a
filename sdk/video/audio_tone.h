// The sound of a channel: a tone of its own, ITU-T G.711 mu-law, 8000 samples a second.
#ifndef SDK_VIDEO_AUDIO_TONE_H
#define SDK_VIDEO_AUDIO_TONE_H

#include <cstdint>

namespace sim {

inline constexpr int AUDIO_SAMPLES_PER_SECOND = 8000;
inline constexpr int AUDIO_FRAMES_PER_SECOND = 25;
inline constexpr uint32_t AUDIO_FRAME_BYTES = AUDIO_SAMPLES_PER_SECOND / AUDIO_FRAMES_PER_SECOND;

// The tone of channel 0..15 in hertz: 300, 350, ... 1050.
int tone_hertz(int channel);

// One 16-bit linear sample as G.711 mu-law.
uint8_t mu_law(int16_t sample);

// Writes AUDIO_FRAME_BYTES samples: frame `number` of the channel's tone. Successive frames join
// without a step.
void write_tone(int channel, uint32_t number, uint8_t* out);

}  // namespace sim

#endif  // SDK_VIDEO_AUDIO_TONE_H
