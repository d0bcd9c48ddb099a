// The index of a segment, and how it is taken from the segment's directory.
#include "sdk/db/segment_index.h"

#include <algorithm>

#include "sdk/video/frame.h"

namespace sim {

void SegmentIndex::begin(const SegmentHeader& header) {
    m_first = header.first_sequence;
    m_latest_utc_us = header.latest_utc_us;
    m_end = SEGMENT_START;
    m_entries.clear();
    for (std::vector<uint32_t>& keys : m_keys) keys.clear();
}

// A distance that fits no entry is none of a segment's: its frames are fewer.
void SegmentIndex::add(uint64_t sequence, const DirectoryEntry& frame) {
    if (sequence - m_first > UINT32_MAX) return;
    const auto ahead = static_cast<uint32_t>(sequence - m_first);
    const int64_t latest = std::max(m_latest_utc_us, frame.utc_us);
    m_entries.push_back({latest, ahead, frame.offset_8, frame.kind, frame.stream, frame.channel});
    if (is_key(static_cast<FrameKind>(frame.kind))) {
        try {
            m_keys[lane_of(frame.stream, frame.channel)].push_back(ahead);
        } catch (...) {
            m_entries.pop_back();
            throw;
        }
    }
    m_latest_utc_us = latest;
}

uint64_t SegmentIndex::end_of(size_t place) const {
    return place + 1 < m_entries.size() ? m_entries[place + 1].offset() : m_end;
}

size_t SegmentIndex::at_or_behind(uint64_t sequence) const {
    if (sequence <= m_first) return 0;
    const uint64_t ahead = sequence - m_first;
    // Where no frame is missing it is found at once.
    if (ahead < m_entries.size() && m_entries[static_cast<size_t>(ahead)].ahead == ahead)
        return static_cast<size_t>(ahead);
    const auto found =
        std::partition_point(m_entries.begin(), m_entries.end(),
                             [ahead](const IndexEntry& entry) { return entry.ahead < ahead; });
    return static_cast<size_t>(found - m_entries.begin());
}

size_t SegmentIndex::at_time(int64_t utc_us) const {
    const auto found = std::partition_point(
        m_entries.begin(), m_entries.end(),
        [utc_us](const IndexEntry& entry) { return entry.latest_utc_us < utc_us; });
    return static_cast<size_t>(found - m_entries.begin());
}

bool SegmentIndex::last_key(size_t lane, uint64_t most, uint64_t& sequence) const {
    if (most < m_first) return false;
    const std::vector<uint32_t>& keys = m_keys[lane];
    const auto behind = std::upper_bound(keys.begin(), keys.end(), most - m_first);
    if (behind == keys.begin()) return false;
    sequence = m_first + *(behind - 1);
    return true;
}

bool SegmentIndex::first_key(size_t lane, uint64_t least, uint64_t& sequence) const {
    const uint64_t ahead = least > m_first ? least - m_first : 0;
    const std::vector<uint32_t>& keys = m_keys[lane];
    const auto found = std::lower_bound(keys.begin(), keys.end(), ahead);
    if (found == keys.end()) return false;
    sequence = m_first + *found;
    return true;
}

LaneSet SegmentIndex::lanes_with_keys() const {
    LaneSet lanes;
    for (size_t lane = 0; lane < LANES; ++lane) lanes[lane] = !m_keys[lane].empty();
    return lanes;
}

namespace {

struct Directory {
    RecordHeader record;
    uint64_t offset = 0;
    uint32_t entries = 0;
};

// Where the directory begins, and that it ends where the file ends and its checksum holds.
bool find_directory(FileWindow& window, uint64_t file_bytes, const SegmentHeader& header,
                    Directory& out) {
    if (file_bytes > header.bytes || file_bytes < SEGMENT_START + RECORD_BYTES + TAIL_BYTES)
        return false;
    const uint8_t* tail = window.at(file_bytes - TAIL_BYTES, TAIL_BYTES);
    if (!tail || !read_tail(tail, out.entries, out.offset)) return false;
    if (out.offset < SEGMENT_START || out.offset >= file_bytes) return false;
    const uint32_t seed = header.seed();
    const uint8_t* bytes = window.at(out.offset, RECORD_BYTES);
    if (!bytes || !read_record_header(bytes, seed, out.record)) return false;
    if (out.record.kind != RECORD_DIRECTORY || out.record.bytes != directory_bytes(out.entries) ||
        header.first_sequence >= UINT64_MAX - out.entries ||
        out.record.sequence != header.first_sequence + out.entries ||
        out.record.total_bytes() != file_bytes - out.offset)
        return false;
    uint32_t crc = record_crc_start(bytes, seed);
    const uint64_t filled = out.record.total_bytes() - RECORD_BYTES;
    return window.crc(out.offset + RECORD_BYTES, filled, crc) && crc == out.record.crc;
}

bool sensible(const DirectoryEntry& entry) {
    return entry.kind <= static_cast<uint8_t>(FrameKind::audio) && entry.stream < QMCODEC_STREAMS &&
           entry.channel < QMCODEC_CHANNELS;
}

bool read_entries(FileWindow& window, const Directory& directory, const SegmentHeader& header,
                  SegmentIndex& index, ScanResult& known) {
    index.reserve(directory.entries);
    uint64_t least = SEGMENT_START;  // offset of the next frame
    for (uint32_t i = 0; i < directory.entries; ++i) {
        const uint8_t* bytes =
            window.at(directory.offset + RECORD_BYTES + uint64_t{i} * ENTRY_BYTES, ENTRY_BYTES);
        if (!bytes) return false;
        const DirectoryEntry entry = read_entry(bytes);
        const uint64_t offset = uint64_t{entry.offset_8} * 8;
        if (!sensible(entry) || offset < least || offset + RECORD_BYTES > directory.offset)
            return false;
        least = offset + RECORD_BYTES;
        index.add(header.first_sequence + i, entry);
        known.latest_utc_us = std::max(known.latest_utc_us, entry.utc_us);
    }
    return true;
}

// What a scan would know of the last frame besides.
bool read_last(FileWindow& window, const SegmentHeader& header, const SegmentIndex& index,
               ScanResult& known) {
    if (index.size() == 0) return true;
    const uint8_t* bytes = window.at(index.entry(index.size() - 1).offset(), RECORD_BYTES);
    return bytes && read_record_header(bytes, header.seed(), known.last) && known.last.is_frame() &&
           known.last.sequence + 1 == known.next_sequence;
}

}  // namespace

bool load_directory(FileSystem& files, int file, const SegmentHeader& header, SegmentIndex& index,
                    ScanResult& known) {
    index.begin(header);
    const int64_t file_bytes = files.size(file);
    if (file_bytes < 0) return false;
    FileWindow window(files, file);
    Directory directory;
    known = {};
    known.latest_utc_us = header.latest_utc_us;
    if (find_directory(window, static_cast<uint64_t>(file_bytes), header, directory)) {
        known.end = static_cast<uint64_t>(file_bytes);
        known.next_sequence = directory.record.sequence;
        known.frames = directory.entries;
        known.finished = true;
        if (read_entries(window, directory, header, index, known) &&
            read_last(window, header, index, known)) {
            index.set_end(directory.offset);
            return true;
        }
    }
    index.begin(header);
    return false;
}

}  // namespace sim
