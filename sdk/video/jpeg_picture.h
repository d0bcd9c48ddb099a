// Any picture as a JPEG file (ITU-T T.81, baseline, 4:2:0): one that was decoded from H.264, to be
// looked at. The board's own JPEG streams are jpeg_writer's.
#ifndef SDK_VIDEO_JPEG_PICTURE_H
#define SDK_VIDEO_JPEG_PICTURE_H

#include <cstdint>
#include <vector>

#include "sdk/video/frame.h"
#include "sdk/video/picture.h"

namespace sim {

// Samples of narrow range (ITU-R BT.601: luma 16..235, chroma 16..240) become those of full range,
// as JPEG files have them.
Picture full_range(const Picture& narrow);

// `quality` 1..100. What the frame is stands in a comment.
std::vector<uint8_t> jpeg_of(const Picture& picture, const FrameInfo& info, int quality);

}  // namespace sim

#endif  // SDK_VIDEO_JPEG_PICTURE_H
