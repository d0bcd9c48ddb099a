// Reading the directory of a segment.
#include "sdk/db/directory.h"

#include <algorithm>

#include "mainwork/qm_codec.h"
#include "sdk/db/crc32c.h"

namespace sim {

namespace {

struct Directory {
    RecordHeader record;
    uint64_t offset = 0;
    uint32_t entries = 0;
};

uint64_t offset_of(const DirectoryEntry& entry) { return uint64_t{entry.offset_8} * 8; }

bool whole_record(FileWindow& window, uint64_t offset, uint32_t seed, RecordHeader& record) {
    const uint8_t* bytes = window.at(offset, RECORD_BYTES);
    if (!bytes || !read_record_header(bytes, seed, record)) return false;
    uint32_t crc = record_crc_start(bytes, seed);
    return window.crc(offset + RECORD_BYTES, record.total_bytes() - RECORD_BYTES, crc) &&
           crc == record.crc;
}

// Where the directory begins, and that it ends where the file ends and its checksum holds.
bool find_directory(FileWindow& window, uint64_t file_bytes, const SegmentHeader& header,
                    Directory& out) {
    if (file_bytes > header.bytes || file_bytes < SEGMENT_START + RECORD_BYTES + TAIL_BYTES)
        return false;
    const uint8_t* tail = window.at(file_bytes - TAIL_BYTES, TAIL_BYTES);
    if (!tail || !read_tail(tail, out.entries, out.offset)) return false;
    return out.offset >= SEGMENT_START && out.offset < file_bytes &&
           header.first_sequence < UINT64_MAX - out.entries &&
           whole_record(window, out.offset, header.seed(), out.record) &&
           out.record.kind == RECORD_DIRECTORY &&
           out.record.bytes == directory_bytes(out.entries) &&
           out.record.sequence == header.first_sequence + out.entries &&
           out.record.total_bytes() == file_bytes - out.offset;
}

bool sensible(const DirectoryEntry& entry) {
    return entry.kind <= static_cast<uint8_t>(FrameKind::audio) && entry.stream < QMCODEC_STREAMS &&
           entry.channel < QMCODEC_CHANNELS;
}

bool read_entries(FileWindow& window, const Directory& directory,
                  std::vector<DirectoryEntry>& entries, ScanResult& known) {
    entries.reserve(directory.entries);
    uint64_t least = SEGMENT_START;  // offset of the next frame
    for (uint32_t i = 0; i < directory.entries; ++i) {
        const uint8_t* bytes =
            window.at(directory.offset + RECORD_BYTES + uint64_t{i} * ENTRY_BYTES, ENTRY_BYTES);
        if (!bytes) return false;
        const DirectoryEntry entry = read_entry(bytes);
        if (!sensible(entry) || offset_of(entry) < least ||
            offset_of(entry) + RECORD_BYTES > directory.offset)
            return false;
        least = offset_of(entry) + RECORD_BYTES;
        entries.push_back(entry);
        known.latest_utc_us = std::max(known.latest_utc_us, entry.utc_us);
    }
    return true;
}

// What a scan would know of the last frame besides.
bool read_last(FileWindow& window, uint32_t seed, const std::vector<DirectoryEntry>& entries,
               ScanResult& known) {
    if (entries.empty()) return true;
    const uint8_t* bytes = window.at(offset_of(entries.back()), RECORD_BYTES);
    return bytes && read_record_header(bytes, seed, known.last) && known.last.is_frame() &&
           known.last.sequence + 1 == known.next_sequence;
}

bool names(const DirectoryEntry& entry, const RecordHeader& record, uint64_t offset) {
    return offset_of(entry) == offset && entry.utc_us == record.utc_us &&
           entry.kind == record.kind && entry.stream == record.stream &&
           entry.channel == record.channel;
}

// From the last frame that begins a batch on, or from the segment's start, record follows record up
// to the directory, and it names them: not those of a write that was interrupted before.
bool last_batch_whole(FileWindow& window, uint32_t seed, const std::vector<DirectoryEntry>& entries,
                      const Directory& directory) {
    uint64_t offset = SEGMENT_START;
    RecordHeader record;
    size_t next = entries.size();
    while (next > 0 && offset == SEGMENT_START) {
        if (offset_of(entries[--next]) % BLOCK_BYTES != 0) continue;  // begins no batch
        const uint8_t* bytes = window.at(offset_of(entries[next]), RECORD_BYTES);
        if (!bytes || !read_record_header(bytes, seed, record)) return false;
        if (record.first_of_batch()) offset = offset_of(entries[next]);
    }
    while (offset < directory.offset) {
        if (!whole_record(window, offset, seed, record)) return false;
        if (record.is_frame() &&
            (next == entries.size() || !names(entries[next++], record, offset) ||
             record.run > directory.record.run))
            return false;
        offset += record.total_bytes();
    }
    return offset == directory.offset && next == entries.size();
}

}  // namespace

bool load_directory(FileSystem& files, int file, const SegmentHeader& header,
                    std::vector<DirectoryEntry>& entries, ScanResult& known) {
    entries.clear();
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
        if (read_entries(window, directory, entries, known) &&
            read_last(window, header.seed(), entries, known) &&
            last_batch_whole(window, header.seed(), entries, directory))
            return true;
    }
    entries.clear();
    return false;
}

}  // namespace sim
