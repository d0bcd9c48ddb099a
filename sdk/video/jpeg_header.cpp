// Markers and segments (T.81, annex B), one function each.
#include "sdk/video/jpeg_header.h"

#include <array>
#include <cstdio>
#include <string_view>

#include "sdk/video/jpeg_tables.h"

namespace sim::jpeg {

namespace {

const char* stream_name(int stream) {
    constexpr std::array<const char*, 6> NAMES = {"MAIN", "DUAL", "JPEG", "PREV", "3RD", "4TH"};
    return stream < static_cast<int>(NAMES.size()) ? NAMES[static_cast<size_t>(stream)] : "NONE";
}

class Header {
  public:
    explicit Header(std::vector<uint8_t>& out) : m_out(out) { m_out.clear(); }
    void byte(int value) { m_out.push_back(static_cast<uint8_t>(value)); }
    void word(int value) {
        byte(value >> 8);
        byte(value & 0xFF);
    }
    void marker(uint8_t code) {
        byte(0xFF);
        byte(code);
    }
    // `size` is that of its content.
    void segment(uint8_t code, size_t size) {
        marker(code);
        word(static_cast<int>(size) + 2);
    }
    template <typename Bytes>
    void bytes(const Bytes& from, size_t size) {
        for (size_t i = 0; i < size; ++i) byte(static_cast<uint8_t>(from[i]));
    }

  private:
    std::vector<uint8_t>& m_out;
};

// JFIF 1.02: square samples, no thumbnail.
void put_application(Header& out) {
    constexpr std::string_view JFIF("JFIF\0\1\2\0\0\1\0\1\0\0", 14);
    out.segment(APP0, JFIF.size());
    out.bytes(JFIF, JFIF.size());
}

void put_quantisers(Header& out, int id, const Quantisers& table) {
    out.segment(DQT, 1 + table.size());
    out.byte(id);
    for (const uint8_t at : ZIGZAG) out.byte(table[at]);
}

void put_frame(Header& out, PictureSize size) {
    constexpr int COMPONENTS = 3;
    out.segment(SOF0, 6 + 3 * COMPONENTS);
    out.byte(8);  // bits of a sample
    out.word(size.height);
    out.word(size.width);
    out.byte(COMPONENTS);
    for (int component = 0; component < COMPONENTS; ++component) {
        out.byte(component + 1);
        out.byte(component == 0 ? 0x22 : 0x11);  // samples across and down
        out.byte(component == 0 ? 0 : 1);        // quantisation table
    }
}

// `id`: 0 for luma and 1 for chroma, 16 more for AC.
void put_codes(Header& out, int id, const HuffmanTable& table) {
    const auto symbols = static_cast<size_t>(table.size);
    out.segment(DHT, 1 + table.counts.size() + symbols);
    out.byte(id);
    out.bytes(table.counts, table.counts.size());
    out.bytes(table.symbols, symbols);
}

void put_scan(Header& out) {
    out.segment(SOS, 10);
    out.byte(3);
    for (int component = 0; component < 3; ++component) {
        out.byte(component + 1);
        out.byte(component == 0 ? 0x00 : 0x11);  // DC and AC table
    }
    out.byte(0);  // all coefficients at once, whole
    out.byte(63);
    out.byte(0);
}

void put_comment(Header& out, const Scene& scene) {
    std::array<char, 64> text;
    const int length =
        std::snprintf(text.data(), text.size(), "channel %02d stream %s frame %0*d",
                      scene.channel + 1, stream_name(scene.stream), int{NUMBER_DIGITS}, 0);
    out.segment(COM, static_cast<size_t>(length));
    out.bytes(text, static_cast<size_t>(length));
}

void put_restart(Header& out, int interval) {
    out.segment(DRI, 2);
    out.word(interval);
}

}  // namespace

size_t put_header(const Scene& scene, const HeaderFields& fields, std::vector<uint8_t>& to) {
    Header out(to);
    out.marker(SOI);
    put_application(out);
    put_comment(out, scene);
    const size_t number_at = to.size() - NUMBER_DIGITS;
    put_quantisers(out, 0, fields.luma);
    put_quantisers(out, 1, fields.chroma);
    put_frame(out, scene.size);
    put_codes(out, 0x00, LUMA_DC);
    put_codes(out, 0x10, LUMA_AC);
    put_codes(out, 0x01, CHROMA_DC);
    put_codes(out, 0x11, CHROMA_AC);
    put_restart(out, fields.interval);
    put_scan(out);
    return number_at;
}

}  // namespace sim::jpeg
