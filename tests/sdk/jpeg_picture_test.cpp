// Any picture as a JPEG file, read back.
#include "sdk/video/jpeg_picture.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "sdk/video/jpeg_reader.h"

namespace {

using namespace sim;

FrameInfo frame() {
    FrameInfo info;
    info.stream = 5;
    info.channel = 6;
    info.number = 4'000'000'123;
    return info;
}

Picture sloped(PictureSize size) {
    Picture picture;
    picture.resize(size);
    const auto width = static_cast<size_t>(size.width);
    for (size_t i = 0; i < picture.y.size(); ++i)
        picture.y[i] = static_cast<uint8_t>(i % width * 200 / width + i / width % 4 * 15);
    for (size_t i = 0; i < picture.u.size(); ++i) {
        picture.u[i] = static_cast<uint8_t>(60 + i % (width / 2) * 100 / width);
        picture.v[i] = static_cast<uint8_t>(200 - i / (width / 2));
    }
    return picture;
}

void expect_near(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int most) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_LE(std::abs(a[i] - b[i]), most) << i;
}

TEST(JpegPicture, IsReadBackNearly) {
    for (const PictureSize size : {PictureSize{192, 144}, PictureSize{192, 108}, PictureSize{2, 2},
                                   PictureSize{34, 18}, PictureSize{352, 240}}) {
        const Picture picture = sloped(size);
        const std::vector<uint8_t> file = jpeg_of(picture, frame(), 100);
        JpegReader reader;
        ASSERT_TRUE(reader.decode(file.data(), file.size())) << reader.error();
        ASSERT_EQ(reader.picture().size, size);
        expect_near(reader.picture().y, picture.y, 2);
        expect_near(reader.picture().u, picture.u, 2);
        expect_near(reader.picture().v, picture.v, 2);
        EXPECT_EQ(reader.comment(), "channel 07 stream 4TH frame 4000000123");
    }
}

TEST(JpegPicture, LowerQualityIsSmaller) {
    const Picture picture = sloped({352, 288});
    EXPECT_LT(jpeg_of(picture, frame(), 50).size(), jpeg_of(picture, frame(), 90).size());
}

// 255/219 of luma above 16, 255/224 of chroma about 128.
TEST(JpegPicture, StretchesNarrowRange) {
    Picture picture;
    picture.resize({4, 2});
    picture.y = {16, 235, 126, 17, 0, 255, 100, 234};
    picture.u = {128, 240};
    picture.v = {16, 72};
    const Picture full = full_range(picture);
    // 110 * 1.1644 = 128.08; 1.16; 84 * 1.1644 = 97.81; 218 * 1.1644 = 253.84
    EXPECT_EQ(full.y, (std::vector<uint8_t>{0, 255, 128, 1, 0, 255, 98, 254}));
    // 128 + 112 * 1.1384 = 255.5 and 128 - 127.5, at the ends; 128 - 56 * 1.1384 = 64.25
    EXPECT_EQ(full.u, (std::vector<uint8_t>{128, 255}));
    EXPECT_EQ(full.v, (std::vector<uint8_t>{0, 64}));
}

}  // namespace
