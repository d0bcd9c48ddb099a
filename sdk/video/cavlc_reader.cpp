// Coefficient tokens, levels, zeros and runs, matched against their codes.
#include "sdk/video/cavlc_reader.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "sdk/video/cavlc_tables.h"

namespace sim {

namespace {

using namespace cavlc;

constexpr unsigned TOKEN_BITS_BESIDE_PCM = 6;  // nC 8 and more
constexpr unsigned LONGEST_PREFIX = 15;        // of levels, in this profile
constexpr unsigned LONGEST_SUFFIX = 6;

// The place of the next code among `codes`; -1 when it is none of them.
int match(BitReader& bits, const Code* codes, size_t count) {
    const uint32_t word = bits.peek();
    for (size_t i = 0; i < count; ++i) {
        const Code& code = codes[i];
        if (code.length == 0 || word >> (32U - code.length) != code.bits) continue;
        bits.skip(code.length);
        return bits.failed() ? -1 : static_cast<int>(i);
    }
    return -1;
}

struct Token {
    int total = 0;
    int ones = 0;
};

// False when there is no such token.
bool read_token_beside_pcm(BitReader& bits, Token& out) {
    constexpr uint32_t NONE = 3;
    const uint32_t code = bits.bits(TOKEN_BITS_BESIDE_PCM);
    if (code == NONE) return true;
    out.total = static_cast<int>(code >> 2) + 1;
    out.ones = static_cast<int>(code & 3);
    return out.ones <= out.total;
}

template <size_t ROWS>
bool read_token(BitReader& bits, const Code (&tokens)[ROWS][4], Token& out) {
    const int place = match(bits, &tokens[0][0], ROWS * 4);
    out.total = place / 4;
    out.ones = place % 4;
    return place >= 0;
}

// One level that is no trailing one (9.2.2.1). `suffix_length` is that of the next one afterwards.
// `above_one`: it cannot be 1 or -1, which would have been a trailing one.
bool read_level(BitReader& bits, unsigned& suffix_length, bool above_one, int& out) {
    const uint32_t word = bits.peek();
    unsigned prefix = 0;
    while (prefix <= LONGEST_PREFIX && (word << prefix >> 31) == 0) ++prefix;
    if (prefix > LONGEST_PREFIX) return false;
    bits.skip(prefix + 1);
    unsigned size = suffix_length;
    if (prefix == LONGEST_PREFIX)
        size = LONGEST_PREFIX - 3;
    else if (prefix == LONGEST_PREFIX - 1 && suffix_length == 0)
        size = 4;
    auto code = static_cast<int>(prefix << suffix_length);
    if (size > 0) code += static_cast<int>(bits.bits(size));
    if (prefix == LONGEST_PREFIX && suffix_length == 0) code += 15;
    if (above_one) code += 2;
    out = code % 2 == 0 ? (code + 2) / 2 : -(code + 1) / 2;
    if (suffix_length == 0) suffix_length = 1;
    if (suffix_length < LONGEST_SUFFIX && std::abs(out) > 3 << (suffix_length - 1)) ++suffix_length;
    return !bits.failed();
}

// The levels from the highest frequency down.
bool read_levels(BitReader& bits, const Token& token, int* out) {
    unsigned suffix_length = token.total > 10 && token.ones < 3 ? 1 : 0;
    for (int i = 0; i < token.total; ++i) {
        if (i < token.ones) {
            out[i] = bits.flag() ? -1 : 1;
        } else if (!read_level(bits, suffix_length, i == token.ones && token.ones < 3, out[i])) {
            return false;
        }
    }
    return !bits.failed();
}

// Puts the levels at their places among zeros, of which `zeros` are below the highest one.
bool place_levels(BitReader& bits, const int* levels, int total, int zeros, int* out) {
    int place = total - 1 + zeros;
    for (int i = 0; i < total; ++i) {
        out[place] = levels[i];
        if (zeros > 0 && i + 1 < total) {
            const auto row = static_cast<size_t>(std::min(zeros, 7) - 1);
            const int run = match(bits, RUNS[row], std::size(RUNS[row]));
            if (run < 0 || run > zeros) return false;
            zeros -= run;
            place -= run;
        }
        --place;
    }
    return true;
}

template <size_t SIZE, size_t ROWS>
bool read_block(BitReader& bits, const Token& token, const Code (&zero_codes)[ROWS][SIZE],
                std::array<int, SIZE>& out) {
    out.fill(0);
    if (token.total == 0) return !bits.failed();
    std::array<int, SIZE> levels{};
    if (!read_levels(bits, token, levels.data())) return false;
    int zeros = 0;
    if (static_cast<size_t>(token.total) < SIZE) {
        zeros = match(bits, zero_codes[token.total - 1], SIZE);
        if (zeros < 0) return false;
    }
    return place_levels(bits, levels.data(), token.total, zeros, out.data());
}

}  // namespace

bool read_luma_dc(BitReader& bits, bool beside_pcm, std::array<int, 16>& levels) {
    Token token;
    const bool known =
        beside_pcm ? read_token_beside_pcm(bits, token) : read_token(bits, LUMA_TOKENS, token);
    return known && read_block(bits, token, LUMA_ZEROS, levels);
}

bool read_chroma_dc(BitReader& bits, std::array<int, 4>& levels) {
    Token token;
    return read_token(bits, CHROMA_TOKENS, token) && read_block(bits, token, CHROMA_ZEROS, levels);
}

}  // namespace sim
