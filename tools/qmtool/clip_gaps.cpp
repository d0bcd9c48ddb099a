// Finds gaps in a stream from the numbers, times and runs of its frames, and puts them into words.
#include "tools/qmtool/clip_gaps.h"

#include <algorithm>

#include "tools/qmtool/output.h"

namespace {

std::string numbers_text(uint32_t first, uint32_t count) {
    if (count == 1) return "frame " + std::to_string(first);
    return "frames " + std::to_string(first) + " to " + std::to_string(uint64_t{first} + count - 1);
}

int64_t difference(int64_t later, int64_t earlier) {
    int64_t result = 0;
    if (__builtin_sub_overflow(later, earlier, &result)) return later < 0 ? INT64_MIN : INT64_MAX;
    return result;
}

}  // namespace

const char* key_of(ClipGap::Kind kind) {
    using Kind = ClipGap::Kind;
    switch (kind) {
        case Kind::dropped: return "dropped";
        case Kind::hole: return "hole";
        case Kind::run: return "run";
        case Kind::lost: return "cannot_be_read";
        case Kind::new_size: return "new_size";
        case Kind::no_picture: return "no_picture";
        case Kind::codec: return "other_codec";
        case Kind::no_key: return "no_key_frame";
    }
    return "";
}

std::string text_of(const ClipGap& gap) {
    using Kind = ClipGap::Kind;
    const std::string row = gap.sound ? "audio: " : "";
    const std::string pause = duration_text(difference(gap.until_us, gap.after_us));
    switch (gap.kind) {
        case Kind::dropped:
            return row + numbers_text(gap.first, gap.count) + (gap.count == 1 ? " was" : " were") +
                   " not recorded, " + pause;
        case Kind::hole: return row + "no frame for " + pause;
        case Kind::run:
            return row + "the recording began again, or the clock was set; " + pause +
                   " from frame to frame";
        case Kind::lost:
            if (gap.count > 0) return row + numbers_text(gap.first, gap.count) + " cannot be read";
            return row + counted(gap.records, "record", "records") +
                   " cannot be read, perhaps of this channel";
        case Kind::new_size:
            return "the pictures are " + std::to_string(gap.size.width) + " x " +
                   std::to_string(gap.size.height) + " from here on";
        case Kind::no_picture:
            return numbers_text(gap.first, 1) + " is no picture that this file can hold";
        case Kind::codec:
            return numbers_text(gap.first, gap.count) + (gap.count == 1 ? " is" : " are") +
                   " of another codec and left out";
        case Kind::no_key:
            return numbers_text(gap.first, gap.count) +
                   (gap.count == 1 ? " refers to frames outside the span and is left out"
                                   : " refer to frames outside the span and are left out");
    }
    return "";
}

int64_t GapFinder::usual_us() const {
    if (m_distances == 0) return 0;
    int64_t sorted[DISTANCES];
    const size_t known = std::min(m_distances, DISTANCES);
    std::copy(m_steps, m_steps + known, sorted);
    std::nth_element(sorted, sorted + known / 2, sorted + known);
    return sorted[known / 2];
}

void GapFinder::follow(const sim::FrameInfo& frame) {
    m_any = true;
    m_last = frame;
}

void GapFinder::tell_hole() {
    if (m_long_step) m_gaps.add(m_hole);
    m_long_step = false;
}

// When the step to this frame is about as long as the one before, which seemed to be a hole, the
// rate has changed there.
void GapFinder::decide_hole(const sim::FrameInfo& frame) {
    if (!m_long_step) return;
    const int64_t before_us = difference(m_hole.until_us, m_hole.after_us);
    const bool onward = frame.run == m_last.run && frame.number > m_last.number;
    const int64_t step_us =
        onward ? difference(frame.time_us, m_last.time_us) / (int64_t{frame.number} - m_last.number)
               : 0;
    // Of a rate that does not divide the board's, steps are of two lengths: 2, 3, 2, 3.
    const bool alike = step_us / 2 <= before_us && before_us / 2 <= step_us;
    if (!alike || step_us - step_us / 3 <= m_usual_before_us) return tell_hole();
    m_long_step = false;
    m_distances = 0;
}

