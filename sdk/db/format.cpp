// Writing and reading the bytes of a disk database.
#include "sdk/db/format.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "mainwork/qm_codec.h"
#include "sdk/db/crc32c.h"

namespace sim {

namespace {

constexpr char SEGMENT_MAGIC[] = "QM7105SG";
constexpr char TAIL_MAGIC[] = "QM7105DX";
constexpr uint32_t RECORD_MAGIC = 0x43524D51;  // "QMRC"

constexpr size_t SEED_START = 16;  // of the header's bytes that make the segment's seed
constexpr size_t SEED_END = 48;
constexpr size_t HEADER_CRC_OFFSET = 124;
constexpr size_t RECORD_CRC_OFFSET = 48;
constexpr size_t RECORD_OWN_CRC_OFFSET = 52;

template <class Word>
void put(uint8_t* out, Word value) {
    for (size_t i = 0; i < sizeof(Word); ++i)
        out[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
}

template <class Word>
Word get(const uint8_t* in) {
    uint64_t value = 0;
    for (size_t i = 0; i < sizeof(Word); ++i) value |= uint64_t{in[i]} << (8 * i);
    return static_cast<Word>(value);
}

void put_seed_fields(const SegmentHeader& header, uint8_t* out) {
    memcpy(out + 16, header.database.bytes, sizeof header.database.bytes);
    put(out + 32, header.identity);
    put(out + 40, header.number);
}

bool valid_size(uint64_t bytes) {
    return bytes >= MIN_SEGMENT_BYTES && bytes <= MAX_SEGMENT_BYTES && bytes % BLOCK_BYTES == 0;
}

bool sensible(const RecordHeader& header) {
    if (header.bytes > MAX_SEGMENT_BYTES || header.flags > FLAG_FIRST_OF_BATCH ||
        header.sequence > MAX_SEQUENCE || header.run > MAX_RUN)
        return false;
    if (!header.is_frame()) return header.kind <= RECORD_DIRECTORY;
    return header.kind <= static_cast<uint8_t>(FrameKind::audio) &&
           header.stream < QMCODEC_STREAMS && header.channel < QMCODEC_CHANNELS;
}

}  // namespace

uint32_t SegmentHeader::seed() const {
    uint8_t head[SEED_END] = {};
    put_seed_fields(*this, head);
    return crc32c(0, head + SEED_START, SEED_END - SEED_START);
}

void write_segment_header(const SegmentHeader& header, uint8_t* out) {
    memset(out, 0, SEGMENT_START);
    memcpy(out, SEGMENT_MAGIC, 8);
    put(out + 8, FORMAT_VERSION);
    put(out + 12, static_cast<uint32_t>(BLOCK_BYTES));
    put_seed_fields(header, out);
    put(out + 48, header.bytes);
    put(out + 56, header.first_sequence);
    put(out + 64, header.utc_us);
    put(out + 72, header.mono_us);
    put(out + 80, header.latest_utc_us);
    put(out + 88, header.run);
    put(out + HEADER_CRC_OFFSET, crc32c(0, out, HEADER_CRC_OFFSET));
    memcpy(out + BLOCK_BYTES, out, HEADER_BYTES);
}

bool read_segment_header(const uint8_t* in, SegmentHeader& header) {
    if (memcmp(in, SEGMENT_MAGIC, 8) != 0 || get<uint32_t>(in + 8) != FORMAT_VERSION ||
        get<uint32_t>(in + 12) != BLOCK_BYTES ||
        get<uint32_t>(in + HEADER_CRC_OFFSET) != crc32c(0, in, HEADER_CRC_OFFSET))
        return false;
    memcpy(header.database.bytes, in + 16, sizeof header.database.bytes);
    header.identity = get<uint64_t>(in + 32);
    header.number = get<uint64_t>(in + 40);
    header.bytes = get<uint64_t>(in + 48);
    header.first_sequence = get<uint64_t>(in + 56);
    header.utc_us = get<int64_t>(in + 64);
    header.mono_us = get<int64_t>(in + 72);
    header.latest_utc_us = get<int64_t>(in + 80);
    header.run = get<uint32_t>(in + 88);
    return valid_size(header.bytes) && header.number > 0 && header.number <= MAX_SEGMENT_NUMBER &&
           header.first_sequence <= MAX_SEQUENCE && header.run <= MAX_RUN;
}

void seal_record(const RecordHeader& header, uint32_t seed, uint8_t* record) {
    put(record, RECORD_MAGIC);
    put(record + 4, header.bytes);
    record[8] = header.kind;
    record[9] = header.stream;
    record[10] = header.channel;
    record[11] = header.flags;
    put(record + 12, header.frame_number);
    put(record + 16, header.sequence);
    put(record + 24, header.utc_us);
    put(record + 32, header.mono_us);
    put(record + 40, header.run);
    put(record + 44, header.hole);
    const size_t filled = static_cast<size_t>(header.total_bytes()) - RECORD_BYTES;
    put(record + RECORD_CRC_OFFSET,
        crc32c(record_crc_start(record, seed), record + RECORD_BYTES, filled));
    put(record + RECORD_OWN_CRC_OFFSET, crc32c(seed, record, RECORD_OWN_CRC_OFFSET));
}

bool read_record_header(const uint8_t* in, uint32_t seed, RecordHeader& header) {
    if (get<uint32_t>(in) != RECORD_MAGIC ||
        get<uint32_t>(in + RECORD_OWN_CRC_OFFSET) != crc32c(seed, in, RECORD_OWN_CRC_OFFSET))
        return false;
    header.bytes = get<uint32_t>(in + 4);
    header.kind = in[8];
    header.stream = in[9];
    header.channel = in[10];
    header.flags = in[11];
    header.frame_number = get<uint32_t>(in + 12);
    header.sequence = get<uint64_t>(in + 16);
    header.utc_us = get<int64_t>(in + 24);
    header.mono_us = get<int64_t>(in + 32);
    header.run = get<uint32_t>(in + 40);
    header.hole = get<uint32_t>(in + 44);
    header.crc = get<uint32_t>(in + RECORD_CRC_OFFSET);
    return sensible(header);
}

uint32_t record_crc_start(const uint8_t* record, uint32_t seed) {
    return crc32c(seed, record, RECORD_CRC_OFFSET);
}

void write_entry(const DirectoryEntry& entry, uint8_t* out) {
    put(out, entry.utc_us);
    put(out + 8, entry.offset_8);
    out[12] = entry.kind;
    out[13] = entry.stream;
    out[14] = entry.channel;
    out[15] = 0;
}

DirectoryEntry read_entry(const uint8_t* in) {
    return {get<int64_t>(in), get<uint32_t>(in + 8), in[12], in[13], in[14]};
}

void write_tail(uint32_t entries, uint64_t record_offset, uint8_t* out) {
    put(out, entries);
    put(out + 4, static_cast<uint32_t>(record_offset / 8));
    memcpy(out + 8, TAIL_MAGIC, 8);
}

bool read_tail(const uint8_t* in, uint32_t& entries, uint64_t& record_offset) {
    entries = get<uint32_t>(in);
    record_offset = uint64_t{get<uint32_t>(in + 4)} * 8;
    return memcmp(in + 8, TAIL_MAGIC, 8) == 0;
}

std::string segment_name(const std::string& ini_name, uint64_t number) {
    char digits[32];
    snprintf(digits, sizeof digits, ".%010" PRIu64 ".seg", number);
    return ini_name + digits;
}

std::string lock_name(const std::string& ini_name) { return ini_name + ".lock"; }
std::string new_ini_name(const std::string& ini_name) { return ini_name + ".new"; }
std::string probe_name(const std::string& ini_name) { return ini_name + ".probe"; }

uint64_t segment_number(const std::string& ini_name, const std::string& name) {
    constexpr size_t DIGITS = 10;
    if (name.size() != ini_name.size() + DIGITS + 5) return 0;
    uint64_t number = 0;
    for (size_t i = 0; i < DIGITS; ++i) {
        const char digit = name[ini_name.size() + 1 + i];
        if (digit < '0' || digit > '9') return 0;
        number = number * 10 + static_cast<uint64_t>(digit - '0');
    }
    return name == segment_name(ini_name, number) ? number : 0;
}

std::string to_text(const Identity& identity) {
    std::string text;
    for (const uint8_t byte : identity.bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

std::string ini_text(const DatabaseIni& ini) {
    std::string text =
        "; A stream database. The recordings are in the numbered .seg files beside this file.\n"
        "[DATABASE]\n";
    char line[128];
    snprintf(line, sizeof line, "format = %u\nidentity = ", FORMAT_VERSION);
    text += line + to_text(ini.identity);
    snprintf(line, sizeof line, "\nsegment_bytes = %" PRIu64 "\nring_segments = %" PRIu64 "\n",
             ini.segment_bytes, ini.ring_segments);
    text += line;
    snprintf(line, sizeof line, "checksum = %08x\n", crc32c(0, text.data(), text.size()));
    return text + line;
}

// Whatever is not byte for byte what ini_text makes of the values is damaged. With at most
// MAX_SEGMENT_NUMBER segments of MAX_SEGMENT_BYTES the size of the ring is a 64-bit number.
bool parse_ini(const std::string& text, DatabaseIni& ini) {
    const size_t start = text.find("identity = ");
    if (start == std::string::npos) return false;
    char digits[33] = {};
    DatabaseIni found;
    if (sscanf(text.c_str() + start,
               "identity = %32[0-9a-f]\n"
               "segment_bytes = %20" SCNu64 "\nring_segments = %20" SCNu64,
               digits, &found.segment_bytes, &found.ring_segments) != 3)
        return false;
    for (size_t i = 0; i < sizeof found.identity.bytes; ++i) {
        unsigned byte = 0;
        if (sscanf(digits + 2 * i, "%2x", &byte) != 1) return false;
        found.identity.bytes[i] = static_cast<uint8_t>(byte);
    }
    if (text != ini_text(found) || !valid_size(found.segment_bytes) || found.ring_segments == 0 ||
        found.ring_segments > MAX_SEGMENT_NUMBER)
        return false;
    ini = found;
    return true;
}

}  // namespace sim
