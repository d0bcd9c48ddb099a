// Turns recorded times into times of a clip.
#include "tools/qmtool/clip_times.h"

#include <algorithm>

namespace {

// Frames of different streams of a run may change places by less.
constexpr int64_t MOST_DISORDER_US = 1'000'000;
// Damaged times may be anything; so there is no overflow.
constexpr int64_t FARTHEST_US = INT64_MAX / 4;

}  // namespace

int64_t ClipTimes::of(const sim::FrameInfo& frame) {
    const int64_t time_us = std::clamp(frame.time_us, -FARTHEST_US, FARTHEST_US);
    if (!m_any) {
        m_any = true;
        m_run = frame.run;
        m_latest_us = time_us;
    }
    const int64_t step_us = time_us - m_shift_us - m_latest_us;
    const int64_t least_us = frame.run == m_run ? -MOST_DISORDER_US : 0;
    if (step_us < least_us) m_shift_us += step_us - SET_BACK_US;
    if (step_us > MOST_HOLE_US) m_shift_us += step_us - MOST_HOLE_US;
    m_run = frame.run;
    const int64_t shown_us = time_us - m_shift_us;
    m_latest_us = std::max(m_latest_us, shown_us);
    return shown_us;
}
