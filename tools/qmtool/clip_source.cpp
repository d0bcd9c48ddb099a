// Finds and reads the frames of a clip.
#include "tools/qmtool/clip_source.h"

#include <algorithm>

#include "sdk/video/audio_tone.h"
#include "tools/qmtool/output.h"

namespace {

// Frames of different channels may change places by less.
constexpr int64_t MOST_DISORDER_US = 1'000'000;
constexpr int64_t SOUND_FRAME_US = 1'000'000 / sim::AUDIO_FRAMES_PER_SECOND;
constexpr uint32_t DENSE = 1024 / 4;

int64_t added(int64_t time_us, int64_t more_us) {
    int64_t sum = 0;
    if (!__builtin_add_overflow(time_us, more_us, &sum)) return sum;
    return more_us > 0 ? INT64_MAX : INT64_MIN;
}

}  // namespace

ClipSource::ClipSource(sim::DiskReader& reader, const ClipWish& wish)
    : m_reader(reader),
      m_wish(wish),
      m_sound_only(wish.row == sim::AUDIO_ROW),
      m_jpeg(wish.codec == ClipWish::Codec::jpeg),
      m_pictures(false, m_gaps),
      m_sound(true, m_gaps) {}

ClipSource::Lane ClipSource::lane_of(const sim::FrameInfo& info) const {
    if (info.channel != m_wish.channel) return Lane::none;
    if (info.kind == sim::FrameKind::audio)
        return m_sound_only || m_wish.with_sound ? Lane::sound : Lane::none;
    return info.stream == m_wish.row ? Lane::pictures : Lane::none;
}

// No frame of the span comes behind a record of this time, unless the clock was set back.
bool ClipSource::is_past(int64_t time_us) const {
    return time_us >= added(m_wish.to_us, MOST_DISORDER_US);
}

// A frame of the span, or one between the key frame and the first of those, which is decoded for
// their sake.
bool ClipSource::is_part(uint64_t record, int64_t time_us) const {
    return in_span(time_us) || (record >= m_key && record < m_wanted_record);
}

// The first frame that was asked for; without a wish for a codec it decides about that.
bool ClipSource::find_wanted(uint64_t& record) {
    uint64_t n = m_wish.has_from ? m_reader.at_time(m_wish.from_us) : m_reader.first();
    m_span_first = n;
    for (n = m_reader.next(n); n < m_end; n = m_reader.next(n + 1)) {
        sim::FrameInfo info;
        if (!m_reader.info(n, info)) continue;
        if (is_past(info.time_us)) return false;
        const Lane lane = lane_of(info);
        if (lane != (m_sound_only ? Lane::sound : Lane::pictures) || !in_span(info.time_us))
            continue;
        if (m_wish.codec == ClipWish::Codec::of_first_frame)
            m_jpeg = info.kind == sim::FrameKind::jpeg;
        if (!fits(info.kind)) {
            m_other_codec = true;
            continue;
        }
        m_wanted = info;
        m_wanted_record = record = n;
        return true;
    }
    return false;
}

// The frame of a key frame's record is there to begin with.
bool ClipSource::try_key(uint64_t record) {
    qm_dbframe frame;
    if (m_reader.read(record, frame) && fits(frame.info.kind)) {
        m_key = record;
        m_start = frame.info;
        return true;
    }
    return false;
}

// The key frame to begin with: the last one that can be read, at or before the first frame that was
// asked for; else the first one behind it. Of JPEG none before is needed, and nothing refers to a
// frame before a change of the codec.
bool ClipSource::find_key(uint64_t wanted) {
    uint64_t key = 0;
    uint64_t most = wanted;
    while (m_reader.key_at_or_before(most, m_wish.row, m_wish.channel, key)) {
        if (try_key(key)) return true;
        sim::FrameInfo info;
        if (key == 0 || m_jpeg || (m_reader.info(key, info) && !fits(info.kind))) break;
        most = key - 1;
    }
    for (key = wanted; m_reader.key_after(key, m_wish.row, m_wish.channel, key) && key < m_end;) {
        if (!try_key(key)) continue;
        if (is_past(m_start.time_us)) return false;
        if (!in_span(m_start.time_us)) continue;
        m_wanted = m_start;
        m_wanted_record = key;
        return true;
    }
    return false;
}

// Some key frame of the stream is there; else there is no need to look through all records.
bool ClipSource::has_key() {
    const uint64_t n = m_reader.first();
    uint64_t key = 0;
    return m_reader.key_at_or_before(n, m_wish.row, m_wish.channel, key) ||
           m_reader.key_after(n, m_wish.row, m_wish.channel, key);
}

std::string ClipSource::lane_text() const {
    return std::string(row_name(m_wish.row)) + " channel " + std::to_string(m_wish.channel);
}

