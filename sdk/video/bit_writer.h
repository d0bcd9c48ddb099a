// Writes bits, highest first, and the codes of H.264 that are made of them. No emulation
// prevention: what it makes is the payload of a NAL unit.
#ifndef SDK_VIDEO_BIT_WRITER_H
#define SDK_VIDEO_BIT_WRITER_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

// Keeps its memory when it is cleared.
class BitWriter {
  public:
    void clear() {
        m_bytes.clear();
        m_word = 0;
        m_count = 0;
    }

    // The lowest `count` bits of `value`, 0..32; what is above them is 0.
    void bits(uint32_t value, unsigned count) {
        m_word = m_word << count | value;
        m_count += count;
        if (m_count >= 32) flush();
    }
    size_t size() const { return 8 * m_bytes.size() + m_count; }  // in bits
    void flag(bool value) { bits(value ? 1 : 0, 1); }
    // ue(v), below 2^16 - 1.
    void ue(uint32_t value) {
        unsigned length = 1;
        while ((value + 1) >> length != 0) ++length;
        bits(value + 1, 2 * length - 1);
    }
    // se(v)
    void se(int32_t value) { ue(static_cast<uint32_t>(value > 0 ? 2 * value - 1 : -2 * value)); }
    void align_with_zeros() { bits(0, (8 - m_count % 8) % 8); }
    // The stop bit, and zeros up to a whole byte.
    void stop() {
        flag(true);
        align_with_zeros();
    }
    // All that `other` holds.
    void append(const BitWriter& other) {
        for (const uint8_t byte : other.m_bytes) bits(byte, 8);
        bits(static_cast<uint32_t>(other.m_word & ((uint64_t{1} << other.m_count) - 1)),
             other.m_count);
    }

    // What was written, after stop().
    const std::vector<uint8_t>& bytes() {
        for (; m_count >= 8; m_count -= 8)
            m_bytes.push_back(static_cast<uint8_t>(m_word >> (m_count - 8)));
        return m_bytes;
    }

  private:
    void flush() {
        m_count -= 32;
        const auto word = static_cast<uint32_t>(m_word >> m_count);
        const size_t at = m_bytes.size();
        m_bytes.resize(at + 4);
        for (size_t i = 0; i < 4; ++i) m_bytes[at + i] = static_cast<uint8_t>(word >> (24 - 8 * i));
    }

    std::vector<uint8_t> m_bytes;
    uint64_t m_word = 0;   // its lowest m_count bits are not in m_bytes yet
    unsigned m_count = 0;  // below 32
};

}  // namespace sim

#endif  // SDK_VIDEO_BIT_WRITER_H
