// JPEG files (ITU-T T.81, annex B) from outside: how large the picture is, where a comment goes.
// Nothing is decoded.
#ifndef TOOLS_QMTOOL_CLIP_JPEG_H
#define TOOLS_QMTOOL_CLIP_JPEG_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "sdk/video/picture.h"

struct JpegLayout {
    sim::PictureSize size;
    // Where another comment can stand: behind the first one, else behind the application's segments
    // at the start.
    size_t comment_at = 0;
};

// False when the bytes are no JPEG file, up to the start of its scan.
bool look_at_jpeg(const uint8_t* bytes, size_t size, JpegLayout& out);

// A COM segment with this text.
std::string comment_segment(const std::string& text);

#endif  // TOOLS_QMTOOL_CLIP_JPEG_H
