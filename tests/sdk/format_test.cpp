// The bytes of a disk database, compared with bytes put together from the tables of its page
// (docs/stream-database.md), and what is refused.
#include "sdk/db/format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace sim;
using Bytes = std::vector<uint8_t>;

// CRC-32C bit by bit, straight from its definition.
uint32_t crc_by_bits(uint32_t seed, const Bytes& bytes) {
    uint32_t state = ~seed;
    for (const uint8_t byte : bytes) {
        state ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            state = (state & 1) ? (state >> 1) ^ 0x82f63b78u : state >> 1;
    }
    return ~state;
}

Bytes part(const Bytes& bytes, size_t from, size_t to) {
    return {bytes.begin() + static_cast<ptrdiff_t>(from),
            bytes.begin() + static_cast<ptrdiff_t>(to)};
}

Bytes joined(const Bytes& first, const Bytes& second) {
    Bytes bytes(first.size() + second.size());
    std::copy(second.begin(), second.end(), std::copy(first.begin(), first.end(), bytes.begin()));
    return bytes;
}

void append_crc(Bytes& bytes, uint32_t crc) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(crc >> shift));
}

SegmentHeader sample_header() {
    SegmentHeader header;
    for (uint8_t i = 0; i < 16; ++i) header.database.bytes[i] = static_cast<uint8_t>(0xa0 + i);
    header.identity = 0x1122334455667788;
    header.number = 0x0000000254030201;  // below 9,999,999,999, 0x2540be3ff
    header.bytes = 0x01000000;
    header.first_sequence = 0x0102030405060708;
    header.utc_us = 0x0006123456789abc;
    header.mono_us = -2;
    header.latest_utc_us = 0x0007fedcba987654;
    header.run = 0x4afe0102;
    return header;
}

// clang-format off
Bytes sample_header_bytes() {
    Bytes bytes = {
        'Q', 'M', '7', '1', '0', '5', 'S', 'G',
        1, 0, 0, 0,
        0, 0x10, 0, 0,
        0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xab, 0xac, 0xad, 0xae, 0xaf,
        0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,
        0x01, 0x02, 0x03, 0x54, 0x02, 0, 0, 0,
        0, 0, 0, 0x01, 0, 0, 0, 0,
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,
        0xbc, 0x9a, 0x78, 0x56, 0x34, 0x12, 0x06, 0x00,
        0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
        0x54, 0x76, 0x98, 0xba, 0xdc, 0xfe, 0x07, 0x00,
        0x02, 0x01, 0xfe, 0x4a};
    bytes.resize(124);
    append_crc(bytes, crc_by_bits(0, bytes));
    return bytes;
}
// clang-format on

TEST(SegmentHeader, IsWrittenTwiceAsThePageSays) {
    Bytes expected = sample_header_bytes();
    expected.resize(4096);
    expected = joined(expected, expected);
    Bytes written(8192, 0xee);
    write_segment_header(sample_header(), written.data());
    EXPECT_EQ(written, expected);
}

TEST(SegmentHeader, IsReadBack) {
    SegmentHeader header;
    ASSERT_TRUE(read_segment_header(sample_header_bytes().data(), header));
    const SegmentHeader expected = sample_header();
    EXPECT_EQ(header.database, expected.database);
    EXPECT_EQ(header.identity, expected.identity);
    EXPECT_EQ(header.number, expected.number);
    EXPECT_EQ(header.bytes, expected.bytes);
    EXPECT_EQ(header.first_sequence, expected.first_sequence);
    EXPECT_EQ(header.utc_us, expected.utc_us);
    EXPECT_EQ(header.mono_us, expected.mono_us);
    EXPECT_EQ(header.latest_utc_us, expected.latest_utc_us);
    EXPECT_EQ(header.run, expected.run);
}

TEST(SegmentHeader, MakesItsSeedOfItsIdentitiesAndNumber) {
    EXPECT_EQ(sample_header().seed(), crc_by_bits(0, part(sample_header_bytes(), 16, 48)));
}

