// Pictures for tests: scenes, zones, and the bytes of a frame.
#ifndef TESTS_SDK_JPEG_PICTURES_H
#define TESTS_SDK_JPEG_PICTURES_H

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "sdk/video/jpeg_reader.h"
#include "sdk/video/jpeg_writer.h"

namespace jpeg_pictures {

using namespace sim;
using Bytes = std::vector<uint8_t>;

inline PrivateZone zone_of(int x, int y, int width, int height) {
    return {true, static_cast<uint16_t>(x), static_cast<uint16_t>(y), static_cast<uint16_t>(width),
            static_cast<uint16_t>(height)};
}

inline Scene scene_of(int width, int height, Pattern pattern = Pattern::bars) {
    Scene scene;
    scene.size = {width, height};
    scene.pattern = pattern;
    scene.channel = 6;
    scene.stream = 2;
    return scene;
}

inline Bytes written(JpegWriter& writer, uint32_t number, size_t fill = 0) {
    Bytes bytes(writer.compose(number) + fill);
    writer.write(bytes.size(), bytes.data());
    return bytes;
}

inline Picture decoded(const Bytes& bytes) {
    JpegReader reader;
    EXPECT_TRUE(reader.decode(bytes.data(), bytes.size())) << reader.error();
    return reader.picture();
}

inline const std::vector<PictureSize> SIZES = {{176, 120}, {176, 144}, {352, 240},
                                               {352, 288}, {352, 480}, {352, 576},
                                               {704, 480}, {704, 576}, {1280, 720}};

}  // namespace jpeg_pictures

#endif  // TESTS_SDK_JPEG_PICTURES_H
