// The payload of a NAL unit, out of it and into it. How a stream is split into units is in
// h264_reader.h.
#ifndef SDK_VIDEO_H264_NAL_H
#define SDK_VIDEO_H264_NAL_H

#include <vector>

#include "sdk/video/h264_reader.h"

namespace sim {

// What a NAL unit's header byte holds besides its type.
inline int reference(const NalUnit& unit) { return unit.bytes[0] >> 5 & 3; }

// Copies the bytes after the header without the emulation prevention bytes. False when three bytes
// follow each other that a unit cannot hold. `payload` grows to at most the unit's size.
bool take_payload(const NalUnit& unit, std::vector<uint8_t>& payload);

// The other way round: appends a unit with its start code, of four bytes when it is `long_code`,
// else of three.
void append_unit(bool long_code, uint8_t header, const std::vector<uint8_t>& payload,
                 std::vector<uint8_t>& out);

// Filler data: 0xFF only, then the stop bit.
bool is_filler(const NalUnit& unit);

}  // namespace sim

#endif  // SDK_VIDEO_H264_NAL_H
