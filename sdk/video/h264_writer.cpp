// Access units: which macroblocks are coded, and from which parts. How a macroblock is coded stands
// in h264_slice.
#include "sdk/video/h264_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "sdk/video/h264_nal.h"
#include "sdk/video/h264_sets_writer.h"
#include "sdk/video/h264_slice.h"
#include "sdk/video/zone_blanking.h"

namespace sim {

namespace {

using Bytes = std::vector<uint8_t>;
using Cover = ZoneBlanking::Cover;

// Header bytes: nal_ref_idc and type.
constexpr uint8_t SLICE = 0x61, IDR_SLICE = 0x65, SEQUENCE_SET = 0x67, PICTURE_SET = 0x68;
constexpr uint8_t DELIMITER = 0x09, FILLER = 0x0C;
constexpr uint8_t ONLY_I = 0x10, I_AND_P = 0x30;  // primary_pic_type and the stop bit
constexpr size_t UNIT_HEAD = 4;                   // start code and header of a slice, in bytes
constexpr size_t LEAST_FILLER = 5;                // start code, header, stop bit

constexpr FlatBlocks BLACK = {
    {BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA,
     BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA, BLACK_LUMA,
     BLACK_LUMA},
    {NO_COLOUR, NO_COLOUR, NO_COLOUR, NO_COLOUR},
    {NO_COLOUR, NO_COLOUR, NO_COLOUR, NO_COLOUR}};

FlatBlocks blocks_of(Overlay::Mask mask) {
    FlatBlocks out = BLACK;
    for (size_t i = 0; i < 16; ++i)
        if (mask >> i & 1) out.y[i] = INK_LUMA;
    return out;
}

FlatBlocks bar_blocks() {
    FlatBlocks out = BLACK;
    out.y.fill(BAR_LUMA);
    return out;
}

FlatBlocks blocks_of(const Cells& cells, int column, int row) {
    FlatBlocks out;
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            out.y[static_cast<size_t>(4 * y + x)] =
                cells.y[static_cast<size_t>((4 * row + y) * 4 * cells.mb_columns + 4 * column + x)];
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x) {
            const auto from =
                static_cast<size_t>((2 * row + y) * 2 * cells.mb_columns + 2 * column + x);
            out.u[static_cast<size_t>(2 * y + x)] = cells.u[from];
            out.v[static_cast<size_t>(2 * y + x)] = cells.v[from];
        }
    return out;
}

// One plane of a macroblock of `side` samples, in squares of 4 x 4, as far as the picture reaches.
void paint(const uint8_t* values, int side, int column, int row, int width, int height,
           uint8_t* plane) {
    const int left = column * side, top = row * side;
    const int right = std::min(left + side, width), bottom = std::min(top + side, height);
    for (int y = top; y < bottom; ++y) {
        const uint8_t* const from = values + (y - top) / 4 * (side / 4);
        uint8_t* const to = plane + static_cast<size_t>(y) * static_cast<size_t>(width);
        for (int x = left; x < right; ++x) to[x] = from[(x - left) / 4];
    }
}

}  // namespace

struct H264Writer::Parts {
    // A macroblock row beside the overlay, without the zone.
    struct Row {
        std::vector<FlatBlocks> wanted, shown;
    };

    struct KeySlice {
        Bytes unit;  // a NAL unit; empty where the overlay leaves nothing
        size_t idr_id_bit = 0;
    };

    void make(const Scene& new_scene, const PrivateZone& new_zone, int new_qp);
    void make_pattern();
    void make_sets();
    void make_overlay();
    void make_key_slices();
    const Row& row_of(int row, bool bar) const;
    void code_row(int row, bool bar, SliceWriter::Start start);
    void code_hidden(const FlatBlocks& blocks, int column, int row);

    void draw(uint32_t number, std::vector<Overlay::Mask>& masks) const;
    void code_overlay(int column, int row, Overlay::Mask mask, Cover cover);
    void compose_key(uint32_t number, uint32_t idr_id, Bytes& out);
    void compose_next(uint32_t number);
    void open_slice(int first);
    void close_slice();
    void code_pattern_row(int row, bool bar);
    void append_slice(uint8_t header, Bytes& out);
    static void append_slice(const KeySlice& made_slice, uint32_t id, Bytes& out);
    void begin_unit(uint8_t picture_type, Bytes& out) const;

