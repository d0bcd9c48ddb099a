// Decodes baseline JPEG (ITU-T T.81), 4:2:0 with three components, as jpeg_writer writes it. Any
// bytes are safe; what is of another kind is refused.
#ifndef SDK_VIDEO_JPEG_READER_H
#define SDK_VIDEO_JPEG_READER_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "sdk/video/picture.h"

namespace sim {

// At most LARGEST_PICTURE.
class JpegReader {
  public:
    // Decodes one picture. False when it is damaged or of another kind: error() says what.
    bool decode(const uint8_t* bytes, size_t size);
    const Picture& picture() const { return m_picture; }
    // Of the COM segments, the first; empty without one.
    const std::string& comment() const { return m_comment; }
    const std::string& error() const { return m_error; }

  private:
    Picture m_picture;
    std::string m_comment;
    std::string m_error;
};

}  // namespace sim

#endif  // SDK_VIDEO_JPEG_READER_H
