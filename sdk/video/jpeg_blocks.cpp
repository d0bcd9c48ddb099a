// Forward transform in integers: the same coefficients on every machine.
#include "sdk/video/jpeg_blocks.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace sim::jpeg {

namespace {

constexpr int LEVEL_SHIFT = 128;        // taken off every sample
constexpr int MOST_AC = 1023;           // category 10
constexpr int SCALE = 2 * COSINE_BITS;  // of a coefficient after both directions
constexpr size_t SIDE = static_cast<size_t>(BLOCK);

using Basis = std::array<std::array<int64_t, SIDE>, SIDE>;

// One row a frequency, one column a sample (T.81, A.3.3).
constexpr Basis make_basis() {
    Basis basis{};
    for (size_t x = 0; x < SIDE; ++x) basis[0][x] = COSINE[4];
    for (size_t u = 1; u < SIDE; ++u) {
        for (size_t x = 0; x < SIDE; ++x) {
            size_t angle = (2 * x + 1) * u % 32;  // in parts of pi / 16
            if (angle > 16) angle = 32 - angle;
            basis[u][x] = angle > 8 ? -COSINE[16 - angle] : COSINE[angle];
        }
    }
    return basis;
}
constexpr Basis BASIS = make_basis();

// The left half of each row summed up: a block of cells is made of steps in its middle.
constexpr std::array<int64_t, SIDE> make_steps() {
    std::array<int64_t, SIDE> steps{};
    for (size_t u = 0; u < SIDE; ++u) {
        for (size_t x = 0; x < SIDE / 2; ++x) steps[u] += BASIS[u][x];
    }
    return steps;
}
constexpr std::array<int64_t, SIDE> STEPS = make_steps();

// Nearest, halves away from zero.
int64_t divided(int64_t value, int64_t by) {
    const int64_t magnitude = ((value < 0 ? -value : value) + by / 2) / by;
    return value < 0 ? -magnitude : magnitude;
}

int16_t quantised_ac(int64_t value, uint8_t quantiser) {
    const int64_t by = static_cast<int64_t>(quantiser) << SCALE;
    return static_cast<int16_t>(std::clamp<int64_t>(divided(value, by), -MOST_AC, MOST_AC));
}

// From the sum of all 64 samples, exactly.
int16_t quantised_dc(int sum, uint8_t quantiser) {
    return static_cast<int16_t>(divided(sum - COEFFICIENTS * LEVEL_SHIFT, BLOCK * quantiser));
}

constexpr Codes make_codes(const HuffmanTable& table) {
    Codes codes;
    uint32_t bits = 0;
    size_t symbol = 0;
    for (size_t length = 1; length <= table.counts.size(); ++length) {
        for (int i = 0; i < table.counts[length - 1]; ++i) {
            codes.of[table.symbols[symbol++]] = {bits++, static_cast<int>(length)};
        }
        bits <<= 1;
    }
    return codes;
}

constexpr Codes LUMA_DC_CODES = make_codes(LUMA_DC);
constexpr Codes CHROMA_DC_CODES = make_codes(CHROMA_DC);
constexpr Codes LUMA_AC_CODES = make_codes(LUMA_AC);
constexpr Codes CHROMA_AC_CODES = make_codes(CHROMA_AC);

int category(int value) {
    return static_cast<int>(std::bit_width(static_cast<unsigned>(std::abs(value))));
}

// The code of a symbol, and behind it the bits of the value: of a negative one those of its
// complement.
Code with_value(Code code, int value, int bits) {
    const int coded = value < 0 ? value + (1 << bits) - 1 : value;
    return {code.bits << bits | static_cast<uint32_t>(coded), code.length + bits};
}

}  // namespace

Quantisers scaled(const Quantisers& table, int quality) {
    const int percent =
        quality < 50 ? 5000 / std::max(quality, 1) : 200 - 2 * std::min(quality, 100);
    Quantisers out;
    for (size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<uint8_t>(std::clamp((table[i] * percent + 50) / 100, 1, 255));
    }
    return out;
}

