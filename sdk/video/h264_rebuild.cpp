// The inverse transforms of DC levels. No AC: h264_writer has none.
#include "sdk/video/h264_rebuild.h"

namespace sim {

namespace {

// Of the DC coefficient, for qp % 6 (8.5.9): 16 times 10, 11, 13, 14, 16, 18.
constexpr std::array<int, 6> LEVEL_SCALE = {160, 176, 208, 224, 256, 288};

// QPc for qp 30..51 (table 8-15); below they are equal.
constexpr std::array<int, 22> CHROMA_QP = {29, 30, 31, 32, 32, 33, 34, 34, 35, 35, 36,
                                           36, 37, 37, 37, 38, 38, 38, 39, 39, 39, 39};

constexpr int LEAST = -(1 << 15), MOST = (1 << 15) - 1;

// Four values, `step` apart.
void hadamard_of_four(int* at, size_t step) {
    const int a = at[0] + at[step], b = at[0] - at[step];
    const int c = at[2 * step] + at[3 * step], d = at[2 * step] - at[3 * step];
    at[0] = a + c;
    at[step] = a - c;
    at[2 * step] = b - d;
    at[3 * step] = b + d;
}

// What a DC coefficient adds to a sample (8.5.12.2). False when it has more than 16 bits.
bool to_sample(int& value) {
    if (value < LEAST || value > MOST) return false;
    value = (value + 32) >> 6;
    return true;
}

}  // namespace

int chroma_qp(int qp) { return qp < 30 ? qp : CHROMA_QP[static_cast<size_t>(qp - 30)]; }

void hadamard(std::array<int, 16>& values) {
    for (size_t i = 0; i < 4; ++i) hadamard_of_four(&values[4 * i], 1);
    for (size_t i = 0; i < 4; ++i) hadamard_of_four(&values[i], 4);
}

void hadamard(std::array<int, 4>& values) {
    const auto [a, b, c, d] = values;
    values = {a + b + c + d, a - b + c - d, a + b - c - d, a - b - c + d};
}

bool rebuild_luma_dc(std::array<int, 16>& levels, int qp) {
    std::array<int, 16> f{};
    for (size_t i = 0; i < 16; ++i) f[LUMA_DC_SCAN[i]] = levels[i];
    hadamard(f);
    const int scale = LEVEL_SCALE[static_cast<size_t>(qp % 6)], shift = qp / 6;
    for (size_t i = 0; i < 16; ++i) {
        const int scaled = f[i] * scale;
        levels[i] =
            shift >= 6 ? scaled * (1 << (shift - 6)) : (scaled + (1 << (5 - shift))) >> (6 - shift);
        if (!to_sample(levels[i])) return false;
    }
    return true;
}

bool rebuild_chroma_dc(std::array<int, 4>& levels, int qp) {
    const int of_chroma = chroma_qp(qp);
    const int scale = LEVEL_SCALE[static_cast<size_t>(of_chroma % 6)], shift = of_chroma / 6;
    hadamard(levels);
    for (int& level : levels) {
        level = level * scale * (1 << shift) >> 5;
        if (!to_sample(level)) return false;
    }
    return true;
}

}  // namespace sim
