// The records of one segment, one after the other as the scan finds them.
#include <algorithm>

#include "sdk/db/check_segment.h"
#include "sdk/db/crc32c.h"

namespace sim {

namespace {

// Frames of different channels come in nearly their order.
constexpr int64_t MOST_DISORDER_US = 1'000'000;

}  // namespace

void SegmentCheck::check_records(const std::function<void(uint64_t)>& at) {
    SegmentScan scan(
        m_view->files(), m_segment->file, m_segment->header,
        [&](const RecordHeader& record, uint64_t offset) {
            at(offset);
            on_record(record, offset);
        },
        [&](uint64_t offset, uint64_t end, bool damage) { on_hole(offset, end, damage); });
    scan.run();
    tell_damage(0);
    check_end(scan.result());
    const int error = scan.error() != 0 ? scan.error() : m_window->error();
    if (error != 0) {
        Finding finding = make(FindingKind::cannot_read, scan.result().end);
        finding.amount = static_cast<uint64_t>(-error);
        add(finding);
    }
    m_end.known = true;
    m_end.timed = error == 0;
    m_end.damaged = m_damaged;
    m_end.next_sequence = m_next;
    m_end.frames = scan.result().frames;
    m_end.latest_utc_us = scan.result().latest_utc_us;
}

void SegmentCheck::on_hole(uint64_t offset, uint64_t end, bool damage) {
    if (damage) tell_damage(0);
    (damage ? m_damage_start : m_hole_start) = offset;
    (damage ? m_damage_end : m_hole_end) = end;
}

// The damage before the next record, when there is any; `missing` frames are missing there.
void SegmentCheck::tell_damage(uint64_t missing) {
    const uint64_t start = m_damage_start;
    const uint64_t end = m_damage_end;
    if (end == 0) return;
    m_damage_end = 0;
    m_damaged = m_told_damage = true;
    RecordHeader record;
    const uint8_t* bytes = m_window->at(start, RECORD_BYTES);
    const bool there = bytes && read_record_header(bytes, m_seed, record);
    Finding finding =
        there ? make(FindingKind::damage, start, record) : make(FindingKind::damage, start);
    finding.end = end;
    finding.amount = missing;
    add(finding);
}

void SegmentCheck::on_record(const RecordHeader& record, uint64_t offset) {
    if (m_first_offset == 0) m_first_offset = offset;
    check_place(record, offset);
    check_sequence(record, offset);
    if (record.is_frame()) {
        check_time(record, offset);
        add_entry(record, offset);
    }
    check_fill(record, offset);
    if (record.kind == RECORD_DIRECTORY) check_directory(record, offset);
    m_before.any = true;
    m_before.record = record;
    m_before.end = offset + record.total_bytes();
    m_hole_end = 0;
}

// A batch ends with a pad or the directory, or on a block without either.
void SegmentCheck::check_place(const RecordHeader& record, uint64_t offset) {
    const bool after_gap = m_damage_end != 0;
    const bool batch_ended =
        m_before.any && (m_before.record.kind == RECORD_DIRECTORY ||
                         (m_before.record.kind == RECORD_PAD && record.kind != RECORD_DIRECTORY));
    const bool must_begin = (offset == SEGMENT_START || batch_ended) && !after_gap;
    const bool may_begin = offset % BLOCK_BYTES == 0;
    if (record.first_of_batch() ? !may_begin : must_begin)
        add(make(FindingKind::batch_flag, offset, record));
    if (record.hole == 0 || after_gap) return;
    const bool told = m_hole_end == offset && m_hole_start == offset - record.hole;
    const bool damage_between = m_told_damage && record.hole <= offset - m_before.end;
    if (told || damage_between) return;
    Finding finding = make(FindingKind::hole, offset, record);
    finding.amount = record.hole;
    add(finding);
}

void SegmentCheck::check_sequence(const RecordHeader& record, uint64_t offset) {
    const uint64_t missing = record.sequence - std::min(record.sequence, m_next);
    const bool in_damage = m_told_damage || m_damage_end != 0;
    tell_damage(missing);
    if (missing > 0) {
        m_entries_whole = false;
        if (!in_damage) {
            Finding finding = make(FindingKind::missing_records, offset, record);
            finding.first = m_next;
            finding.amount = missing;
            add(finding);
        }
    }
    m_next = record.sequence + (record.is_frame() ? 1 : 0);
    if (record.is_frame()) m_told_damage = false;
}

void SegmentCheck::check_time(const RecordHeader& record, uint64_t offset) {
    int64_t offset_us = 0;
    const bool overflow = __builtin_sub_overflow(record.utc_us, record.mono_us, &offset_us);
    if (!m_before.any_frame && record.sequence == m_segment->header.first_sequence)
        check_header_time(record);
    if (m_before.any_frame && record.run < m_before.run)
        add(make(FindingKind::run, offset, record));
    const bool same_run = m_before.any_frame && record.run == m_before.run;
    int64_t back = 0;
    if (overflow ||
        (same_run && (offset_us != m_before.offset_us ||
                      __builtin_sub_overflow(m_before.latest_mono_us, record.mono_us, &back) ||
                      back > MOST_DISORDER_US)))
        add(make(FindingKind::time, offset, record));
    m_before.latest_mono_us =
        same_run ? std::max(m_before.latest_mono_us, record.mono_us) : record.mono_us;
    m_before.any_frame = true;
    m_before.run = record.run;
    m_before.utc_us = record.utc_us;
    m_before.offset_us = offset_us;
}

void SegmentCheck::check_header_time(const RecordHeader& record) {
    const SegmentHeader& header = m_segment->header;
    if (record.utc_us != header.utc_us || record.mono_us != header.mono_us ||
        record.run != header.run)
        add(make(FindingKind::header_time, 0, record));
}

// The checksums hold, so what is not 0 was written so.
void SegmentCheck::check_fill(const RecordHeader& record, uint64_t offset) {
    const uint64_t start = offset + RECORD_BYTES + (record.kind == RECORD_PAD ? 0 : record.bytes);
    const uint64_t end = offset + record.total_bytes();
    if (start == end) return;
    if (record.kind == RECORD_PAD) {
        if (!m_window->zero(start, end)) add(make(FindingKind::pad, offset));
        return;
    }
    uint8_t bytes[8] = {};
    m_view->files().read(m_segment->file, bytes, static_cast<size_t>(end - start), start);
    if (std::any_of(bytes, bytes + sizeof bytes, [](uint8_t byte) { return byte != 0; }))
        add(make(FindingKind::fill, offset, record));
}

void SegmentCheck::add_entry(const RecordHeader& record, uint64_t offset) {
    uint8_t bytes[ENTRY_BYTES];
    write_entry({record.utc_us, static_cast<uint32_t>(offset / 8), record.kind, record.stream,
                 record.channel},
                bytes);
    m_entries_crc = crc32c(m_entries_crc, bytes, sizeof bytes);
    ++m_entries;
}

// It must be what the frames so far make of it, so their checksums are compared. Of frames that
// became unreadable nothing is known.
void SegmentCheck::check_directory(const RecordHeader& record, uint64_t offset) {
    if (m_damaged) return;
    uint8_t bytes[TAIL_BYTES];
    write_tail(m_entries, offset, bytes);
    const uint32_t expected = crc32c(m_entries_crc, bytes, sizeof bytes);
    uint32_t found = 0;
    const bool right = m_entries_whole && record.bytes == directory_bytes(m_entries) &&
                       m_window->crc(offset + RECORD_BYTES, record.bytes, found) &&
                       found == expected;
    if (right) return;
    Finding finding = make(FindingKind::directory, offset);
    // The last write of a full segment may have been interrupted and repeated.
    finding.note = m_newest && offset + record.total_bytes() == m_segment->header.bytes;
    add(finding);
}

}  // namespace sim
