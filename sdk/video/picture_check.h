// Holds what was recorded of one stream of one channel against itself: frames that can be decoded,
// with the block code of what their records say. Sound is not looked at.
#ifndef SDK_VIDEO_PICTURE_CHECK_H
#define SDK_VIDEO_PICTURE_CHECK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "sdk/video/frame.h"
#include "sdk/video/h264_reader.h"
#include "sdk/video/jpeg_reader.h"

namespace sim {

class PictureCheck {
  public:
    enum class Found {
        fine,
        no_code,        // decoded; its block code is covered or missing
        waits_for_key,  // no picture: a frame that it refers to was not checked before it
        wrong,          // error() says what
    };

    // The next frame, in the order of recording. Its numbers need not follow each other: behind a
    // slot that the encoder passed over the pictures go on, behind a lost frame all wait for a key
    // frame.
    Found check(const FrameInfo& info, const uint8_t* payload, size_t bytes);
    // Streams and channels are counted from 0 in it.
    const std::string& error() const { return m_error; }
    // What was decoded last; null when the last frame was not, or is wrong.
    const Picture* picture() const { return m_picture; }

  private:
    enum class Code {
        right,
        covered,  // what can be seen of it is right
        of_another,
        damaged,
    };
    Code look_at_code(const FrameInfo& info);
    Found check_code(Code code);
    Found refuse(const std::string& why);
    Found wait_for_key();

    H264Reader m_h264;
    JpegReader m_jpeg;
    bool m_follows = false;  // the picture before was decoded, and is what the next refers to
    bool m_covered = false;  // a part of its block code is
    uint64_t m_light = 0;    // squares that were light since the key picture: nothing covers them
    uint32_t m_number = 0;   // of the picture before
    const Picture* m_picture = nullptr;
    std::string m_error;
};

}  // namespace sim

#endif  // SDK_VIDEO_PICTURE_CHECK_H