std::string ClipSource::why_nothing() const {
    if (!m_other_codec) return lane_text() + " has nothing in this span";
    return lane_text() + (m_jpeg
                              ? " is all H.264 in this span, which goes into a film or a .h264 file"
                              : " is all JPEG in this span, which goes into a film or a folder");
}

bool ClipSource::find_start(std::string& why) {
    m_end = m_reader.end();
    uint64_t wanted = 0;
    if (!m_sound_only && !has_key()) {
        why = lane_text() + " has no readable key frame; qmtool list tells what was recorded";
        return false;
    }
    if (!find_wanted(wanted)) {
        why = why_nothing();
        return false;
    }
    if (m_sound_only) {
        m_start = m_wanted;
        m_first = m_span_first;
    } else {
        if (!find_key(wanted)) {
            why = lane_text() + " has no readable key frame in this span or before it";
            return false;
        }
        m_first = std::min(m_span_first, m_key);
        if (m_wish.with_sound)
            m_first = std::min(m_first, m_reader.at_time(added(m_wanted.time_us, -SOUND_FRAME_US)));
    }
    m_next = m_first;
    m_latest_us = m_start.time_us;
    return true;
}

void ClipSource::miss(uint64_t first, uint64_t records) {
    if (m_past_end) return;
    if (first >= std::min(m_span_first, m_key)) m_missed_pictures += records;
    m_missed_sound += records;
}

// Reads a record, or finds out that it is of no interest.
ClipSource::Lane ClipSource::fetch(uint64_t record, qm_dbframe& frame) {
    sim::FrameInfo info;
    bool read = false;
    if (m_share >= DENSE) {
        read = m_reader.read(record, frame);
        if (read) info = frame.info;
    }
    if (!read && !m_reader.info(record, info)) {
        miss(record, 1);
        return Lane::none;
    }
    m_past_end = info.time_us >= m_wish.to_us;
    m_latest_us = info.time_us;
    const Lane lane = lane_of(info);
    m_share -= m_share / 32;
    if (lane == Lane::none) return lane;
    m_share += 32;
    if (read || m_reader.read(record, frame)) return lane;
    if (lane == Lane::pictures) {
        if (is_part(record, info.time_us))
            m_pictures.lose(info);
        else
            leave(record);
    } else if (in_span(info.time_us) && (m_heard || info.time_us >= m_wanted.time_us)) {
        m_sound.lose(info);
    }
    return Lane::none;
}

// A picture outside the span is none of the clip. Behind the clip's start, where the clock was set
// back, pictures of the span may come again that refer to it.
void ClipSource::leave(uint64_t record) {
    if (record >= m_key) m_waits_key = true;
}

bool ClipSource::take_picture(uint64_t record, const sim::FrameInfo& info) {
    const uint64_t missed = m_missed_pictures;
    m_missed_pictures = 0;
    if (!is_part(record, info.time_us)) {
        leave(record);
        return false;
    }
    if (!fits(info.kind)) {
        m_pictures.leave_out(info, missed, ClipGap::Kind::codec);
        return false;
    }
    m_waits_key = m_waits_key && !sim::is_key(info.kind);
    if (m_waits_key) {
        m_pictures.leave_out(info, missed, ClipGap::Kind::no_key);
        return false;
    }
    m_pictures.take(info, missed);
    if (record >= m_key) return true;
    ++m_left_out;
    return false;
}

bool ClipSource::take_sound(const sim::FrameInfo& info) {
    const uint64_t missed = m_missed_sound;
    m_missed_sound = 0;
    if (info.time_us >= m_wish.to_us) return false;
    const int64_t end_us = added(info.time_us, SOUND_FRAME_US);
    const bool early =
        m_sound_only || m_heard ? info.time_us < m_wish.from_us : end_us <= m_wanted.time_us;
    if (early) {
        if (!m_heard) m_sound.pass(info);
        return false;
    }
    m_sound.take(info, missed);
    return m_heard = true;
}

ClipSource::Got ClipSource::next(qm_dbframe& frame, uint64_t& record) {
    if (m_next >= m_end || is_past(m_latest_us)) return Got::end;
    const uint64_t found = std::min(m_reader.next(m_next), m_end);
    miss(m_next, found - m_next);
    m_next = found;
    if (found == m_end) return Got::end;
    ++m_next;
    record = found;
    const Lane lane = fetch(found, frame);
    if (lane == Lane::pictures && take_picture(found, frame.info)) return Got::picture;
    if (lane == Lane::sound && take_sound(frame.info)) return Got::sound;
    return Got::nothing;
}

void ClipSource::finish() {
    m_pictures.end();
    const int64_t end_us = std::min(m_latest_us, m_wish.to_us);
    if (m_sound_only)
        m_sound.end(m_missed_sound, end_us);
    else if (m_missed_pictures > 0)
        m_pictures.end(m_missed_pictures, end_us);
    else if (m_heard)
        m_sound.end(m_missed_sound, end_us);
}
