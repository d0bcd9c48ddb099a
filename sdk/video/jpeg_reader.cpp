// Segments, restart intervals and macroblocks, strictly: what the format does not allow is refused,
// also where a picture could be guessed. Bits and codes are jpeg_entropy's, samples jpeg_inverse's.
#include "sdk/video/jpeg_reader.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sdk/video/jpeg_entropy.h"
#include "sdk/video/jpeg_inverse.h"

namespace sim {

namespace {

using namespace jpeg;

constexpr int COMPONENTS = 3;
constexpr int MOST_DC = 2047;        // what 8-bit samples can have, in magnitude
constexpr int LEAST_BLOCK_BITS = 2;  // a code for DC, one for the end
constexpr int BLOCKS = 6;            // of a macroblock
constexpr uint8_t FIRST_PARAMETERLESS = RST0, LAST_PARAMETERLESS = EOI;

struct Component {
    int id = 0;
    size_t quantisers = 0;
    const HuffmanDecoder* dc = nullptr;
    const HuffmanDecoder* ac = nullptr;
    uint8_t* samples = nullptr;
    int width = 0, height = 0;
    int across = 0;    // blocks of a macroblock in both directions
    int previous = 0;  // DC coefficient
};

// The content of a segment.
struct Segment {
    const uint8_t* at;
    const uint8_t* end;
    size_t left() const { return static_cast<size_t>(end - at); }
    int byte() { return *at++; }
    int word() {
        at += 2;
        return at[-2] << 8 | at[-1];
    }
};

class Decoder {
  public:
    Decoder(const uint8_t* bytes, size_t size, Picture& picture, std::string& comment,
            std::string& error)
        : m_begin(bytes),
          m_at(bytes),
          m_end(bytes + size),
          m_picture(picture),
          m_comment(comment),
          m_error(error) {}

    bool decode();

  private:
    bool refuse(const char* what) {
        m_error = what;
        return false;
    }
    bool refuse_marker(int code, const char* what);
    bool refuse_block(const char* what);
    int next_marker();
    bool read_segment(int code);
    bool read_quantisers(Segment in);
    bool read_codes(Segment in);
    bool read_frame(Segment in);
    bool read_restart(Segment in);
    bool read_scan(Segment in);
    bool read_scan_component(Segment& in, size_t index);
    bool read_intervals();
    bool read_interval(int first, int end);
    bool read_macroblock(Bits& bits, int number);
    bool read_block(Bits& bits, Component& component);
    bool read_value(Bits& bits, int length, int& out);
    void place_block(const Component& component, int x, int y) const;

    const uint8_t* m_begin;
    const uint8_t* m_at;
    const uint8_t* m_end;
    Picture& m_picture;
    std::string& m_comment;
    std::string& m_error;

    bool m_has_comment = false, m_has_frame = false, m_has_scan = false;
    std::array<std::array<uint8_t, COEFFICIENTS>, 4> m_quantisers{};  // zigzag; first 0: undefined
    std::array<HuffmanDecoder, 2> m_dc, m_ac;
    std::array<Component, COMPONENTS> m_components;
    int m_columns = 0, m_rows = 0;  // of macroblocks
    int m_restart = 0;              // macroblocks of an interval; 0: there is one only

