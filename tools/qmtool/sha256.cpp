// SHA-256, as FIPS 180-4 writes it down in chapters 4.1.2, 5.1.1 and 6.2.
#include "tools/qmtool/sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

constexpr uint32_t K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t big_endian(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

void Sha256::take_block(const uint8_t* block) {
    using std::rotr;
    uint32_t w[64];
    for (int i = 0; i < 16; ++i) w[i] = big_endian(block + 4 * i);
    for (int i = 16; i < 64; ++i) {
        const uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t s[8];
    std::copy(m_state, m_state + 8, s);
    for (int i = 0; i < 64; ++i) {
        const uint32_t sum1 = rotr(s[4], 6) ^ rotr(s[4], 11) ^ rotr(s[4], 25);
        const uint32_t choice = (s[4] & s[5]) ^ (~s[4] & s[6]);
        const uint32_t t1 = s[7] + sum1 + choice + K[i] + w[i];
        const uint32_t sum0 = rotr(s[0], 2) ^ rotr(s[0], 13) ^ rotr(s[0], 22);
        const uint32_t majority = (s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]);
        std::copy_backward(s, s + 7, s + 8);
        s[4] += t1;
        s[0] = t1 + sum0 + majority;
    }
    for (int i = 0; i < 8; ++i) m_state[i] += s[i];
}

void Sha256::add(const void* bytes, size_t size) {
    const auto* at = static_cast<const uint8_t*>(bytes);
    m_bytes += size;
    if (m_filled > 0) {
        const size_t taken = std::min(size, BLOCK - m_filled);
        std::copy(at, at + taken, m_block + m_filled);
        m_filled += taken;
        at += taken;
        size -= taken;
        if (m_filled < BLOCK) return;
        take_block(m_block);
        m_filled = 0;
    }
    for (; size >= BLOCK; at += BLOCK, size -= BLOCK) take_block(at);
    std::copy(at, at + size, m_block);
    m_filled = size;
}

std::string Sha256::finish() {
    const uint64_t bits = m_bytes * 8;
    uint8_t ending[2 * BLOCK] = {0x80};
    const size_t zeros = (2 * BLOCK - 9 - m_filled) % BLOCK;
    for (size_t i = 0; i < 8; ++i)
        ending[1 + zeros + i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
    add(ending, 1 + zeros + 8);
    std::string text;
    for (const uint32_t word : m_state) {
        for (int shift = 28; shift >= 0; shift -= 4) text += "0123456789abcdef"[word >> shift & 15];
    }
    return text;
}
