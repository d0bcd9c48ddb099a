// Coefficient tokens, levels, zeros and runs.
#include "sdk/video/cavlc_writer.h"

#include <algorithm>
#include <cstdlib>

#include "sdk/video/cavlc_tables.h"

namespace sim {

namespace {

using namespace cavlc;

constexpr unsigned TOKEN_BITS_BESIDE_PCM = 6;
constexpr uint32_t NONE_BESIDE_PCM = 3;
constexpr int MOST_TRAILING_ONES = 3;
constexpr unsigned LONGEST_SUFFIX = 6;
constexpr unsigned ESCAPE_PREFIX = 15, ESCAPE_BITS = 12;

// What is coded of a block: its levels from the highest frequency down, and the zeros below each.
struct Coded {
    std::array<int, 16> levels;
    std::array<int, 16> runs;
    int total = 0;
    int ones = 0;   // trailing ones
    int zeros = 0;  // below the highest frequency
};

template <size_t SIZE>
Coded analyse(const std::array<int, SIZE>& levels) {
    Coded out;
    bool only_ones = true;
    for (size_t i = SIZE; i-- > 0;) {
        const int level = levels[i];
        if (level == 0) {
            if (out.total > 0) {
                ++out.runs[static_cast<size_t>(out.total - 1)];
                ++out.zeros;
            }
            continue;
        }
        only_ones = only_ones && std::abs(level) == 1 && out.ones < MOST_TRAILING_ONES;
        if (only_ones) ++out.ones;
        const auto place = static_cast<size_t>(out.total++);
        out.levels[place] = level;
        out.runs[place] = 0;
    }
    return out;
}

void write_code(BitWriter& bits, const Code& code) { bits.bits(code.bits, code.length); }

// One level that is no trailing one (9.2.2.1, the other way round).
void write_level(BitWriter& bits, unsigned suffix_length, uint32_t code) {
    const uint32_t escape = suffix_length == 0 ? 30 : uint32_t{ESCAPE_PREFIX} << suffix_length;
    if (code >= escape) {
        bits.bits(1, ESCAPE_PREFIX + 1);
        bits.bits(code - escape, ESCAPE_BITS);
    } else if (suffix_length > 0) {
        bits.bits(1, (code >> suffix_length) + 1);
        bits.bits(code & ((1U << suffix_length) - 1), suffix_length);
    } else if (code < ESCAPE_PREFIX - 1) {
        bits.bits(1, code + 1);
    } else {
        bits.bits(1, ESCAPE_PREFIX);
        bits.bits(code - (ESCAPE_PREFIX - 1), 4);
    }
}

void write_levels(BitWriter& bits, const Coded& block) {
    unsigned suffix_length = block.total > 10 && block.ones < MOST_TRAILING_ONES ? 1 : 0;
    for (int i = 0; i < block.total; ++i) {
        const int level = block.levels[static_cast<size_t>(i)];
        if (i < block.ones) {
            bits.flag(level < 0);
            continue;
        }
        const int size = std::abs(level);
        auto code = static_cast<uint32_t>(level > 0 ? 2 * size - 2 : 2 * size - 1);
        // It cannot be 1 or -1, which would have been a trailing one.
        if (i == block.ones && block.ones < MOST_TRAILING_ONES) code -= 2;
        write_level(bits, suffix_length, code);
        if (suffix_length == 0) suffix_length = 1;
        if (suffix_length < LONGEST_SUFFIX && size > 3 << (suffix_length - 1)) ++suffix_length;
    }
}

void write_runs(BitWriter& bits, const Coded& block) {
    int zeros = block.zeros;
    for (int i = 0; i + 1 < block.total && zeros > 0; ++i) {
        const int run = block.runs[static_cast<size_t>(i)];
        write_code(bits, RUNS[std::min(zeros, 7) - 1][run]);
        zeros -= run;
    }
}

template <size_t SIZE, size_t ROWS>
void write_block(BitWriter& bits, const Coded& block, const Code (&zero_codes)[ROWS][SIZE]) {
    if (block.total == 0) return;
    write_levels(bits, block);
    if (static_cast<size_t>(block.total) < SIZE)
        write_code(bits, zero_codes[block.total - 1][block.zeros]);
    write_runs(bits, block);
}

}  // namespace

void write_luma_dc(BitWriter& bits, bool beside_pcm, const std::array<int, 16>& levels) {
    const Coded block = analyse(levels);
    if (!beside_pcm)
        write_code(bits, LUMA_TOKENS[block.total][block.ones]);
    else if (block.total == 0)
        bits.bits(NONE_BESIDE_PCM, TOKEN_BITS_BESIDE_PCM);
    else
        bits.bits(static_cast<uint32_t>((block.total - 1) << 2 | block.ones),
                  TOKEN_BITS_BESIDE_PCM);
    write_block(bits, block, LUMA_ZEROS);
}

void write_chroma_dc(BitWriter& bits, const std::array<int, 4>& levels) {
    const Coded block = analyse(levels);
    write_code(bits, CHROMA_TOKENS[block.total][block.ones]);
    write_block(bits, block, CHROMA_ZEROS);
}

}  // namespace sim
