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

// Longer groups behave the same.
constexpr uint32_t LONGEST_GROUP = 100'000;

}  // namespace

PictureSize picture_size(uint32_t resolution, bool pal) {
    constexpr PictureSize NTSC[RESOLUTIONS] = {
        {176, 120}, {352, 240}, {352, 480}, {704, 480}, {1280, 720}};
    constexpr PictureSize PAL[RESOLUTIONS] = {
        {176, 144}, {352, 288}, {352, 576}, {704, 576}, {1280, 720}};
    const uint32_t code = resolution < RESOLUTIONS ? resolution : DEFAULT_RESOLUTION;
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

void ConstantBitRate::start(uint32_t bits_per_second, uint32_t frames_per_second, uint32_t group) {
    const uint64_t others = group == 0 ? 1 : std::min(group, LONGEST_GROUP) - 1;
    const uint64_t span = 2 * uint64_t{frames_per_second};  // frames of 2 seconds
    // The excess e of a key frame, in thousandths.
    uint64_t excess;
    if (group == 0)
        excess = 8 * span;
    else if (span % group == 0)
        excess = std::min<uint64_t>(3000, 750 * others);
    else
        excess = std::min(8 * span * others / (others + 1), 750 * others);

    const uint64_t unit = 1000 * std::max<uint64_t>(others, 1);
    const uint64_t key_weight = unit + excess * std::max<uint64_t>(others, 1);
    const uint64_t other_weight = group == 0 ? unit : unit - excess;
    m_key_dividend = bits_per_second * key_weight;
    m_other_dividend = bits_per_second * other_weight;
    m_divisor = 8 * uint64_t{frames_per_second} * unit;
    m_remainder = 0;
}

uint32_t ConstantBitRate::next_bytes(bool key) {
    const uint64_t dividend = (key ? m_key_dividend : m_other_dividend) + m_remainder;
    m_remainder = dividend % m_divisor;
    return static_cast<uint32_t>(dividend / m_divisor);
}

}  // namespace sim
