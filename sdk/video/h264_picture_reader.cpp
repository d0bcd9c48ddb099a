// Reads slice headers and macroblocks (ITU-T H.264, 7.3.3 to 7.3.5) and rebuilds samples (8.5).
// What h264_writer never writes is refused where it is met.
#include "sdk/video/h264_picture_reader.h"

#include <algorithm>
#include <cstring>

#include "sdk/video/cavlc_reader.h"
#include "sdk/video/h264_rebuild.h"

namespace sim {

namespace {

constexpr uint32_t P_SLICE = 0, I_SLICE = 2, ALL_ALIKE = 5;  // slice_type; + 5: the picture's all
constexpr uint32_t MOST_IDR_ID = 65535;
// mb_type of a macroblock in an I slice; those of a P slice come after its 5 inter types.
constexpr uint32_t INTER_TYPES = 5;
constexpr uint32_t INTRA_DC = 3, INTRA_DC_CHROMA = 7, PCM = 25;

constexpr size_t LUMA_SAMPLES = 256, CHROMA_SAMPLES = 64;

constexpr const char* CUT_OFF = "the slice ends in the middle of it";

template <size_t SIDE>
void paint_cells(uint8_t* at, size_t stride, const uint8_t* values) {
    for (size_t row = 0; row < SIDE / 4; ++row) {
        std::array<uint8_t, SIDE> line;
        for (size_t x = 0; x < SIDE; ++x) line[x] = values[x / 4];
        values += SIDE / 4;
        for (size_t y = 0; y < 4; ++y, at += stride) std::memcpy(at, line.data(), SIDE);
    }
}

void copy_clipped(uint8_t* at, size_t stride, size_t width, size_t height, const uint8_t* from,
                  size_t from_stride) {
    for (size_t y = 0; y < height; ++y, at += stride, from += from_stride)
        std::copy(from, from + width, at);
}

}  // namespace

struct PictureReader::Header {
    uint32_t first = 0, type = 0, sets = 0, frame_num = 0, idr_id = 0;
    bool more_references = false, reordered = false, marked = false;
    int qp_delta = 0;
    uint32_t deblocking = 0;
};

void PictureReader::begin(const Start& start, Picture& out) {
    m_start = start;
    m_out = &out;
    m_columns = static_cast<uint32_t>(macroblocks(start.size.width));
    m_total = m_columns * static_cast<uint32_t>(macroblocks(start.size.height));
    m_next = 0;
    m_slices = 0;
    m_saved.clear();
    m_error.clear();
    m_above.resize(m_columns);
    if (start.key) out.resize(start.size);
}

bool PictureReader::end() {
    if (m_next == m_total) {
        m_saved.clear();
        return true;
    }
    m_error = "macroblock " + std::to_string(m_next) + ": it is missing, and all behind it";
    return false;
}

bool PictureReader::refuse_slice(const char* why) {
    m_error = "slice " + std::to_string(m_slices) + ": " + why;
    return false;
}

bool PictureReader::refuse_macroblock(const char* why) {
    m_error = "macroblock " + std::to_string(m_next) + ": " + why;
    return false;
}

bool PictureReader::read_slice(BitReader bits) {
    Header header;
    const char* wrong = read_header(bits, header);
    if (bits.failed()) wrong = "it ends within its header";
    if (wrong == nullptr) wrong = check_header(header);
    if (wrong != nullptr) return refuse_slice(wrong);
    if (m_slices == 0) m_idr_id = header.idr_id;
    m_qp = m_start.qp + header.qp_delta;
    ++m_slice;
    if (!read_macroblocks(bits)) return false;
    ++m_slices;
    return true;
}

// The elements that are there because of the parameter sets, which never differ in that.
const char* PictureReader::read_header(BitReader& bits, Header& header) const {
    header.first = bits.ue();
    header.type = bits.ue();
    header.sets = bits.ue();
    header.frame_num = bits.bits(8);
    if (m_start.key) {
        header.idr_id = bits.ue();
        header.marked = bits.flag();  // no_output_of_prior_pics_flag
        if (bits.flag()) return "long_term_reference_flag is set";
    } else {
        if (bits.flag()) return "num_ref_idx_active_override_flag is set";
        if (bits.flag()) return "ref_pic_list_modification_flag_l0 is set";
        if (bits.flag()) return "adaptive_ref_pic_marking_mode_flag is set";
    }
    header.qp_delta = bits.se();
    header.deblocking = bits.ue();
    return nullptr;
}

const char* PictureReader::check_header(const Header& header) const {
    if (header.first > m_next) return "macroblocks before its first one are missing";
    if (header.first < m_next) return "its first macroblock was coded before";
    if (header.first >= m_total) return "its first macroblock is outside the picture";
    if (header.type % ALL_ALIKE != (m_start.key ? I_SLICE : P_SLICE) ||
        header.type >= 2 * ALL_ALIKE)
        return m_start.key ? "it is not of type I" : "it is not of type P";
    if (header.sets != 0) return "pic_parameter_set_id is not 0";
    if (header.frame_num != m_start.frame_num)
        return m_start.key ? "frame_num of a key picture is not 0"
                           : "frame_num does not follow that of the picture before";
    // That of the key picture before is not looked at: a seek may leave some out.
    if (header.idr_id > MOST_IDR_ID) return "idr_pic_id is above 65535";
    if (m_slices != 0 && header.idr_id != m_idr_id)
        return "idr_pic_id differs from that of the first slice";
    if (header.marked) return "no_output_of_prior_pics_flag is set";
    const int qp = m_start.qp;
    if (header.qp_delta < -qp || header.qp_delta > MOST_QP - qp)
        return "its quantiser is out of range";
    if (header.deblocking != 1) return "disable_deblocking_filter_idc is not 1";
    return nullptr;
}

bool PictureReader::read_macroblocks(BitReader& bits) {
    const uint32_t first = m_next;
    do {
        if (!m_start.key) {
            const uint32_t skipped = bits.ue();
            if (bits.failed()) return refuse_macroblock(CUT_OFF);
            if (skipped > m_total - m_next)
                return refuse_macroblock("more are skipped than there are left");
            m_next += skipped;
            if (skipped != 0 && !bits.more()) break;
        }
        if (m_next == m_total) return refuse_slice("there is data behind the last macroblock");
        const char* const wrong = read_macroblock(bits);
        if (bits.failed()) return refuse_macroblock(CUT_OFF);
        if (wrong != nullptr) return refuse_macroblock(wrong);
        ++m_next;
    } while (bits.more());
    return m_next != first || refuse_slice("it has no macroblock");
}

const char* PictureReader::read_macroblock(BitReader& bits) {
    uint32_t type = bits.ue();
    if (!m_start.key) {
        if (type < INTER_TYPES) return "it is inter coded and not skipped";
        type -= INTER_TYPES;
    }
    if (type == PCM) return read_pcm(bits);
    if (type != INTRA_DC && type != INTRA_DC_CHROMA)
        return "it is neither Intra 16x16 with DC alone nor I_PCM";
    return read_intra(bits, type == INTRA_DC_CHROMA);
}

// Neighbours in the same slice that are intra coded. A skipped one is neither predicted from,
// since intra prediction is constrained, nor does it count coefficients.
PictureReader::Neighbours PictureReader::neighbours() const {
    Neighbours found;
    const uint32_t column = m_next % m_columns;
    if (column > 0 && m_left.slice == m_slice && m_left.address == m_next - 1) found.left = &m_left;
    const Coded& above = m_above[column];
    if (above.slice == m_slice && above.address + m_columns == m_next) found.above = &above;
    return found;
}

void PictureReader::note(bool pcm, const Edges& edges) {
    m_left = {m_slice, m_next, pcm, edges.right};
    m_above[m_next % m_columns] = {m_slice, m_next, pcm, edges.bottom};
}

const char* PictureReader::read_intra(BitReader& bits, bool chroma) {
    if (bits.ue() != 0) return "intra_chroma_pred_mode is not DC";
    const int qp_delta = bits.se();
    if (qp_delta < -26 || qp_delta > 25) return "mb_qp_delta is out of range";
    m_qp = (m_qp + qp_delta + MOST_QP + 1) % (MOST_QP + 1);

    const auto [left, above] = neighbours();
    const bool beside_pcm = (left != nullptr && left->pcm) || (above != nullptr && above->pcm);
    std::array<int, 16> luma{};
    std::array<int, 4> u{}, v{};
    if (!read_luma_dc(bits, beside_pcm, luma)) return "its luma levels cannot be read";
    if (chroma && (!read_chroma_dc(bits, u) || !read_chroma_dc(bits, v)))
        return "its chroma levels cannot be read";
    if (bits.failed()) return CUT_OFF;
    if (!rebuild_luma_dc(luma, m_qp)) return "its luma coefficients are out of range";
    if (!rebuild_chroma_dc(u, m_qp) || !rebuild_chroma_dc(v, m_qp))
        return "its chroma coefficients are out of range";

    const Prediction grey = predict_dc(left == nullptr ? nullptr : &left->edge,
                                       above == nullptr ? nullptr : &above->edge);
    FlatBlocks values;
    for (size_t i = 0; i < 16; ++i) values.y[i] = add_dc(grey.y, luma[i]);
    for (size_t i = 0; i < 4; ++i) {
        values.u[i] = add_dc(grey.u[i], u[i]);
        values.v[i] = add_dc(grey.v[i], v[i]);
    }
    save();
    paint(values);
    note(false, edges_of(values));
    return nullptr;
}

const char* PictureReader::read_pcm(BitReader& bits) {
    if (!bits.align()) return "bits before its samples are not 0";
    const uint8_t* const y = bits.bytes(LUMA_SAMPLES + 2 * CHROMA_SAMPLES);
    if (y == nullptr) return CUT_OFF;
    const uint8_t* const u = y + LUMA_SAMPLES;
    const uint8_t* const v = u + CHROMA_SAMPLES;
    save();
    const uint8_t* from = y;
    for (const View& view : views(m_next)) {
        copy_clipped(view.at, view.stride, view.width, view.height, from, view.side);
        from += view.side * view.side;
    }
    note(true, edges_of(y, u, v));
    return nullptr;
}

std::array<PictureReader::View, 3> PictureReader::views(uint32_t address) {
    const auto width = static_cast<size_t>(m_start.size.width);
    const auto height = static_cast<size_t>(m_start.size.height);
    const size_t column = address % m_columns, row = address / m_columns;
    const auto view = [&](std::vector<uint8_t>& plane, size_t side, size_t wide, size_t high) {
        const size_t x = column * side, y = row * side;
        return View{plane.data() + y * wide + x, wide, std::min(side, wide - x),
                    std::min(side, high - y), side};
    };
    return {view(m_out->y, 16, width, height), view(m_out->u, 8, width / 2, height / 2),
            view(m_out->v, 8, width / 2, height / 2)};
}

// Keeps what a macroblock of a P picture replaces. A key picture replaces nothing that is shown.
void PictureReader::save() {
    if (m_start.key) return;
    Saved& saved = m_saved.emplace_back();
    saved.address = m_next;
    uint8_t* to = saved.samples.data();
    for (const View& view : views(m_next)) {
        copy_clipped(to, view.side, view.width, view.height, view.at, view.stride);
        to += view.side * view.side;
    }
}

void PictureReader::undo() {
    for (const Saved& saved : m_saved) {
        const uint8_t* from = saved.samples.data();
        for (const View& view : views(saved.address)) {
            copy_clipped(view.at, view.stride, view.width, view.height, from, view.side);
            from += view.side * view.side;
        }
    }
    m_saved.clear();
}

void PictureReader::paint(const FlatBlocks& values) {
    const std::array<const uint8_t*, 3> cells = {values.y.data(), values.u.data(), values.v.data()};
    size_t plane = 0;
    for (const View& view : views(m_next)) {
        const uint8_t* const from = cells[plane++];
        if (view.width < view.side || view.height < view.side) {
            std::array<uint8_t, LUMA_SAMPLES> whole;
            if (view.side == 16)
                paint_cells<16>(whole.data(), 16, from);
            else
                paint_cells<8>(whole.data(), 8, from);
            copy_clipped(view.at, view.stride, view.width, view.height, whole.data(), view.side);
        } else if (view.side == 16) {
            paint_cells<16>(view.at, view.stride, from);
        } else {
            paint_cells<8>(view.at, view.stride, from);
        }
    }
}

}  // namespace sim
