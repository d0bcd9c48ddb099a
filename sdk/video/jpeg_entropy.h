// The entropy-coded bytes of a JPEG picture: bits without stuffing, up to the next marker, and the
// Huffman codes in them. Any bytes are safe.
#ifndef SDK_VIDEO_JPEG_ENTROPY_H
#define SDK_VIDEO_JPEG_ENTROPY_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace sim::jpeg {

class Bits {
  public:
    Bits(const uint8_t* at, const uint8_t* end) : m_at(at), m_end(end) {}

    // The next `length` bits, 1..16, without taking them; behind the last one zeros.
    uint32_t peek(int length) {
        if (m_held < length) fill();
        return static_cast<uint32_t>(m_bits >> (64 - length));
    }
    // False when there are fewer.
    bool skip(int length) {
        if (m_held < length) fill();
        if (m_held < length) return false;
        m_bits <<= length;
        m_held -= length;
        return true;
    }
    // Ends an interval: what is left must be fewer than 8 bits, all ones.
    bool at_padding();
    // After at_padding(): where the marker is, or the end of the bytes.
    const uint8_t* at() const { return m_at; }

  private:
    void fill();

    const uint8_t* m_at;
    const uint8_t* m_end;
    uint64_t m_bits = 0;  // the next is the highest; below the m_held ones zeros
    int m_held = 0;
};

class HuffmanDecoder {
  public:
    // As DHT has them. False when there are more codes of a length than it has room for, or one
    // of ones alone, which is none.
    bool build(const std::array<uint8_t, 16>& counts, const uint8_t* symbols);
    bool built() const { return m_built; }
    // The next symbol; -1 when the bits are no code, or end within it.
    int decode(Bits& bits) const {
        const uint16_t found = m_short[bits.peek(SHORT)];
        if (found == 0) return decode_long(bits);
        return bits.skip(found >> 8) ? found & 0xFF : -1;
    }

  private:
    static constexpr int SHORT = 9;  // bits of the codes that are looked up at once
    static constexpr int LONGEST = 16;
    int decode_long(Bits& bits) const;

    bool m_built = false;
    std::array<uint16_t, 1 << SHORT> m_short{};  // length * 256 + symbol; 0: the code is longer
    std::array<int, LONGEST + 1> m_end{};        // behind the last code of a length
    std::array<int, LONGEST + 1> m_symbol{};     // what to add to a code for its symbol's place
    std::array<uint8_t, 256> m_symbols{};
};

}  // namespace sim::jpeg

#endif  // SDK_VIDEO_JPEG_ENTROPY_H
