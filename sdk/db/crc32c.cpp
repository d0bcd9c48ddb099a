// CRC-32C by tables, and by the processor's instruction where it has one. No state, no
// constructors: every table is made by the compiler, so it may be called at any time.
#include "sdk/db/crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#elif defined(__ARM_FEATURE_CRC32) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#include <arm_acle.h>
#define QM_ARM_CRC
#endif

namespace sim {

namespace {

constexpr uint32_t POLYNOMIAL = 0x82F63B78;  // its lowest bit is the highest power

using Table = std::array<uint32_t, 256>;

// BYTE_TABLES[k][b] is what the byte b adds to the checksum when k bytes follow it in its word.
constexpr std::array<Table, 8> make_byte_tables() {
    std::array<Table, 8> tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? POLYNOMIAL : 0);
        tables[0][byte] = crc;
    }
    for (size_t k = 1; k < 8; ++k)
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[k - 1][byte];
            tables[k][byte] = (before >> 8) ^ tables[0][before & 0xFF];
        }
    return tables;
}

constexpr std::array<Table, 8> BYTE_TABLES = make_byte_tables();

// The state of a checksum: the checksum itself, inverted.
uint32_t add_by_tables(uint32_t state, const uint8_t* in, size_t size) {
    const auto& t = BYTE_TABLES;
    for (; size >= 8; in += 8, size -= 8) {
        const uint32_t low = state ^ (uint32_t{in[0]} | uint32_t{in[1]} << 8 |
                                      uint32_t{in[2]} << 16 | uint32_t{in[3]} << 24);
        state = t[7][low & 0xFF] ^ t[6][(low >> 8) & 0xFF] ^ t[5][(low >> 16) & 0xFF] ^
                t[4][low >> 24] ^ t[3][in[4]] ^ t[2][in[5]] ^ t[1][in[6]] ^ t[0][in[7]];
    }
    for (; size > 0; ++in, --size) state = (state >> 8) ^ t[0][(state ^ *in) & 0xFF];
    return state;
}

#if defined(__x86_64__) || defined(QM_ARM_CRC)

// One instruction waits for the result of the one before it, but three chains of them run side by
// side. So a large piece is taken as three stretches of one length, and their results are joined.
constexpr size_t LONG_STRETCH = 4096;
constexpr size_t SHORT_STRETCH = 256;

// a * b modulo the polynomial.
constexpr uint32_t multiply(uint32_t a, uint32_t b) {
    uint32_t product = 0;
    for (int bit = 31; bit >= 0; --bit) {
        if ((a >> bit) & 1) product ^= b;
        b = (b >> 1) ^ ((b & 1) ? POLYNOMIAL : 0);
    }
    return product;
}

// What a state becomes when `bytes` zeros follow, as the sum of what each of its four bytes
// becomes.
constexpr std::array<Table, 4> make_zeros_tables(size_t bytes) {
    uint32_t power = uint32_t{1} << 31;   // x to the 0
    uint32_t square = uint32_t{1} << 23;  // x to the 8: one byte
    for (; bytes > 0; bytes >>= 1) {
        if (bytes & 1) power = multiply(power, square);
        square = multiply(square, square);
    }
    std::array<Table, 4> tables{};
    for (uint32_t k = 0; k < 4; ++k)
        for (uint32_t byte = 0; byte < 256; ++byte)
            tables[k][byte] = multiply(byte << (8 * k), power);
    return tables;
}

constexpr std::array<Table, 4> LONG_ZEROS = make_zeros_tables(LONG_STRETCH);
constexpr std::array<Table, 4> SHORT_ZEROS = make_zeros_tables(SHORT_STRETCH);

uint32_t add_zeros(const std::array<Table, 4>& tables, uint64_t state) {
    return tables[0][state & 0xFF] ^ tables[1][(state >> 8) & 0xFF] ^
           tables[2][(state >> 16) & 0xFF] ^ tables[3][(state >> 24) & 0xFF];
}

#if defined(__x86_64__)
#define QM_CRC_CODE __attribute__((target("sse4.2")))
QM_CRC_CODE inline uint64_t add_byte(uint64_t state, uint8_t byte) {
    return _mm_crc32_u8(static_cast<uint32_t>(state), byte);
}
QM_CRC_CODE inline uint64_t add_word(uint64_t state, uint64_t word) {
    return _mm_crc32_u64(state, word);
}
// Before the C library has looked at the processor this says no, which costs time only.
bool has_instruction() { return __builtin_cpu_supports("sse4.2"); }
#else
#define QM_CRC_CODE
inline uint64_t add_byte(uint64_t state, uint8_t byte) {
    return __crc32cb(static_cast<uint32_t>(state), byte);
}
inline uint64_t add_word(uint64_t state, uint64_t word) {
    return __crc32cd(static_cast<uint32_t>(state), word);
}
bool has_instruction() { return true; }
#endif

inline uint64_t word_at(const uint8_t* in) {
    uint64_t word;
    memcpy(&word, in, sizeof word);
    return word;
}

// Takes three stretches at a time while there are that many bytes.
template <size_t STRETCH>
QM_CRC_CODE uint64_t add_stretches(const std::array<Table, 4>& zeros, uint64_t state,
                                   const uint8_t*& in, size_t& size) {
    for (; size >= 3 * STRETCH; in += 3 * STRETCH, size -= 3 * STRETCH) {
        uint64_t second = 0, third = 0;
        for (const uint8_t *at = in, *end = in + STRETCH; at < end; at += 8) {
            state = add_word(state, word_at(at));
            second = add_word(second, word_at(at + STRETCH));
            third = add_word(third, word_at(at + 2 * STRETCH));
        }
        state = add_zeros(zeros, state) ^ second;
        state = add_zeros(zeros, state) ^ third;
    }
    return state;
}

QM_CRC_CODE uint32_t add_by_instruction(uint32_t start, const uint8_t* in, size_t size) {
    uint64_t state = start;
    state = add_stretches<LONG_STRETCH>(LONG_ZEROS, state, in, size);
    state = add_stretches<SHORT_STRETCH>(SHORT_ZEROS, state, in, size);
    for (; size >= 8; in += 8, size -= 8) state = add_word(state, word_at(in));
    for (; size > 0; ++in, --size) state = add_byte(state, *in);
    return static_cast<uint32_t>(state);
}

#else

bool has_instruction() { return false; }
uint32_t add_by_instruction(uint32_t state, const uint8_t* in, size_t size) {
    return add_by_tables(state, in, size);
}

#endif

}  // namespace

uint32_t crc32c(uint32_t seed, const void* bytes, size_t size) {
    const auto* in = static_cast<const uint8_t*>(bytes);
    return ~(has_instruction() ? add_by_instruction(~seed, in, size)
                               : add_by_tables(~seed, in, size));
}

uint32_t crc32c_portable(uint32_t seed, const void* bytes, size_t size) {
    return ~add_by_tables(~seed, static_cast<const uint8_t*>(bytes), size);
}

}  // namespace sim
