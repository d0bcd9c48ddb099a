// A number that looks random, of another one.
#ifndef SDK_VIDEO_MIX_H
#define SDK_VIDEO_MIX_H

#include <cstdint>

namespace sim {

// splitmix64: spreads the bits of a counter over a whole word.
inline uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

}  // namespace sim

#endif  // SDK_VIDEO_MIX_H
