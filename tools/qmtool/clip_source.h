// The frames of a clip: those of one stream of a channel within a span of recorded time, with what
// a decoder needs before them, and the sound of the channel. Finds them in a database and reads
// them in order of recording; what cannot be read is told. Nothing here writes.
#ifndef TOOLS_QMTOOL_CLIP_SOURCE_H
#define TOOLS_QMTOOL_CLIP_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>

#include "sdk/db/disk_reader.h"
#include "tools/qmtool/clip_gaps.h"

struct ClipWish {
    enum class Codec { of_first_frame, h264, jpeg };  // of the pictures

    int row = 0;  // of a summary: a stream, or the sound
    int channel = 0;
    Codec codec = Codec::of_first_frame;
    bool with_sound = false;  // beside the pictures
    // Recorded times: frames with from_us <= time < to_us.
    bool has_from = false;
    bool has_to = false;
    int64_t from_us = INT64_MIN;
    int64_t to_us = INT64_MAX;
};

class ClipSource {
  public:
    enum class Got { picture, sound, nothing, end };

    // `reader` outlives it.
    ClipSource(sim::DiskReader& reader, const ClipWish& wish);

    // Looks where the clip begins. False when there is nothing to begin with: `why` says so.
    bool find_start(std::string& why);
    // Looks at the next record: a frame of the clip, or nothing of it. Of sound only what is heard
    // with the pictures.
    Got next(qm_dbframe& frame, uint64_t& record);
    // After the last frame: what is missing up to the end.
    void finish();

    // The recorded time of the first frame that was asked for, and of the one that the clip begins
    // with: the same, or of the key frame before it.
    int64_t wanted_us() const { return m_wanted.time_us; }
    int64_t start_us() const { return m_start.time_us; }
    uint64_t wanted_record() const { return m_wanted_record; }
    // Frames before the first key frame, which nothing can show.
    uint64_t left_out() const { return m_left_out; }

    const ClipGaps& gaps() const { return m_gaps; }
    ClipGaps& gaps() { return m_gaps; }
    GapFinder& pictures() { return m_pictures; }
    // Records looked at, of how many.
    uint64_t done() const { return m_next - m_first; }
    uint64_t total() const { return m_end - m_first; }

  private:
    enum class Lane { pictures, sound, none };

    Lane lane_of(const sim::FrameInfo& info) const;
    bool in_span(int64_t time_us) const {
        return time_us >= m_wish.from_us && time_us < m_wish.to_us;
    }
    bool is_past(int64_t time_us) const;
    bool is_part(uint64_t record, int64_t time_us) const;
    bool fits(sim::FrameKind kind) const {
        return m_sound_only || (kind == sim::FrameKind::jpeg) == m_jpeg;
    }
    std::string lane_text() const;  // stream and channel, in words
    std::string why_nothing() const;
    bool has_key();
    bool find_wanted(uint64_t& record);
    bool find_key(uint64_t wanted);
    bool try_key(uint64_t record);
    Lane fetch(uint64_t record, qm_dbframe& frame);
    void miss(uint64_t first, uint64_t records);
    void leave(uint64_t record);
    bool take_picture(uint64_t record, const sim::FrameInfo& info);
    bool take_sound(const sim::FrameInfo& info);

    sim::DiskReader& m_reader;
    const ClipWish m_wish;
    const bool m_sound_only;
    bool m_jpeg;  // the codec of the pictures
    ClipGaps m_gaps;
    GapFinder m_pictures;
    GapFinder m_sound;

    sim::FrameInfo m_wanted;
    sim::FrameInfo m_start;
    uint64_t m_wanted_record = 0;
    bool m_other_codec = false;  // frames of the other one were seen before the first wanted one
    uint64_t m_key = 0;          // record that the pictures begin with
    uint64_t m_span_first = 0;   // record at which the span begins
    uint64_t m_first = 0, m_next = 0, m_end = 0;
    bool m_heard = false;      // a frame of sound was given out
    bool m_past_end = false;   // the latest record is behind the span
    bool m_waits_key = false;  // a frame was left out that the next ones refer to
    int64_t m_latest_us = 0;
    uint64_t m_left_out = 0;
    // Records since the last frame of each that are not there, or not known of which they are.
    uint64_t m_missed_pictures = 0;
    uint64_t m_missed_sound = 0;
    // How many of the latest records were of the clip, in 1/1024: when they are many it is quicker
    // to read all than to look at each one's header first.
    uint32_t m_share = 512;
};

#endif  // TOOLS_QMTOOL_CLIP_SOURCE_H
