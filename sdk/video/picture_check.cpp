// Decoding frame by frame, and reading the block code.
#include "sdk/video/picture_check.h"

#include "sdk/video/scene.h"

namespace sim {

PictureCheck::Found PictureCheck::refuse(const std::string& why) {
    m_error = why;
    m_follows = false;
    m_picture = nullptr;
    return Found::wrong;
}

PictureCheck::Found PictureCheck::check(const FrameInfo& info, const uint8_t* payload,
                                        size_t bytes) {
    m_error.clear();
    m_picture = nullptr;
    if (info.kind == FrameKind::jpeg) {
        m_follows = false;
        if (!m_jpeg.decode(payload, bytes)) return refuse(m_jpeg.error());
        m_picture = &m_jpeg.picture();
        return check_code(info);
    }
    const bool key = info.kind == FrameKind::idr;
    // A picture refers to the one before it: one that is missing was perhaps never encoded, and
    // then the stream goes on without it.
    if (!key && !m_follows) return Found::waits_for_key;
    const bool gap = !key && info.number != m_number + 1;
    if (!m_h264.decode(payload, bytes)) return gap ? wait_for_key() : refuse(m_h264.error());
    m_number = info.number;
    m_picture = &m_h264.picture();
    BlockCode code;
    const bool coded = read_block_code(*m_picture, code) == CodeFound::valid;
    // Zones come and go with key pictures: in others no code gets lost.
    if (m_coded && !coded && !m_h264.was_key())
        return gap ? wait_for_key()
                   : refuse("its block code cannot be read, that of the picture before can");
    m_coded = coded;
    const Found found = m_h264.was_key() == key
                            ? check_code(info)
                            : refuse(key ? "it is no key picture" : "it is a key picture");
    m_follows = true;  // whatever its record says, the next picture refers to it
    return found;
}

PictureCheck::Found PictureCheck::wait_for_key() {
    m_follows = false;
    m_picture = nullptr;
    return Found::waits_for_key;
}

PictureCheck::Found PictureCheck::check_code(const FrameInfo& info) {
    BlockCode code;
    if (read_block_code(*m_picture, code) != CodeFound::valid) return Found::no_code;
    if (code == BlockCode{info.stream, info.channel, info.number}) return Found::fine;
    return refuse("its picture is that of stream " + std::to_string(code.stream) + ", channel " +
                  std::to_string(code.channel) + ", frame " + std::to_string(code.number));
}

}  // namespace sim
