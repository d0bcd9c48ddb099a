// Writes H.264 (ITU-T H.264, Annex B byte stream), constrained baseline profile: access units of a
// scene, from parts that were made before. No clock, no thread, no file.
//
// Every macroblock is Intra 16x16 with DC prediction and DC coefficients only, I_PCM, or P_Skip, so
// each 4 x 4 square of samples has one value, but where a privacy zone cuts it. Each macroblock row
// of a key picture is one slice for the overlay's part and one for the pattern's; deblocking is
// off. The pattern is coded at the quantiser that was asked for, the overlay exactly.
#ifndef SDK_VIDEO_H264_WRITER_H
#define SDK_VIDEO_H264_WRITER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "sdk/video/scene.h"

namespace sim {

class H264Writer {
  public:
    H264Writer();
    ~H264Writer();
    H264Writer(H264Writer&&) noexcept;
    H264Writer& operator=(H264Writer&&) noexcept;

    // Makes the parts for a scene. `qp` 0..51 is the quantiser of the pattern. The next frame must
    // be a key frame. Does nothing when nothing is different.
    void configure(const Scene& scene, const PrivateZone& zone, int qp);

    // Bytes of the key picture of frame `number`, unfilled; no state is changed but the parts.
    size_t key_bytes(uint32_t number);

    // Composes the access unit of frame `number`, a key frame (IDR, with SPS and PPS before it) or
    // not; returns its bytes without filler. Composed means sent: the next P picture refers to it.
    // Allocates nothing once frames of this kind were composed.
    size_t compose(uint32_t number, bool key);
    // Writes what was composed, filled up to `bytes`, which are at least what compose() returned:
    // with a filler NAL unit, or with up to 4 trailing zero bytes where it has no room.
    void write(size_t bytes, uint8_t* out) const;

    // What a decoder shows after the last access unit, to the byte.
    void reconstruct(Picture& out) const;

  private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

}  // namespace sim

#endif  // SDK_VIDEO_H264_WRITER_H
