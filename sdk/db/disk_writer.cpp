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

constexpr std::align_val_t ALIGNMENT{BLOCK_BYTES};
constexpr size_t MIN_BATCH_BYTES = 2 * BLOCK_BYTES;
// Frames of different channels come in nearly their order. Time that goes back further is another
// run.
constexpr int64_t MAX_DISORDER_US = 1'000'000;
constexpr size_t TROUBLE_BYTES = 200;
// Names of segments that somebody else took, passed over in one attempt.
constexpr int MAX_NAMES_TAKEN = 16;

uint64_t filled(uint64_t bytes) { return (bytes + 7) & ~uint64_t{7}; }

uint64_t record_bytes(uint64_t payload) { return RECORD_BYTES + filled(payload); }

}  // namespace

void DiskWriter::Release::operator()(uint8_t* buffer) const { operator delete(buffer, ALIGNMENT); }

DiskWriter::DiskWriter(FileSystem& files, const WriterOptions& options)
    : m_files(files), m_options(options) {
    m_options.segment_bytes =
        std::clamp(options.segment_bytes, MIN_SEGMENT_BYTES, MAX_SEGMENT_BYTES) / BLOCK_BYTES *
        BLOCK_BYTES;
    m_options.ring_segments = std::max<uint64_t>(options.ring_segments, 1);
    m_options.batch_bytes = static_cast<size_t>(
        round_up_to_block(std::max<size_t>(options.batch_bytes, MIN_BATCH_BYTES)));
    m_trouble.reserve(TROUBLE_BYTES);
}

DiskWriter::~DiskWriter() {
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
    writer->reserve(writer->m_options.batch_bytes);
    writer->recover(newest);
    writer->m_segments->keep_ini(writer->m_options.segment_bytes, writer->m_options.ring_segments);
    return writer;
}

