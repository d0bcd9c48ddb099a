// The size formulas.
#include "sdk/board/rate_control.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint32_t RESOLUTIONS = 5;
constexpr uint32_t DEFAULT_RESOLUTION = 3;  // D1

// 2^(i/6) in units of 1/4096.
constexpr uint64_t SIXTH_OF_OCTAVE[6] = {4096, 4598, 5161, 5793, 6502, 7298};
constexpr int SIXTH_SHIFT = 12;
constexpr int REFERENCE_QP = 27;

// In longer groups the share that the others give back is nothing to speak of.
constexpr uint64_t LONGEST_GROUP = 1000;

}  // namespace

uint32_t held_resolution(uint32_t resolution) {
    return resolution < RESOLUTIONS ? resolution : DEFAULT_RESOLUTION;
}

PictureSize picture_size(uint32_t resolution, bool pal) {
    constexpr PictureSize NTSC[RESOLUTIONS] = {
        {176, 120}, {352, 240}, {352, 480}, {704, 480}, {1280, 720}};
    constexpr PictureSize PAL[RESOLUTIONS] = {
        {176, 144}, {352, 288}, {352, 576}, {704, 576}, {1280, 720}};
    const uint32_t code = held_resolution(resolution);
    return pal ? PAL[code] : NTSC[code];
}

uint32_t constant_quantiser_bytes(PictureSize size, uint8_t qp, bool key, bool jpeg) {
    const int below = REFERENCE_QP - std::min<int>(qp, 51) + 30;  // 6..57, 30 at the reference
    const uint64_t pixels = static_cast<uint64_t>(size.width) * static_cast<uint64_t>(size.height);
    const uint64_t factor = jpeg ? 12 : key ? 6 : 1;
    const uint64_t scaled = pixels * factor * (SIXTH_OF_OCTAVE[below % 6] << (below / 6));
    constexpr uint64_t bits_per_byte = 8;
    constexpr uint64_t pixels_per_bit = 12;
    constexpr int reference_shift = SIXTH_SHIFT + 30 / 6;
    return static_cast<uint32_t>((scaled >> reference_shift) / (bits_per_byte * pixels_per_bit));
}

ConstantBitRate::ConstantBitRate(uint32_t bits_per_second, uint32_t frames_per_second,
                                 uint32_t group)
    : m_group(group) {
    const uint64_t span = 2 * uint64_t{frames_per_second};  // frames of 2 seconds
    const bool gives_back = group > 1 && group <= LONGEST_GROUP;
    const uint64_t others = gives_back ? group - 1 : 1;
    // The excess e of a key frame in thousandths, and weights in units of 1 / (1000 * others)
    // frame.
    const uint64_t excess = group == 1 ? 0 : gives_back ? 4 * span * others / group : 4 * span;
    const uint64_t unit = 1000 * others;
    m_key_dividend = bits_per_second * (unit + excess * others);
    m_other_dividend = bits_per_second * (gives_back ? unit - excess : unit);
    m_divisor = 8 * uint64_t{frames_per_second} * unit;
}

uint64_t ConstantBitRate::before(uint64_t place) const {
    if (place == 0) return 0;
    return m_key_dividend % m_divisor + (place - 1) * (m_other_dividend % m_divisor);
}

// Frame n takes floor(sum up to and with it) - floor(sum before it). Only remainders of the sums
// matter, and those of whole groups are taken first, so nothing overflows.
uint32_t ConstantBitRate::bytes(uint32_t number, bool key) const {
    const uint64_t place = m_group == 0 ? number : number % m_group;
    const uint64_t groups = m_group == 0 ? 0 : number / m_group;
    const uint64_t group_remainder = m_group == 0 ? 0 : before(m_group) % m_divisor;
    const uint64_t sum = groups % m_divisor * group_remainder % m_divisor + before(place);
    const uint64_t due = sum % m_divisor + (key ? m_key_dividend : m_other_dividend);
    return static_cast<uint32_t>(due / m_divisor);
}

}  // namespace sim
