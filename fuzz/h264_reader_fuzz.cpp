// Any bytes as access units of one stream, in three ways: as they are, behind a good key picture,
// and as the macroblocks of a good slice, which random bytes would hardly ever get to.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "sdk/video/h264_reader.h"
#include "tests/sdk/h264_bits.h"

using namespace h264_bits;

namespace {

void check(bool right) {
    if (!right) std::abort();
}

// 64 x 40, cropped, in macroblocks of one value each.
const Bytes& key_picture() {
    static const Bytes picture = [] {
        Sps sps;
        sps.columns = 4;
        sps.rows = 3;
        sps.crop_bottom = 4;
        std::string macroblocks;
        for (int i = 0; i < 12; ++i) macroblocks += "00100 1 1 01 0 1";
        return key_start(sps) + key_slice(0, 40).unit(macroblocks);
    }();
    return picture;
}

// A refused picture leaves the one before; a decoded one has all its samples.
void decode(sim::H264Reader& reader, const Bytes& unit) {
    const sim::Picture before = reader.picture();
    const bool decoded = reader.decode(unit.data(), unit.size());
    const sim::Picture& after = reader.picture();
    check(decoded == reader.error().empty());
    if (!decoded) check(before.y == after.y && before.u == after.u && before.v == after.v);
    const auto samples =
        static_cast<size_t>(after.size.width) * static_cast<size_t>(after.size.height);
    check(after.y.size() == samples && after.u.size() == samples / 4);
    check(after.size.width <= sim::LARGEST_PICTURE.width &&
          after.size.height <= sim::LARGEST_PICTURE.height);
}

void decode_units(const Bytes& bytes) {
    sim::NalUnits units(bytes.data(), bytes.size());
    sim::NalUnit unit;
    sim::SequenceInfo info;
    while (units.next(unit)) sim::read_sequence(unit, info);
    sim::H264Reader reader;
    decode(reader, bytes);
    decode(reader, key_picture());
    decode(reader, bytes);
    decode(reader, key_picture());
}

// `bytes` become the payload behind a slice header. The bytes end as they are: wherever their last
// bit that is set is, there is the stop bit.
Bytes with_macroblocks(const Slice& header, const Bytes& bytes) {
    Bits bits = header.bits();
    for (const uint8_t byte : bytes) bits.u(8, byte);
    Bytes payload = bits.bytes();
    while (!payload.empty() && payload.back() == 0) payload.pop_back();
    return nal(header.key ? IDR : SLICE, payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const Bytes bytes(data + 1, data + size);
    const int qp = data[0] >> 2;
    if ((data[0] & 3) == 0) {
        decode_units(bytes);
        return 0;
    }
    sim::H264Reader reader;
    if ((data[0] & 1) != 0) {
        Sps sps;
        sps.columns = 4;
        sps.rows = 2;
        decode(reader, key_start(sps) + with_macroblocks(key_slice(0, qp), bytes));
        return 0;
    }
    decode(reader, key_picture());
    decode(reader, delimiter() + with_macroblocks(p_slice(1, 0, qp), bytes));
    decode(reader, delimiter() + p_slice(2).unit("0001101"));
    return 0;
}
