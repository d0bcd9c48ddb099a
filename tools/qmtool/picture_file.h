// Pictures as the bytes of files that any viewer opens: PNG (ISO/IEC 15948), PPM, and the colours
// that both need. JPEG files stand in sdk/video.
#ifndef TOOLS_QMTOOL_PICTURE_FILE_H
#define TOOLS_QMTOOL_PICTURE_FILE_H

#include <cstdint>
#include <string>
#include <vector>

#include "sdk/video/picture.h"

// Red, green and blue of each sample, row by row.
struct RgbPicture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bytes;
};

// From ITU-R BT.601. `narrow`: luma 16..235, as in H.264; else 0..255, as in JPEG files. Each
// chroma sample counts for its four luma samples.
RgbPicture rgb_of(const sim::Picture& picture, bool narrow);

// 8 bits a sample, not compressed.
std::vector<uint8_t> png_of(const RgbPicture& picture);
// P6.
std::vector<uint8_t> ppm_of(const RgbPicture& picture);

#endif  // TOOLS_QMTOOL_PICTURE_FILE_H
