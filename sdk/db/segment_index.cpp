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

size_t SegmentIndex::reaching_beyond(uint64_t offset) const {
    if (offset >= m_end) return size();
    const auto behind = std::partition_point(
        m_entries.begin(), m_entries.end(),
        [offset](const IndexEntry& entry) { return entry.offset() <= offset; });
    return behind == m_entries.begin() ? 0 : static_cast<size_t>(behind - m_entries.begin()) - 1;
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

}  // namespace sim
