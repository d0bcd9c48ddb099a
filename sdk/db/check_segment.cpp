// Headers, size and end of one segment. Its records are looked at in check_records.
#include "sdk/db/check_segment.h"

#include <algorithm>

namespace sim {

Finding SegmentCheck::make(FindingKind kind, uint64_t offset) const {
    Finding finding{kind};
    finding.segment = m_segment->number;
    finding.placed = true;
    finding.offset = offset;
    if (m_before.any_frame) {
        finding.timed = finding.about = true;
        finding.utc_us = m_before.utc_us;
    } else if (m_segment->state == SegmentState::whole) {
        finding.timed = finding.about = true;
        finding.utc_us = m_segment->header.utc_us;
    }
    return finding;
}

Finding SegmentCheck::make(FindingKind kind, uint64_t offset, const RecordHeader& record) const {
    Finding finding = make(kind, offset);
    if (!record.is_frame()) return finding;
    finding.row = record.kind == static_cast<uint8_t>(FrameKind::audio) ? AUDIO_ROW : record.stream;
    finding.channel = record.channel;
    finding.timed = true;
    finding.about = false;
    finding.utc_us = record.utc_us;
    return finding;
}

void SegmentCheck::add(const Finding& finding) {
    if (m_findings.size() < MOST_FINDINGS)
        m_findings.push_back(finding);
    else if (!finding.note)
        ++m_further;
}

bool SegmentCheck::clean() const {
    return m_further == 0 && std::all_of(m_findings.begin(), m_findings.end(),
                                         [](const Finding& finding) { return finding.note; });
}

void SegmentCheck::keep_what_was_in(const SegmentCheck& earlier) {
    std::erase_if(m_findings, [&](const Finding& finding) {
        return !finding.note && std::none_of(earlier.m_findings.begin(), earlier.m_findings.end(),
                                             [&](const Finding& before) {
                                                 return before.kind == finding.kind &&
                                                        before.offset == finding.offset;
                                             });
    });
    m_further = std::min(m_further, earlier.m_further);
}

void SegmentCheck::run(bool quick, const std::function<void(uint64_t)>& at) {
    switch (m_segment->state) {
        case SegmentState::whole: break;
        case SegmentState::foreign: {
            Finding finding{FindingKind::foreign};
            finding.segment = m_segment->number;
            return add(finding);
        }
        case SegmentState::unreadable: {
            Finding finding{FindingKind::cannot_read};
            finding.segment = m_segment->number;
            finding.amount = static_cast<uint64_t>(-m_segment->error);
            return add(finding);
        }
        default: return check_headerless();
    }
    m_seed = m_segment->header.seed();
    m_next = m_end.first_sequence = m_segment->header.first_sequence;
    m_end.first_run = m_segment->header.run;
    m_window = std::make_unique<FileWindow>(m_view->files(), m_segment->file);
    if (quick)
        check_quickly();
    else
        check_records(at);
    check_headers();
    check_size();
}

// A new file is empty or as long as a segment, and nothing is in it; the ring's old file has all
// its old records. The first batch of a recorder that is at work comes with the headers.
void SegmentCheck::check_headerless() {
    if (m_newest && m_view->recorded()) return;
    Finding finding{FindingKind::unbegun};
    finding.segment = m_segment->number;
    const bool usual_size = m_segment->bytes == 0 || m_view->ini_state() != IniState::whole ||
                            m_segment->bytes == m_view->ini().segment_bytes;
    FileWindow window(m_view->files(), m_segment->file);
    finding.note =
        m_segment->state == SegmentState::unbegun &&
        (!m_segment->blocks.blank ||
         (usual_size && window.zero(0, std::min(m_segment->bytes, uint64_t{MAX_SEGMENT_BYTES}))));
    if (!finding.note) finding.kind = FindingKind::no_header;
    add(finding);
}

// A copy may be missing where the segment's first write was interrupted: then there is no record
// behind it either.
void SegmentCheck::check_headers() {
    for (const size_t i : {size_t{0}, size_t{1}}) {
        const uint64_t offset = i * BLOCK_BYTES;
        if (!m_segment->blocks.copy[i]) {
            Finding finding = make(FindingKind::header_copy, offset);
            finding.note = m_first_offset != SEGMENT_START && !m_damaged;
            add(finding);
        }
        if (!m_segment->blocks.rest_is_zero[i])
            add(make(FindingKind::header_rest, offset + HEADER_BYTES));
    }
    if (!m_segment->blocks.copies_agree) add(make(FindingKind::header_copy, BLOCK_BYTES));
}

void SegmentCheck::check_size() {
    if (m_segment->bytes <= m_segment->header.bytes) return;
    Finding finding = make(FindingKind::file_size, m_segment->header.bytes);
    finding.end = m_segment->bytes;
    finding.amount = m_segment->header.bytes;
    add(finding);
}

// The directory alone, where there is one. What was cut must end with one.
void SegmentCheck::check_quickly() {
    const DirectoryView directory = look_for_directory(m_view->files(), *m_segment);
    const bool growing = m_newest && m_view->recorded();
    m_first_offset = SEGMENT_START;
    if (directory.whole) {
        m_end.known = true;
        m_end.frames = directory.entries;
        m_end.next_sequence = m_end.first_sequence + directory.entries;
    } else if (directory.ours && !growing) {
        add(make(FindingKind::directory, directory.offset));
    } else if (m_segment->bytes < m_segment->header.bytes) {
        add(make(FindingKind::no_directory, m_segment->bytes));
    }
}

// The sequence number that the next segment begins with; 0 when none follows.
uint64_t SegmentCheck::next_first_sequence() const {
    const std::vector<uint64_t>& numbers = m_view->numbers();
    for (auto it = std::upper_bound(numbers.begin(), numbers.end(), m_segment->number);
         it != numbers.end(); ++it) {
        const std::unique_ptr<OpenSegment> next = m_view->segment(*it);
        if (next->state == SegmentState::whole) return next->header.first_sequence;
    }
    return 0;
}

// Behind the last record that could be read.
void SegmentCheck::check_end(const ScanResult& scanned) {
    const int64_t size = m_view->files().size(m_segment->file);
    const uint64_t bytes = size < 0 ? m_segment->bytes : static_cast<uint64_t>(size);
    const uint64_t limit = std::min(bytes, m_segment->header.bytes);
    if (scanned.finished && scanned.end >= limit) return;
    const DirectoryView directory = look_for_directory(m_view->files(), *m_segment);
    if (directory.whole && directory.offset >= scanned.end)
        return check_lost_end(scanned, directory);
    if (!scanned.finished) return check_torn_end(scanned, directory);
    if (m_newest && m_view->recorded()) return;
    Finding finding = make(FindingKind::unused_bytes, scanned.end);
    finding.note = true;
    finding.end = limit;
    add(finding);
}

// Its first entries are those of the frames that were read; when some are damaged nobody knows.
bool SegmentCheck::names_the_frames(const DirectoryView& directory) {
    if (m_damaged) return true;
    uint32_t crc = 0;
    return directory.entries >= m_entries &&
           m_window->crc(directory.offset + RECORD_BYTES, uint64_t{m_entries} * ENTRY_BYTES, crc) &&
           crc == m_entries_crc;
}

// A whole directory ends the file, but not all before it can be read. What was cut was durable, and
// so was what the next segment goes on behind. Else the last write was interrupted, and perhaps
// repeated since.
void SegmentCheck::check_lost_end(const ScanResult& scanned, const DirectoryView& directory) {
    const bool cut = m_segment->bytes < m_segment->header.bytes;
    const bool durable = cut || next_first_sequence() >= m_end.first_sequence + directory.entries;
    if (durable && names_the_frames(directory)) {
        m_damage_start = scanned.end;
        m_damage_end = directory.offset;
        const uint64_t known = m_next - m_end.first_sequence;
        const uint64_t missing = directory.entries > known ? directory.entries - known : 0;
        tell_damage(missing);
        m_next += missing;
        return;
    }
    if (m_newest && m_view->recorded()) return;
    Finding finding = make(FindingKind::torn_end, scanned.end);
    finding.note = true;
    add(finding);
}

// The last record is no directory. A segment that is not cut may have lost its recorder, and what
// is at its end may be of the ring's last turn.
void SegmentCheck::check_torn_end(const ScanResult& scanned, const DirectoryView& directory) {
    RecordHeader record;
    const uint8_t* bytes = m_window->at(scanned.end, RECORD_BYTES);
    const bool there = bytes && read_record_header(bytes, m_seed, record);
    const bool growing = m_newest && m_view->recorded();
    const bool tail_fits =
        directory.tail && directory.offset == scanned.end && directory.entries == m_entries;
    if (growing) return;
    const bool ours_here = directory.ours && directory.offset == scanned.end;
    const bool is_directory = there && record.kind == RECORD_DIRECTORY;
    // The file is cut behind a directory as soon as that is durable.
    const bool interrupted = is_directory && !tail_fits &&
                             m_segment->bytes == m_segment->header.bytes &&
                             scanned.end + record.total_bytes() < m_segment->header.bytes;
    if (!interrupted && (tail_fits || ours_here || is_directory))
        return add(make(FindingKind::directory, scanned.end));
    Finding finding = make(FindingKind::no_directory, scanned.end);
    if (m_segment->bytes < m_segment->header.bytes) return add(finding);
    finding.note = true;
    if (there) finding = make(FindingKind::torn_end, scanned.end, record);
    finding.note = true;
    const bool ends_inside_batch = scanned.end % BLOCK_BYTES != 0;
    // A recorder leaves a segment that has no room for its directory any more.
    const bool room =
        scanned.end + 2 * BLOCK_BYTES + directory_bytes(m_entries) < m_segment->header.bytes;
    if (there || ends_inside_batch || (!m_newest && room)) add(finding);
}

}  // namespace sim
