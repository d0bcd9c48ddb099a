// How large the frames of a channel are. Integer arithmetic only.
#ifndef SDK_BOARD_RATE_CONTROL_H
#define SDK_BOARD_RATE_CONTROL_H

#include <cstdint>

#include "sdk/video/picture.h"

namespace sim {

// The resolution code that is meant: 0 QCIF, 1 CIF, 2 Half D1, 3 D1, 4 HD; above 4 is taken as 3.
uint32_t held_resolution(uint32_t resolution);

PictureSize picture_size(uint32_t resolution, bool pal);

// Constant quantiser, the formula: a P picture takes pixels * 1/12 bit at QP 27, doubled for every
// 6 steps down and halved for every 6 up; a key picture takes 6 times, a JPEG picture 12 times as
// much.
uint32_t constant_quantiser_bytes(PictureSize size, uint8_t qp, bool key, bool jpeg);

// Constant bit rate: the bytes of each frame follow from its number, so that every span of 2
// seconds holds the bit rate within 1 %, with key frames larger than the others.
//
// Of the bytes that are due a frame, a, a key frame takes a * (1 + e), and the G - 1 others of its
// group of G give it back in equal shares. A span may hold one key frame more or less than another,
// and one out of turn (after a change of size, say): e is 0.4 % of a span's frames times
// (G - 1) / G.
class ConstantBitRate {
  public:
    // `group` is the distance of key frames in frames: 0 is one endless group, 1 is key frames
    // only. `frames_per_second` is not 0.
    ConstantBitRate(uint32_t bits_per_second, uint32_t frames_per_second, uint32_t group);
    ConstantBitRate() : ConstantBitRate(0, 1, 0) {}

    // The bytes of frame `number`; the first of each group is a key frame. `key` is true for a key
    // frame out of turn as well.
    uint32_t bytes(uint32_t number, bool key) const;

  private:
    // What the frames of a group before frame `place` of it take, in units of 1 / m_divisor byte.
    uint64_t before(uint64_t place) const;

    uint64_t m_group;  // 0: endless
    uint64_t m_key_dividend;
    uint64_t m_other_dividend;
    uint64_t m_divisor;
};

}  // namespace sim

#endif  // SDK_BOARD_RATE_CONTROL_H
