// Where frames of sound belong in a clip, one sample a tick: what is missing between them, and what
// is too much.
#ifndef TOOLS_QMTOOL_CLIP_SOUND_H
#define TOOLS_QMTOOL_CLIP_SOUND_H

#include <algorithm>
#include <cstdint>

#include "sdk/video/audio_tone.h"

inline constexpr uint8_t SILENCE = 0xFF;  // mu-law 0
inline constexpr int64_t SAMPLE_US = 1'000'000 / sim::AUDIO_SAMPLES_PER_SECOND;

class SoundPlaces {
  public:
    struct Place {
        uint64_t silence;  // samples before the frame
        uint64_t cut;      // of the frame's samples, the first ones
    };

    // The place of a frame of so many samples. Frames that are less than half a frame early or late
    // just follow one another.
    Place next(int64_t clip_us, uint64_t samples) {
        if (!m_any) m_start_us = clip_us;
        m_any = true;
        constexpr int64_t NEAR_US = SAMPLE_US * sim::AUDIO_FRAME_BYTES / 2;
        const int64_t late_us = clip_us - end_us();
        Place place = {0, 0};
        if (late_us > NEAR_US) place.silence = static_cast<uint64_t>(late_us / SAMPLE_US);
        if (late_us < -NEAR_US)
            place.cut = std::min(samples, static_cast<uint64_t>(-late_us / SAMPLE_US));
        m_samples += place.silence + samples - place.cut;
        return place;
    }

    bool any() const { return m_any; }
    int64_t start_us() const { return m_start_us; }  // in the clip
    int64_t end_us() const { return m_start_us + static_cast<int64_t>(m_samples) * SAMPLE_US; }
    uint64_t samples() const { return m_samples; }

  private:
    bool m_any = false;
    int64_t m_start_us = 0;
    uint64_t m_samples = 0;
};

#endif  // TOOLS_QMTOOL_CLIP_SOUND_H
