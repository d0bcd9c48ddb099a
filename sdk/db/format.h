// The bytes of a disk database: the only place that knows an offset. docs/stream-database.md has
// the layout. What the records are for stands in disk_writer and disk_reader.
#ifndef SDK_DB_FORMAT_H
#define SDK_DB_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "sdk/video/frame.h"

namespace sim {

inline constexpr uint32_t FORMAT_VERSION = 1;
inline constexpr size_t BLOCK_BYTES = 4096;
inline constexpr size_t SEGMENT_START = 2 * BLOCK_BYTES;  // of the records
inline constexpr size_t HEADER_BYTES = 128;               // of a segment
inline constexpr size_t RECORD_BYTES = 56;                // of a record before its payload
inline constexpr size_t ENTRY_BYTES = 16;                 // of a directory
inline constexpr size_t TAIL_BYTES = 16;
inline constexpr uint64_t MAX_SEGMENT_NUMBER = 9'999'999'999;
inline constexpr uint64_t MIN_SEGMENT_BYTES = 64 * 1024;
inline constexpr uint64_t MAX_SEGMENT_BYTES = uint64_t{1} << 30;
// What goes on counting behind these never wraps.
inline constexpr uint64_t MAX_SEQUENCE = uint64_t{1} << 62;
inline constexpr uint32_t MAX_RUN = uint32_t{1} << 31;

struct Identity {
    uint8_t bytes[16] = {};
    bool operator==(const Identity&) const = default;
};

struct SegmentHeader {
    Identity database;
    uint64_t identity = 0;
    uint64_t number = 0;
    uint64_t bytes = 0;
    uint64_t first_sequence = 0;
    int64_t utc_us = 0;
    int64_t mono_us = 0;
    int64_t latest_utc_us = 0;  // in all records before the segment
    uint32_t run = 0;

    // What the checksums of the segment's records begin with.
    uint32_t seed() const;
};

enum : uint8_t { RECORD_PAD = 64, RECORD_DIRECTORY = 65 };  // beside those of FrameKind
enum : uint8_t { FLAG_FIRST_OF_BATCH = 1 };

// Of a whole record in its segment, a multiple of 8.
inline uint64_t record_bytes(uint64_t payload) {
    return RECORD_BYTES + ((payload + 7) & ~uint64_t{7});
}

struct RecordHeader {
    uint32_t bytes = 0;  // of the payload
    uint8_t kind = 0;
    uint8_t stream = 0;
    uint8_t channel = 0;
    uint8_t flags = 0;
    uint32_t frame_number = 0;
    uint64_t sequence = 0;
    int64_t utc_us = 0;
    int64_t mono_us = 0;
    uint32_t run = 0;
    uint32_t hole = 0;
    uint32_t crc = 0;  // read from the record; written by seal_record

    bool is_frame() const { return kind < RECORD_PAD; }
    bool first_of_batch() const { return flags & FLAG_FIRST_OF_BATCH; }
    uint64_t total_bytes() const { return record_bytes(bytes); }
};

struct DirectoryEntry {
    int64_t utc_us;
    uint32_t offset_8;  // of the record, in units of 8 bytes
    uint8_t kind;
    uint8_t stream;
    uint8_t channel;
};

inline uint64_t round_up_to_block(uint64_t offset) {
    return (offset + BLOCK_BYTES - 1) / BLOCK_BYTES * BLOCK_BYTES;
}

// Fills both header blocks, SEGMENT_START bytes.
void write_segment_header(const SegmentHeader& header, uint8_t* out);
// From the HEADER_BYTES at the start of either block. False when they are no header of this format.
bool read_segment_header(const uint8_t* in, SegmentHeader& header);

// A record is written in place: its header over the RECORD_BYTES before its payload, which must
// already be filled with zeros up to total_bytes(). All checksums begin with `seed`.
void seal_record(const RecordHeader& header, uint32_t seed, uint8_t* record);
// The header alone: its own checksum holds and its fields make sense. The payload is not looked at.
bool read_record_header(const uint8_t* in, uint32_t seed, RecordHeader& header);
// The checksum of a record up to its payload, to go on with the filled payload; the result must be
// header.crc.
uint32_t record_crc_start(const uint8_t* record, uint32_t seed);

void write_entry(const DirectoryEntry& entry, uint8_t* out);
DirectoryEntry read_entry(const uint8_t* in);
void write_tail(uint32_t entries, uint64_t record_offset, uint8_t* out);
// False when the bytes are no tail.
bool read_tail(const uint8_t* in, uint32_t& entries, uint64_t& record_offset);
// Of the payload of a directory of so many entries.
inline uint64_t directory_bytes(uint64_t entries) { return entries * ENTRY_BYTES + TAIL_BYTES; }

// The names of a database's files, from the name of its .ini file.
std::string segment_name(const std::string& ini_name, uint64_t number);
std::string lock_name(const std::string& ini_name);
std::string new_ini_name(const std::string& ini_name);
std::string probe_name(const std::string& ini_name);
// The number of a segment's file; 0 for any other name.
uint64_t segment_number(const std::string& ini_name, const std::string& name);

// What the .ini file says.
struct DatabaseIni {
    Identity identity;
    uint64_t segment_bytes = 0;
    uint64_t ring_segments = 0;
};
inline constexpr size_t MAX_INI_BYTES = 4096;
std::string ini_text(const DatabaseIni& ini);
// False, and `ini` is as before, when it is damaged or of another format.
bool parse_ini(const std::string& text, DatabaseIni& ini);

std::string to_text(const Identity& identity);  // 32 hexadecimal digits

}  // namespace sim

#endif  // SDK_DB_FORMAT_H
