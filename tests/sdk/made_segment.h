// Segments made by hand, record by record, for the tests of those who read them.
#ifndef TESTS_SDK_MADE_SEGMENT_H
#define TESTS_SDK_MADE_SEGMENT_H

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "sdk/db/format.h"

// What the payload of a frame consists of.
inline uint8_t made_byte(uint64_t sequence, size_t i) {
    return static_cast<uint8_t>(sequence * 31 + i * 7 + 1);
}

class MadeSegment {
  public:
    MadeSegment(uint64_t number, uint64_t first_sequence, uint64_t bytes = 128 * 1024,
                int64_t latest_utc_us = INT64_MIN) {
        header.database.bytes[0] = 0xDB;
        header.identity = number * 1'000'003;
        header.number = number;
        header.bytes = bytes;
        header.first_sequence = first_sequence;
        header.latest_utc_us = latest_utc_us;
        header.run = 1;
        next.sequence = first_sequence;
        next.run = 1;
        next.bytes = 1000;
        next.kind = 1;
    }

    // Appends `next` as it is, then prepares the one behind it. Returns its offset.
    uint64_t record() {
        const uint64_t offset = at;
        next.flags = begins ? uint8_t{sim::FLAG_FIRST_OF_BATCH} : uint8_t{0};
        std::vector<uint8_t> record(static_cast<size_t>(next.total_bytes()));
        for (size_t i = 0; i < next.bytes && next.kind != sim::RECORD_PAD; ++i)
            record[sim::RECORD_BYTES + i] =
                payload.empty() ? made_byte(next.sequence, i) : payload[i];
        sim::seal_record(next, header.seed(), record.data());
        put(record);
        if (next.is_frame()) {
            entries.push_back({next.utc_us, static_cast<uint32_t>(offset / 8), next.kind,
                               next.stream, next.channel});
            ++next.sequence;
            ++next.frame_number;
            next.utc_us += 1000;
            next.mono_us += 1000;
        }
        next.hole = 0;
        begins = false;
        return offset;
    }

    uint64_t frame(uint32_t size = 1000, uint8_t kind = 1, uint8_t channel = 0) {
        next.bytes = size;
        next.kind = kind;
        next.channel = channel;
        return record();
    }
    // The next record begins a batch.
    void batch() { begins = true; }
    // Fills up to the next block and ends the batch.
    void pad() {
        uint64_t room = sim::round_up_to_block(at) - at;
        if (room > 0) {
            if (room < sim::RECORD_BYTES) room += sim::BLOCK_BYTES;
            next.kind = sim::RECORD_PAD;
            next.bytes = static_cast<uint32_t>(room - sim::RECORD_BYTES);
            record();
        }
        batch();
    }
    // A batch of so many frames. Returns the offset of the first.
    uint64_t frames(int count, uint32_t size = 1000) {
        batch();
        const uint64_t first = at;
        for (int i = 0; i < count; ++i) frame(size);
        pad();
        return first;
    }
    // Ends the segment with the directory of its frames.
    uint64_t directory() {
        next.kind = sim::RECORD_DIRECTORY;
        next.bytes = static_cast<uint32_t>(sim::directory_bytes(entries.size()));
        uint64_t room = sim::BLOCK_BYTES - (at + next.total_bytes()) % sim::BLOCK_BYTES;
        if (room < sim::RECORD_BYTES) room += sim::BLOCK_BYTES;
        next.kind = sim::RECORD_PAD;
        next.bytes = static_cast<uint32_t>(room - sim::RECORD_BYTES);
        record();
        next.kind = sim::RECORD_DIRECTORY;
        next.bytes = static_cast<uint32_t>(sim::directory_bytes(entries.size()));
        payload.assign(next.bytes, 0);
        for (size_t i = 0; i < entries.size(); ++i)
            sim::write_entry(entries[i], payload.data() + i * sim::ENTRY_BYTES);
        sim::write_tail(static_cast<uint32_t>(entries.size()), at,
                        payload.data() + entries.size() * sim::ENTRY_BYTES);
        const uint64_t offset = record();
        payload.clear();
        batch();
        return offset;
    }

    // The file's bytes: header, records, then zeros up to `file_bytes` (0: nothing more).
    std::vector<uint8_t> file(uint64_t file_bytes = 0) const {
        std::vector<uint8_t> all(sim::SEGMENT_START);
        sim::write_segment_header(header, all.data());
        all.insert(all.end(), records.begin(), records.end());
        if (file_bytes > 0) all.resize(static_cast<size_t>(file_bytes));
        return all;
    }
    void save(const std::string& path, uint64_t file_bytes = 0) const {
        save_bytes(path, file(file_bytes));
    }
    static void save_bytes(const std::string& path, const std::vector<uint8_t>& bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    // Spoils one byte.
    void spoil(uint64_t offset) { records[static_cast<size_t>(offset - sim::SEGMENT_START)] ^= 1; }
    // The next record goes to `offset`; what is there already stays behind it.
    void go_to(uint64_t offset) { at = offset; }

    sim::SegmentHeader header;
    sim::RecordHeader next;
    uint64_t at = sim::SEGMENT_START;
    bool begins = true;
    std::vector<uint8_t> records;
    std::vector<sim::DirectoryEntry> entries;

  private:
    void put(const std::vector<uint8_t>& record) {
        const size_t from = static_cast<size_t>(at - sim::SEGMENT_START);
        if (records.size() < from + record.size()) records.resize(from + record.size());
        std::copy(record.begin(), record.end(),
                  records.begin() + static_cast<std::ptrdiff_t>(from));
        at += record.size();
    }
    std::vector<uint8_t> payload;
};

#endif  // TESTS_SDK_MADE_SEGMENT_H
