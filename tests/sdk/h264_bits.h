// Streams of the H.264 reader's tests, put together element by element, the bits of macroblocks
// written out by hand. Nothing here is shared with the writer.
#ifndef TESTS_SDK_H264_BITS_H
#define TESTS_SDK_H264_BITS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace h264_bits {

using Bytes = std::vector<uint8_t>;

// Bits as '0' and '1'.
class Bits {
  public:
    Bits& raw(const std::string& bits) {
        for (const char bit : bits)
            if (bit == '0' || bit == '1') m_bits += bit;
        return *this;
    }
    Bits& u(unsigned count, uint64_t value) {
        for (unsigned i = count; i-- > 0;) m_bits += (value >> i & 1) != 0 ? '1' : '0';
        return *this;
    }
    Bits& ue(uint64_t value) {
        unsigned zeros = 0;
        while ((value + 1) >> (zeros + 1) != 0) ++zeros;
        return u(zeros, 0).u(zeros + 1, value + 1);
    }
    Bits& se(int64_t value) {
        return ue(static_cast<uint64_t>(value > 0 ? 2 * value - 1 : -2 * value));
    }
    Bits& align(char bit) {
        while (m_bits.size() % 8 != 0) m_bits += bit;
        return *this;
    }
    Bits& stop() { return raw("1").align('0'); }
    const std::string& text() const { return m_bits; }
    Bytes bytes() const {
        Bytes out((m_bits.size() + 7) / 8);
        for (size_t i = 0; i < m_bits.size(); ++i)
            if (m_bits[i] == '1') out[i / 8] = static_cast<uint8_t>(out[i / 8] | 0x80 >> i % 8);
        return out;
    }

  private:
    std::string m_bits;
};

// A start code of `zeros` zero bytes, the header byte, the payload with emulation prevention.
inline Bytes nal(uint8_t header, const Bytes& payload, size_t zeros = 2) {
    Bytes out(zeros, 0);
    out.push_back(1);
    out.push_back(header);
    size_t in_a_row = 0;
    for (const uint8_t byte : payload) {
        if (in_a_row >= 2 && byte <= 3) {
            out.push_back(3);
            in_a_row = 0;
        }
        out.push_back(byte);
        in_a_row = byte == 0 ? in_a_row + 1 : 0;
    }
    return out;
}
inline Bytes nal(uint8_t header, Bits payload, size_t zeros = 2) {
    return nal(header, payload.stop().bytes(), zeros);
}

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

constexpr uint8_t DELIMITER = 0x09, SPS = 0x67, PPS = 0x68, IDR = 0x65, SLICE = 0x61;
constexpr uint8_t FILLER = 0x0C, SEI = 0x06;

struct Sps {
    unsigned profile = 66, constraints = 0xC0, level = 30, id = 0, frame_num_bits = 8;
    unsigned order_type = 2, references = 1;
    bool gaps = false, frames = true;
    uint64_t columns = 2, rows = 1;
    unsigned crop_left = 0, crop_right = 0, crop_top = 0, crop_bottom = 0;
    bool full_range = false;
    unsigned primaries = 6, ticks = 1, time_scale = 60, reorder = 0, buffering = 1;
    std::string behind;

    Bytes unit(size_t zeros = 3) const {
        Bits bits;
        bits.u(8, profile).u(8, constraints).u(8, level).ue(id).ue(frame_num_bits - 4);
        bits.ue(order_type).ue(references).u(1, gaps).ue(columns - 1).ue(rows - 1);
        bits.u(1, frames).u(1, 1);
        const bool crops = (crop_left | crop_right | crop_top | crop_bottom) != 0;
        bits.u(1, crops);
        if (crops) bits.ue(crop_left).ue(crop_right).ue(crop_top).ue(crop_bottom);
        bits.u(1, 1).u(1, 0).u(1, 0);                         // vui; no sample shape, overscan
        bits.u(1, 1).u(3, 5).u(1, full_range).u(1, 1);        // video signal, colours
        bits.u(8, primaries).u(8, 6).u(8, 6).u(1, 0);         // no place of chroma
        bits.u(1, 1).u(32, ticks).u(32, time_scale).u(1, 0);  // timing
        bits.u(1, 0).u(1, 0).u(1, 0).u(1, 1).u(1, 0);         // restriction
        bits.ue(0).ue(0).ue(0).ue(0).ue(reorder).ue(buffering);
        return nal(SPS, bits.raw(behind), zeros);
    }
};

struct Pps {
    unsigned id = 0, sps = 0, cabac = 0, groups = 0, references = 0, weighted = 0;
    int qp = 26, chroma_offset = 0;
    unsigned deblocking_control = 1, constrained = 1, redundant = 0;
    std::string behind;

    Bytes unit(size_t zeros = 3) const {
        Bits bits;
        bits.ue(id).ue(sps).u(1, cabac).u(1, 0).ue(groups).ue(references).ue(0);
        bits.u(1, weighted).u(2, 0).se(qp - 26).se(0).se(chroma_offset);
        bits.u(1, deblocking_control).u(1, constrained).u(1, redundant).raw(behind);
        return nal(PPS, bits, zeros);
    }
};

// A slice header. `key` says which of the elements there are.
struct Slice {
    bool key = true;
    uint64_t first = 0, type = 7, pps = 0;
    unsigned frame_num = 0, idr_id = 1;
    unsigned override_references = 0, reorder = 0, no_output = 0, long_term = 0, adaptive = 0;
    int qp_delta = 0;
    uint64_t deblocking = 1;

    Bits bits() const {
        Bits out;
        out.ue(first).ue(type).ue(pps).u(8, frame_num);
        if (key) {
            out.ue(idr_id).u(1, no_output).u(1, long_term);
        } else {
            out.u(1, override_references).u(1, reorder).u(1, adaptive);
        }
        return out.se(qp_delta).ue(deblocking);
    }
    Bytes unit(const std::string& macroblocks) const {
        return nal(key ? IDR : SLICE, bits().raw(macroblocks));
    }
};
inline Slice key_slice(uint64_t first = 0, int qp = 26) {
    Slice slice;
    slice.first = first;
    slice.qp_delta = qp - 26;
    return slice;
}
inline Slice p_slice(unsigned frame_num, uint64_t first = 0, int qp = 26) {
    Slice slice;
    slice.key = false;
    slice.first = first;
    slice.type = 5;
    slice.frame_num = frame_num;
    slice.qp_delta = qp - 26;
    return slice;
}

inline Bytes delimiter(unsigned type = 7, size_t zeros = 3) {
    return nal(DELIMITER, Bits().u(3, type), zeros);
}
inline Bytes key_start(const Sps& sps = {}, const Pps& pps = {}) {
    return delimiter() + sps.unit() + pps.unit();
}
inline Bytes filler(size_t count) {
    Bytes payload(count, 0xFF);
    payload.push_back(0x80);
    return nal(FILLER, payload);
}

}  // namespace h264_bits

#endif  // TESTS_SDK_H264_BITS_H