    bool made = false;
    Scene scene;
    PrivateZone zone;
    int qp = 0;

    int columns = 0, rows = 0;  // in macroblocks
    ZoneBlanking blanking;
    Overlay overlay;
    std::vector<Cover> overlay_cover;                 // of each of its macroblocks
    std::vector<Row> pattern;                         // one a macroblock row
    std::array<Row, Overlay::MOST_COLUMNS + 1> bars;  // by the columns that the overlay takes
    Bytes sets;                                       // SPS and PPS, with their start codes
    std::vector<KeySlice> key_slices;                 // of the pattern, one a macroblock row

    SliceWriter slice;
    std::vector<Overlay::Mask> masks, masks_now;  // of the last picture, and while one is composed
    int bar = -1;                                 // its row in the last picture
    uint32_t frame_num = 0;                       // of the unit in work
    uint32_t last_frame_num = 0;                  // of the last one that was finished
    uint32_t key_pictures = 0;                    // their number, modulo 256
    Bytes unit, scratch;
};

void H264Writer::Parts::make(const Scene& new_scene, const PrivateZone& new_zone, int new_qp) {
    made = false;  // until all is
    scene = new_scene;
    zone = new_zone;
    qp = new_qp;
    columns = macroblocks(scene.size.width);
    rows = macroblocks(scene.size.height);
    blanking = ZoneBlanking(zone, scene.size);
    make_sets();
    make_overlay();
    make_pattern();
    make_key_slices();
    made = true;
}

void H264Writer::Parts::make_sets() {
    BitWriter bits;
    sets.clear();
    write_sequence_set(scene.size, std::max(scene.rate, 1U), bits);
    append_unit(true, SEQUENCE_SET, bits.bytes(), sets);
    bits.clear();
    write_picture_set(bits);
    append_unit(true, PICTURE_SET, bits.bytes(), sets);
}

void H264Writer::Parts::make_overlay() {
    overlay = Overlay(scene);
    overlay_cover.clear();
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < overlay.columns(row); ++column)
            overlay_cover.push_back(blanking.cover(column, row));
    masks.assign(overlay_cover.size(), 0);
    masks_now = masks;
}

// What is wanted, and what a decoder shows of it. Every row is a slice of its own, so that nothing
// but its own macroblocks decides that.
void H264Writer::Parts::make_pattern() {
    Cells cells;
    draw_pattern(scene, cells);
    const auto code = [this](Row& row, int first) {
        slice.begin({first, columns, true, IDR_ID, 0, qp});
        row.shown.clear();
        for (const FlatBlocks& blocks : row.wanted) row.shown.push_back(slice.code(blocks, qp));
    };
    pattern.assign(static_cast<size_t>(rows), {});
    for (int row = 0; row < rows; ++row) {
        Row& made_row = pattern[static_cast<size_t>(row)];
        const int taken = overlay.columns(row);
        for (int column = taken; column < columns; ++column)
            made_row.wanted.push_back(blocks_of(cells, column, row));
        code(made_row, row * columns + taken);
        Row& bar_row = bars[static_cast<size_t>(taken)];
        bar_row.wanted.assign(static_cast<size_t>(columns - taken), bar_blocks());
        if (scene.pattern == Pattern::moving_bar) code(bar_row, row * columns + taken);
    }
}

void H264Writer::Parts::make_key_slices() {
    key_slices.assign(static_cast<size_t>(rows), {});
    for (int row = 0; row < rows; ++row) {
        const int first = row * columns + overlay.columns(row);
        code_row(row, false, {first, columns, true, IDR_ID, 0, qp});
        if (slice.empty()) continue;
        KeySlice& made_slice = key_slices[static_cast<size_t>(row)];
        append_slice(IDR_SLICE, made_slice.unit);
        made_slice.idr_id_bit = 8 * UNIT_HEAD + slice.idr_id_bit();
    }
}

const H264Writer::Parts::Row& H264Writer::Parts::row_of(int row, bool of_bar) const {
    return of_bar ? bars[static_cast<size_t>(overlay.columns(row))]
                  : pattern[static_cast<size_t>(row)];
}

