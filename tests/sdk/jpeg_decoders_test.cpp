// JPEG pictures in the decoders of others: ffmpeg and djpeg, where they are installed, say nothing
// and see what the reader sees.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/sdk/jpeg_pictures.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace jpeg_pictures;

bool is_installed(const std::string& program) {
    const int status = std::system(("command -v " + program + " > /dev/null 2>&1").c_str());
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Pictures one behind the other, and the planes that the reader decodes of each.
struct Pictures {
    std::vector<Bytes> coded;
    std::vector<Picture> planes;
};

Pictures pictures_of(PictureSize size) {
    Pictures out;
    const std::vector<PrivateZone> zones = {{},
                                            zone_of(5, 7, 33, 41),
                                            zone_of(size.width - 21, size.height - 13, 100, 100),
                                            zone_of(9, 9, 0, 50),
                                            zone_of(0, 0, size.width, size.height)};
    const std::vector<size_t> fills = {0, 1, 2, 63, 5000};
    uint32_t number = 0;
    for (int pattern = 0; pattern < PATTERNS; ++pattern) {
        for (const int qp : {0, 26, 51}) {
            Scene scene = scene_of(size.width, size.height, static_cast<Pattern>(pattern));
            scene.text = static_cast<Text>(number % 3);
            JpegWriter writer;
            writer.configure(scene, zones[number % zones.size()], qp);
            out.coded.push_back(written(writer, number, fills[number * 2 % fills.size()]));
            out.planes.push_back(decoded(out.coded.back()));
            ++number;
        }
    }
    return out;
}

std::string text_of(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// Runs a command in `dir`, which must end well and say nothing.
void expect_silent(const TempDir& dir, const std::string& command) {
    const std::string whole = "cd '" + dir.path() + "' && " + command + " 2> messages";
    const int status = std::system(whole.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
    EXPECT_EQ(dir.read("messages"), "") << command;
}

int largest_difference(const Bytes& ours, const std::string& theirs, size_t at) {
    int most = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        most = std::max(most, std::abs(ours[i] - static_cast<uint8_t>(theirs[at + i])));
    }
    return most;
}

TEST(JpegDecoders, FfmpegSeesWhatTheReaderSees) {
    if (!is_installed("ffmpeg")) GTEST_SKIP() << "needs ffmpeg";
    for (const PictureSize size : SIZES) {
        const Pictures pictures = pictures_of(size);
        TempDir dir;
        std::string stream;
        for (const Bytes& coded : pictures.coded) stream += text_of(coded);
        dir.write("all.mjpeg", stream);
        expect_silent(dir,
                      "ffmpeg -nostdin -v warning -err_detect explode -xerror -idct int -f mjpeg "
                      "-i all.mjpeg -f rawvideo -pix_fmt yuvj420p all.yuv");
        const std::string theirs = dir.read("all.yuv");
        const auto samples = static_cast<size_t>(size.width * size.height);
        ASSERT_EQ(theirs.size(), pictures.planes.size() * samples * 3 / 2) << size.width;
        size_t at = 0;
        for (const Picture& ours : pictures.planes) {
            for (const Bytes* plane : {&ours.y, &ours.u, &ours.v}) {
                EXPECT_LE(largest_difference(*plane, theirs, at), 2) << size.width << " at " << at;
                at += plane->size();
            }
        }
    }
}

TEST(JpegDecoders, DjpegSeesWhatTheReaderSees) {
    if (!is_installed("djpeg")) GTEST_SKIP() << "needs djpeg (libjpeg-turbo-progs)";
    for (const PictureSize size : SIZES) {
        const Pictures pictures = pictures_of(size);
        for (size_t i = 0; i < pictures.coded.size(); ++i) {
            TempDir dir;
            dir.write("one.jpg", text_of(pictures.coded[i]));
            expect_silent(dir, "djpeg -nosmooth -dct int -grayscale -pnm one.jpg > one.pgm");
            const std::string theirs = dir.read("one.pgm");
            const std::string head =
                "P5\n" + std::to_string(size.width) + " " + std::to_string(size.height) + "\n255\n";
            ASSERT_EQ(theirs.substr(0, head.size()), head);
            ASSERT_EQ(theirs.size(), head.size() + pictures.planes[i].y.size());
            EXPECT_LE(largest_difference(pictures.planes[i].y, theirs, head.size()), 2) << i;
        }
    }
}

}  // namespace