void GapFinder::expect_other_rate() {
    tell_hole();
    m_distances = 0;
}

void GapFinder::take(const sim::FrameInfo& frame, uint64_t records) { look(frame, records, true); }

// Looks at the step to a frame; `keeps_rate`: the clip's own rate is to be seen from it.
void GapFinder::look(const sim::FrameInfo& frame, uint64_t records, bool keeps_rate) {
    if (!m_any) {
        if (records > 0)
            m_gaps.add(
                {ClipGap::Kind::lost, m_sound, frame.time_us, frame.time_us, 0, 0, records, {}});
        return follow(frame);
    }
    decide_hole(frame);
    const int64_t step_us = difference(frame.time_us, m_last.time_us);
    ClipGap gap = {ClipGap::Kind::run, m_sound, m_last.time_us, frame.time_us, 0, 0, records, {}};
    if (frame.run != m_last.run) {
        m_gaps.add(gap);
        gap.kind = ClipGap::Kind::lost;
        if (records > 0) m_gaps.add(gap);
        return follow(frame);
    }
    const bool onward = frame.number > m_last.number;
    const uint32_t missing = onward ? frame.number - m_last.number - 1 : 0;
    const int64_t usual = usual_us();
    if (missing > 0) {
        gap.kind = records > 0 ? ClipGap::Kind::lost : ClipGap::Kind::dropped;
        gap.first = m_last.number + 1;
        gap.count = missing;
        m_gaps.add(gap);
    } else if (usual > 0 && step_us / 2 > usual) {
        gap.kind = ClipGap::Kind::hole;
        m_long_step = true;
        m_hole = gap;
        m_usual_before_us = usual;
        // Sound has one rate.
        if (m_sound) tell_hole();
    }
    if (missing == 0 && keeps_rate) m_steps[m_distances++ % DISTANCES] = step_us;
    // The count only tells how many places are filled, and which is next.
    if (m_distances == 2 * DISTANCES) m_distances = DISTANCES;
    follow(frame);
}

// Adds the frame to the line that was written last of this stream, when that goes on with it.
bool GapFinder::joins_last(ClipGap::Kind kind, const sim::FrameInfo& frame) {
    if (m_gaps.count != m_gaps.items.size()) return false;
    const auto last = std::find_if(m_gaps.items.rbegin(), m_gaps.items.rend(),
                                   [&](const ClipGap& gap) { return gap.sound == m_sound; });
    if (last == m_gaps.items.rend() || last->kind != kind || last->count == 0 ||
        frame.number != last->first + last->count)
        return false;
    ++last->count;
    last->until_us = frame.time_us;
    return true;
}

void GapFinder::leave_out(const sim::FrameInfo& frame, uint64_t records, ClipGap::Kind kind) {
    look(frame, records, false);
    m_long_step = false;
    if (joins_last(kind, frame)) return;
    m_gaps.add({kind, m_sound, frame.time_us, frame.time_us, frame.number, 1, 0, {}});
}

void GapFinder::lose(const sim::FrameInfo& frame) {
    decide_hole(frame);
    if (joins_last(ClipGap::Kind::lost, frame)) return follow(frame);
    const int64_t after_us = m_any ? m_last.time_us : frame.time_us;
    m_gaps.add({ClipGap::Kind::lost, m_sound, after_us, frame.time_us, frame.number, 1, 1, {}});
    follow(frame);
}

void GapFinder::end(uint64_t records, int64_t end_us) {
    tell_hole();
    if (records == 0) return;
    const int64_t after_us = m_any ? m_last.time_us : end_us;
    m_gaps.add({ClipGap::Kind::lost, m_sound, after_us, end_us, 0, 0, records, {}});
}
