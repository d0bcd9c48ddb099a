// A picture is its header, the rows of macroblocks and EOI. What no frame changes is made once, as
// bytes; only restart intervals with macroblocks of the overlay are coded anew, and of those only
// the ones that changed since the last picture. How a macroblock is coded is jpeg_macroblocks', the
// header is jpeg_header's.
#include "sdk/video/jpeg_writer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "sdk/video/jpeg_header.h"
#include "sdk/video/jpeg_macroblocks.h"

namespace sim {

namespace {

using namespace jpeg;

constexpr int MOST_INTERVAL = 11;     // macroblocks
constexpr int MOST_SAMPLES = 0xFFFF;  // of a side: 16 bits in the header
constexpr std::array<uint8_t, 2> END = {0xFF, EOI};

// A part of a picture as bytes, row after row of macroblocks, with the markers behind intervals.
struct Rows {
    std::vector<uint8_t> bytes;
    std::vector<size_t> ends;  // of each row in `bytes`
    const uint8_t* begin(int row) const {
        return bytes.data() + (row == 0 ? 0 : ends[static_cast<size_t>(row) - 1]);
    }
    size_t size(int row) const {
        return static_cast<size_t>(bytes.data() + ends[static_cast<size_t>(row)] - begin(row));
    }
};

// A restart interval that begins with macroblocks of the overlay.
struct Interval {
    int row = 0;
    int column = 0;      // its first macroblock
    int index = 0;       // in the picture
    int overlay = 0;     // its macroblocks of the overlay
    size_t mask_at = 0;  // their masks
    bool has_tail = false;
    MacroblockCoder::Tail pattern, bar;  // what is right of the overlay

    std::vector<uint8_t> bytes;  // room for the longest
    size_t size = 0;             // 0: not coded yet
    bool on_bar = false;         // when it was coded
};

// The macroblocks of a restart interval: it divides the columns, so that none goes over two rows.
int interval_length(int columns) {
    int length = std::min(columns, MOST_INTERVAL);
    while (columns % length != 0) --length;
    return length;
}

// The samples of a plane of cells, `columns` a row, with `blank` in the area.
void show(const std::vector<uint8_t>& cells, int columns, PictureSize size, const Area& area,
          uint8_t blank, std::vector<uint8_t>& out) {
    const auto in = [](Range range, int at) { return at >= range.from && at < range.to; };
    uint8_t* sample = out.data();
    for (int y = 0; y < size.height; ++y) {
        const uint8_t* row = cells.data() + static_cast<ptrdiff_t>(y / 4) * columns;
        for (int x = 0; x < size.width; ++x) {
            *sample++ = in(area.y, y) && in(area.x, x) ? blank : row[x / 4];
        }
    }
}

}  // namespace

struct JpegWriter::Parts {
    bool configured = false;
    bool writable = false;  // the format has pictures of this size
    Scene scene;
    PrivateZone zone;
    int qp = 0;

    Cells cells;
    Overlay overlay;
    MacroblockCoder coder;
    std::vector<uint8_t> header;
    size_t number_at = 0;  // of the digits in it

    int interval = 0;                 // macroblocks
    Rows still, bar;                  // right of the overlay's intervals, without and with the bar
    std::vector<Interval> intervals;  // those of the overlay, in order
    bool intervals_known = false;     // they show the masks
    std::array<Overlay::Mask, Overlay::MOST> masks{};

    int composed_bar = -1;  // row
    size_t composed = 0;    // bytes of the picture

    int intervals_a_row() const { return cells.mb_columns / interval; }
    bool is_last(int index) const { return index + 1 == cells.mb_rows * intervals_a_row(); }

