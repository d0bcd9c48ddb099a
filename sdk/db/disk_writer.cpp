// Appending frames to a disk database.
#include "sdk/db/disk_writer.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <new>

#include "sdk/db/directory.h"
#include "sdk/db/segment_scan.h"

namespace sim {

namespace {

constexpr size_t MIN_BATCH_BYTES = 2 * BLOCK_BYTES;
// Frames of different channels come in nearly their order. Time that goes back further is another
// run.
constexpr int64_t MAX_DISORDER_US = 1'000'000;
// Names of segments that somebody else took, passed over in one attempt.
constexpr int MAX_NAMES_TAKEN = 16;

}  // namespace

DiskWriter::DiskWriter(FileSystem& files, const WriterOptions& options)
    : m_files(files), m_options(options), m_write(files, options.own_thread) {
    m_options.segment_bytes =
        std::clamp(options.segment_bytes, MIN_SEGMENT_BYTES, MAX_SEGMENT_BYTES) / BLOCK_BYTES *
        BLOCK_BYTES;
    m_options.ring_segments = std::max<uint64_t>(options.ring_segments, 1);
    m_options.batch_bytes = static_cast<size_t>(
        round_up_to_block(std::max<size_t>(options.batch_bytes, MIN_BATCH_BYTES)));
    m_trouble.reserve(TROUBLE_BYTES);
}

DiskWriter::~DiskWriter() {
    if (m_write.pending()) {
        m_write.finish();
        if (m_write_file != m_file) m_files.close(m_write_file);
    }
    if (m_file >= 0) m_files.close(m_file);
}

std::unique_ptr<DiskWriter> DiskWriter::open(FileSystem& files, const std::string& path,
                                             const WriterOptions& options, std::string& why) {
    std::unique_ptr<DiskWriter> writer(new DiskWriter(files, options));
    writer->m_segments = SegmentFiles::open(files, path, why);
    if (!writer->m_segments) return nullptr;
    Newest newest;
    const int loaded = writer->m_segments->load(newest);
    if (loaded < 0) {
        why = loaded == -EAGAIN ? "it is being recorded already"
                                : std::string("cannot be read: ") + strerror(-loaded);
        return nullptr;
    }
    writer->make_buffers();
    writer->recover(newest);
    writer->m_segments->keep_ini(writer->m_options.segment_bytes, writer->m_options.ring_segments);
    return writer;
}

// A file that cannot be read may hold frames with the next numbers: they are passed over, in a
// segment behind it.
void DiskWriter::recover(const Newest& newest) {
    const uint64_t most_frames = MAX_SEGMENT_BYTES / RECORD_BYTES;
    bool unreadable = newest.error < 0;
    if (newest.found && !go_on_in(newest.header)) unreadable = true;
    if (unreadable) {
        m_next_sequence += most_frames;
        leave_segment();
    }
    m_batch.end.sequence = m_next_sequence;
    m_batch.end.run = m_run;
    m_batch.latest_utc_us = m_latest_utc_us;
}

// Finds the end of the newest segment, and goes on there when it is in order and of the right size.
// False when it cannot be read.
bool DiskWriter::go_on_in(const SegmentHeader& header) {
    m_header = header;
    m_seed = header.seed();
    m_next_sequence = header.first_sequence;
    m_latest_utc_us = header.latest_utc_us;
    m_run = header.run + 2;
    m_file = m_segments->open_to_go_on(header.number);
    if (m_file < 0) return false;

    ScanResult found;
    int error = 0;
    m_has_directory = load_directory(m_files, m_file, header, m_entries, found);
    if (!m_has_directory) {
        SegmentScan scan(
            m_files, m_file, header,
            [this](const RecordHeader& record, uint64_t offset) {
                if (record.is_frame())
                    m_entries.push_back({record.utc_us, static_cast<uint32_t>(offset / 8),
                                         record.kind, record.stream, record.channel});
            },
            {});
        scan.run();
        found = scan.result();
        error = scan.error();
    }
    m_next_sequence = found.next_sequence;
    m_latest_utc_us = found.latest_utc_us;
    // The remains of an interrupted batch may hold a run of their own.
    if (found.frames > 0) m_run = found.last.run + (m_has_directory ? 1 : 2);
    if (error != 0) {
        leave_segment();
        return false;
    }
    // What a killed recorder wrote may not be durable yet.
    const bool in_order = m_files.sync(m_file) == 0 && !found.damaged &&
                          found.frames == found.next_sequence - header.first_sequence;
    m_planned = m_has_batch = true;
    m_offset = round_up_to_block(found.end);
    m_hole = static_cast<uint32_t>(m_offset - found.end);
    m_allocated = false;
    if (!in_order || header.bytes != m_options.segment_bytes || m_offset >= header.bytes)
        leave_segment();
    // Its first batch was interrupted, and perhaps one of its headers with it.
    if (found.frames == 0 && !found.damaged && !m_has_directory) {
        leave_segment();
        m_segments->use_first(header.number);
    }
    return true;
}

DiskWriter::Outcome DiskWriter::append(const qm_dbframe& frame, int64_t utc_step_us,
                                       int64_t now_us) {
    const uint64_t most = m_options.segment_bytes - SEGMENT_START;
    if (!m_segments || record_bytes(frame.info.bytes) + space_for_ending(1) > most)
        return Outcome::refused;
    try {
        return take(frame, utc_step_us, now_us);
    } catch (const std::bad_alloc&) {
        note_failure(-ENOMEM, now_us);
        return Outcome::busy;
    }
}

// Bytes that the batch may have. The rest of the segment is shared out evenly, so that its last
// batch does not follow at once on the one before.
size_t DiskWriter::batch_limit() const {
    const uint64_t rest = m_header.bytes - m_offset;
    const uint64_t batches = (rest + m_options.batch_bytes - 1) / m_options.batch_bytes;
    return static_cast<size_t>(rest / batches);
}

DiskWriter::Outcome DiskWriter::take(const qm_dbframe& frame, int64_t utc_step_us, int64_t now_us) {
    const uint64_t bytes = record_bytes(frame.info.bytes);
    const uint64_t padded = bytes + BLOCK_BYTES + RECORD_BYTES;
    for (;;) {
        if (m_planned && !fits_segment(bytes)) {
            if (!end_segment(now_us)) return Outcome::busy;
        } else if (m_batch.filled > 0 && m_batch.filled + padded > batch_limit()) {
            if (!write_out(Ending::pad, now_us)) return Outcome::busy;
        } else {
            break;
        }
    }
    if (m_batch.filled == 0 && m_batch.larger) {
        m_batch.larger.reset();
        m_batch.capacity = m_options.batch_bytes;
    }
    m_batch.reserve(m_batch.filled + static_cast<size_t>(padded));
    if (m_entries.size() == m_entries.capacity())
        m_entries.reserve(std::max<size_t>(2 * m_entries.size(), 256));
    follow_time(frame.info.time_us, utc_step_us);
    put(frame, frame.info.time_us + utc_step_us);
    if (m_due_us == INT64_MAX) m_due_us = now_us + m_options.commit_us;
    return Outcome::stored;
}

void DiskWriter::put(const qm_dbframe& frame, int64_t utc_us) {
    const FrameInfo& info = frame.info;
    RecordHeader header;
    header.bytes = info.bytes;
    header.kind = static_cast<uint8_t>(info.kind);
    header.stream = info.stream;
    header.channel = info.channel;
    header.frame_number = info.number;
    header.sequence = m_next_sequence;
    header.utc_us = utc_us;
    header.mono_us = info.time_us;
    header.run = m_run;
    if (!m_planned) plan(m_segments->next_number(), header);

    uint8_t* payload = m_batch.area() + m_batch.filled + RECORD_BYTES;
    const auto room = static_cast<size_t>(header.total_bytes() - RECORD_BYTES);
    if (info.bytes > 0) memcpy(payload, frame.payload.get(), info.bytes);
    memset(payload + info.bytes, 0, room - info.bytes);
    place(header, m_batch.filled);
    m_batch.filled += static_cast<size_t>(header.total_bytes());
    ++m_batch.frames;
    m_batch.end = header;
    m_batch.end.sequence = ++m_next_sequence;
    m_batch.end.mono_us = m_latest_mono_us;
    m_latest_utc_us = std::max(m_latest_utc_us, utc_us);
    m_has_directory = false;
}

// The record `at` in the batch becomes one of the planned segment.
void DiskWriter::place(RecordHeader& header, size_t at) {
    m_batch.seed = m_seed;
    stamp(header, at);
    m_entries.push_back({header.utc_us, static_cast<uint32_t>((m_offset + at) / 8), header.kind,
                         header.stream, header.channel});
}

// A step of the machine's clock, or time that goes back, begins a new run.
void DiskWriter::follow_time(int64_t mono_us, int64_t utc_step_us) {
    if (m_timed && (utc_step_us != m_utc_step_us || mono_us < m_latest_mono_us - MAX_DISORDER_US)) {
        ++m_run;
        m_latest_mono_us = mono_us;
    }
    m_latest_mono_us = m_timed ? std::max(m_latest_mono_us, mono_us) : mono_us;
    m_utc_step_us = utc_step_us;
    m_timed = true;
}

void DiskWriter::plan(uint64_t number, const RecordHeader& first) {
    m_header = SegmentHeader();
    m_header.database = m_segments->identity();
    fill_at_random(&m_header.identity, sizeof m_header.identity);
    m_header.number = number;
    m_header.bytes = m_options.segment_bytes;
    m_header.first_sequence = first.sequence;
    m_header.utc_us = first.utc_us;
    m_header.mono_us = first.mono_us;
    m_header.latest_utc_us = m_batch.latest_utc_us;
    m_header.run = first.run;
    m_seed = m_header.seed();
    m_planned = true;
    m_has_batch = m_has_directory = false;
    m_allocated = true;
    m_offset = SEGMENT_START;
    m_hole = 0;
}

// The frames of the batch go into another segment.
void DiskWriter::plan_again(uint64_t number) {
    m_entries.clear();
    m_planned = false;
    if (m_batch.frames == 0) return;
    RecordHeader first;
    read_record_header(m_batch.area(), m_batch.seed, first);
    plan(number, first);
    place_again();
}

// The records of the batch, made for another place, go where the segment's next batch goes.
void DiskWriter::place_again() {
    const uint32_t old_seed = m_batch.seed;
    RecordHeader record;
    for (size_t at = 0; at < m_batch.filled; at += static_cast<size_t>(record.total_bytes())) {
        read_record_header(m_batch.area() + at, old_seed, record);
        place(record, at);
    }
}

// What came after a batch that was written again goes behind it, or into the next segment.
void DiskWriter::place_behind() {
    if (m_batch.frames == 0) return;
    const auto entries = static_cast<size_t>(m_entries.size() + m_batch.frames);
    bool fits = m_offset + m_batch.filled + space_for_ending(entries) <= m_header.bytes;
    try {
        if (fits) m_entries.reserve(entries);
    } catch (const std::bad_alloc&) {
        fits = false;
    }
    if (fits) {
        place_again();
    } else {
        leave_segment();
        plan_again(m_segments->next_number());
    }
}

uint64_t DiskWriter::space_for_ending(uint64_t entries) const {
    return BLOCK_BYTES + RECORD_BYTES + record_bytes(directory_bytes(entries));
}

bool DiskWriter::fits_segment(uint64_t bytes) const {
    return m_offset + m_batch.filled + bytes + space_for_ending(m_entries.size() + 1) <=
           m_header.bytes;
}

void DiskWriter::leave_segment() {
    if (m_file >= 0) m_files.close(m_file);
    m_file = -1;
    m_planned = false;
    m_entries.clear();
}

// The segment is full. One that ends with its directory already, or has no room for it, is left as
// it is. True when something changed for the better.
bool DiskWriter::end_segment(int64_t now_us) {
    if (m_batch.filled > 0 || (!m_has_directory && fits_segment(0)))
        return write_out(Ending::fill, now_us);
    if (m_write.pending()) return settle(now_us);
    leave_segment();
    return true;
}

// The file of the planned segment. After an error the disk has to prove first that it works, so
// that nothing old is given up in vain.
int DiskWriter::open_segment() {
    const int works = m_suspect ? m_segments->trial() : 0;
    if (works < 0) return works;
    int file = -EEXIST;
    for (int names = 0; file == -EEXIST && names < MAX_NAMES_TAKEN; ++names) {
        if (names > 0) plan_again(m_segments->pass_over(m_header.number));
        file = m_segments->make(m_header.number, m_header.bytes, m_options.ring_segments);
    }
    if (file < 0) return file;
    m_file = file;
    // The file's old records must not look like new ones.
    while (m_segments->old_seed() == m_seed) plan_again(m_header.number);
    m_segments->keep_ini(m_options.segment_bytes, m_options.ring_segments);
    return 0;
}

bool DiskWriter::commit(int64_t now_us) {
    m_retry_us = std::min(m_retry_us, now_us);
    if (!settle(now_us)) return false;
    return m_batch.filled == 0 || (write_out(Ending::pad, now_us) && settle(now_us));
}

bool DiskWriter::commit_if_due(int64_t now_us) { return now_us < m_due_us || commit(now_us); }

bool DiskWriter::write_all(int64_t now_us) {
    m_retry_us = now_us;
    if (!settle(now_us)) return false;
    const bool open_ended = m_planned && !m_has_directory && fits_segment(0);
    if (m_batch.filled == 0 && !open_ended) return true;
    return write_out(open_ended ? Ending::cut : Ending::pad, now_us) && settle(now_us);
}

bool DiskWriter::finish(int64_t now_us) {
    const bool written = write_all(now_us) || write_all(now_us);
    const uint64_t waiting = m_next_sequence - durable_sequence();
    m_lost += waiting;
    m_next_sequence -= waiting;
    m_batch.clear();
    m_handed_over.clear();
    m_due_us = INT64_MAX;
    leave_segment();
    if (m_segments) m_segments->keep_ini(m_options.segment_bytes, m_options.ring_segments);
    m_segments.reset();
    return written;
}

}  // namespace sim
