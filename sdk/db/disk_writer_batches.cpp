// How a recorder makes its batches durable: one is written while the next one is filled, and what
// cannot be written goes into another segment.
#include <sys/mman.h>

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <new>
#include <utility>

#include "sdk/db/disk_writer.h"

namespace sim {

namespace {

constexpr std::align_val_t ALIGNMENT{size_t{2} << 20};  // a large page, where there are such

}  // namespace

void DiskWriter::Release::operator()(uint8_t* buffer) const { operator delete(buffer, ALIGNMENT); }

DiskWriter::Buffer DiskWriter::make_buffer(size_t bytes) {
    Buffer buffer(static_cast<uint8_t*>(operator new(bytes, ALIGNMENT)));
    madvise(buffer.get(), bytes, MADV_HUGEPAGE);  // a hint
    return buffer;
}

void DiskWriter::make_buffers() {
    const size_t each = SEGMENT_START + m_options.batch_bytes;
    m_buffers = make_buffer(2 * each);
    m_batch.usual = m_buffers.get();
    m_handed_over.usual = m_buffers.get() + each;
    m_batch.capacity = m_handed_over.capacity = m_options.batch_bytes;
}

void DiskWriter::Batch::reserve(size_t bytes) {
    if (bytes <= capacity) return;
    const auto wanted = static_cast<size_t>(round_up_to_block(bytes));
    Buffer room = make_buffer(SEGMENT_START + wanted);
    if (filled > 0) memcpy(room.get() + SEGMENT_START, area(), filled);
    larger = std::move(room);
    capacity = wanted;
}

void DiskWriter::stamp(RecordHeader& header, size_t at) {
    header.flags = at == 0 ? FLAG_FIRST_OF_BATCH : 0;
    header.hole = at == 0 ? m_hole : 0;
    seal_record(header, m_seed, m_batch.area() + at);
}

RecordHeader DiskWriter::ending_header(uint8_t kind) const {
    RecordHeader header;
    header.kind = kind;
    header.sequence = m_batch.end.sequence;
    header.utc_us = m_batch.end.utc_us;
    header.mono_us = m_batch.end.mono_us;
    header.run = m_batch.end.run;
    return header;
}

size_t DiskWriter::compose_pad(size_t at, size_t bytes) {
    if (bytes == 0) return at;
    RecordHeader header = ending_header(RECORD_PAD);
    header.bytes = static_cast<uint32_t>(bytes - RECORD_BYTES);
    memset(m_batch.area() + at + RECORD_BYTES, 0, header.bytes);
    stamp(header, at);
    return at + bytes;
}

size_t DiskWriter::compose_directory(size_t at) {
    RecordHeader header = ending_header(RECORD_DIRECTORY);
    header.bytes = static_cast<uint32_t>(directory_bytes(m_entries.size()));
    uint8_t* out = m_batch.area() + at + RECORD_BYTES;
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
    const uint64_t records_end = m_offset + m_batch.filled;
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
    m_batch.reserve(static_cast<size_t>(end - m_offset));
    size_t at = compose_pad(m_batch.filled, static_cast<size_t>(gap));
    if (ending != Ending::pad) at = compose_directory(at);
    return at;
}

// Hands the batch over to be written when the one before it is durable. False when nothing can be
// written now.
bool DiskWriter::write_out(Ending ending, int64_t now_us) {
    const uint64_t number = segment();
    if (!settle(now_us)) return false;
    const bool moved = segment() != number;
    if (moved && ending == Ending::fill) ending = Ending::pad;
    if (m_batch.filled == 0 && (!m_planned || ending == Ending::pad)) return true;
    if (m_failing && now_us < m_retry_us) return false;
    return hand_over(ending, 2, now_us);
}

// Into a new segment when its own fails. An error of the write itself is found by settle().
bool DiskWriter::hand_over(Ending ending, int attempts, int64_t now_us) {
    int result = 0;
    for (; attempts > 0; --attempts) {
        const bool has_file = m_file >= 0;
        result = try_batch(ending);
        if (result >= 0) {
            m_due_us = now_us + m_options.commit_us;
            return true;
        }
        if (no_room(result) && !has_file) break;
        suspect(result);
        if (ending == Ending::fill) ending = Ending::pad;
        if (m_batch.filled == 0 && !m_planned) return true;  // only the ending was to be written
    }
    if (no_room(result)) suspect(result);
    note_failure(result, now_us);
    return false;
}

// After an error the disk is to prove that it works; a lack of room is no such error where the
// oldest segments can give way.
void DiskWriter::suspect(int result) {
    m_suspect = !no_room(result) || !m_segments->short_of_room(m_options.segment_bytes);
}

void DiskWriter::note_failure(int result, int64_t now_us) {
    m_failing = true;
    m_retry_us = now_us + m_options.retry_us;
    if (m_due_us != INT64_MAX) m_due_us = std::max(m_due_us, m_retry_us);
    char text[TROUBLE_BYTES];
    snprintf(text, sizeof text, "segment %" PRIu64 " cannot be written: %s",
             m_planned ? m_header.number : m_segments->next_number(), strerror(-result));
    m_trouble = text;
}

int DiskWriter::try_batch(Ending ending) {
    int result;
    try {
        result = m_file < 0 ? open_segment() : 0;
        if (result < 0) return result;
        result = begin_write(ending);
    } catch (const std::bad_alloc&) {
        if (m_file >= 0 && !m_has_batch) give_up_segment();
        return -ENOMEM;
    }
    if (result < 0) give_up_segment();
    return result;
}

int DiskWriter::begin_write(Ending ending) {
    const size_t bytes = compose(ending);
    const int result = m_allocated ? 0 : m_files.allocate(m_file, m_header.bytes);
    m_allocated = true;
    if (result < 0) return result;
    m_write_ending = ending;
    m_write_file = m_file;
    m_write_number = m_header.number;
    m_write_is_first = !m_has_batch;
    m_write_end = m_offset + bytes;
    if (m_has_batch) {
        m_write.begin_write(m_file, m_batch.area(), bytes, m_offset);
    } else {
        write_segment_header(m_header, m_batch.buffer());
        m_write.begin_write(m_file, m_batch.buffer(), SEGMENT_START + bytes, 0,
                            m_segments->folder());
    }
    m_offset = m_write_end;
    m_hole = 0;
    if (ending != Ending::pad) {  // the file is closed when its last batch is durable
        m_file = -1;
        leave_segment();
    }
    // What is to be written again comes before what is in the other batch already.
    std::swap(m_batch, m_handed_over);
    if (m_batch.frames > 0) return 0;
    m_batch.end = m_handed_over.end;
    m_batch.latest_utc_us = m_latest_utc_us;
    return 0;
}

// The batch that was handed over is durable, into which segment ever. False when that is not
// possible now.
bool DiskWriter::settle(int64_t now_us) {
    if (!m_write.pending()) return m_handed_over.frames == 0 || write_again(2, now_us);
    if (finish_write() == 0) return true;
    if (m_handed_over.frames > 0) return write_again(1, now_us);
    m_handed_over.clear();  // only the ending was to be written
    return true;
}

int DiskWriter::finish_write() {
    const int result = static_cast<int>(m_write.finish());
    if (result < 0) {
        give_up_write(result);
        return result;
    }
    if (m_write_is_first) m_segments->keep();
    m_failing = m_suspect = false;
    m_handed_over.clear();
    if (m_batch.frames == 0) m_due_us = INT64_MAX;
    m_has_batch = m_has_batch || m_write_file == m_file;
    if (m_write_file == m_file) return 0;
    // The frames are safe already: a failure here costs the next recorder a scan.
    if (m_write_ending == Ending::cut && m_files.truncate(m_write_file, m_write_end) == 0)
        m_files.sync(m_write_file);
    m_files.close(m_write_file);
    return 0;
}

// The file is not touched again. What came after the batch waits for another segment.
void DiskWriter::give_up_write(int result) {
    m_files.close(m_write_file);
    if (m_write_is_first) m_segments->discard(m_write_number);
    if (m_write_file == m_file) {
        m_file = -1;
        plan_again(m_segments->next_number());
    }
    suspect(result);
}

bool DiskWriter::write_again(int attempts, int64_t now_us) {
    if (m_failing && now_us < m_retry_us) return false;
    const Ending ending = m_write_ending == Ending::cut ? Ending::cut : Ending::pad;
    int result = 0;
    for (; attempts > 0; --attempts) {
        std::swap(m_batch, m_handed_over);
        plan_again(m_segments->next_number());
        if (!hand_over(ending, attempts, now_us)) {
            std::swap(m_batch, m_handed_over);
            plan_again(m_segments->next_number());
            return false;
        }
        result = finish_write();
        if (result == 0) {
            place_behind();
            return true;
        }
    }
    note_failure(result, now_us);
    return false;
}

// The file is not touched again; what was not durable goes into the next one.
void DiskWriter::give_up_segment() {
    m_files.close(m_file);
    m_file = -1;
    if (!m_has_batch) m_segments->discard(m_header.number);
    plan_again(m_segments->next_number());
}

}  // namespace sim