// A macroblock that the zone hides a part of. Edges at multiples of 8 cost next to nothing, others
// all of its samples.
void H264Writer::Parts::code_hidden(const FlatBlocks& blocks, int column, int row) {
    MacroblockSamples samples = samples_of(blocks);
    for (int i = 0; i < 256; ++i)
        if (blanking.hides(16 * column + i % 16, 16 * row + i / 16))
            samples.y[static_cast<size_t>(i)] = BLACK_LUMA;
    for (int i = 0; i < 64; ++i)
        if (blanking.hides_chroma(8 * column + i % 8, 8 * row + i / 8))
            samples.u[static_cast<size_t>(i)] = samples.v[static_cast<size_t>(i)] = NO_COLOUR;
    FlatBlocks flat;
    if (flat_blocks(samples, flat))
        slice.code_exactly(flat);
    else
        slice.code_samples(samples);
}

// The pattern's part of a row, as a slice. Behind what the zone hides the first macroblock is coded
// exactly to what is shown without a zone; from there on all is as without one.
void H264Writer::Parts::code_row(int row, bool of_bar, SliceWriter::Start start) {
    slice.begin(start);
    const Row& parts = row_of(row, of_bar);
    const int taken = overlay.columns(row);
    bool apart = false;
    for (int column = taken; column < columns; ++column) {
        const auto i = static_cast<size_t>(column - taken);
        const Cover cover = blanking.cover(column, row);
        if (cover == Cover::whole)
            slice.code_exactly(BLACK);
        else if (cover == Cover::part)
            code_hidden(parts.shown[i], column, row);
        else if (apart)
            slice.code_exactly(parts.shown[i]);
        else
            slice.code(parts.wanted[i], qp);
        apart = cover != Cover::none;
    }
}

void H264Writer::Parts::append_slice(uint8_t header, Bytes& out) {
    append_unit(false, header, slice.finish(), out);
}

void H264Writer::Parts::append_slice(const KeySlice& made_slice, uint32_t id, Bytes& out) {
    const size_t at = out.size() + made_slice.idr_id_bit / 8;
    out.insert(out.end(), made_slice.unit.begin(), made_slice.unit.end());
    if (made_slice.unit.empty()) return;
    // The number is 0 in what was made.
    const uint32_t bits = (id - IDR_ID) << (8 - made_slice.idr_id_bit % 8);
    out[at] |= static_cast<uint8_t>(bits >> 8);
    out[at + 1] |= static_cast<uint8_t>(bits);
}

// What the zone hides does not change.
void H264Writer::Parts::draw(uint32_t number, std::vector<Overlay::Mask>& out) const {
    overlay.draw(number, out.data());
    if (blanking.empty()) return;
    for (size_t i = 0; i < out.size(); ++i)
        if (overlay_cover[i] == Cover::whole) out[i] = 0;
}

void H264Writer::Parts::code_overlay(int column, int row, Overlay::Mask mask, Cover cover) {
    if (cover == Cover::part)
        code_hidden(blocks_of(mask), column, row);
    else
        slice.code_exactly(blocks_of(mask));
}

void H264Writer::Parts::begin_unit(uint8_t picture_type, Bytes& out) const {
    out.assign({0, 0, 0, 1, DELIMITER, picture_type});
}

void H264Writer::Parts::compose_key(uint32_t number, uint32_t id, Bytes& out) {
    begin_unit(ONLY_I, out);
    out.insert(out.end(), sets.begin(), sets.end());
    draw(number, masks_now);
    const int bar_now = bar_row(scene, number);
    size_t i = 0;
    for (int row = 0; row < rows; ++row) {
        const int first = row * columns, taken = overlay.columns(row);
        if (taken > 0) {
            slice.begin({first, columns, true, id, 0, EXACT_QP});
            for (int column = 0; column < taken; ++column, ++i)
                code_overlay(column, row, masks_now[i], overlay_cover[i]);
            append_slice(IDR_SLICE, out);
        }
        if (row == bar_now && taken < columns) {
            code_row(row, true, {first + taken, columns, true, id, 0, qp});
            append_slice(IDR_SLICE, out);
        } else {
            append_slice(key_slices[static_cast<size_t>(row)], id, out);
        }
    }
}