// A file that cannot be read may hold frames with the next numbers: they are passed over.
void DiskWriter::recover(const Newest& newest) {
    const uint64_t most_frames = MAX_SEGMENT_BYTES / RECORD_BYTES;
    bool unreadable = newest.error < 0;
    if (newest.found && !go_on_in(newest.header)) unreadable = true;
    if (unreadable) m_next_sequence += most_frames;
    m_durable_latest_us = m_latest_utc_us;
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

DiskWriter::Outcome DiskWriter::take(const qm_dbframe& frame, int64_t utc_step_us, int64_t now_us) {
    const uint64_t bytes = record_bytes(frame.info.bytes);
    while (m_planned && !fits_segment(bytes))
        if (!end_segment(now_us)) return Outcome::busy;
    if (m_filled > 0 && m_filled + bytes + BLOCK_BYTES + RECORD_BYTES > m_options.batch_bytes &&
        !write_out(Ending::pad, now_us))
        return Outcome::busy;
    if (m_filled == 0 && m_capacity > 2 * m_options.batch_bytes) {
        m_buffer.reset();  // it was made for a large frame
        m_capacity = 0;
    }
    reserve(m_filled + static_cast<size_t>(bytes) + BLOCK_BYTES + RECORD_BYTES);
    if (m_entries.size() == m_entries.capacity())
        m_entries.reserve(std::max<size_t>(2 * m_entries.size(), 256));
    const int64_t utc_us = frame.info.time_us + utc_step_us;
    follow_time(frame.info.time_us, utc_step_us);
    if (!m_planned) plan(m_segments->next_number(), utc_us, frame.info.time_us);
    if (m_waiting == 0) m_due_us = now_us + m_options.commit_us;
    put(frame, utc_us);
    return Outcome::stored;
}

void DiskWriter::put(const qm_dbframe& frame, int64_t utc_us) {
    const FrameInfo& info = frame.info;
    uint8_t* record = area() + m_filled;
    if (info.bytes > 0) memcpy(record + RECORD_BYTES, frame.payload.get(), info.bytes);
    memset(record + RECORD_BYTES + info.bytes, 0,
           static_cast<size_t>(filled(info.bytes)) - info.bytes);
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
    stamp(header, m_filled);
    m_entries.push_back({utc_us, static_cast<uint32_t>((m_offset + m_filled) / 8), header.kind,
                         header.stream, header.channel});
    m_filled += static_cast<size_t>(header.total_bytes());
    ++m_waiting;
    ++m_next_sequence;
    m_last_utc_us = utc_us;
    m_latest_utc_us = std::max(m_latest_utc_us, utc_us);
    m_has_directory = false;
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

void DiskWriter::plan(uint64_t number, int64_t utc_us, int64_t mono_us) {
    m_header = SegmentHeader();
    m_header.database = m_segments->identity();
    fill_at_random(&m_header.identity, sizeof m_header.identity);
    m_header.number = number;
    m_header.bytes = m_options.segment_bytes;
    m_header.first_sequence = durable_sequence();
    m_header.utc_us = utc_us;
    m_header.mono_us = mono_us;
    m_header.latest_utc_us = m_durable_latest_us;
    m_header.run = m_run;
    m_seed = m_header.seed();
    m_planned = true;
    m_has_batch = m_has_directory = false;
    m_allocated = true;
    m_offset = SEGMENT_START;
    m_hole = 0;
}

// The waiting frames go into another segment.
void DiskWriter::plan_again(uint64_t number) {
    m_entries.clear();
    m_planned = false;
    if (m_waiting == 0) return;
    const uint32_t old_seed = m_seed;
    RecordHeader record;
    read_record_header(area(), old_seed, record);
    plan(number, record.utc_us, record.mono_us);
    m_header.run = record.run;
    for (size_t at = 0; at < m_filled; at += static_cast<size_t>(record.total_bytes())) {
        read_record_header(area() + at, old_seed, record);
        record.hole = 0;
        stamp(record, at);
        m_entries.push_back({record.utc_us, static_cast<uint32_t>((m_offset + at) / 8), record.kind,
                             record.stream, record.channel});
    }
}

uint64_t DiskWriter::space_for_ending(uint64_t entries) const {
    return BLOCK_BYTES + RECORD_BYTES + record_bytes(directory_bytes(entries));
}

bool DiskWriter::fits_segment(uint64_t bytes) const {
    return m_offset + m_filled + bytes + space_for_ending(m_entries.size() + 1) <= m_header.bytes;
}

void DiskWriter::leave_segment() {
    if (m_file >= 0) m_files.close(m_file);
    m_file = -1;
    m_planned = false;
    m_entries.clear();
}

// The segment is full. One that ends with its directory already, or has no room for it, is left as
// it is.
bool DiskWriter::end_segment(int64_t now_us) {
    if (m_filled > 0 || (!m_has_directory && fits_segment(0)))
        return write_out(Ending::fill, now_us);
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

void DiskWriter::reserve(size_t bytes) {
    if (bytes <= m_capacity) return;
    const size_t capacity =
        static_cast<size_t>(round_up_to_block(std::max(bytes, m_options.batch_bytes)));
    std::unique_ptr<uint8_t[], Release> larger(
        static_cast<uint8_t*>(operator new(SEGMENT_START + capacity, ALIGNMENT)));
    if (m_filled > 0) memcpy(larger.get() + SEGMENT_START, area(), m_filled);
    m_buffer = std::move(larger);
    m_capacity = capacity;
}

void DiskWriter::stamp(RecordHeader& header, size_t at) {
    header.flags = at == 0 ? FLAG_FIRST_OF_BATCH : 0;
    header.hole = at == 0 ? m_hole : 0;
    seal_record(header, m_seed, area() + at);
}

RecordHeader DiskWriter::ending_header(uint8_t kind) const {
    RecordHeader header;
    header.kind = kind;
    header.sequence = m_next_sequence;
    header.utc_us = m_last_utc_us;
    header.mono_us = m_latest_mono_us;
    header.run = m_run;
    return header;
}

size_t DiskWriter::compose_pad(size_t at, size_t bytes) {
    if (bytes == 0) return at;
    RecordHeader header = ending_header(RECORD_PAD);
    header.bytes = static_cast<uint32_t>(bytes - RECORD_BYTES);
    memset(area() + at + RECORD_BYTES, 0, header.bytes);
    stamp(header, at);
    return at + bytes;
}

size_t DiskWriter::compose_directory(size_t at) {
    RecordHeader header = ending_header(RECORD_DIRECTORY);
    header.bytes = static_cast<uint32_t>(directory_bytes(m_entries.size()));
    uint8_t* out = area() + at + RECORD_BYTES;
    for (const DirectoryEntry& entry : m_entries) {
        write_entry(entry, out);
        out += ENTRY_BYTES;
    }
    write_tail(static_cast<uint32_t>(m_entries.size()), m_offset + at, out);
    stamp(header, at);
    return at + static_cast<size_t>(header.total_bytes());
}

// Adds what the batch ends with behind its records. Returns the bytes of the batch, whole blocks.
size_t DiskWriter::compose(Ending& ending) {
    const uint64_t records_end = m_offset + m_filled;
    uint64_t directory = 0;
    if (ending != Ending::pad) directory = record_bytes(directory_bytes(m_entries.size()));
    uint64_t end = round_up_to_block(records_end + directory);
    if (ending == Ending::fill) end = m_header.bytes;
    uint64_t gap = end - directory - records_end;
    // A batch ends with a pad or a directory, so that what stands behind it cannot seem to be its.
    if (gap < RECORD_BYTES && (gap > 0 || ending == Ending::pad)) {
        end += BLOCK_BYTES;
        gap += BLOCK_BYTES;
    }
    reserve(static_cast<size_t>(end - m_offset));
    size_t at = compose_pad(m_filled, static_cast<size_t>(gap));
    if (ending != Ending::pad) at = compose_directory(at);
    return at;
}

bool DiskWriter::commit(int64_t now_us) {
    m_retry_us = std::min(m_retry_us, now_us);
    return m_filled == 0 || write_out(Ending::pad, now_us);
}

bool DiskWriter::commit_if_due(int64_t now_us) { return now_us < m_due_us || commit(now_us); }

bool DiskWriter::finish(int64_t now_us) {
    m_retry_us = now_us;  // the last chance
    const bool open_ended = m_planned && !m_has_directory && fits_segment(0);
    const bool written = m_filled == 0 && !open_ended
                             ? true
                             : write_out(open_ended ? Ending::cut : Ending::pad, now_us);
    m_lost += m_waiting;
    m_next_sequence -= m_waiting;
    m_waiting = 0;
    m_filled = 0;
    m_due_us = INT64_MAX;
    leave_segment();
    if (m_segments) m_segments->keep_ini(m_options.segment_bytes, m_options.ring_segments);
    m_segments.reset();
    return written;
}

// Writes the batch, into a new segment when its own fails. False when that is not possible now.
bool DiskWriter::write_out(Ending ending, int64_t now_us) {
    if (m_failing && now_us < m_retry_us) return false;
    int result = 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool has_file = m_file >= 0;
        result = try_batch(ending);
        if (result >= 0) {
            m_failing = m_suspect = false;
            return true;
        }
        if (no_room(result) && !has_file) break;
        m_suspect = !no_room(result) || !m_segments->short_of_room(m_header.bytes);
        if (ending == Ending::fill) ending = Ending::pad;
        if (m_filled == 0 && !m_planned) return true;  // only the ending was to be written
    }
    if (no_room(result)) m_suspect = !m_segments->short_of_room(m_header.bytes);
    note_failure(result, now_us);
    return false;
}

void DiskWriter::note_failure(int result, int64_t now_us) {
    m_failing = true;
    m_retry_us = now_us + m_options.retry_us;
    if (m_due_us != INT64_MAX) m_due_us = std::max(m_due_us, m_retry_us);
    char text[TROUBLE_BYTES];
    snprintf(text, sizeof text, "segment %" PRIu64 " cannot be written: %s", segment(),
             strerror(-result));
    m_trouble = text;
}

int DiskWriter::try_batch(Ending ending) {
    int result;
    try {
        result = m_file < 0 ? open_segment() : 0;
        if (result < 0) return result;
        result = write_batch(ending);
    } catch (const std::bad_alloc&) {
        if (m_file >= 0 && !m_has_batch) give_up_segment();
        return -ENOMEM;
    }
    if (result < 0) give_up_segment();
    return result;
}

int DiskWriter::write_batch(Ending ending) {
    const size_t bytes = compose(ending);
    int result = 0;
    if (!m_allocated) result = m_files.allocate(m_file, m_header.bytes);
    m_allocated = true;
    if (result == 0 && m_has_batch) result = m_files.write(m_file, area(), bytes, m_offset);
    if (result == 0 && !m_has_batch) {
        write_segment_header(m_header, m_buffer.get());
        result = m_files.write(m_file, m_buffer.get(), SEGMENT_START + bytes, 0);
    }
    if (result == 0) result = m_files.sync(m_file);
    if (result < 0) return result;

    m_has_batch = true;
    m_offset += bytes;
    m_hole = 0;
    m_filled = 0;
    m_waiting = 0;
    m_durable_latest_us = m_latest_utc_us;
    m_due_us = INT64_MAX;
    if (ending == Ending::pad) return 0;
    // The frames are safe already: a failure here costs the next recorder a scan.
    if (ending == Ending::cut && m_files.truncate(m_file, m_offset) == 0) m_files.sync(m_file);
    leave_segment();
    return 0;
}

// The file is not touched again; what was not durable goes into the next one.
void DiskWriter::give_up_segment() {
    m_files.close(m_file);
    m_file = -1;
    if (!m_has_batch) m_segments->discard(m_header.number);
    plan_again(m_segments->next_number());
}

}  // namespace sim