TEST(SegmentHeader, IsRefusedWithAnyBitFlipped) {
    Bytes bytes = sample_header_bytes();
    SegmentHeader header;
    for (size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        bytes[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
        EXPECT_FALSE(read_segment_header(bytes.data(), header)) << "bit " << bit;
        bytes[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
    }
    EXPECT_TRUE(read_segment_header(bytes.data(), header));
}

// Whether the sample's header is read with `value` in place of the byte at `at`, the checksum made
// right again.
bool header_read_with(size_t at, uint8_t value) {
    Bytes bytes = part(sample_header_bytes(), 0, 124);
    bytes[at] = value;
    append_crc(bytes, crc_by_bits(0, bytes));
    SegmentHeader header;
    return read_segment_header(bytes.data(), header);
}

TEST(SegmentHeader, IsRefusedWhenItIsNotOfThisFormatAlthoughItsChecksumHolds) {
    EXPECT_TRUE(header_read_with(50, 1));    // another whole number of blocks
    EXPECT_FALSE(header_read_with(7, 'H'));  // the name of the format
    EXPECT_FALSE(header_read_with(8, 2));    // its version
    EXPECT_FALSE(header_read_with(13, 0x20));
    EXPECT_FALSE(header_read_with(49, 0x08));  // no whole number of blocks
    EXPECT_FALSE(header_read_with(51, 0));     // 0 bytes
    EXPECT_FALSE(header_read_with(51, 0x41));  // more than 1 GiB
    EXPECT_FALSE(header_read_with(44, 3));     // a number of eleven digits
    EXPECT_FALSE(header_read_with(63, 0x41));  // a sequence number above 2^62
    EXPECT_FALSE(header_read_with(91, 0x81));  // a run above 2^31
}

constexpr uint32_t SEED = 0x5eed5eed;

RecordHeader sample_record() {
    RecordHeader header;
    header.bytes = 5;
    header.kind = 1;
    header.stream = 2;
    header.channel = 15;
    header.flags = FLAG_FIRST_OF_BATCH;
    header.frame_number = 0x01020304;
    header.sequence = 0x1112131415161718;
    header.utc_us = 0x0006123456789abc;
    header.mono_us = 0x2122232425262728;
    header.run = 0x31323334;
    header.hole = 0x00003000;
    return header;
}

// clang-format off
const Bytes SAMPLE_FIELDS = {
    'Q', 'M', 'R', 'C',
    5, 0, 0, 0,
    1, 2, 15, 1,
    0x04, 0x03, 0x02, 0x01,
    0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,
    0xbc, 0x9a, 0x78, 0x56, 0x34, 0x12, 0x06, 0x00,
    0x28, 0x27, 0x26, 0x25, 0x24, 0x23, 0x22, 0x21,
    0x34, 0x33, 0x32, 0x31,
    0x00, 0x30, 0x00, 0x00};
// clang-format on
const Bytes SAMPLE_PAYLOAD = {'f', 'r', 'a', 'm', 'e', 0, 0, 0};

// The 48 bytes of `fields`, both checksums and the filled payload.
Bytes record_of(const Bytes& fields, const Bytes& filled_payload, uint32_t seed) {
    Bytes head = fields;
    append_crc(head, crc_by_bits(seed, joined(fields, filled_payload)));
    append_crc(head, crc_by_bits(seed, head));
    return joined(head, filled_payload);
}

TEST(Record, IsWrittenAsThePageSays) {
    ASSERT_EQ(SAMPLE_FIELDS.size(), 48u);
    Bytes written = joined(Bytes(56, 0xee), SAMPLE_PAYLOAD);
    ASSERT_EQ(sample_record().total_bytes(), written.size());
    seal_record(sample_record(), SEED, written.data());
    EXPECT_EQ(written, record_of(SAMPLE_FIELDS, SAMPLE_PAYLOAD, SEED));
}

TEST(Record, IsReadBack) {
    const Bytes bytes = record_of(SAMPLE_FIELDS, SAMPLE_PAYLOAD, SEED);
    RecordHeader header;
    ASSERT_TRUE(read_record_header(bytes.data(), SEED, header));
    const RecordHeader expected = sample_record();
    EXPECT_EQ(header.bytes, expected.bytes);
    EXPECT_EQ(header.kind, expected.kind);
    EXPECT_EQ(header.stream, expected.stream);
    EXPECT_EQ(header.channel, expected.channel);
    EXPECT_EQ(header.flags, expected.flags);
    EXPECT_EQ(header.frame_number, expected.frame_number);
    EXPECT_EQ(header.sequence, expected.sequence);
    EXPECT_EQ(header.utc_us, expected.utc_us);
    EXPECT_EQ(header.mono_us, expected.mono_us);
    EXPECT_EQ(header.run, expected.run);
    EXPECT_EQ(header.hole, expected.hole);
    EXPECT_TRUE(header.is_frame());
    EXPECT_TRUE(header.first_of_batch());
    EXPECT_EQ(record_crc_start(bytes.data(), SEED), crc_by_bits(SEED, SAMPLE_FIELDS));
    EXPECT_EQ(header.crc, crc_by_bits(SEED, joined(SAMPLE_FIELDS, SAMPLE_PAYLOAD)));
}

TEST(Record, IsRefusedWithAnyBitOfItsHeaderFlipped) {
    Bytes bytes = record_of(SAMPLE_FIELDS, SAMPLE_PAYLOAD, SEED);
    RecordHeader header;
    for (size_t bit = 0; bit < 8 * RECORD_BYTES; ++bit) {
        bytes[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
        EXPECT_FALSE(read_record_header(bytes.data(), SEED, header)) << "bit " << bit;
        bytes[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
    }
    EXPECT_TRUE(read_record_header(bytes.data(), SEED, header));
}

TEST(Record, IsRefusedWhenNumbersBehindItWouldWrap) {
    RecordHeader header;
    for (const size_t highest_byte : {size_t{23}, size_t{43}}) {  // sequence number, run
        Bytes fields = SAMPLE_FIELDS;
        fields[highest_byte] = 0x81;
        const Bytes bytes = record_of(fields, SAMPLE_PAYLOAD, SEED);
        EXPECT_FALSE(read_record_header(bytes.data(), SEED, header)) << highest_byte;
    }
}

TEST(Record, IsRefusedInAnotherSegment) {
    SegmentHeader one = sample_header(), next = sample_header();
    next.identity ^= 1;
    RecordHeader header;
    for (const Bytes& payload : {SAMPLE_PAYLOAD, Bytes{}}) {
        Bytes fields = SAMPLE_FIELDS;
        fields[4] = payload.empty() ? 0 : 5;
        const Bytes bytes = record_of(fields, payload, one.seed());
        EXPECT_TRUE(read_record_header(bytes.data(), one.seed(), header));
        EXPECT_FALSE(read_record_header(bytes.data(), next.seed(), header));
    }
}

// Whether the sample record is read with `value` in place of the byte at `at`, the checksums made
// right again.
bool record_read_with(size_t at, uint8_t value) {
    Bytes fields = SAMPLE_FIELDS;
    fields[at] = value;
    RecordHeader header;
    return read_record_header(record_of(fields, {}, SEED).data(), SEED, header);
}

TEST(Record, IsRefusedWhenItsFieldsMakeNoSenseAlthoughItsChecksumsHold) {
    for (const uint8_t kind : Bytes{0, 1, 2, 3, 64, 65}) EXPECT_TRUE(record_read_with(8, kind));
    for (const uint8_t kind : Bytes{4, 63, 66, 255}) EXPECT_FALSE(record_read_with(8, kind));
    EXPECT_TRUE(record_read_with(9, 5));
    EXPECT_FALSE(record_read_with(9, 6));
    EXPECT_FALSE(record_read_with(10, 16));
    EXPECT_TRUE(record_read_with(11, 0));
    EXPECT_FALSE(record_read_with(11, 2));
    EXPECT_FALSE(record_read_with(7, 0x41));  // a payload of more than 1 GiB
    EXPECT_FALSE(record_read_with(0, 'q'));
}

TEST(Record, TakesWholeUnitsOfEightBytes) {
    RecordHeader header;
    EXPECT_EQ(header.total_bytes(), 56u);
    header.bytes = 1;
    EXPECT_EQ(header.total_bytes(), 64u);
    header.bytes = 8;
    EXPECT_EQ(header.total_bytes(), 64u);
    header.bytes = 9;
    EXPECT_EQ(header.total_bytes(), 72u);
    header.bytes = 0xffffffff;
    EXPECT_EQ(header.total_bytes(), 0x100000038u);
}

TEST(Directory, HasEntriesAsThePageSays) {
    const Bytes expected = {0xbc, 0x9a, 0x78, 0x56, 0x34, 0x12, 0x06, 0x00,
                            0x44, 0x33, 0x22, 0x11, 2,    5,    15,   0};
    Bytes written(16, 0xee);
    write_entry({0x0006123456789abc, 0x11223344, 2, 5, 15}, written.data());
    EXPECT_EQ(written, expected);
    const DirectoryEntry entry = read_entry(expected.data());
    EXPECT_EQ(entry.utc_us, 0x0006123456789abc);
    EXPECT_EQ(entry.offset_8, 0x11223344u);
    EXPECT_EQ(entry.kind, 2);
    EXPECT_EQ(entry.stream, 5);
    EXPECT_EQ(entry.channel, 15);
    const Bytes before_1970(8, 0xff);
    Bytes early = expected;
    memcpy(early.data(), before_1970.data(), 8);
    EXPECT_EQ(read_entry(early.data()).utc_us, -1);
}

TEST(Directory, HasATailAsThePageSays) {
    Bytes expected = {0x04, 0x03, 0x02, 0x01, 0x00, 0x00, 0x00, 0x06,
                      'Q',  'M',  '7',  '1',  '0',  '5',  'D',  'X'};
    Bytes written(16, 0xee);
    write_tail(0x01020304, 0x30000000, written.data());
    EXPECT_EQ(written, expected);
    uint32_t entries = 0;
    uint64_t offset = 0;
    ASSERT_TRUE(read_tail(expected.data(), entries, offset));
    EXPECT_EQ(entries, 0x01020304u);
    EXPECT_EQ(offset, 0x30000000u);
    expected[15] = 'Y';
    EXPECT_FALSE(read_tail(expected.data(), entries, offset));
    EXPECT_EQ(directory_bytes(0), 16u);
    EXPECT_EQ(directory_bytes(3), 64u);
}

TEST(DatabaseNames, AreMadeFromThatOfTheIni) {
    EXPECT_EQ(segment_name("a.ini", 1), "a.ini.0000000001.seg");
    EXPECT_EQ(segment_name("a.ini", 9'999'999'999), "a.ini.9999999999.seg");
    EXPECT_EQ(lock_name("a.ini"), "a.ini.lock");
    EXPECT_EQ(new_ini_name("a.ini"), "a.ini.new");
    EXPECT_EQ(probe_name("a.ini"), "a.ini.probe");
}

TEST(DatabaseNames, TellTheNumberOfASegmentOnly) {
    EXPECT_EQ(segment_number("a.ini", "a.ini.0000000001.seg"), 1u);
    EXPECT_EQ(segment_number("a.ini", "a.ini.9999999999.seg"), 9'999'999'999u);
    for (const char* name :
         {"a.ini.0000000000.seg", "a.ini.000000001.seg", "a.ini.00000000001.seg",
          "a.ini.00000000x1.seg", "a.ini.-000000001.seg", "a.ini.+000000001.seg",
          "a.ini. 000000001.seg", "a.ini.0000000001.SEG", "a.ini.0000000001.sex",
          "b.ini.0000000001.seg", "a.ini-0000000001.seg", "a.ini", "a.ini.lock", "a.ini.new", ""})
        EXPECT_EQ(segment_number("a.ini", name), 0u) << name;
}

DatabaseIni sample_ini() {
    DatabaseIni ini;
    for (uint8_t i = 0; i < 16; ++i) ini.identity.bytes[i] = static_cast<uint8_t>(i * 17);
    ini.segment_bytes = 16'777'216;
    ini.ring_segments = 64;
    return ini;
}

std::string with_checksum(const std::string& lines) {
    char line[32];
    snprintf(line, sizeof line, "checksum = %08x\n",
             crc_by_bits(0, Bytes(lines.begin(), lines.end())));
    return lines + line;
}

const std::string INI_LINES =
    "; A stream database. The recordings are in the numbered .seg files beside this file.\n"
    "[DATABASE]\n"
    "format = 1\n"
    "identity = 00112233445566778899aabbccddeeff\n"
    "segment_bytes = 16777216\n"
    "ring_segments = 64\n";

TEST(DatabaseIni, IsWrittenAsThePageSays) {
    EXPECT_EQ(ini_text(sample_ini()), with_checksum(INI_LINES));
    EXPECT_EQ(to_text(sample_ini().identity), "00112233445566778899aabbccddeeff");
}

TEST(DatabaseIni, IsReadBack) {
    DatabaseIni ini;
    ASSERT_TRUE(parse_ini(with_checksum(INI_LINES), ini));
    EXPECT_EQ(ini.identity, sample_ini().identity);
    EXPECT_EQ(ini.segment_bytes, 16'777'216u);
    EXPECT_EQ(ini.ring_segments, 64u);
}

TEST(DatabaseIni, IsRefusedWithAnyBitFlippedAnyByteMissingOrMore) {
    std::string text = with_checksum(INI_LINES);
    DatabaseIni ini;
    for (size_t bit = 0; bit < 8 * text.size(); ++bit) {
        text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << bit % 8));
        EXPECT_FALSE(parse_ini(text, ini)) << "bit " << bit;
        text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << bit % 8));
    }
    for (size_t size = 0; size < text.size(); ++size)
        EXPECT_FALSE(parse_ini(text.substr(0, size), ini)) << size << " bytes";
    EXPECT_FALSE(parse_ini(text + "\n", ini));
    EXPECT_FALSE(parse_ini(text + std::string(1, '\0'), ini));
    EXPECT_EQ(ini.segment_bytes, 0u);  // a refused text leaves no values behind
    EXPECT_EQ(ini.identity, Identity{});
}

TEST(DatabaseIni, IsRefusedWhenItsValuesMakeNoSenseAlthoughItsChecksumHolds) {
    const auto parses_with = [](const std::string& from, const std::string& to) {
        std::string lines = INI_LINES;
        lines.replace(lines.find(from), from.size(), to);
        DatabaseIni ini;
        return parse_ini(with_checksum(lines), ini);
    };
    EXPECT_TRUE(parses_with("= 64\n", "= 9999999999\n"));
    EXPECT_TRUE(parses_with("16777216", "65536"));
    EXPECT_TRUE(parses_with("16777216", "1073741824"));
    for (const char* bytes : {"0", "61440", "16777217", "1073745920", "-65536", "+65536", "065536",
                              "18446744073709551616", "99999999999999999999999", ""})
        EXPECT_FALSE(parses_with("16777216", bytes)) << bytes;
    for (const char* ring : {"0", "-1", "10000000000", "18446744073709551615", "x", " 64"})
        EXPECT_FALSE(parses_with("64\n", std::string(ring) + "\n")) << ring;
    EXPECT_FALSE(parses_with("format = 1", "format = 2"));
    EXPECT_FALSE(parses_with("eeff", "EEFF"));
    EXPECT_FALSE(parses_with("ddeeff", "ddeeff00"));
    EXPECT_FALSE(parses_with("[DATABASE]", "[database]"));
}

}  // namespace
