// What a reader keeps in memory of one segment: where its frames are, when the recording had
// reached which time, and the key frames of each channel. The frames themselves stay on disk.
#ifndef SDK_DB_SEGMENT_INDEX_H
#define SDK_DB_SEGMENT_INDEX_H

#include <bitset>
#include <cstdint>
#include <vector>

#include "mainwork/qm_codec.h"
#include "sdk/db/format.h"

namespace sim {

// All (stream, channel) of a database.
inline constexpr size_t LANES = size_t{QMCODEC_STREAMS} * QMCODEC_CHANNELS;
using LaneSet = std::bitset<LANES>;
inline size_t lane_of(int stream, int channel) {
    return static_cast<size_t>(stream) * QMCODEC_CHANNELS + static_cast<size_t>(channel);
}

struct IndexEntry {
    int64_t latest_utc_us;  // of this and all frames before it
    uint32_t ahead;         // its sequence number is that of the segment's first and this
    uint32_t offset_8;      // of the record, in units of 8 bytes
    uint8_t kind;
    uint8_t stream;
    uint8_t channel;

    uint64_t offset() const { return uint64_t{offset_8} * 8; }
};

class SegmentIndex {
  public:
    void begin(const SegmentHeader& header);
    void reserve(size_t entries) { m_entries.reserve(entries); }
    // A frame; its sequence number is higher than those before it. After an exception nothing has
    // changed.
    void add(uint64_t sequence, const DirectoryEntry& frame);
    // No frame reaches beyond `offset`.
    void set_end(uint64_t offset) { m_end = offset; }

    size_t size() const { return m_entries.size(); }
    const IndexEntry& entry(size_t place) const { return m_entries[place]; }
    uint64_t sequence(size_t place) const { return m_first + m_entries[place].ahead; }
    // Where the bytes of an entry end at the latest.
    uint64_t end_of(size_t place) const;
    uint64_t end() const { return m_end; }

    // The first place whose sequence number is `sequence` or higher; size() when there is none.
    size_t at_or_behind(uint64_t sequence) const;
    // The first place whose bytes end behind `offset`; size() when there is none.
    size_t reaching_beyond(uint64_t offset) const;
    // The first place at which the recording had reached the time; size() when there is none.
    size_t at_time(int64_t utc_us) const;
    // The last key frame with a sequence number of at most `most`; the first with at least `least`.
    bool last_key(size_t lane, uint64_t most, uint64_t& sequence) const;
    bool first_key(size_t lane, uint64_t least, uint64_t& sequence) const;
    LaneSet lanes_with_keys() const;

  private:
    uint64_t m_first = 0;  // sequence number of the segment's first frame
    int64_t m_latest_utc_us = INT64_MIN;
    uint64_t m_end = 0;
    std::vector<IndexEntry> m_entries;
    std::vector<uint32_t> m_keys[LANES];  // `ahead` of the key frames
};

}  // namespace sim

#endif  // SDK_DB_SEGMENT_INDEX_H
