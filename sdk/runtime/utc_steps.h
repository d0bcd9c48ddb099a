// Whether the machine's UTC clock was set, found by looking at it beside the steady clock. Knows no
// clock itself.
#ifndef SDK_RUNTIME_UTC_STEPS_H
#define SDK_RUNTIME_UTC_STEPS_H

#include <cstdint>
#include <cstdlib>

namespace sim {

// One look at both clocks. They cannot be read at once: `apart_us` passed while UTC was read.
struct ClockLook {
    int64_t utc_us = 0;
    int64_t steady_us = 0;
    int64_t apart_us = INT64_MAX;
};

// One thread at a time.
class UtcSteps {
  public:
    // A clock that is set jumps; one that is only led drifts less than this between two looks.
    static constexpr int64_t LEAST_US = 250'000;

    // By how much UTC was set, forward or back, since the first look. What a look may owe to having
    // been held up is no step; one that was held up for long counts only when it shows one.
    int64_t note(const ClockLook& look) {
        const int64_t offset_us = look.utc_us - look.steady_us;
        if (m_looked) {
            const int64_t step_us = offset_us - m_offset_us;
            const bool is_step = std::abs(step_us) - (look.apart_us + m_apart_us) / 2 >= LEAST_US;
            if (is_step) m_sum_us += step_us;
            if (!is_step && look.apart_us >= LEAST_US) return m_sum_us;
        }
        m_looked = true;
        m_offset_us = offset_us;
        m_apart_us = look.apart_us;
        return m_sum_us;
    }

  private:
    bool m_looked = false;
    int64_t m_offset_us = 0;
    int64_t m_apart_us = 0;
    int64_t m_sum_us = 0;
};

}  // namespace sim

#endif  // SDK_RUNTIME_UTC_STEPS_H
