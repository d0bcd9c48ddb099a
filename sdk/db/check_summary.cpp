// Counting what a disk database holds: channels, gaps, runs. Payloads are not looked at where a
// segment is finished; whether they are whole is the matter of check_verify.
#include <algorithm>

#include "sdk/db/check.h"
#include "sdk/db/segment_scan.h"

namespace sim {

namespace {

constexpr int64_t LEAST_GAP_US = 1'000'000;
// Frames of two recordings that follow each other this closely may be of one whose clock stepped.
constexpr int64_t MOST_STEP_PAUSE_US = 10'000'000;
constexpr int64_t MOST_DISORDER_US = 1'000'000;

// What is remembered of a channel from frame to frame.
struct Channel {
    static constexpr size_t DISTANCES = 15;

    bool seen = false;
    RecordHeader last;
    int64_t distances[DISTANCES] = {};  // of the latest frames
    size_t filled = 0;
    size_t next = 0;

    void add_distance(int64_t distance_us) {
        distances[next] = distance_us;
        next = (next + 1) % DISTANCES;
        filled = std::min(filled + 1, DISTANCES);
    }
    int64_t usual_us() const {
        int64_t sorted[DISTANCES];
        std::copy(distances, distances + filled, sorted);
        std::nth_element(sorted, sorted + filled / 2, sorted + filled);
        return sorted[filled / 2];
    }
};

// Of times that may be anything, without overflow.
int64_t difference(int64_t later, int64_t earlier) {
    int64_t result = 0;
    if (__builtin_sub_overflow(later, earlier, &result)) return later < 0 ? INT64_MIN : INT64_MAX;
    return result;
}

class Counter {
  public:
    void take(const RecordHeader& frame);
    // The ring has taken a segment: what is missing before the next frame was not lost.
    void pass_over();
    Summary summary;

  private:
    void follow_run(const RecordHeader& frame, const Channel& channel);
    void follow_channel(const RecordHeader& frame, int row, Channel& channel);