    void make();
    void make_intervals();
    void make_interval(int row, int column, int overlay_columns, size_t mask_at);
    void make_rows(Ground ground, Rows& out) const;
    void put_interval_end(int index, std::vector<uint8_t>& out) const;
    void code(Interval& interval, bool on_bar) const;
    void draw_bar(Cells& out) const;
    void draw_overlay(Cells& out) const;
};

void JpegWriter::Parts::put_interval_end(int index, std::vector<uint8_t>& out) const {
    if (is_last(index)) return;
    out.push_back(0xFF);
    out.push_back(static_cast<uint8_t>(RST0 + index % 8));
}

// Rows have nothing of the intervals that the overlay is in.
void JpegWriter::Parts::make_rows(Ground ground, Rows& out) const {
    out.bytes.clear();
    out.ends.clear();
    BitString bits;
    std::vector<uint8_t> coded;
    for (int row = 0; row < cells.mb_rows; ++row) {
        for (int i = 0; i < intervals_a_row(); ++i) {
            const int column = i * interval;
            if (column < overlay.columns(row)) continue;
            bits.clear();
            coder.code(ground, row, column, column + interval, bits);
            coded.resize(bits.length() / 4 + 2);
            ByteWriter writer(coded.data());
            writer.put(bits);
            out.bytes.insert(out.bytes.end(), coded.data(), writer.finish());
            put_interval_end(row * intervals_a_row() + i, out.bytes);
        }
        out.ends.push_back(out.bytes.size());
    }
}

void JpegWriter::Parts::make_intervals() {
    intervals.clear();
    size_t mask_at = 0;
    for (int row = 0; row < cells.mb_rows; ++row) {
        const int columns = overlay.columns(row);
        for (int column = 0; column < columns; column += interval) {
            make_interval(row, column, std::min(interval, columns - column),
                          mask_at + static_cast<size_t>(column));
        }
        mask_at += static_cast<size_t>(columns);
    }
}

void JpegWriter::Parts::make_interval(int row, int column, int overlay_columns, size_t mask_at) {
    Interval& made = intervals.emplace_back();
    made.row = row;
    made.column = column;
    made.index = row * intervals_a_row() + column / interval;
    made.overlay = overlay_columns;
    made.mask_at = mask_at;
    made.has_tail = overlay_columns < interval;
    size_t bits = static_cast<size_t>(overlay_columns) * coder.most_overlay_bits();
    if (made.has_tail) {
        const int from = column + overlay_columns, to = column + interval;
        coder.code_tail(Ground::pattern, row, from, to, made.pattern);
        coder.code_tail(Ground::bar, row, from, to, made.bar);
        bits += 32 + std::max(made.pattern.bits.length(), made.bar.bits.length());
    }
    made.bytes.resize(bits / 4 + 4);  // each byte stuffed, and the marker
}

void JpegWriter::Parts::code(Interval& to, bool on_bar) const {
    ByteWriter out(to.bytes.data());
    const int dc = coder.code_overlay(to.row, to.column, to.overlay, &masks[to.mask_at], out);
    if (to.has_tail) {
        const MacroblockCoder::Tail& tail = on_bar ? to.bar : to.pattern;
        out.put(dc_code(tail.first_dc - dc, dc_codes(0)));
        out.put(tail.bits);
    }
    uint8_t* end = out.finish();
    if (!is_last(to.index)) {
        *end++ = 0xFF;
        *end++ = static_cast<uint8_t>(RST0 + to.index % 8);
    }
    to.size = static_cast<size_t>(end - to.bytes.data());
    to.on_bar = on_bar;
}

void JpegWriter::Parts::draw_bar(Cells& out) const {
    if (composed_bar < 0) return;
    const auto fill_row = [this](std::vector<uint8_t>& plane, int of_macroblock, uint8_t value) {
        const int size = of_macroblock * cells.mb_columns;
        std::fill_n(plane.begin() + static_cast<ptrdiff_t>(composed_bar) * size, size, value);
    };
    fill_row(out.y, 16, BAR_LUMA);
    fill_row(out.u, 4, NO_COLOUR);
    fill_row(out.v, 4, NO_COLOUR);
}

void JpegWriter::Parts::draw_overlay(Cells& out) const {
    const Overlay::Mask* mask = masks.data();
    for (int row = 0; row < out.mb_rows; ++row) {
        const int columns = overlay.columns(row);
        for (int column = 0; column < columns; ++column, ++mask) {
            for (int i = 0; i < 16; ++i) {
                const int at = (4 * row + i / 4) * 4 * out.mb_columns + 4 * column + i % 4;
                out.y[static_cast<size_t>(at)] = *mask >> i & 1 ? INK_LUMA : BLACK_LUMA;
            }
            for (int i = 0; i < 4; ++i) {
                const int at = (2 * row + i / 2) * 2 * out.mb_columns + 2 * column + i % 2;
                out.u[static_cast<size_t>(at)] = out.v[static_cast<size_t>(at)] = NO_COLOUR;
            }
        }
    }
}

int jpeg_quality(int qp) {
    constexpr int MOST_QP = 51, BEST = 100, WORST = 4;
    const int clamped = std::clamp(qp, 0, MOST_QP);
    return BEST - ((BEST - WORST) * clamped + MOST_QP / 2) / MOST_QP;
}

JpegWriter::JpegWriter() : m_parts(std::make_unique<Parts>()) {}
JpegWriter::~JpegWriter() = default;
JpegWriter::JpegWriter(JpegWriter&&) noexcept = default;
JpegWriter& JpegWriter::operator=(JpegWriter&&) noexcept = default;

void JpegWriter::configure(const Scene& scene, const PrivateZone& zone, int qp) {
    Parts& parts = *m_parts;
    if (parts.configured && parts.scene == scene && parts.zone == zone && parts.qp == qp) return;
    parts.configured = parts.writable = false;  // until all is made: memory may run short
    parts.scene = scene;
    parts.zone = zone;
    parts.qp = qp;
    parts.composed = 0;
    const PictureSize size = scene.size;
    if (size.width > 0 && size.height > 0 && size.width <= MOST_SAMPLES &&
        size.height <= MOST_SAMPLES) {
        parts.make();
        parts.writable = true;
    }
    parts.configured = true;
}

void JpegWriter::Parts::make() {
    draw_pattern(scene, cells);
    intervals_known = false;
    overlay = Overlay(scene);
    coder.configure(cells, scene.size, zone, jpeg_quality(qp));
    interval = interval_length(cells.mb_columns);
    number_at = put_header(scene, {coder.quantisers(0), coder.quantisers(1), interval}, header);
    make_intervals();
    make_rows(Ground::pattern, still);
    if (scene.pattern == Pattern::moving_bar) make_rows(Ground::bar, bar);
}

size_t JpegWriter::compose(uint32_t number) {
    Parts& parts = *m_parts;
    if (!parts.writable) return 0;
    uint32_t rest = number;
    for (size_t i = NUMBER_DIGITS; i-- > 0; rest /= 10) {
        parts.header[parts.number_at + i] = static_cast<uint8_t>('0' + rest % 10);
    }
    std::array<Overlay::Mask, Overlay::MOST> masks{};
    parts.overlay.draw(number, masks.data());
    std::swap(masks, parts.masks);
    const int bar = bar_row(parts.scene, number);
    // Until all of it is coded: memory may run short.
    const bool known = std::exchange(parts.intervals_known, false);

    size_t size = parts.header.size() + parts.still.bytes.size() + END.size();
    if (bar >= 0) size = size - parts.still.size(bar) + parts.bar.size(bar);
    for (Interval& interval : parts.intervals) {
        const size_t at = interval.mask_at;
        const size_t bytes = static_cast<size_t>(interval.overlay) * sizeof(Overlay::Mask);
        const bool on_bar = interval.has_tail && interval.row == bar;
        if (!known || interval.on_bar != on_bar ||
            std::memcmp(&masks[at], &parts.masks[at], bytes) != 0) {
            parts.code(interval, on_bar);
        }
        size += interval.size;
    }
    parts.intervals_known = true;
    parts.composed_bar = bar;
    parts.composed = size;
    return size;
}

void JpegWriter::write(size_t bytes, uint8_t* out) const {
    const Parts& parts = *m_parts;
    if (parts.composed == 0 || bytes < parts.composed) return;
    const auto put = [&out](const uint8_t* from, size_t size) {
        std::memcpy(out, from, size);
        out += size;
    };
    const size_t fill = bytes - parts.composed;
    put(parts.header.data(), parts.header.size());
    auto interval = parts.intervals.begin();
    for (int row = 0; row < parts.cells.mb_rows; ++row) {
        for (; interval != parts.intervals.end() && interval->row == row; ++interval) {
            put(interval->bytes.data(), interval->size);
        }
        const Rows& rows = row == parts.composed_bar ? parts.bar : parts.still;
        put(rows.begin(row), rows.size(row));
    }
    std::memset(out, 0xFF, fill);
    out += fill;
    put(END.data(), END.size());
}

void JpegWriter::original(Picture& out) const {
    const Parts& parts = *m_parts;
    out.resize(parts.composed == 0 ? PictureSize() : parts.scene.size);
    if (parts.composed == 0) return;
    Cells cells = parts.cells;
    parts.draw_bar(cells);
    parts.draw_overlay(cells);
    const PictureSize size = out.size, half = {size.width / 2, size.height / 2};
    const BlankAreas blank = blank_areas(size, parts.zone);
    show(cells.y, 4 * cells.mb_columns, size, blank.luma, BLACK_LUMA, out.y);
    show(cells.u, 2 * cells.mb_columns, half, blank.chroma, NO_COLOUR, out.u);
    show(cells.v, 2 * cells.mb_columns, half, blank.chroma, NO_COLOUR, out.v);
}

}  // namespace sim