void H264Writer::Parts::open_slice(int first) {
    slice.begin({first, columns, false, 0, frame_num, EXACT_QP});
}

void H264Writer::Parts::close_slice() {
    if (!slice.empty()) append_slice(SLICE, unit);
}

void H264Writer::Parts::code_pattern_row(int row, bool of_bar) {
    const int first = row * columns + overlay.columns(row);
    if (first == (row + 1) * columns) return;
    close_slice();
    code_row(row, of_bar, {first, columns, false, 0, frame_num, qp});
    append_slice(SLICE, unit);
    open_slice((row + 1) * columns);
}

// Everything is skipped that is as in the picture before.
void H264Writer::Parts::compose_next(uint32_t number) {
    begin_unit(I_AND_P, unit);
    draw(number, masks_now);
    const int bar_now = bar_row(scene, number);
    open_slice(0);
    size_t i = 0;
    for (int row = 0; row < rows; ++row) {
        const int taken = overlay.columns(row);
        for (int column = 0; column < taken; ++column, ++i) {
            if (masks_now[i] == masks[i])
                slice.skip(1);
            else
                code_overlay(column, row, masks_now[i], overlay_cover[i]);
        }
        if (bar_now != bar && (row == bar_now || row == bar))
            code_pattern_row(row, row == bar_now);
        else
            slice.skip(columns - taken);
    }
    close_slice();
}

H264Writer::H264Writer() : m_parts(std::make_unique<Parts>()) {}
H264Writer::~H264Writer() = default;
H264Writer::H264Writer(H264Writer&&) noexcept = default;
H264Writer& H264Writer::operator=(H264Writer&&) noexcept = default;

void H264Writer::configure(const Scene& scene, const PrivateZone& zone, int qp) {
    Parts& parts = *m_parts;
    if (parts.made && parts.scene == scene && parts.zone == zone && parts.qp == qp) return;
    parts.make(scene, zone, qp);
}

size_t H264Writer::key_bytes(uint32_t number) {
    m_parts->compose_key(number, IDR_ID, m_parts->scratch);
    return m_parts->scratch.size();
}

size_t H264Writer::compose(uint32_t number, bool key) {
    Parts& parts = *m_parts;
    if (key) {
        parts.compose_key(number, IDR_ID + parts.key_pictures, parts.unit);
        parts.key_pictures = (parts.key_pictures + 1) & 0xFF;
        parts.last_frame_num = 0;
    } else {
        parts.frame_num = (parts.last_frame_num + 1) & 0xFF;
        parts.compose_next(number);
        parts.last_frame_num = parts.frame_num;
    }
    std::swap(parts.masks, parts.masks_now);
    parts.bar = bar_row(parts.scene, number);
    return parts.unit.size();
}

void H264Writer::write(size_t bytes, uint8_t* out) const {
    const Bytes& unit = m_parts->unit;
    std::memcpy(out, unit.data(), unit.size());
    out += unit.size();
    size_t rest = bytes - unit.size();
    if (rest < LEAST_FILLER) {
        std::memset(out, 0, rest);
        return;
    }
    constexpr uint8_t HEAD[] = {0, 0, 1, FILLER};
    std::memcpy(out, HEAD, sizeof HEAD);
    std::memset(out + sizeof HEAD, 0xFF, rest - LEAST_FILLER);
    out[rest - 1] = 0x80;
}

void H264Writer::reconstruct(Picture& out) const {
    const Parts& parts = *m_parts;
    const PictureSize size = parts.scene.size;
    out.resize(size);
    size_t overlaid = 0;
    for (int row = 0; row < parts.rows; ++row) {
        const int taken = parts.overlay.columns(row);
        for (int column = 0; column < parts.columns; ++column) {
            const FlatBlocks blocks = column < taken
                                          ? blocks_of(parts.masks[overlaid++])
                                          : parts.row_of(row, row == parts.bar)
                                                .shown[static_cast<size_t>(column - taken)];
            paint(blocks.y.data(), 16, column, row, size.width, size.height, out.y.data());
            paint(blocks.u.data(), 8, column, row, size.width / 2, size.height / 2, out.u.data());
            paint(blocks.v.data(), 8, column, row, size.width / 2, size.height / 2, out.v.data());
        }
    }
    parts.blanking.blank(out);
}

}  // namespace sim
