// The bytes of a frame: a function of the seed, the settings and the frame's own names, of nothing
// else. For now a header and a pattern; no picture.
#ifndef SDK_VIDEO_PAYLOAD_H
#define SDK_VIDEO_PAYLOAD_H

#include <cstddef>
#include <cstdint>

#include "sdk/video/frame.h"

namespace sim {

// The header, little-endian: magic "QMF1"; kind, stream, channel, 0; frame number (32 bit); payload
// bytes (32 bit); pattern word (64 bit); checksum of all bytes but its own (32 bit); 0 (32 bit).
inline constexpr uint32_t PAYLOAD_HEADER_BYTES = 32;

// A number that looks random, of the seed and the frame's stream, channel, number and kind.
uint64_t frame_hash(const FrameInfo& info, uint64_t seed);

// Writes info.bytes (at least PAYLOAD_HEADER_BYTES) at `out`.
void write_payload(const FrameInfo& info, uint64_t seed, uint8_t* out);

// True when `bytes` are a whole payload, unchanged, of the frame that `info` names.
bool check_payload(const FrameInfo& info, const uint8_t* bytes, size_t size);

}  // namespace sim

#endif  // SDK_VIDEO_PAYLOAD_H
