// Writing and checking the opaque payload.
#include "sdk/video/payload.h"

#include <cstring>

namespace sim {

namespace {

constexpr uint32_t MAGIC = 0x31464D51;  // "QMF1"
constexpr size_t CHECKSUM_OFFSET = 24;

void put32(uint8_t* out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t get32(const uint8_t* in) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<uint32_t>(in[i]) << (8 * i);
    return value;
}

// splitmix64: spreads the bits of a counter over a whole word.
uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

// Sum of position-weighted words, bytes past the last whole word one by one. Any changed byte
// changes it.
uint32_t checksum(const uint8_t* bytes, size_t size, uint64_t sum) {
    size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        uint64_t word = 0;
        for (unsigned b = 0; b < 8; ++b) word |= uint64_t{bytes[i + b]} << (8 * b);
        sum = (sum + word) * 0x9E3779B97F4A7C15;
        sum ^= sum >> 29;
    }
    for (; i < size; ++i) sum = (sum + bytes[i]) * 0x9E3779B97F4A7C15;
    return static_cast<uint32_t>(sum >> 32) ^ static_cast<uint32_t>(sum);
}

uint32_t checksum_of(const uint8_t* payload, size_t size) {
    const uint32_t head = checksum(payload, CHECKSUM_OFFSET, 0);
    const size_t body = CHECKSUM_OFFSET + 4;
    return checksum(payload + body, size - body, head);
}

void write_header(const FrameInfo& info, uint64_t pattern, uint8_t* out) {
    memset(out, 0, PAYLOAD_HEADER_BYTES);
    put32(out, MAGIC);
    out[4] = static_cast<uint8_t>(info.kind);
    out[5] = info.stream;
    out[6] = info.channel;
    put32(out + 8, info.number);
    put32(out + 12, info.bytes);
    put32(out + 16, static_cast<uint32_t>(pattern));
    put32(out + 20, static_cast<uint32_t>(pattern >> 32));
}

}  // namespace

uint64_t frame_hash(const FrameInfo& info, uint64_t seed) {
    const uint64_t name = uint64_t{info.number} | uint64_t{info.channel} << 32 |
                          uint64_t{info.stream} << 40 |
                          uint64_t{static_cast<uint8_t>(info.kind)} << 48;
    return mix(mix(seed) ^ name);
}

void write_payload(const FrameInfo& info, uint64_t seed, uint8_t* out) {
    const uint64_t pattern = frame_hash(info, seed);
    write_header(info, pattern, out);
    uint8_t word[8];
    for (unsigned b = 0; b < 8; ++b) word[b] = static_cast<uint8_t>(pattern >> (8 * b));
    size_t at = PAYLOAD_HEADER_BYTES;
    for (; at + 8 <= info.bytes; at += 8) memcpy(out + at, word, 8);
    memcpy(out + at, word, info.bytes - at);
    put32(out + CHECKSUM_OFFSET, checksum_of(out, info.bytes));
}

bool check_payload(const FrameInfo& info, const uint8_t* bytes, size_t size) {
    if (size < PAYLOAD_HEADER_BYTES || size != info.bytes || get32(bytes) != MAGIC) return false;
    const bool named = bytes[4] == static_cast<uint8_t>(info.kind) && bytes[5] == info.stream &&
                       bytes[6] == info.channel && get32(bytes + 8) == info.number &&
                       get32(bytes + 12) == info.bytes;
    return named && get32(bytes + CHECKSUM_OFFSET) == checksum_of(bytes, size);
}

}  // namespace sim
