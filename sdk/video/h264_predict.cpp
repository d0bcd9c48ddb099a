// DC prediction, and the sums that it needs.
#include "sdk/video/h264_predict.h"

#include <cstddef>

namespace sim {

namespace {

constexpr int GREY = 128;  // predicted where there is no neighbour

int sum(const uint8_t* from, size_t count, size_t step) {
    int total = 0;
    for (size_t i = 0; i < count; ++i) total += from[i * step];
    return total;
}

// Of one chroma plane of 8 x 8: the halves of its right column, or of its bottom row.
std::array<int, 2> halves(const uint8_t* from, size_t step) {
    return {sum(from, 4, step), sum(from + 4 * step, 4, step)};
}

int predict_luma(const Edge* left, const Edge* above) {
    if (left == nullptr && above == nullptr) return GREY;
    if (left == nullptr) return (above->y + 8) >> 4;
    if (above == nullptr) return (left->y + 8) >> 4;
    return (left->y + above->y + 16) >> 5;
}

// The upper left, upper right, lower left and lower right 4 x 4 samples.
std::array<int, 4> predict_chroma(const std::array<int, 2>* left, const std::array<int, 2>* above) {
    if (left == nullptr && above == nullptr) return {GREY, GREY, GREY, GREY};
    const auto mean = [](int four) { return (four + 2) >> 2; };
    const auto both = [](int a, int b) { return (a + b + 4) >> 3; };
    if (above == nullptr) {
        const int upper = mean((*left)[0]), lower = mean((*left)[1]);
        return {upper, upper, lower, lower};
    }
    const int first = mean((*above)[0]), second = mean((*above)[1]);
    if (left == nullptr) return {first, second, first, second};
    return {both((*left)[0], (*above)[0]), second, mean((*left)[1]), both((*left)[1], (*above)[1])};
}

}  // namespace

Edges edges_of(const FlatBlocks& blocks) {
    Edges out;
    out.right.y = 4 * sum(&blocks.y[3], 4, 4);
    out.bottom.y = 4 * sum(&blocks.y[12], 4, 1);
    out.right.u = {4 * blocks.u[1], 4 * blocks.u[3]};
    out.bottom.u = {4 * blocks.u[2], 4 * blocks.u[3]};
    out.right.v = {4 * blocks.v[1], 4 * blocks.v[3]};
    out.bottom.v = {4 * blocks.v[2], 4 * blocks.v[3]};
    return out;
}

Edges edges_of(const uint8_t* y, const uint8_t* u, const uint8_t* v) {
    Edges out;
    out.right.y = sum(y + 15, 16, 16);
    out.bottom.y = sum(y + 15 * 16, 16, 1);
    out.right.u = halves(u + 7, 8);
    out.bottom.u = halves(u + 7 * 8, 1);
    out.right.v = halves(v + 7, 8);
    out.bottom.v = halves(v + 7 * 8, 1);
    return out;
}

Prediction predict_dc(const Edge* left, const Edge* above) {
    const auto plane = [left, above](std::array<int, 2> Edge::*of) {
        return predict_chroma(left == nullptr ? nullptr : &(left->*of),
                              above == nullptr ? nullptr : &(above->*of));
    };
    return {predict_luma(left, above), plane(&Edge::u), plane(&Edge::v)};
}

}  // namespace sim
