// Reads bits, highest first, and the codes of H.264 that are made of them. Not emulation
// prevention: it wants the payload of a NAL unit with that taken out.
#ifndef SDK_VIDEO_BIT_READER_H
#define SDK_VIDEO_BIT_READER_H

#include <cstddef>
#include <cstdint>

namespace sim {

// Safe at the end: what lies behind it reads as 0, and failed() is true from then on.
class BitReader {
  public:
    BitReader() = default;
    // Reads up to the stop bit, the last bit that is set in `bytes`. Without one nothing is left.
    // At most 2^28 bytes, so that their bits can be counted in 32 bits.
    BitReader(const uint8_t* bytes, size_t size) : m_bytes(bytes) {
        while (size > 0 && bytes[size - 1] == 0) --size;
        m_size = size;
        if (size == 0) return;
        m_end = size * 8 - 1;
        for (unsigned last = bytes[size - 1]; (last & 1) == 0; last >>= 1) --m_end;
    }

    bool failed() const { return m_failed; }
    // Bits before the stop bit.
    size_t left() const { return m_end - m_at; }
    bool more() const { return m_at < m_end; }

    // The next 32 bits, without going on; those behind the last byte are 0.
    uint32_t peek() const {
        uint64_t word = 0;
        const size_t byte = m_at / 8;
        if (byte + 8 <= m_size) {
            for (size_t i = 0; i < 8; ++i) word = word << 8 | m_bytes[byte + i];
        } else {
            for (size_t i = 0; i < 8; ++i)
                word = word << 8 | (byte + i < m_size ? m_bytes[byte + i] : 0U);
        }
        return static_cast<uint32_t>(word << (m_at % 8) >> 32);
    }
    void skip(size_t count) {
        if (count > left()) {
            m_failed = true;
            m_at = m_end;
            return;
        }
        m_at += count;
    }

    // `count` 1..32.
    uint32_t bits(unsigned count) {
        const uint32_t value = peek() >> (32 - count);
        skip(count);
        return m_failed ? 0 : value;
    }
    bool flag() { return bits(1) != 0; }

    // ue(v): up to 31 zeros, a one, as many bits.
    uint32_t ue() {
        const uint32_t word = peek();
        if (word >= 1U << 24) {  // up to 7 zeros: all of it is in the word
            unsigned zeros = 0;
            while ((word << zeros >> 31) == 0) ++zeros;
            skip(2 * zeros + 1);
            return m_failed ? 0 : (word >> (31 - 2 * zeros)) - 1;
        }
        unsigned zeros = 0;
        while (zeros < 32 && !flag() && !m_failed) ++zeros;
        if (zeros == 32) m_failed = true;
        if (m_failed) return 0;
        const uint32_t rest = bits(zeros);
        return m_failed ? 0 : (1U << zeros) - 1 + rest;
    }
    // se(v): 0, 1, -1, 2, -2, ...
    int32_t se() {
        const uint32_t code = ue();
        const auto half = static_cast<int32_t>(code / 2);
        return (code & 1) != 0 ? half + 1 : -half;
    }

    // Goes to the next byte; false when the bits up to there are not all 0.
    bool align() {
        const auto count = static_cast<unsigned>((8 - m_at % 8) % 8);
        return count == 0 || (bits(count) == 0 && !m_failed);
    }
    // `count` bytes, from the start of a byte on; null when there are fewer.
    const uint8_t* bytes(size_t count) {
        const uint8_t* const at = m_bytes + m_at / 8;
        if (m_at % 8 != 0 || count > left() / 8) m_failed = true;
        if (m_failed) return nullptr;
        m_at += 8 * count;
        return at;
    }

  private:
    const uint8_t* m_bytes = nullptr;
    size_t m_size = 0;
    size_t m_at = 0;   // in bits
    size_t m_end = 0;  // in bits: the stop bit
    bool m_failed = false;
};

}  // namespace sim

#endif  // SDK_VIDEO_BIT_READER_H
