// The times of a clip from recorded ones: they are true, but never go back, and no hole is longer
// than players can count. What is told of gaps stands in clip_gaps.
#ifndef TOOLS_QMTOOL_CLIP_TIMES_H
#define TOOLS_QMTOOL_CLIP_TIMES_H

#include <cstdint>

#include "sdk/video/frame.h"

class ClipTimes {
  public:
    // 31 bits of ticks of a film are 6.6 hours.
    static constexpr int64_t MOST_HOLE_US = int64_t{6} * 3600 * 1'000'000;
    // Between two runs of which the second one's clock is behind that of the first.
    static constexpr int64_t SET_BACK_US = 40'000;

    // The time of a frame in the clip; frames of all streams are given in order of recording.
    int64_t of(const sim::FrameInfo& frame);

  private:
    bool m_any = false;
    uint32_t m_run = 0;
    int64_t m_shift_us = 0;   // recorded time - time in the clip
    int64_t m_latest_us = 0;  // in the clip
};

#endif  // TOOLS_QMTOOL_CLIP_TIMES_H
