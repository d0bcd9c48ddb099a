// Writes the parameter sets of a stream (ITU-T H.264, 7.3.2.1, 7.3.2.2 and annex E).
#ifndef SDK_VIDEO_H264_SETS_WRITER_H
#define SDK_VIDEO_H264_SETS_WRITER_H

#include "sdk/video/bit_writer.h"
#include "sdk/video/picture.h"

namespace sim {

// level_idc: the lowest of table A-1 that has room for such pictures and so many of them a second.
uint8_t level_for(PictureSize size, uint32_t rate);

// Payloads, with their stop bit. `rate` is at least 1.
void write_sequence_set(PictureSize size, uint32_t rate, BitWriter& out);
void write_picture_set(BitWriter& out);

}  // namespace sim

#endif  // SDK_VIDEO_H264_SETS_WRITER_H
