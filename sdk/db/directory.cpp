// Reading the directory of a segment.
#include "sdk/db/directory.h"

#include <memory>

#include "sdk/db/crc32c.h"

namespace sim {

namespace {

// Where the directory record begins; 0 when the file does not end with one.
uint64_t find_record(FileSystem& files, int file, const SegmentHeader& header, uint64_t end,
                     uint32_t& entries) {
    uint8_t tail[TAIL_BYTES];
    uint64_t offset = 0;
    if (files.read(file, tail, sizeof tail, end - sizeof tail) != TAIL_BYTES ||
        !read_tail(tail, entries, offset))
        return 0;
    const bool inside = offset >= SEGMENT_START && end <= header.bytes &&
                        entries <= header.bytes / RECORD_BYTES &&
                        offset + RECORD_BYTES + directory_bytes(entries) == end;
    return inside ? offset : 0;
}

bool whole(const uint8_t* record, uint64_t size, const SegmentHeader& header, uint32_t entries) {
    const uint32_t seed = header.seed();
    RecordHeader own;
    return read_record_header(record, seed, own) && own.kind == RECORD_DIRECTORY &&
           own.bytes == directory_bytes(entries) && own.total_bytes() == size &&
           own.sequence == header.first_sequence + entries &&
           crc32c(record_crc_start(record, seed), record + RECORD_BYTES, size - RECORD_BYTES) ==
               own.crc;
}

}  // namespace

uint64_t load_directory(FileSystem& files, int file, const SegmentHeader& header,
                        std::vector<DirectoryEntry>& entries) {
    entries.clear();
    const int64_t size = files.size(file);
    if (size < static_cast<int64_t>(SEGMENT_START + RECORD_BYTES + TAIL_BYTES)) return 0;
    const uint64_t end = static_cast<uint64_t>(size);
    uint32_t count = 0;
    const uint64_t offset = find_record(files, file, header, end, count);
    if (offset == 0) return 0;
    const size_t bytes = static_cast<size_t>(end - offset);
    const std::unique_ptr<uint8_t[]> record(new uint8_t[bytes]);
    if (files.read(file, record.get(), bytes, offset) != static_cast<int64_t>(bytes) ||
        !whole(record.get(), bytes, header, count))
        return 0;
    entries.reserve(count);
    uint64_t least = SEGMENT_START;
    for (uint32_t i = 0; i < count; ++i) {
        entries.push_back(read_entry(record.get() + RECORD_BYTES + i * ENTRY_BYTES));
        const uint64_t at = uint64_t{entries.back().offset_8} * 8;
        if (at < least || at >= offset) {
            entries.clear();
            return 0;
        }
        least = at + RECORD_BYTES;
    }
    return end;
}

}  // namespace sim
