// The block code: which bits it has, and how they are read from a picture.
#include "sdk/video/scene.h"

namespace sim {

namespace {

constexpr int SQUARE = 8;  // samples of its side
constexpr int SQUARES_A_ROW = 16;
constexpr int ROWS = 4;
constexpr int MARGIN = 2;  // samples of a square that are not looked at, on each side
constexpr int CODE_HEIGHT = ROWS * SQUARE;
constexpr int BYTES_BEFORE_CRC = 6;

// CRC-16/CCITT-FALSE: polynomial 0x1021, begun with 0xFFFF, four bits at a time.
constexpr uint16_t CRC_OF_NIBBLE[16] = {0x0000, 0x1021, 0x2042, 0x3063, 0x4084, 0x50A5,
                                        0x60C6, 0x70E7, 0x8108, 0x9129, 0xA14A, 0xB16B,
                                        0xC18C, 0xD1AD, 0xE1CE, 0xF1EF};

uint32_t crc_nibble(uint32_t crc, uint32_t nibble) {
    return ((crc << 4) ^ CRC_OF_NIBBLE[(crc >> 12 ^ nibble) & 15]) & 0xFFFF;
}

uint64_t with_crc(uint64_t six_bytes) {
    uint32_t crc = 0xFFFF;
    for (int shift = 8 * BYTES_BEFORE_CRC - 4; shift >= 0; shift -= 4)
        crc = crc_nibble(crc, static_cast<uint32_t>(six_bytes >> shift & 15));
    return six_bytes << 16 | crc;
}

bool is_light(const Picture& picture, int left, int top) {
    const int side = SQUARE - 2 * MARGIN;
    int sum = 0;
    for (int y = top + MARGIN; y < top + MARGIN + side; ++y)
        for (int x = left + MARGIN; x < left + MARGIN + side; ++x)
            sum += picture.y[static_cast<size_t>(y) * static_cast<size_t>(picture.size.width) +
                             static_cast<size_t>(x)];
    return sum > side * side * (INK_LUMA + BLACK_LUMA) / 2;
}

}  // namespace

uint64_t block_code_bits(const BlockCode& code) {
    const uint64_t names = uint64_t{code.stream & 7u} << 5 | (code.channel & 31u);
    return with_crc(names << 40 | uint64_t{code.number} << 8);
}

std::optional<uint64_t> light_squares(const Picture& picture) {
    if (!has_overlay(picture.size)) return {};
    const int top = (picture.size.height / MACROBLOCK - 2) * MACROBLOCK;
    uint64_t bits = 0;
    for (int y = top; y < top + CODE_HEIGHT; y += SQUARE)
        for (int x = 0; x < SQUARES_A_ROW * SQUARE; x += SQUARE)
            bits = bits << 1 | (is_light(picture, x, y) ? 1 : 0);
    return bits;
}

CodeFound read_block_code(const Picture& picture, BlockCode& out) {
    const std::optional<uint64_t> squares = light_squares(picture);
    if (!squares) return CodeFound::none;
    const uint64_t bits = *squares;
    if (bits == 0) return CodeFound::blank;
    if (with_crc(bits >> 16) != bits || (bits >> 16 & 0xFF) != 0) return CodeFound::none;
    out.stream = static_cast<uint8_t>(bits >> 61);
    out.channel = static_cast<uint8_t>(bits >> 56 & 31);
    out.number = static_cast<uint32_t>(bits >> 24);
    return CodeFound::valid;
}

}  // namespace sim
