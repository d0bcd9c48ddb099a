// All segments of a JPEG picture before its entropy-coded bytes. Of them only the frame's number in
// the comment is different from picture to picture.
#ifndef SDK_VIDEO_JPEG_HEADER_H
#define SDK_VIDEO_JPEG_HEADER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "sdk/video/jpeg_blocks.h"
#include "sdk/video/scene.h"

namespace sim::jpeg {

inline constexpr size_t NUMBER_DIGITS = 10;

// What the header tells of a picture.
struct HeaderFields {
    Quantisers luma{}, chroma{};
    int interval = 0;  // macroblocks between restart markers
};

// Makes `to` the header of frame 0. Returns where in it the NUMBER_DIGITS digits of the frame's
// number begin.
size_t put_header(const Scene& scene, const HeaderFields& fields, std::vector<uint8_t>& to);

}  // namespace sim::jpeg

#endif  // SDK_VIDEO_JPEG_HEADER_H
