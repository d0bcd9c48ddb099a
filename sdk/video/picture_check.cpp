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
        m_light = 0;
        return check_code(look_at_code(info));
    }
    const bool key = info.kind == FrameKind::idr;
    // A picture refers to the one before it: one that is missing was perhaps never encoded, and
    // then the stream goes on without it.
    if (!key && !m_follows) return Found::waits_for_key;
    const bool gap = !key && info.number != m_number + 1;
    if (!m_h264.decode(payload, bytes)) return gap ? wait_for_key() : refuse(m_h264.error());
    m_number = info.number;
    m_picture = &m_h264.picture();
    if (m_h264.was_key()) m_light = 0;  // zones come and go with key pictures
    const bool was_right = !m_covered;
    const Code code = look_at_code(info);
    if (gap && (code == Code::damaged || (code == Code::covered && was_right)))
        return wait_for_key();
    const Found found = m_h264.was_key() == key
                            ? check_code(code)
                            : refuse(key ? "it is no key picture" : "it is a key picture");
    m_follows = code != Code::damaged;  // else, whatever its record says, the next refers to it
    return found;
}

PictureCheck::Found PictureCheck::wait_for_key() {
    m_follows = false;
    m_picture = nullptr;
    return Found::waits_for_key;
}

// A zone darkens squares, the same ones until the next key picture, and lights none.
PictureCheck::Code PictureCheck::look_at_code(const FrameInfo& info) {
    const std::optional<uint64_t> squares = light_squares(*m_picture);
    const uint64_t right = block_code_bits({info.stream, info.channel, info.number});
    const bool was_covered = m_covered;
    m_covered = !squares || *squares != right;
    if (!m_covered) {
        m_light |= right;
        return Code::right;
    }
    if (!squares) return Code::covered;
    const bool maybe = (*squares & ~right) == 0 && (m_light & right & ~*squares) == 0;
    BlockCode other;
    const bool whole = read_block_code(*m_picture, other) == CodeFound::valid;
    // The rest of a covered code can be another's by chance.
    m_covered = maybe && (was_covered || !whole);
    if (m_covered) m_light |= *squares;
    return m_covered ? Code::covered : whole ? Code::of_another : Code::damaged;
}

PictureCheck::Found PictureCheck::check_code(Code code) {
    if (code == Code::right) return Found::fine;
    if (code == Code::covered) return Found::no_code;
    if (code == Code::damaged) return refuse("its block code is damaged");
    BlockCode other;
    read_block_code(*m_picture, other);
    return refuse("its picture is that of stream " + std::to_string(other.stream) + ", channel " +
                  std::to_string(other.channel) + ", frame " + std::to_string(other.number));
}

}  // namespace sim
