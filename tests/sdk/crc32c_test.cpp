// CRC-32C: published values, and the processor's instruction against the tables.
#include "sdk/db/crc32c.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using sim::crc32c;
using sim::crc32c_portable;

// Bytes without a pattern.
std::vector<uint8_t> noise(size_t size) {
    std::vector<uint8_t> bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

void expect_both(uint32_t expected, const std::string& bytes) {
    EXPECT_EQ(crc32c(0, bytes.data(), bytes.size()), expected);
    EXPECT_EQ(crc32c_portable(0, bytes.data(), bytes.size()), expected);
}

TEST(Crc32c, GivesThePublishedValues) {
    std::string up, down;
    for (int i = 0; i < 32; ++i) {
        up += static_cast<char>(i);
        down += static_cast<char>(31 - i);
    }
    expect_both(0x8a9136aa, std::string(32, '\0'));
    expect_both(0x62a8ab43, std::string(32, '\xff'));
    expect_both(0x46dd794e, up);
    expect_both(0x113fdb5c, down);
    expect_both(0xe3069283, "123456789");
}

TEST(Crc32c, GivesThePublishedValueOfAReadCommand) {
    std::string command(48, '\0');
    command[0] = 0x01;
    command[1] = static_cast<char>(0xc0);
    command[16] = 0x14;
    command[22] = 0x04;
    command[27] = 0x14;
    command[31] = 0x18;
    command[32] = 0x28;
    command[40] = 0x02;
    expect_both(0xd9963a56, command);
}

TEST(Crc32c, OfNothingIsTheSeed) {
    EXPECT_EQ(crc32c(0, nullptr, 0), 0u);
    EXPECT_EQ(crc32c(0x12345678, nullptr, 0), 0x12345678u);
    EXPECT_EQ(crc32c_portable(0x12345678, nullptr, 0), 0x12345678u);
}

TEST(Crc32c, IsTheSameByTablesForEverySizeAndAlignment) {
    const std::vector<uint8_t> bytes = noise(5000 + 8);
    for (size_t align = 0; align < 8; ++align)
        for (size_t size = 0; size <= 5000; ++size)
            ASSERT_EQ(crc32c(0x9e3779b9, bytes.data() + align, size),
                      crc32c_portable(0x9e3779b9, bytes.data() + align, size))
                << size << " bytes at " << align;
}

TEST(Crc32c, IsTheSameByTablesForLargePieces) {
    const std::vector<uint8_t> bytes = noise(200'000);
    for (size_t size = 12'000; size + 1 < bytes.size(); size += 1'021)
        ASSERT_EQ(crc32c(7, bytes.data() + 1, size), crc32c_portable(7, bytes.data() + 1, size))
            << size;
}

TEST(Crc32c, GoesOnFromTheChecksumOfTheBytesBefore) {
    const std::vector<uint8_t> bytes = noise(30'000);
    const uint32_t whole = crc32c_portable(0, bytes.data(), bytes.size());
    for (size_t cut = 0; cut <= bytes.size(); cut += cut < 600 ? 1 : 997) {
        const uint32_t head = crc32c(0, bytes.data(), cut);
        ASSERT_EQ(crc32c(head, bytes.data() + cut, bytes.size() - cut), whole) << cut;
    }
}

TEST(Crc32c, DiffersForDifferentSeeds) {
    const std::vector<uint8_t> bytes = noise(14'000);
    for (const size_t size : {size_t{1}, size_t{56}, size_t{1'000}, bytes.size()}) {
        std::set<uint32_t> results;
        for (uint32_t seed = 0; seed < 1'000; ++seed)
            results.insert(crc32c(seed * 0x01000193, bytes.data(), size));
        EXPECT_EQ(results.size(), 1'000u) << size;
    }
}

}  // namespace
