// In 64 bits: nothing is cut off before the end that could be seen in a sample.
#include "sdk/video/jpeg_inverse.h"

#include <algorithm>
#include <cstring>

namespace sim::jpeg {

namespace {

constexpr int LEVEL_SHIFT = 128;
constexpr int BETWEEN = 8;  // bits of fraction dropped between the directions
constexpr int SCALE = 2 * COSINE_BITS - BETWEEN;

uint8_t sample(int64_t value) {
    return static_cast<uint8_t>(std::clamp<int64_t>(value + LEVEL_SHIFT, 0, 255));
}

int64_t rounded(int64_t value, int bits) { return (value + (int64_t{1} << (bits - 1))) >> bits; }

// One direction: sums of the eight cosines, the even and the odd frequencies apart, since the right
// half of an odd one is its left half negated.
template <typename Value>
std::array<int64_t, BLOCK> cosines(const Value* f, int step) {
    const auto& c = COSINE;
    const auto at = [f, step](int u) { return static_cast<int64_t>(f[u * step]); };
    const int64_t sum = c[4] * (at(0) + at(4)), difference = c[4] * (at(0) - at(4));
    const int64_t outer = c[2] * at(2) + c[6] * at(6), inner = c[6] * at(2) - c[2] * at(6);
    const std::array<int64_t, 4> even = {sum + outer, difference + inner, difference - inner,
                                         sum - outer};
    const std::array<int64_t, 4> odd = {
        c[1] * at(1) + c[3] * at(3) + c[5] * at(5) + c[7] * at(7),
        c[3] * at(1) - c[7] * at(3) - c[1] * at(5) - c[5] * at(7),
        c[5] * at(1) - c[1] * at(3) + c[7] * at(5) + c[3] * at(7),
        c[7] * at(1) - c[5] * at(3) + c[3] * at(5) - c[1] * at(7),
    };
    std::array<int64_t, BLOCK> out;
    for (size_t i = 0; i < 4; ++i) {
        out[i] = even[i] + odd[i];
        out[7 - i] = even[i] - odd[i];
    }
    return out;
}

}  // namespace

void inverse_transform(const std::array<int32_t, COEFFICIENTS>& block, int last, uint8_t* out,
                       int stride) {
    if (last == 0) {
        const uint8_t value = sample(rounded(block[0], 3));
        for (int y = 0; y < BLOCK; ++y) std::memset(out + y * stride, value, BLOCK);
        return;
    }
    std::array<int64_t, COEFFICIENTS> columns;  // of samples down, of frequencies across
    for (int u = 0; u < BLOCK; ++u) {
        const std::array<int64_t, BLOCK> column = cosines(block.data() + u, BLOCK);
        for (int y = 0; y < BLOCK; ++y) {
            columns[static_cast<size_t>(y * BLOCK + u)] =
                rounded(column[static_cast<size_t>(y)], BETWEEN);
        }
    }
    for (int y = 0; y < BLOCK; ++y) {
        const std::array<int64_t, BLOCK> row = cosines(columns.data() + y * BLOCK, 1);
        for (int x = 0; x < BLOCK; ++x) {
            out[y * stride + x] = sample(rounded(row[static_cast<size_t>(x)], SCALE));
        }
    }
}

}  // namespace sim::jpeg
