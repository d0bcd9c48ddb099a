// Counters that one thread adds to and a report on another takes.
#ifndef SDK_WORKERS_SATURATING_H
#define SDK_WORKERS_SATURATING_H

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace sim {

// Adds to a counter that may be exchanged with 0 at any time; holds at the 32-bit limit.
inline void add_saturating(std::atomic<int32_t>& counter, uint32_t value) {
    int32_t old = counter.load(std::memory_order_relaxed);
    int32_t sum;
    do {
        sum = static_cast<int32_t>(std::min<int64_t>(int64_t{old} + value, INT32_MAX));
    } while (!counter.compare_exchange_weak(old, sum, std::memory_order_relaxed));
}

}  // namespace sim

#endif  // SDK_WORKERS_SATURATING_H
