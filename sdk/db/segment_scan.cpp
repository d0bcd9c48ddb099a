// Finding the records of a segment: one behind the other from its start, and behind what cannot be
// read the next batch. Nothing is kept of them here, and nothing is written.
#include "sdk/db/segment_scan.h"

#include <algorithm>
#include <utility>

#include "sdk/db/crc32c.h"

namespace sim {

bool FileWindow::holds(uint64_t offset, size_t size) const {
    return offset >= m_offset && offset - m_offset <= m_filled &&
           m_filled - (offset - m_offset) >= size;
}

// Reads from the block of `offset` on: twice as much as the last time, and only what is asked for
// when that cannot be read.
bool FileWindow::fill(uint64_t offset, size_t least) {
    if (!m_window) m_window = std::make_unique<Window>();
    const uint64_t start = offset / BLOCK_BYTES * BLOCK_BYTES;
    const size_t needed = static_cast<size_t>(round_up_to_block(offset + least) - start);
    m_reach = std::clamp(2 * m_reach, needed, WINDOW_BYTES);
    m_filled = 0;
    int64_t got = m_files.read(m_file, m_window->bytes, m_reach, start);
    if (got < 0 && m_reach > needed) {
        m_reach = needed;
        got = m_files.read(m_file, m_window->bytes, needed, start);
    }
    if (got < 0) {
        if (m_error == 0) m_error = static_cast<int>(got);
        return false;
    }
    m_offset = start;
    m_filled = static_cast<size_t>(got);
    return holds(offset, least);
}

const uint8_t* FileWindow::at(uint64_t offset, size_t size) {
    if (!holds(offset, size) && !fill(offset, size)) return nullptr;
    return m_window->bytes + (offset - m_offset);
}

// As many of `size` bytes as the window has, at least one; null when there are none.
const uint8_t* FileWindow::some(uint64_t offset, uint64_t size, size_t& got) {
    const uint8_t* bytes = at(offset, 1);
    if (!bytes) return nullptr;
    const uint64_t there = m_filled - (offset - m_offset);
    got = static_cast<size_t>(std::min(size, there));
    return bytes;
}

bool FileWindow::crc(uint64_t offset, uint64_t size, uint32_t& crc) {
    while (size > 0) {
        size_t got = 0;
        const uint8_t* bytes = some(offset, size, got);
        if (!bytes) return false;
        crc = crc32c(crc, bytes, got);
        offset += got;
        size -= got;
    }
    return true;
}

bool FileWindow::zero(uint64_t offset, uint64_t end) {
    while (offset < end) {
        size_t got = 0;
        const uint8_t* bytes = some(offset, end - offset, got);
        if (!bytes || std::any_of(bytes, bytes + got, [](uint8_t byte) { return byte != 0; }))
            return false;
        offset += got;
    }
    return true;
}

void FileWindow::forget() {
    m_filled = 0;
    m_reach = 0;
}

SegmentScan::SegmentScan(FileSystem& files, int file, const SegmentHeader& header,
                         OnRecord on_record, OnHole on_hole)
    : m_files(files),
      m_file(file),
      m_window(files, file),
      m_header(header),
      m_seed(header.seed()),
      m_on_record(std::move(on_record)),
      m_on_hole(std::move(on_hole)) {
    m_result.next_sequence = header.first_sequence;
    m_result.latest_utc_us = header.latest_utc_us;
}

// Within a batch sequence numbers go up by one, and a pad or a directory ends it. The remains of an
// interrupted write behind the end of a later recording can be whole, but they stand behind such an
// end and begin no batch.
bool SegmentScan::in_order(const RecordHeader& header, uint64_t offset) const {
    if (header.is_frame() && m_result.frames > 0 && header.run < m_result.last.run) return false;
    if (!header.first_of_batch()) {
        const bool ended =
            m_result.finished || (m_result.padded && header.kind != RECORD_DIRECTORY);
        return !ended && header.sequence == m_result.next_sequence;
    }
    return offset % BLOCK_BYTES == 0 && header.sequence >= m_result.next_sequence;
}

// Headers that were forged to claim the same bytes many times cost no more than a few readings of
// the segment: then records whose checksum would have to be computed are not looked at any more.
bool SegmentScan::whole_record(uint64_t offset, RecordHeader& header) {
    constexpr uint64_t MOST_READINGS = 4;
    const uint8_t* bytes = m_window.at(offset, RECORD_BYTES);
    if (!bytes || !read_record_header(bytes, m_seed, header)) return false;
    if (offset > m_header.bytes || header.total_bytes() > m_header.bytes - offset) return false;
    if (header.sequence == UINT64_MAX) return false;  // no other could follow
    if (m_wasted > MOST_READINGS * m_header.bytes) return false;
    uint32_t crc = record_crc_start(bytes, m_seed);
    const uint64_t filled = header.total_bytes() - RECORD_BYTES;
    if (m_window.crc(offset + RECORD_BYTES, filled, crc) && crc == header.crc) return true;
    m_wasted += header.total_bytes();
    return false;
}

void SegmentScan::take(const RecordHeader& header, uint64_t offset) {
    m_result.end = offset + header.total_bytes();
    m_result.next_sequence = header.sequence + (header.is_frame() ? 1 : 0);
    m_result.finished = header.kind == RECORD_DIRECTORY;
    m_result.padded = header.kind == RECORD_PAD;
    if (header.is_frame()) {
        ++m_result.frames;
        m_result.last = header;
        m_result.latest_utc_us = std::max(m_result.latest_utc_us, header.utc_us);
    }
    if (m_on_record) m_on_record(header, offset);
}

void SegmentScan::tell_hole(uint64_t offset, uint64_t end, bool damage) {
    if (offset >= end) return;
    m_result.damaged |= damage;
    if (m_on_hole) m_on_hole(offset, end, damage);
}

// Takes the record at the end of what is known, or the one a later recording went on with.
bool SegmentScan::step() {
    const uint64_t end = m_result.end;
    RecordHeader header;
    if (whole_record(end, header) && in_order(header, end)) {
        take(header, end);
        return true;
    }
    const uint64_t block = round_up_to_block(end);
    if (block == end || !whole_record(block, header) || !header.first_of_batch() ||
        header.hole != block - end || !in_order(header, block))
        return false;
    tell_hole(end, block, false);
    take(header, block);
    return true;
}

void SegmentScan::follow() {
    m_window.forget();
    m_wasted = 0;
    while (step()) {
    }
}

// The directory ends the segment.
bool SegmentScan::complete(uint64_t limit) const {
    return m_result.finished && m_result.end >= limit;
}

// The first batch behind the end of what is known.
bool SegmentScan::next_batch(uint64_t limit, uint64_t& found, RecordHeader& header) {
    for (found = (m_result.end / BLOCK_BYTES + 1) * BLOCK_BYTES; found < limit;
         found += BLOCK_BYTES) {
        if (whole_record(found, header) && header.first_of_batch() && in_order(header, found))
            return true;
    }
    return false;
}

// Takes what is whole from the end of what is known up to `end`, which was durable.
void SegmentScan::salvage(uint64_t end, uint64_t before_sequence) {
    uint64_t gap = m_result.end;
    for (uint64_t offset = gap; offset < end;) {
        if (!m_window.at(offset, RECORD_BYTES) && !m_window.at(offset, 1)) {
            offset = (offset / BLOCK_BYTES + 1) * BLOCK_BYTES;
            continue;
        }
        RecordHeader header;
        if (!whole_record(offset, header) || offset + header.total_bytes() > end ||
            header.sequence < m_result.next_sequence ||
            header.sequence + (header.is_frame() ? 1 : 0) > before_sequence) {
            offset += 8;
            continue;
        }
        tell_hole(gap, offset, true);
        take(header, offset);
        gap = offset = m_result.end;
    }
    tell_hole(gap, end, true);
}

// Batches are written one after the other, so what stands before a whole one was durable, but for
// what that one says about an interrupted write. Behind the last one there is nothing to salvage:
// what is there may be the remains of a write that was done again in another place.
void SegmentScan::run() {
    follow();
    const int64_t size = m_files.size(m_file);
    const uint64_t limit =
        size < 0 ? m_header.bytes : std::min(m_header.bytes, static_cast<uint64_t>(size));
    uint64_t found = 0;
    RecordHeader header;
    while (!complete(limit) && next_batch(limit, found, header)) {
        // The segment may be written right now: then what comes before is there by now.
        m_window.forget();
        if (step()) {
            while (step()) {
            }
            continue;
        }
        const uint64_t end = m_result.end;
        const uint64_t hole = header.hole > found - end ? end : found - header.hole;
        salvage(hole, header.sequence);
        tell_hole(hole, found, false);
        take(header, found);
        while (step()) {
        }
    }
}

namespace {

bool load_copy(FileSystem& files, int file, uint64_t offset, uint64_t number,
               SegmentHeader& header) {
    alignas(BLOCK_BYTES) uint8_t block[BLOCK_BYTES];
    return files.read(file, block, sizeof block, offset) == sizeof block &&
           read_segment_header(block, header) && header.number == number;
}

}  // namespace

std::vector<size_t> places_to_ask(size_t count) {
    constexpr size_t MOST = 200;
    std::vector<size_t> places;
    const size_t asked = std::min(count, MOST);
    for (size_t i = asked; i-- > 0;)
        places.push_back(asked == 1 ? 0 : i * (count - 1) / (asked - 1));
    return places;
}

bool load_segment_header(FileSystem& files, int file, uint64_t number, SegmentHeader& header,
                         int* copies) {
    const bool first = load_copy(files, file, 0, number, header);
    if (copies) *copies = first ? 1 : 0;
    if (first && !copies) return true;
    SegmentHeader second;
    if (!load_copy(files, file, BLOCK_BYTES, number, second)) return first;
    if (!first) header = second;
    if (copies) ++*copies;
    return true;
}

}  // namespace sim
