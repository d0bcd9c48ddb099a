// Colours, PNG chunks.
#include "tools/qmtool/picture_file.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int SHIFT = 16;

// In 65536ths: what chroma adds to red, green and blue (1.402, 0.344136, 0.714136, 1.772 of full
// range), and the scale of luma.
struct Matrix {
    int luma, black, red_v, green_u, green_v, blue_u;
};
constexpr Matrix FULL = {65536, 0, 91881, 22554, 46802, 116130};
constexpr Matrix NARROW = {76309, 16, 104597, 25675, 53279, 132201};

uint8_t clamped(int value) {
    return static_cast<uint8_t>(std::clamp((value + (1 << (SHIFT - 1))) >> SHIFT, 0, 255));
}

void put32(uint32_t value, Bytes& out) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
}

// CRC-32 of ISO 3309, as PNG has it.
uint32_t crc32(const uint8_t* bytes, size_t size) {
    static const std::array<uint32_t, 256> table = [] {
        std::array<uint32_t, 256> made{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 1) != 0 ? 0xEDB88320U ^ value >> 1 : value >> 1;
            made[i] = value;
        }
        return made;
    }();
    uint32_t crc = 0xFFFFFFFF;
    for (size_t i = 0; i < size; ++i) crc = table[(crc ^ bytes[i]) & 0xFF] ^ crc >> 8;
    return ~crc;
}

void put_chunk(const char* type, const Bytes& data, Bytes& out) {
    put32(static_cast<uint32_t>(data.size()), out);
    const size_t begin = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    put32(crc32(out.data() + begin, out.size() - begin), out);
}

// A zlib stream (RFC 1950, 1951) of stored blocks.
Bytes stored(const Bytes& data) {
    constexpr size_t MOST = 0xFFFF;
    Bytes out = {0x78, 0x01};
    uint32_t a = 1, b = 0;  // Adler-32
    for (const uint8_t byte : data) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    for (size_t at = 0; at < data.size(); at += MOST) {
        const size_t size = std::min(MOST, data.size() - at);
        out.push_back(at + size == data.size() ? 1 : 0);
        for (const size_t value : {size, ~size}) {
            out.push_back(static_cast<uint8_t>(value & 0xFF));
            out.push_back(static_cast<uint8_t>(value >> 8 & 0xFF));
        }
        out.insert(out.end(), data.begin() + static_cast<ptrdiff_t>(at),
                   data.begin() + static_cast<ptrdiff_t>(at + size));
    }
    put32(b << 16 | a, out);
    return out;
}

}  // namespace

RgbPicture rgb_of(const sim::Picture& picture, bool narrow) {
    const Matrix& matrix = narrow ? NARROW : FULL;
    RgbPicture out;
    out.width = picture.size.width;
    out.height = picture.size.height;
    const auto width = static_cast<size_t>(out.width), height = static_cast<size_t>(out.height);
    out.bytes.resize(3 * width * height);
    uint8_t* to = out.bytes.data();
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            const int luma = (picture.y[y * width + x] - matrix.black) * matrix.luma;
            const size_t chroma = y / 2 * (width / 2) + x / 2;
            const int u = picture.u[chroma] - 128, v = picture.v[chroma] - 128;
            *to++ = clamped(luma + matrix.red_v * v);
            *to++ = clamped(luma - matrix.green_u * u - matrix.green_v * v);
            *to++ = clamped(luma + matrix.blue_u * u);
        }
    }
    return out;
}

Bytes png_of(const RgbPicture& picture) {
    Bytes out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    Bytes head;
    put32(static_cast<uint32_t>(picture.width), head);
    put32(static_cast<uint32_t>(picture.height), head);
    head.insert(head.end(), {8, 2, 0, 0, 0});  // 8 bits, RGB, deflate, no filter, not interlaced
    put_chunk("IHDR", head, out);
    const size_t row = 3 * static_cast<size_t>(picture.width);
    Bytes rows;
    rows.reserve(picture.bytes.size() + static_cast<size_t>(picture.height));
    for (size_t at = 0; at < picture.bytes.size(); at += row) {
        rows.push_back(0);  // no filter
        rows.insert(rows.end(), picture.bytes.begin() + static_cast<ptrdiff_t>(at),
                    picture.bytes.begin() + static_cast<ptrdiff_t>(at + row));
    }
    put_chunk("IDAT", stored(rows), out);
    put_chunk("IEND", {}, out);
    return out;
}

Bytes ppm_of(const RgbPicture& picture) {
    const std::string head =
        "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
    Bytes out(head.begin(), head.end());
    out.insert(out.end(), picture.bytes.begin(), picture.bytes.end());
    return out;
}
