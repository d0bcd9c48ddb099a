// Parameter sets, as far as h264_writer varies them: everything else in them must be as it writes
// it. Pictures are in h264_reader.
#ifndef SDK_VIDEO_H264_SETS_H
#define SDK_VIDEO_H264_SETS_H

#include "sdk/video/bit_reader.h"
#include "sdk/video/h264_reader.h"

namespace sim {

// Both read a payload. Null when it is right, otherwise what is wrong, as "sps: it ...".
const char* read_sequence_set(BitReader& bits, SequenceInfo& out);
// `qp` is what slice_qp_delta adds to.
const char* read_picture_set(BitReader& bits, int& qp);

}  // namespace sim

#endif  // SDK_VIDEO_H264_SETS_H
