// From the samples of a block to its bits: transform, quantisation, Huffman coding. The order of
// blocks in a picture is jpeg_writer's.
#ifndef SDK_VIDEO_JPEG_BLOCKS_H
#define SDK_VIDEO_JPEG_BLOCKS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sdk/video/jpeg_tables.h"

namespace sim::jpeg {

// Of 64 values row by row: divisors, samples, quantised coefficients.
using Quantisers = std::array<uint8_t, COEFFICIENTS>;
using Samples = std::array<uint8_t, COEFFICIENTS>;
using Coefficients = std::array<int16_t, COEFFICIENTS>;

// A table of annex K for quality 1..100: as it is at 50, its half at 75, all ones at 100.
Quantisers scaled(const Quantisers& table, int quality);

// The coefficients of a block, rounded to the nearest. Of any samples:
void transform(const Samples& samples, const Quantisers& quantisers, Coefficients& out);
// Of 2 x 2 cells of 4 x 4 equal samples, row by row:
void transform_cells(const std::array<uint8_t, 4>& cells, const Quantisers& quantisers,
                     Coefficients& out);

struct Code {
    uint32_t bits = 0;  // in the lowest ones
    int length = 0;     // 0: there is no such code
};
struct Codes {
    std::array<Code, 256> of;  // by symbol
};
// Of the tables of annex K; component 0 is luma.
const Codes& dc_codes(int component);
const Codes& ac_codes(int component);

// Bits that wait to be copied into a picture, without stuffing.
class BitString {
  public:
    void put(uint32_t bits, int length);  // length 0..32, no bit set above
    void put(Code code) { put(code.bits, code.length); }
    void clear();
    size_t length() const { return m_words.size() * 32 + static_cast<size_t>(m_last_length); }

    const std::vector<uint32_t>& words() const { return m_words; }  // the first bit is the highest
    Code last() const { return {m_last, m_last_length}; }           // fewer than 32 behind them

  private:
    std::vector<uint32_t> m_words;
    uint32_t m_last = 0;
    int m_last_length = 0;
};

// The bits of a DC difference, -2047..2047: its category's code and the bits that tell it apart.
Code dc_code(int difference, const Codes& codes);
// The bits of all other coefficients, with the end of the block.
void put_ac(const Coefficients& block, const Codes& codes, BitString& out);

// Writes bits as the entropy-coded bytes of a picture: a byte 0xFF is followed by 0.
class ByteWriter {
  public:
    explicit ByteWriter(uint8_t* out) : m_out(out) {}
    // As those of BitString. The caller answers for the room: 2 bytes for each 8 bits.
    void put(uint32_t bits, int length) {
        m_bits = m_bits << length | bits;
        m_held += length;
        if (m_held >= 32) {
            m_held -= 32;
            put_word(static_cast<uint32_t>(m_bits >> m_held));
        }
    }
    void put(Code code) { put(code.bits, code.length); }
    void put(const BitString& bits) {
        for (const uint32_t word : bits.words()) put(word, 32);
        put(bits.last());
    }
    // Fills the last byte with ones; returns the end of what was written.
    uint8_t* finish();

  private:
    void put_word(uint32_t word) {
        if ((~word - 0x01010101U) & word & 0x80808080U) {  // one of the bytes is 0xFF
            for (int shift = 24; shift >= 0; shift -= 8)
                put_byte(static_cast<uint8_t>(word >> shift));
            return;
        }
        for (int i = 0; i < 4; ++i) m_out[i] = static_cast<uint8_t>(word >> (24 - 8 * i));
        m_out += 4;
    }
    void put_byte(uint8_t byte) {
        *m_out++ = byte;
        if (byte == 0xFF) *m_out++ = 0;
    }

    uint8_t* m_out;
    uint64_t m_bits = 0;  // the lowest m_held are not written yet
    int m_held = 0;       // below 32
};

}  // namespace sim::jpeg

#endif  // SDK_VIDEO_JPEG_BLOCKS_H
