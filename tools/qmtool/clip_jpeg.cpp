// Goes through the marker segments of a JPEG file.
#include "tools/qmtool/clip_jpeg.h"

namespace {

// ITU-T T.81, table B.1.
enum Marker : uint8_t {
    SOF0 = 0xC0,
    DHT = 0xC4,
    JPG = 0xC8,
    DAC = 0xCC,
    SOF15 = 0xCF,
    RST0 = 0xD0,
    SOI = 0xD8,
    EOI = 0xD9,
    SOS = 0xDA,
    APP0 = 0xE0,
    APP15 = 0xEF,
    COM = 0xFE,
    TEM = 0x01,
};

bool begins_frame(uint8_t marker) {
    return marker >= SOF0 && marker <= SOF15 && marker != DHT && marker != JPG && marker != DAC;
}

int two_bytes(const uint8_t* at) { return at[0] << 8 | at[1]; }

}  // namespace

bool look_at_jpeg(const uint8_t* bytes, size_t size, JpegLayout& out) {
    if (size < 2 || bytes[0] != 0xFF || bytes[1] != SOI) return false;
    JpegLayout layout;
    layout.comment_at = 2;
    bool commented = false, framed = false, first_ones = true;
    for (size_t at = 2; at + 4 <= size;) {
        if (bytes[at] != 0xFF) return false;
        const uint8_t marker = bytes[at + 1];
        if (marker == 0xFF) {  // fill before a marker
            ++at;
            continue;
        }
        if (marker == 0 || marker == TEM || (marker >= RST0 && marker <= EOI)) return false;
        const auto length = static_cast<size_t>(two_bytes(bytes + at + 2));
        const size_t end = at + 2 + length;
        if (length < 2 || end > size) return false;
        if (begins_frame(marker)) {
            if (length < 8) return false;
            layout.size = {two_bytes(bytes + at + 7), two_bytes(bytes + at + 5)};
            framed = true;
        }
        first_ones = first_ones && marker >= APP0 && marker <= APP15;
        if (first_ones || (marker == COM && !commented)) layout.comment_at = end;
        commented = commented || marker == COM;
        if (marker == SOS) {
            out = layout;
            return framed;
        }
        at = end;
    }
    return false;
}

std::string comment_segment(const std::string& text) {
    const size_t length = 2 + text.size();
    std::string segment(4, '\xFF');
    segment[1] = static_cast<char>(COM);
    segment[2] = static_cast<char>(length >> 8);
    segment[3] = static_cast<char>(length);
    return segment + text;
}
