// How large the frames of a channel are. Integer arithmetic only.
#ifndef SDK_BOARD_RATE_CONTROL_H
#define SDK_BOARD_RATE_CONTROL_H

#include <cstdint>

namespace sim {

// Picture size in pixels.
struct PictureSize {
    int width;
    int height;
};

// 0 QCIF, 1 CIF, 2 Half D1, 3 D1, 4 HD; a code above 4 is taken as 3.
PictureSize picture_size(uint32_t resolution, bool pal);

// Constant quantiser, the formula: a P picture takes pixels * 1/12 bit at QP 27, doubled for every
// 6 steps down and halved for every 6 up; a key picture takes 6 times, a JPEG picture 12 times as
// much.
uint32_t constant_quantiser_bytes(PictureSize size, uint8_t qp, bool key, bool jpeg);

// Constant bit rate: gives each frame its bytes so that every span of 2 seconds holds the bit rate
// within 1 %, with key frames larger than the others.
//
// Of the bytes that are due a frame, a, a key frame takes a * (1 + e), and the G - 1 others of its
// group of G give it back in equal shares. Where groups divide 2 seconds evenly, every such span
// holds the same number of key frames and e may be large (3, for short groups 3/4 of G - 1);
// elsewhere a span may hold one key frame more or less, and e is kept at 0.8 % of a span's frames
// times (G - 1) / G.
class ConstantBitRate {
  public:
    // Starts over. `group` is the distance of key frames in frames; 0 is one endless group, 1 is
    // key frames only. `frames_per_second` is not 0.
    void start(uint32_t bits_per_second, uint32_t frames_per_second, uint32_t group);
    // The bytes of the next frame.
    uint32_t next_bytes(bool key);

  private:
    // The bytes of a frame are its dividend / m_divisor.
    uint64_t m_key_dividend = 0;
    uint64_t m_other_dividend = 0;
    uint64_t m_divisor = 1;
    uint64_t m_remainder = 0;  // of the division, carried to the next frame
};

}  // namespace sim

#endif  // SDK_BOARD_RATE_CONTROL_H