void transform(const Samples& samples, const Quantisers& quantisers, Coefficients& out) {
    std::array<std::array<int64_t, SIDE>, SIDE> rows{};  // by row, then frequency
    int sum = 0;
    for (size_t y = 0; y < SIDE; ++y) {
        for (size_t x = 0; x < SIDE; ++x) {
            const int sample = samples[SIDE * y + x];
            sum += sample;
            for (size_t u = 0; u < SIDE; ++u) rows[y][u] += BASIS[u][x] * (sample - LEVEL_SHIFT);
        }
    }
    for (size_t v = 0; v < SIDE; ++v) {
        for (size_t u = 0; u < SIDE; ++u) {
            int64_t value = 0;
            for (size_t y = 0; y < SIDE; ++y) value += BASIS[v][y] * rows[y][u];
            out[SIDE * v + u] = quantised_ac(value, quantisers[SIDE * v + u]);
        }
    }
    out[0] = quantised_dc(sum, quantisers[0]);
}

// Such a block is its mean, a step to the right, a step down and the product of both steps. A step
// has odd frequencies only.
void transform_cells(const std::array<uint8_t, 4>& cells, const Quantisers& quantisers,
                     Coefficients& out) {
    const int upper = cells[0] + cells[1], lower = cells[2] + cells[3];
    const int right = cells[0] - cells[1] + cells[2] - cells[3];  // four times the step
    const int down = upper - lower;
    const int both = cells[0] - cells[1] - cells[2] + cells[3];
    out.fill(0);
    out[0] = quantised_dc(COEFFICIENTS / 4 * (upper + lower), quantisers[0]);
    if (right == 0 && down == 0 && both == 0) return;
    for (size_t u = 1; u < SIDE; u += 2) {
        const int64_t straight = 4 * COSINE[4] * STEPS[u];
        out[u] = quantised_ac(straight * right, quantisers[u]);
        out[SIDE * u] = quantised_ac(straight * down, quantisers[SIDE * u]);
        for (size_t v = 1; both != 0 && v < SIDE; v += 2) {
            out[SIDE * v + u] = quantised_ac(STEPS[u] * STEPS[v] * both, quantisers[SIDE * v + u]);
        }
    }
}

const Codes& dc_codes(int component) { return component == 0 ? LUMA_DC_CODES : CHROMA_DC_CODES; }

const Codes& ac_codes(int component) { return component == 0 ? LUMA_AC_CODES : CHROMA_AC_CODES; }

void BitString::put(uint32_t bits, int length) {
    const uint64_t all = static_cast<uint64_t>(m_last) << length | bits;
    m_last_length += length;
    if (m_last_length >= 32) {
        m_last_length -= 32;
        m_words.push_back(static_cast<uint32_t>(all >> m_last_length));
    }
    m_last = static_cast<uint32_t>(all & ((uint64_t{1} << m_last_length) - 1));
}

void BitString::clear() {
    m_words.clear();
    m_last = 0;
    m_last_length = 0;
}

Code dc_code(int difference, const Codes& codes) {
    const int bits = category(difference);
    return with_value(codes.of[static_cast<size_t>(bits)], difference, bits);
}

void put_ac(const Coefficients& block, const Codes& codes, BitString& out) {
    constexpr int MOST_ZEROS = 15;  // before one coefficient; 16 have a symbol of their own
    int zeros = 0;
    for (size_t k = 1; k < block.size(); ++k) {
        const int value = block[ZIGZAG[k]];
        if (value == 0) {
            ++zeros;
            continue;
        }
        for (; zeros > MOST_ZEROS; zeros -= MOST_ZEROS + 1) out.put(codes.of[MOST_ZEROS << 4]);
        const int bits = category(value);
        out.put(with_value(codes.of[static_cast<size_t>(zeros << 4 | bits)], value, bits));
        zeros = 0;
    }
    if (zeros > 0) out.put(codes.of[0]);
}

uint8_t* ByteWriter::finish() {
    const int ones = (8 - m_held % 8) % 8;
    m_bits = m_bits << ones | ((uint64_t{1} << ones) - 1);
    for (m_held += ones; m_held > 0; m_held -= 8) {
        put_byte(static_cast<uint8_t>(m_bits >> (m_held - 8)));
    }
    return m_out;
}

}  // namespace sim::jpeg
