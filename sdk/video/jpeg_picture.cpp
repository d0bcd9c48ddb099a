// Blocks of 8 x 8 samples, one macroblock row an interval.
#include "sdk/video/jpeg_picture.h"

#include <algorithm>

#include "sdk/video/jpeg_blocks.h"
#include "sdk/video/jpeg_header.h"

namespace sim {

namespace {

using namespace jpeg;

struct Component {
    const std::vector<uint8_t>* plane;
    int width, height;
    int blocks;  // of a macroblock, in each direction
    const Quantisers* quantisers;
    int table;  // 0 luma, 1 chroma
};

// Beyond the picture's edges its last column and row go on.
Samples samples_at(const Component& from, int left, int top) {
    Samples out;
    for (int y = 0; y < 8; ++y) {
        const auto row = static_cast<size_t>(std::min(top + y, from.height - 1));
        for (int x = 0; x < 8; ++x) {
            const auto column = static_cast<size_t>(std::min(left + x, from.width - 1));
            out[static_cast<size_t>(8 * y + x)] =
                (*from.plane)[row * static_cast<size_t>(from.width) + column];
        }
    }
    return out;
}

void put_macroblock(const Component& from, int column, int row, int& last_dc, BitString& out) {
    for (int y = 0; y < from.blocks; ++y) {
        for (int x = 0; x < from.blocks; ++x) {
            Coefficients block;
            transform(samples_at(from, 8 * (column * from.blocks + x), 8 * (row * from.blocks + y)),
                      *from.quantisers, block);
            out.put(dc_code(block[0] - last_dc, dc_codes(from.table)));
            last_dc = block[0];
            put_ac(block, ac_codes(from.table), out);
        }
    }
}

uint8_t stretched(int value, int zero, int range) {
    const int wide = (value - zero) * 255;
    return static_cast<uint8_t>(std::clamp(
        (zero == 16 ? 0 : 128) + (wide + (wide < 0 ? -range : range) / 2) / range, 0, 255));
}

}  // namespace

Picture full_range(const Picture& narrow) {
    Picture out = narrow;
    for (uint8_t& y : out.y) y = stretched(y, 16, 219);
    for (uint8_t& u : out.u) u = stretched(u, 128, 224);
    for (uint8_t& v : out.v) v = stretched(v, 128, 224);
    return out;
}

std::vector<uint8_t> jpeg_of(const Picture& picture, const FrameInfo& info, int quality) {
    Scene scene;
    scene.stream = info.stream;
    scene.channel = info.channel;
    scene.size = picture.size;
    const int width = picture.size.width, height = picture.size.height;
    const int columns = macroblocks(width), rows = macroblocks(height);
    HeaderFields fields;
    fields.luma = scaled(LUMA_QUANTISERS, quality);
    fields.chroma = scaled(CHROMA_QUANTISERS, quality);
    fields.interval = columns;
    std::vector<uint8_t> out;
    size_t digit = put_header(scene, fields, out) + NUMBER_DIGITS;
    for (uint32_t left = info.number; left > 0; left /= 10)
        out[--digit] = static_cast<uint8_t>('0' + left % 10);

    const Component components[] = {{&picture.y, width, height, 2, &fields.luma, 0},
                                    {&picture.u, width / 2, height / 2, 1, &fields.chroma, 1},
                                    {&picture.v, width / 2, height / 2, 1, &fields.chroma, 1}};
    BitString bits;
    for (int row = 0; row < rows; ++row) {
        bits.clear();
        int last_dc[3] = {};
        for (int column = 0; column < columns; ++column)
            for (int i = 0; i < 3; ++i)
                put_macroblock(components[i], column, row, last_dc[i], bits);
        const size_t begin = out.size();
        out.resize(begin + bits.length() / 4 + 8);
        ByteWriter writer(out.data() + begin);
        writer.put(bits);
        const uint8_t* const end = writer.finish();
        out.resize(static_cast<size_t>(end - out.data()));
        const bool last = row + 1 == rows;
        out.push_back(0xFF);
        out.push_back(static_cast<uint8_t>(last ? 0xD9 : 0xD0 + row % 8));  // EOI, RSTn
    }
    return out;
}

}  // namespace sim