    int m_macroblock = 0;  // that is decoded
    std::array<int32_t, COEFFICIENTS> m_block{};
    int m_last = 0;  // behind it, in zigzag order, m_block is 0
};

bool Decoder::refuse_marker(int code, const char* what) {
    std::array<char, 120> text;
    std::snprintf(text.data(), text.size(), "the segment FF%02X before byte %td %s",
                  static_cast<unsigned>(code), m_at - m_begin, what);
    return refuse(text.data());
}

bool Decoder::refuse_block(const char* what) {
    std::array<char, 120> text;
    std::snprintf(text.data(), text.size(), "macroblock %d of row %d %s", m_macroblock % m_columns,
                  m_macroblock / m_columns, what);
    return refuse(text.data());
}

// The code of the marker at m_at, before which fill bytes are allowed; -1 when there is none.
int Decoder::next_marker() {
    if (m_at == m_end || *m_at != 0xFF) return -1;
    while (m_at != m_end && *m_at == 0xFF) ++m_at;
    return m_at == m_end || *m_at == 0 ? -1 : *m_at++;
}

bool Decoder::decode() {
    if (next_marker() != SOI) return refuse("the picture does not begin with SOI");
    for (;;) {
        const int code = next_marker();
        if (code < 0) {
            std::array<char, 80> text;
            std::snprintf(text.data(), text.size(), "there is no marker at byte %td",
                          m_at - m_begin);
            return refuse(text.data());
        }
        if (code == EOI) break;
        if (!read_segment(code)) return false;
    }
    if (!m_has_scan) return refuse("the picture ends before its scan");
    if (m_at != m_end) return refuse("there are bytes behind EOI");
    return true;
}

bool Decoder::read_segment(int code) {
    if (code < SOF0 || (code >= FIRST_PARAMETERLESS && code <= LAST_PARAMETERLESS)) {
        return refuse_marker(code, "is not allowed here");
    }
    if (m_end - m_at < 2) return refuse_marker(code, "is cut off");
    const int length = m_at[0] << 8 | m_at[1];
    if (length < 2 || length > m_end - m_at) return refuse_marker(code, "has a wrong length");
    const Segment in = {m_at + 2, m_at + length};
    m_at += length;
    if (code >= APP0 && code <= APP15) return true;
    if (code == COM) {
        if (!m_has_comment) m_comment.assign(in.at, in.end);
        m_has_comment = true;
        return true;
    }
    if (m_has_scan) return refuse_marker(code, "is behind the scan");
    switch (code) {
        case DQT: return read_quantisers(in);
        case DHT: return read_codes(in);
        case SOF0: return read_frame(in);
        case DRI: return read_restart(in);
        case SOS: return read_scan(in);
        default: return refuse_marker(code, "is of no baseline picture");
    }
}

bool Decoder::read_quantisers(Segment in) {
    if (in.left() == 0) return refuse_marker(DQT, "is empty");
    while (in.left() > 0) {
        const auto id = static_cast<size_t>(in.byte());  // precision in the upper half
        if (id >= m_quantisers.size())
            return refuse_marker(DQT, "has a table that is not baseline");
        auto& table = m_quantisers[id];
        if (in.left() < table.size()) return refuse_marker(DQT, "is too short for its table");
        std::copy_n(in.at, table.size(), table.begin());
        in.at += table.size();
        if (std::count(table.begin(), table.end(), 0)) return refuse_marker(DQT, "has a 0 in it");
    }
    return true;
}

bool Decoder::read_codes(Segment in) {
    if (in.left() == 0) return refuse_marker(DHT, "is empty");
    while (in.left() > 0) {
        const int id = in.byte();
        const bool is_ac = id & 0x10;
        if (id & ~0x11) return refuse_marker(DHT, "has a table that is not baseline");
        std::array<uint8_t, 16> counts;
        if (in.left() < counts.size()) return refuse_marker(DHT, "is too short for its table");
        std::copy_n(in.at, counts.size(), counts.begin());
        in.at += counts.size();
        size_t size = 0;
        for (const uint8_t count : counts) size += count;
        if (in.left() < size) return refuse_marker(DHT, "is too short for its table");
        const auto allowed = [is_ac](int symbol) {
            if (!is_ac) return symbol < DC_CATEGORIES;
            const int run = symbol >> 4, category = symbol & 15;
            return category == 0 ? run == 0 || run == 15 : category < AC_CATEGORIES;
        };
        if (!std::all_of(in.at, in.at + size, allowed)) {
            return refuse_marker(DHT, "has a symbol that is not baseline");
        }
        HuffmanDecoder& decoder = (is_ac ? m_ac : m_dc)[static_cast<size_t>(id & 1)];
        if (!decoder.build(counts, in.at)) return refuse_marker(DHT, "has more codes than fit");
        in.at += size;
    }
    return true;
}

bool Decoder::read_frame(Segment in) {
    if (m_has_frame) return refuse_marker(SOF0, "is the second one");
    if (in.left() != 6 + 3 * COMPONENTS) {
        return refuse_marker(SOF0, "does not have three components");
    }
    if (in.byte() != 8) return refuse_marker(SOF0, "does not have samples of 8 bits");
    const int height = in.word(), width = in.word();
    if (in.byte() != COMPONENTS) return refuse_marker(SOF0, "does not have three components");
    if (width == 0 || height == 0 || width > LARGEST_PICTURE.width ||
        height > LARGEST_PICTURE.height || width % 2 != 0 || height % 2 != 0) {
        return refuse_marker(SOF0, "has a size that is odd, 0 or above 1920 x 1088");
    }
    for (size_t i = 0; i < COMPONENTS; ++i) {
        Component& component = m_components[i];
        component.id = in.byte();
        const int sampling = in.byte();
        component.across = i == 0 ? 2 : 1;
        if (sampling != component.across * 0x11) return refuse_marker(SOF0, "is not 4:2:0");
        component.quantisers = static_cast<size_t>(in.byte());
        if (component.quantisers >= m_quantisers.size()) {
            return refuse_marker(SOF0, "names a quantisation table that cannot be");
        }
        component.width = width * component.across / 2;
        component.height = height * component.across / 2;
        for (size_t other = 0; other < i; ++other) {
            if (m_components[other].id == component.id) {
                return refuse_marker(SOF0, "names a component twice");
            }
        }
    }
    m_columns = macroblocks(width);
    m_rows = macroblocks(height);
    m_has_frame = true;
    return true;
}

bool Decoder::read_restart(Segment in) {
    if (in.left() != 2) return refuse_marker(DRI, "has a wrong length");
    m_restart = in.word();
    return true;
}

bool Decoder::read_scan(Segment in) {
    if (!m_has_frame) return refuse_marker(SOS, "comes before the frame's header");
    if (in.left() != 4 + 2 * COMPONENTS || in.byte() != COMPONENTS) {
        return refuse_marker(SOS, "does not have three components");
    }
    for (size_t i = 0; i < COMPONENTS; ++i) {
        if (!read_scan_component(in, i)) return false;
    }
    if (in.byte() != 0 || in.byte() != COEFFICIENTS - 1 || in.byte() != 0) {
        return refuse_marker(SOS, "is not baseline");
    }
    const int64_t bits = int64_t{m_columns} * m_rows * BLOCKS * LEAST_BLOCK_BITS;
    if (m_end - m_at < bits / 8) return refuse("the picture is too short for its size");
    m_picture.resize({m_components[0].width, m_components[0].height});
    m_components[0].samples = m_picture.y.data();
    m_components[1].samples = m_picture.u.data();
    m_components[2].samples = m_picture.v.data();
    m_has_scan = true;
    return read_intervals();
}

bool Decoder::read_scan_component(Segment& in, size_t index) {
    Component& component = m_components[index];
    if (in.byte() != component.id) return refuse_marker(SOS, "has the components in another order");
    const int tables = in.byte();
    if (tables & ~0x11) return refuse_marker(SOS, "names a Huffman table that is not baseline");
    component.dc = &m_dc[static_cast<size_t>(tables >> 4)];
    component.ac = &m_ac[static_cast<size_t>(tables & 1)];
    if (!component.dc->built() || !component.ac->built()) {
        return refuse_marker(SOS, "names a Huffman table that is missing");
    }
    if (m_quantisers[component.quantisers][0] == 0) {
        return refuse_marker(SOS, "needs a quantisation table that is missing");
    }
    return true;
}

bool Decoder::read_intervals() {
    const int all = m_columns * m_rows;
    const int length = m_restart == 0 ? all : m_restart;
    for (int first = 0, index = 0; first < all; first += length, ++index) {
        if (first > 0 && next_marker() != RST0 + (index - 1) % 8) {
            m_macroblock = first;
            return refuse_block("has not the restart marker before it that belongs there");
        }
        if (!read_interval(first, std::min(first + length, all))) return false;
    }
    return true;
}

bool Decoder::read_interval(int first, int end) {
    for (Component& component : m_components) component.previous = 0;
    Bits bits(m_at, m_end);
    for (m_macroblock = first; m_macroblock < end; ++m_macroblock) {
        if (!read_macroblock(bits, m_macroblock)) return false;
    }
    if (!bits.at_padding()) {
        --m_macroblock;
        return refuse_block("has other bits behind it than ones up to the next byte");
    }
    m_at = bits.at();
    return true;
}

bool Decoder::read_macroblock(Bits& bits, int number) {
    for (Component& component : m_components) {
        const int across = component.across;
        for (int i = 0; i < across * across; ++i) {
            if (!read_block(bits, component)) return false;
            place_block(component, (number % m_columns * across + i % across) * BLOCK,
                        (number / m_columns * across + i / across) * BLOCK);
        }
    }
    return true;
}

// Fills m_block.
bool Decoder::read_block(Bits& bits, Component& component) {
    const auto& quantisers = m_quantisers[component.quantisers];
    if (m_last == 0) {
        m_block[0] = 0;
    } else {
        m_block.fill(0);
    }
    m_last = 0;
    int value = 0;
    if (!read_value(bits, component.dc->decode(bits), value)) return false;
    component.previous += value;
    if (std::abs(component.previous) > MOST_DC) return refuse_block("has a DC out of range");
    m_block[0] = component.previous * quantisers[0];
    for (int k = 1; k < COEFFICIENTS; ++k) {
        constexpr int END_OF_BLOCK = 0, SIXTEEN_ZEROS = 0xF0;
        const int symbol = component.ac->decode(bits);
        if (symbol == END_OF_BLOCK) return true;
        k += symbol < 0 ? 0 : symbol >> 4;
        if (k >= COEFFICIENTS - (symbol == SIXTEEN_ZEROS ? 1 : 0)) {
            return refuse_block("has more than 64 coefficients in a block");
        }
        if (symbol == SIXTEEN_ZEROS) continue;
        if (!read_value(bits, symbol < 0 ? symbol : symbol & 15, value)) return false;
        const auto at = static_cast<size_t>(k);
        m_block[ZIGZAG[at]] = value * quantisers[at];
        m_last = k;
    }
    return true;
}

// The value of a category, -1 when its code was none (T.81, F.2.2.1).
bool Decoder::read_value(Bits& bits, int length, int& out) {
    out = 0;
    if (length == 0) return true;
    const int coded = length < 0 ? 0 : static_cast<int>(bits.peek(length));
    if (length < 0 || !bits.skip(length)) return refuse_block("has a wrong code, or ends in one");
    out = coded >= 1 << (length - 1) ? coded : coded - (1 << length) + 1;
    return true;
}

// Macroblocks go over the picture's right and lower edges.
void Decoder::place_block(const Component& component, int x, int y) const {
    const int width = std::min(component.width - x, BLOCK);
    const int height = std::min(component.height - y, BLOCK);
    uint8_t* const to = component.samples + static_cast<ptrdiff_t>(y) * component.width + x;
    if (width == BLOCK && height == BLOCK) {
        inverse_transform(m_block, m_last, to, component.width);
        return;
    }
    if (width <= 0 || height <= 0) return;
    std::array<uint8_t, COEFFICIENTS> whole;
    inverse_transform(m_block, m_last, whole.data(), BLOCK);
    for (int row = 0; row < height; ++row) {
        std::memcpy(to + static_cast<ptrdiff_t>(row) * component.width, whole.data() + row * BLOCK,
                    static_cast<size_t>(width));
    }
}

}  // namespace

bool JpegReader::decode(const uint8_t* bytes, size_t size) {
    m_comment.clear();
    m_error.clear();
    m_picture.resize({});
    Decoder decoder(bytes, size, m_picture, m_comment, m_error);
    if (decoder.decode()) return true;
    m_picture.resize({});
    return false;
}

}  // namespace sim