    bool m_any = false;
    bool m_passed_over = false;
    RecordHeader m_last;
    Channel m_channels[SUMMARY_ROWS][QMCODEC_CHANNELS];
};

void Counter::take(const RecordHeader& frame) {
    const bool audio = frame.kind == static_cast<uint8_t>(FrameKind::audio);
    const int row = audio ? AUDIO_ROW : frame.stream;
    Channel& channel = m_channels[row][frame.channel];
    if (m_any && !m_passed_over && frame.sequence > m_last.sequence + 1)
        summary.missing.add({m_last.sequence + 1, frame.sequence - m_last.sequence - 1,
                             m_last.utc_us, frame.utc_us});
    follow_run(frame, channel);
    follow_channel(frame, row, channel);

    ChannelSummary& sums = summary.channels[row][frame.channel];
    if (sums.frames == 0) sums.first_us = frame.utc_us;
    sums.last_us = frame.utc_us;
    ++sums.frames;
    sums.bytes += frame.bytes;
    if (is_key(static_cast<FrameKind>(frame.kind))) ++sums.key_frames;

    if (!m_any) summary.first_us = frame.utc_us;
    summary.last_us = frame.utc_us;
    summary.any = m_any = true;
    ++summary.frames;
    m_last = frame;
    m_passed_over = false;
    channel.seen = true;
    channel.last = frame;
}

void Counter::pass_over() {
    m_passed_over = true;
    for (auto& row : m_channels)
        for (Channel& channel : row) channel.seen = false;
}

// A recording that begins counts its channels' frames from 0; one whose clock is stepped goes on.
void Counter::follow_run(const RecordHeader& frame, const Channel& channel) {
    if (m_any && frame.run == m_last.run) return;
    Run run = {frame.run, frame.sequence, frame.utc_us, false, 0};
    const int64_t pause = difference(frame.mono_us, m_last.mono_us);
    const bool goes_on = !channel.seen || frame.frame_number > channel.last.frame_number;
    if (m_any && goes_on && pause >= -MOST_DISORDER_US && pause <= MOST_STEP_PAUSE_US) {
        run.step_us = difference(difference(frame.utc_us, m_last.utc_us), pause);
        run.stepped = run.step_us != 0;
    }
    summary.runs.add(run);
}

void Counter::follow_channel(const RecordHeader& frame, int row, Channel& channel) {
    if (!channel.seen || frame.run != channel.last.run) return;
    const int64_t step = difference(frame.utc_us, channel.last.utc_us);
    const uint32_t before = channel.last.frame_number;
    const uint32_t missing = frame.frame_number > before ? frame.frame_number - before - 1 : 0;
    const bool late = step > LEAST_GAP_US && channel.filled > 0 && step / 2 > channel.usual_us();
    if (missing > 0 || !late) channel.add_distance(step / (int64_t{missing} + 1));
    if (missing == 0 && !late) return;
    ChannelSummary& sums = summary.channels[row][frame.channel];
    ++sums.gaps;
    sums.missing_frames += missing;
    sums.longest_gap_us = std::max(sums.longest_gap_us, step);
    summary.gaps.add({row, frame.channel, channel.last.utc_us, frame.utc_us, missing});
}

using OnFrame = std::function<void(const RecordHeader&)>;

// The records of a finished segment by their headers alone. Returns where they end, which is the
// end of the file when every one could be read.
uint64_t walk_headers(FileSystem& files, const OpenSegment& segment, const OnFrame& on_frame) {
    const uint32_t seed = segment.header.seed();
    uint64_t next = segment.header.first_sequence;
    uint64_t offset = SEGMENT_START;
    while (offset < segment.bytes) {
        uint8_t bytes[RECORD_BYTES];
        RecordHeader record;
        if (files.read(segment.file, bytes, sizeof bytes, offset) != RECORD_BYTES ||
            !read_record_header(bytes, seed, record) || record.sequence != next ||
            record.total_bytes() > segment.bytes - offset)
            return offset;
        if (record.is_frame()) {
            on_frame(record);
            ++next;
        }
        offset += record.total_bytes();
    }
    return offset;
}

// All frames of a segment. Returns the stretches that cannot be read.
uint64_t walk(FileSystem& files, const OpenSegment& segment, const OnFrame& on_frame,
              const std::function<void(uint64_t)>& at) {
    uint64_t walked = SEGMENT_START;
    if (look_for_directory(files, segment).whole) {
        walked = walk_headers(files, segment, on_frame);
        if (walked == segment.bytes) return 0;
    }
    uint64_t damaged = 0;
    SegmentScan scan(
        files, segment.file, segment.header,
        [&](const RecordHeader& record, uint64_t offset) {
            at(offset);
            if (record.is_frame() && offset >= walked) on_frame(record);
        },
        [&](uint64_t, uint64_t, bool damage) { damaged += damage ? 1 : 0; });
    scan.run();
    return damaged + (scan.error() != 0 ? 1 : 0);
}

// How many frames of a segment count, up to the one that the next segment begins with, and the
// time of the last of them.
uint64_t count(FileSystem& files, const OpenSegment& segment, uint64_t limit, Summary& summary,
               const std::function<void(uint64_t)>& at) {
    const uint64_t first = segment.header.first_sequence;
    const uint64_t most = limit > first ? limit - first : 0;
    const DirectoryView directory = look_for_directory(files, segment);
    if (directory.whole) {
        const uint64_t frames = std::min<uint64_t>(directory.entries, most);
        uint8_t bytes[ENTRY_BYTES];
        if (frames > 0 &&
            files.read(segment.file, bytes, sizeof bytes,
                       directory.offset + RECORD_BYTES + (frames - 1) * ENTRY_BYTES) == ENTRY_BYTES)
            summary.last_us = read_entry(bytes).utc_us;
        return frames;
    }
    uint64_t frames = 0;
    const auto on_frame = [&](const RecordHeader& frame) {
        if (frame.sequence >= limit) return;
        ++frames;
        summary.last_us = frame.utc_us;
    };
    summary.damaged += walk(files, segment, on_frame, at);
    return frames;
}

// Opens one segment after the other and hands each on with the sequence number at which the next
// one takes over.
class SegmentWalk {
  public:
    using Take = std::function<void(const OpenSegment&, uint64_t limit)>;
    using PassOver = std::function<void()>;

