// Pattern and bar are coded once for a scene; of the overlay every possible block is.
#include "sdk/video/jpeg_macroblocks.h"

#include <algorithm>

namespace sim::jpeg {

namespace {

using FourCells = std::array<uint8_t, 4>;

Range clipped(int start, int length, int end) { return {start, std::min(start + length, end)}; }

// In chroma samples: those that share a luma sample with it.
Range halved(Range luma) { return {luma.from / 2, (luma.to + 1) / 2}; }

// What the picture does not show need not be kept apart.
Range widened(Range range, int end, int coded_end) {
    return {range.from, range.to == end ? coded_end : range.to};
}

// In samples of the block.
Range within(Range range, int block) {
    const int begin = block * BLOCK;
    return {std::max(range.from - begin, 0), std::min(range.to - begin, BLOCK)};
}

bool covers_block(Range range) { return range.from == 0 && range.to == BLOCK; }

Samples blanked(const FourCells& cells, Range x, Range y, uint8_t with) {
    Samples samples;
    for (int row = 0; row < BLOCK; ++row) {
        for (int column = 0; column < BLOCK; ++column) {
            const bool inside = row >= y.from && row < y.to && column >= x.from && column < x.to;
            const size_t cell = static_cast<size_t>(row / 4 * 2 + column / 4);
            samples[static_cast<size_t>(row * BLOCK + column)] = inside ? with : cells[cell];
        }
    }
    return samples;
}

// Four cells of a plane, `columns` a row, whose upper left one is at (2 x, 2 y).
FourCells cells_at(const std::vector<uint8_t>& plane, int columns, int x, int y) {
    const uint8_t* upper = plane.data() + static_cast<ptrdiff_t>(2 * y) * columns + 2 * x;
    return {upper[0], upper[1], upper[columns], upper[columns + 1]};
}

FourCells flat(uint8_t value) { return {value, value, value, value}; }

// Bit 0 is the upper left cell, 1 the upper right one.
FourCells overlay_cells(unsigned mask) {
    FourCells cells;
    for (size_t i = 0; i < cells.size(); ++i) cells[i] = mask >> i & 1 ? INK_LUMA : BLACK_LUMA;
    return cells;
}

// The mask of four cells out of a macroblock's sixteen.
unsigned quarter(Overlay::Mask mask, int x, int y) {
    const unsigned upper = static_cast<unsigned>(mask) >> (8 * y + 2 * x);
    return (upper & 3) | (upper >> 2 & 12);
}

constexpr int LUMA_BLOCKS = 4;  // of a macroblock: upper left, upper right, lower left, lower right

}  // namespace

BlankAreas blank_areas(PictureSize size, const PrivateZone& zone) {
    BlankAreas areas;
    if (!zone.enabled) return areas;
    const Area luma = {clipped(zone.start_x, zone.width, size.width),
                       clipped(zone.start_y, zone.height, size.height)};
    if (luma.empty()) return areas;
    areas.luma = luma;
    areas.chroma = {halved(luma.x), halved(luma.y)};
    return areas;
}

void MacroblockCoder::configure(const Cells& cells, PictureSize size, const PrivateZone& zone,
                                int quality) {
    m_cells = &cells;
    m_blank = blank_areas(size, zone);
    if (!m_blank.luma.empty()) {
        const Range x = widened(m_blank.luma.x, size.width, cells.mb_columns * MACROBLOCK);
        const Range y = widened(m_blank.luma.y, size.height, cells.mb_rows * MACROBLOCK);
        m_blank = {{x, y}, {halved(x), halved(y)}};
    }
    m_quantisers = {scaled(LUMA_QUANTISERS, quality), scaled(CHROMA_QUANTISERS, quality)};
    m_no_colour.clear();
    for (int i = 0; i < 2; ++i) {
        Coefficients block;
        transform_cells(flat(NO_COLOUR), m_quantisers[1], block);
        m_no_colour.put(dc_code(block[0], dc_codes(1)));
        put_ac(block, ac_codes(1), m_no_colour);
    }
    make_variants();
}

void MacroblockCoder::code(Ground ground, int row, int from, int to, BitString& out) const {
    code_all(ground, row, from, to, out, nullptr);
}

void MacroblockCoder::code_tail(Ground ground, int row, int from, int to, Tail& out) const {
    out.bits.clear();
    code_all(ground, row, from, to, out.bits, &out.first_dc);
}

// With `first_dc` the first DC difference is left to the caller, who is told the coefficient.
void MacroblockCoder::code_all(Ground ground, int row, int from, int to, BitString& out,
                               int* first_dc) const {
    std::array<int, 3> previous{};
    Coefficients block;
    const auto put = [&](int component) {
        const auto c = static_cast<size_t>(component);
        if (first_dc) {
            *first_dc = block[0];
            first_dc = nullptr;
        } else {
            out.put(dc_code(block[0] - previous[c], dc_codes(component)));
        }
        previous[c] = block[0];
        put_ac(block, ac_codes(component), out);
    };
    const bool bar = ground == Ground::bar;
    const Cells& all = *m_cells;
    for (int mb = from; mb < to; ++mb) {
        for (int i = 0; i < LUMA_BLOCKS; ++i) {
            const int x = 2 * mb + i % 2, y = 2 * row + i / 2;
            transform_block(0, bar ? flat(BAR_LUMA) : cells_at(all.y, 4 * all.mb_columns, x, y),
                            within(m_blank.luma.x, x), within(m_blank.luma.y, y), block);
            put(0);
        }
        for (const int component : {1, 2}) {
            const std::vector<uint8_t>& plane = component == 1 ? all.u : all.v;
            transform_block(component,
                            bar ? flat(NO_COLOUR) : cells_at(plane, 2 * all.mb_columns, mb, row),
                            within(m_blank.chroma.x, mb), within(m_blank.chroma.y, row), block);
            put(component);
        }
    }
}

// `x` and `y` are what is blank of the block.
void MacroblockCoder::transform_block(int component, const FourCells& cells, Range x, Range y,
                                      Coefficients& out) const {
    const uint8_t black = component == 0 ? BLACK_LUMA : NO_COLOUR;
    const Quantisers& by = quantisers(component);
    if (x.empty() || y.empty()) {
        transform_cells(cells, by, out);
    } else if (covers_block(x) && covers_block(y)) {
        transform_cells(flat(black), by, out);
    } else {
        transform(blanked(cells, x, y, black), by, out);
    }
}

MacroblockCoder::Cut MacroblockCoder::cut_of(Range zone, int block) {
    const Range part = within(zone, block);
    if (part.empty()) return none;
    if (covers_block(part)) return whole;
    return part.from > 0 ? right_part : left_part;
}

void MacroblockCoder::make_variants() {
    make_variants(none, none);
    if (m_blank.luma.empty()) return;
    for (const Cut x : {whole, right_part, left_part}) {
        for (const Cut y : {whole, right_part, left_part}) make_variants(x, y);
    }
}

// Only one block in a row is cut in its right part, by the zone's begin (which may also end there),
// and only one in its left part, by the zone's end.
void MacroblockCoder::make_variants(Cut x, Cut y) {
    const auto range_of = [](Cut cut, Range zone) -> Range {
        if (cut == none) return {};
        if (cut == whole) return {0, BLOCK};
        return within(zone, (cut == right_part ? zone.from : zone.to) / BLOCK);
    };
    Variants& variants = m_variants[CUTS * y + x];
    for (unsigned mask = 0; mask < variants.size(); ++mask) {
        Coefficients block;
        transform_block(0, overlay_cells(mask), range_of(x, m_blank.luma.x),
                        range_of(y, m_blank.luma.y), block);
        variants[mask].dc = block[0];
        variants[mask].ac.clear();
        put_ac(block, ac_codes(0), variants[mask].ac);
    }
}

int MacroblockCoder::code_overlay(int row, int from, int count, const Overlay::Mask* masks,
                                  ByteWriter& out) const {
    const Codes& codes = dc_codes(0);
    const std::array<Cut, 2> cuts_y = {cut_of(m_blank.luma.y, 2 * row),
                                       cut_of(m_blank.luma.y, 2 * row + 1)};
    int dc = 0;
    for (int mb = 0; mb < count; ++mb) {
        const std::array<Cut, 2> cuts_x = {cut_of(m_blank.luma.x, 2 * (from + mb)),
                                           cut_of(m_blank.luma.x, 2 * (from + mb) + 1)};
        for (int i = 0; i < LUMA_BLOCKS; ++i) {
            const Cut x = cuts_x[static_cast<size_t>(i % 2)];
            const Cut y = cuts_y[static_cast<size_t>(i / 2)];
            const bool seen = x == none || y == none;
            const Variants& variants = m_variants[seen ? 0 : CUTS * y + x];
            const Variant& variant = variants[quarter(masks[mb], i % 2, i / 2)];
            out.put(dc_code(variant.dc - dc, codes));
            out.put(variant.ac);
            dc = variant.dc;
        }
        out.put(m_no_colour);
    }
    return dc;
}

size_t MacroblockCoder::most_overlay_bits() const {
    constexpr size_t MOST_DC_BITS = 20;  // code and value of category 11
    size_t most = 0;
    for (const Variants& variants : m_variants) {
        for (const Variant& variant : variants) most = std::max(most, variant.ac.length());
    }
    return LUMA_BLOCKS * (MOST_DC_BITS + most) + m_no_colour.length();
}

}  // namespace sim::jpeg
