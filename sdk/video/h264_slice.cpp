// Slice headers, and macroblocks: levels from differences, and their codes.
#include "sdk/video/h264_slice.h"

#include <algorithm>
#include <cstdlib>

#include "sdk/video/cavlc_writer.h"
#include "sdk/video/h264_rebuild.h"

namespace sim {

namespace {

constexpr int PICTURE_SET_QP = 26;        // pic_init_qp_minus26 is 0
constexpr uint32_t ALL_P = 5, ALL_I = 7;  // slice_type
// mb_type in an I slice; in a P slice they come after its 5 inter types.
constexpr uint32_t INTER_TYPES = 5;
constexpr uint32_t INTRA_DC = 3, INTRA_DC_CHROMA = 7, PCM = 25;
constexpr int QUANTISERS = MOST_QP + 1;

// What a DC coefficient is multiplied with, for qp % 6: 2^15 over 2.5, 2.75, 3.25, 3.5, 4, 4.5.
constexpr std::array<int, 6> FACTOR = {13107, 11916, 10082, 9362, 8192, 7282};

// Differences from what is predicted, transformed.
struct Transformed {
    std::array<int, 16> y;
    std::array<int, 4> u, v;
};

Transformed transform(const FlatBlocks& wanted, const Prediction& from) {
    Transformed out;
    for (size_t i = 0; i < 16; ++i) out.y[i] = wanted.y[i] - from.y;
    for (size_t i = 0; i < 4; ++i) {
        out.u[i] = wanted.u[i] - from.u[i];
        out.v[i] = wanted.v[i] - from.v[i];
    }
    hadamard(out.y);
    hadamard(out.u);
    hadamard(out.v);
    return out;
}

// A level for a coefficient, rounded up from two thirds of a step on.
int quantised(int coefficient, int qp) {
    const int shift = 16 + qp / 6;
    const int size = std::abs(coefficient) * FACTOR[static_cast<size_t>(qp % 6)] + (1 << shift) / 3;
    return coefficient < 0 ? -(size >> shift) : size >> shift;
}

template <class Levels>
bool in_range(const Levels& levels) {
    return std::all_of(levels.begin(), levels.end(),
                       [](int level) { return std::abs(level) <= MOST_LEVEL; });
}

template <class Levels>
bool all_zero(const Levels& levels) {
    return std::all_of(levels.begin(), levels.end(), [](int level) { return level == 0; });
}

// The transform of a 4 x 4 block with one difference is 16 times that; luma is halved behind the
// second transform.
template <class Levels>
bool quantise(const Transformed& from, int qp, Levels& out) {
    const int of_chroma = chroma_qp(qp);
    for (size_t i = 0; i < 16; ++i) out.y[i] = quantised(8 * from.y[LUMA_DC_SCAN[i]], qp);
    for (size_t i = 0; i < 4; ++i) {
        out.u[i] = quantised(16 * from.u[i], of_chroma);
        out.v[i] = quantised(16 * from.v[i], of_chroma);
    }
    return in_range(out.y) && in_range(out.u) && in_range(out.v);
}

// At quantiser 28 a luma level is worth 16, a chroma level 8; at each of 22, 16, 10 and 4 half of
// the one before. Returns the highest at which all differences are whole levels; at 4 they are.
int exact_qp(const Transformed& from) {
    int luma = 0, chroma = 0;
    for (const int value : from.y) luma |= value;
    for (size_t i = 0; i < 4; ++i) chroma |= from.u[i] | from.v[i];
    int qp = EXACT_QP;
    for (; qp > 4; qp -= 6) {
        const int step = (qp + 2) / 6;  // 2^step is its worth, 5 at 28
        if ((luma & ((1 << (step - 1)) - 1)) == 0 &&
            (step < 2 || (chroma & ((1 << (step - 2)) - 1)) == 0))
            break;
    }
    return qp;
}

template <class Levels>
bool take_exactly(const Transformed& from, int qp, Levels& out) {
    const int step = (qp + 2) / 6;
    for (size_t i = 0; i < 16; ++i) out.y[i] = from.y[LUMA_DC_SCAN[i]] / (1 << (step - 1));
    for (size_t i = 0; i < 4; ++i) {
        out.u[i] = 2 * from.u[i] / (1 << (step - 1));
        out.v[i] = 2 * from.v[i] / (1 << (step - 1));
    }
    return in_range(out.y) && in_range(out.u) && in_range(out.v);
}

}  // namespace

MacroblockSamples samples_of(const FlatBlocks& blocks) {
    MacroblockSamples out;
    for (size_t i = 0; i < 256; ++i) out.y[i] = blocks.y[i / 64 * 4 + i % 16 / 4];
    for (size_t i = 0; i < 64; ++i) {
        out.u[i] = blocks.u[i / 32 * 2 + i % 8 / 4];
        out.v[i] = blocks.v[i / 32 * 2 + i % 8 / 4];
    }
    return out;
}

bool flat_blocks(const MacroblockSamples& samples, FlatBlocks& out) {
    for (size_t i = 0; i < 16; ++i) out.y[i] = samples.y[i / 4 * 64 + i % 4 * 4];
    for (size_t i = 0; i < 4; ++i) {
        out.u[i] = samples.u[i / 2 * 32 + i % 2 * 4];
        out.v[i] = samples.v[i / 2 * 32 + i % 2 * 4];
    }
    return samples_of(out) == samples;
}

void SliceWriter::begin(const Start& start) {
    m_start = start;
    m_next = start.first;
    m_skipped = 0;
    m_qp = start.qp;
    ++m_slice;
    m_above.resize(static_cast<size_t>(start.columns));
    m_bits.clear();
    m_bits.ue(static_cast<uint32_t>(start.first));
    m_bits.ue(start.key ? ALL_I : ALL_P);
    m_bits.ue(0);  // pic_parameter_set_id
    m_bits.bits(start.key ? 0 : start.frame_num, 8);
    if (start.key) {
        m_bits.ue(start.idr_id);
        m_idr_id_bit = m_bits.size() - IDR_ID_BITS;
        m_bits.bits(0, 2);  // no_output_of_prior_pics_flag, long_term_reference_flag
    } else {
        // num_ref_idx_active_override_flag, ref_pic_list_modification_flag_l0,
        // adaptive_ref_pic_marking_mode_flag
        m_bits.bits(0, 3);
    }
    m_bits.se(start.qp - PICTURE_SET_QP);
    m_bits.ue(1);  // disable_deblocking_filter_idc
}

void SliceWriter::skip(int count) {
    m_skipped += static_cast<uint32_t>(count);
    m_next += count;
}

const std::vector<uint8_t>& SliceWriter::finish() {
    if (m_skipped > 0) m_bits.ue(m_skipped);
    m_skipped = 0;
    m_bits.stop();
    return m_bits.bytes();
}

const SliceWriter::Coded* SliceWriter::left() const {
    const bool there =
        m_next % m_start.columns != 0 && m_left.slice == m_slice && m_left.address == m_next - 1;
    return there ? &m_left : nullptr;
}

const SliceWriter::Coded* SliceWriter::above() const {
    const Coded& coded = m_above[static_cast<size_t>(m_next % m_start.columns)];
    const bool there = coded.slice == m_slice && coded.address + m_start.columns == m_next;
    return there ? &coded : nullptr;
}

Prediction SliceWriter::predict() const {
    const Coded* const beside = left();
    const Coded* const over = above();
    return predict_dc(beside ? &beside->edge : nullptr, over ? &over->edge : nullptr);
}

void SliceWriter::note(bool pcm, const Edges& edges) {
    m_left = {m_slice, m_next, pcm, edges.right};
    m_above[static_cast<size_t>(m_next % m_start.columns)] = {m_slice, m_next, pcm, edges.bottom};
    ++m_next;
}

void SliceWriter::write_type(uint32_t type) {
    if (!m_start.key) {
        m_bits.ue(m_skipped);
        m_skipped = 0;
        type += INTER_TYPES;
    }
    m_bits.ue(type);
}

void SliceWriter::write_levels(const Levels& levels, int qp) {
    const bool chroma = !all_zero(levels.u) || !all_zero(levels.v);
    if (!chroma && all_zero(levels.y)) qp = m_qp;
    write_type(chroma ? INTRA_DC_CHROMA : INTRA_DC);
    m_bits.ue(0);  // intra_chroma_pred_mode: DC
    int delta = qp - m_qp;
    if (delta < -QUANTISERS / 2) delta += QUANTISERS;
    if (delta >= QUANTISERS / 2) delta -= QUANTISERS;
    m_bits.se(delta);
    m_qp = qp;
    const Coded* const beside = left();
    const Coded* const over = above();
    write_luma_dc(m_bits, (beside && beside->pcm) || (over && over->pcm), levels.y);
    if (!chroma) return;
    write_chroma_dc(m_bits, levels.u);
    write_chroma_dc(m_bits, levels.v);
}

FlatBlocks SliceWriter::code(const FlatBlocks& wanted, int qp) {
    const Prediction from = predict();
    Levels levels;
    if (!quantise(transform(wanted, from), qp, levels)) {
        code_samples(samples_of(wanted));
        return wanted;
    }
    write_levels(levels, qp);
    std::array<int, 16> y = levels.y;
    rebuild_luma_dc(y, qp);  // levels in range are
    rebuild_chroma_dc(levels.u, qp);
    rebuild_chroma_dc(levels.v, qp);
    FlatBlocks shown;
    for (size_t i = 0; i < 16; ++i) shown.y[i] = add_dc(from.y, y[i]);
    for (size_t i = 0; i < 4; ++i) {
        shown.u[i] = add_dc(from.u[i], levels.u[i]);
        shown.v[i] = add_dc(from.v[i], levels.v[i]);
    }
    note(false, edges_of(shown));
    return shown;
}

void SliceWriter::code_exactly(const FlatBlocks& wanted) {
    const Transformed transformed = transform(wanted, predict());
    const int qp = exact_qp(transformed);
    Levels levels;
    if (!take_exactly(transformed, qp, levels)) {
        code_samples(samples_of(wanted));
        return;
    }
    write_levels(levels, qp);
    note(false, edges_of(wanted));
}

void SliceWriter::code_samples(const MacroblockSamples& samples) {
    write_type(PCM);
    m_bits.align_with_zeros();
    for (const uint8_t sample : samples.y) m_bits.bits(sample, 8);
    for (const uint8_t sample : samples.u) m_bits.bits(sample, 8);
    for (const uint8_t sample : samples.v) m_bits.bits(sample, 8);
    note(true, edges_of(samples.y.data(), samples.u.data(), samples.v.data()));
}

}  // namespace sim