    SegmentWalk(const DatabaseView& view, Summary& summary, const OnProgress& progress)
        : m_view(view), m_summary(summary), m_progress(progress) {}

    void run(const Take& take, const PassOver& pass_over) {
        std::unique_ptr<OpenSegment> current;
        for (const uint64_t number : m_view.numbers()) {
            std::unique_ptr<OpenSegment> next = m_view.segment(number);
            ++m_summary.segments[static_cast<size_t>(next->state)];
            m_summary.file_bytes += next->bytes;
            const bool gone = next->state == SegmentState::gone;
            if (next->state != SegmentState::whole && !gone) continue;
            if (current) hand_on(take, *current, gone ? UINT64_MAX : next->header.first_sequence);
            current.reset();
            if (gone) {
                pass_over();
                continue;
            }
            m_summary.segment_bytes = next->header.bytes;
            current = std::move(next);
        }
        if (current) hand_on(take, *current, UINT64_MAX);
    }

    // The ring has taken it.
    void forget(const OpenSegment& segment) {
        --m_summary.segments[static_cast<size_t>(SegmentState::whole)];
        ++m_summary.segments[static_cast<size_t>(SegmentState::gone)];
        m_summary.file_bytes -= segment.bytes;
    }

    void tell(uint64_t within) const {
        if (m_progress)
            m_progress(m_done + within, std::max(m_done + within, m_summary.segment_bytes *
                                                                      m_view.numbers().size()));
    }

  private:
    void hand_on(const Take& take, const OpenSegment& segment, uint64_t limit) {
        take(segment, limit);
        m_done += segment.bytes;
        tell(0);
    }

    const DatabaseView& m_view;
    Summary& m_summary;
    const OnProgress& m_progress;
    uint64_t m_done = 0;
};

}  // namespace

// A recorder's ring may take a segment that is being counted: then what was counted of it is
// forgotten.
Summary summarize(const DatabaseView& view, const OnProgress& progress) {
    auto counter = std::make_unique<Counter>();
    Summary files;
    SegmentWalk segments(view, files, progress);
    segments.run(
        [&](const OpenSegment& segment, uint64_t limit) {
            auto before = std::make_unique<Counter>(*counter);
            counter->summary.damaged += walk(
                view.files(), segment,
                [&](const RecordHeader& record) {
                    if (record.sequence < limit) counter->take(record);
                },
                [&](uint64_t offset) { segments.tell(offset); });
            if (view.still_there(segment)) return;
            counter = std::move(before);
            counter->pass_over();
            segments.forget(segment);
        },
        [&] { counter->pass_over(); });
    Summary& summary = counter->summary;
    std::copy(std::begin(files.segments), std::end(files.segments), summary.segments);
    summary.file_bytes = files.file_bytes;
    summary.segment_bytes = files.segment_bytes;
    return std::move(summary);
}

Summary count_records(const DatabaseView& view, const OnProgress& progress) {
    auto summary = std::make_unique<Summary>();
    SegmentWalk segments(view, *summary, progress);
    segments.run(
        [&](const OpenSegment& segment, uint64_t limit) {
            Summary own;
            own.frames = count(view.files(), segment, limit, own,
                               [&](uint64_t offset) { segments.tell(offset); });
            if (!view.still_there(segment)) return segments.forget(segment);
            summary->damaged += own.damaged;
            if (own.frames == 0) return;
            if (!summary->any) summary->first_us = segment.header.utc_us;
            summary->any = true;
            summary->last_us = own.last_us;
            summary->frames += own.frames;
        },
        [] {});
    return std::move(*summary);
}

}  // namespace sim
