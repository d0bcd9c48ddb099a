// Decodes access units: which NAL units they hold, in which order, and what of one picture the next
// needs. Slices and samples are in h264_picture_reader, parameter sets in h264_sets.
#include "sdk/video/h264_reader.h"

#include <utility>
#include <vector>

#include "sdk/video/h264_nal.h"
#include "sdk/video/h264_picture_reader.h"
#include "sdk/video/h264_sets.h"

namespace sim {

namespace {

// A picture of the largest size that is all I_PCM has less than half of it.
constexpr size_t MOST_UNIT_BYTES = size_t{1} << 25;

constexpr uint32_t INTRA_ONLY = 0, INTRA_AND_INTER = 1, ALL_TYPES = 7;  // primary_pic_type

// The NAL units that an access unit has had: each kind comes after those above it.
enum class Had { nothing, delimiter, sps, pps, slices, filler };

}  // namespace

struct H264Reader::State {
    Picture shown;
    Picture next;  // a key picture while it is decoded; not shown before it is whole
    PictureReader pictures;
    std::vector<uint8_t> payload;
    std::string error;
    bool referable = false;  // `shown` is what the next P picture refers to
    bool was_key = false;
    uint8_t frame_num = 0;  // of `shown`

    // Of the access unit that is being read.
    Had had = Had::nothing;
    bool key = false;
    uint32_t picture_type = 0;  // primary_pic_type
    SequenceInfo sequence;
    int qp = 0;

    bool refuse(const char* why);
    bool read(const uint8_t* bytes, size_t size);
    bool read_unit(const NalUnit& unit, bool long_code);
    bool take(const NalUnit& unit);
    bool read_delimiter(const NalUnit& unit);
    bool read_sps(const NalUnit& unit);
    bool read_pps(const NalUnit& unit);
    bool read_slice(const NalUnit& unit);
    bool begin_picture(const NalUnit& unit);
    bool read_filler(const NalUnit& unit);
    void show();
};

bool H264Reader::State::refuse(const char* why) {
    error = why;
    return false;
}

// The payload, in `payload`, of a unit that has one.
bool H264Reader::State::take(const NalUnit& unit) {
    return take_payload(unit, payload) ||
           refuse("NAL unit: its bytes are not what emulation prevention makes");
}

bool H264Reader::State::read_delimiter(const NalUnit& unit) {
    if (had != Had::nothing) return refuse("delimiter: it is not the first NAL unit");
    if (reference(unit) != 0) return refuse("delimiter: nal_ref_idc is not 0");
    if (!take(unit)) return false;
    BitReader bits(payload.data(), payload.size());
    picture_type = bits.bits(3);
    if (bits.failed()) return refuse("delimiter: it ends too early");
    if (bits.more()) return refuse("delimiter: there is data behind its end");
    had = Had::delimiter;
    return true;
}

bool H264Reader::State::read_sps(const NalUnit& unit) {
    if (had != Had::delimiter) return refuse("sps: it does not follow the delimiter");
    if (reference(unit) == 0) return refuse("sps: nal_ref_idc is 0");
    if (!take(unit)) return false;
    BitReader bits(payload.data(), payload.size());
    if (const char* const wrong = read_sequence_set(bits, sequence)) return refuse(wrong);
    had = Had::sps;
    return true;
}

bool H264Reader::State::read_pps(const NalUnit& unit) {
    if (had != Had::sps) return refuse("pps: it does not follow an sps");
    if (reference(unit) == 0) return refuse("pps: nal_ref_idc is 0");
    if (!take(unit)) return false;
    BitReader bits(payload.data(), payload.size());
    if (const char* const wrong = read_picture_set(bits, qp)) return refuse(wrong);
    had = Had::pps;
    return true;
}

bool H264Reader::State::begin_picture(const NalUnit& unit) {
    key = unit.type() == NalType::idr_slice;
    if (key && had != Had::pps) return refuse("slice 0: a key picture without sps and pps");
    if (!key && had == Had::pps)
        return refuse("slice 0: sps and pps before a picture that is no key");
    if (had != Had::delimiter && had != Had::pps)
        return refuse("slice 0: it does not follow a pps");
    if (!key && !referable) return refuse("slice 0: the picture that it refers to was not decoded");
    if (picture_type != INTRA_AND_INTER && picture_type != ALL_TYPES &&
        !(key && picture_type == INTRA_ONLY))
        return refuse("delimiter: primary_pic_type does not fit the slices");

    PictureReader::Start start;
    start.size = key ? sequence.size : shown.size;
    start.key = key;
    start.frame_num = key ? 0 : static_cast<uint8_t>(frame_num + 1);
    start.qp = qp;
    pictures.begin(start, key ? next : shown);
    had = Had::slices;
    return true;
}

bool H264Reader::State::read_slice(const NalUnit& unit) {
    if (had == Had::filler) return refuse("slice: it comes after the filler");
    if (had != Had::slices && !begin_picture(unit)) return false;
    if (key != (unit.type() == NalType::idr_slice))
        return refuse("slice: only a part of the picture's slices are of a key picture");
    if (reference(unit) == 0) return refuse("slice: nal_ref_idc is 0");
    if (!take(unit)) return false;
    return pictures.read_slice(BitReader(payload.data(), payload.size())) ||
           refuse(pictures.error().c_str());
}

bool H264Reader::State::read_filler(const NalUnit& unit) {
    if (had != Had::slices) return refuse("filler: it does not follow the slices");
    if (reference(unit) != 0) return refuse("filler: nal_ref_idc is not 0");
    if (!is_filler(unit)) return refuse("filler: it holds other bytes than 0xFF");
    had = Had::filler;
    return true;
}

bool H264Reader::State::read_unit(const NalUnit& unit, bool long_code) {
    const NalType type = unit.type();
    const bool wants_long = had == Had::nothing || type == NalType::sps || type == NalType::pps;
    if (wants_long && !long_code) return refuse("NAL unit: no zero byte before its start code");
    switch (type) {
        case NalType::delimiter: return read_delimiter(unit);
        case NalType::sps: return read_sps(unit);
        case NalType::pps: return read_pps(unit);
        case NalType::slice:
        case NalType::idr_slice: return read_slice(unit);
        case NalType::filler: return read_filler(unit);
        default: return refuse("NAL unit: its type is never written");
    }
}

bool H264Reader::State::read(const uint8_t* bytes, size_t size) {
    had = Had::nothing;
    if (size > MOST_UNIT_BYTES) return refuse("access unit: it is larger than 32 MiB");
    NalUnits units(bytes, size);
    NalUnit unit;
    while (units.next(unit)) {
        if (had == Had::nothing && unit.type() != NalType::delimiter)
            return refuse("access unit: it does not begin with a delimiter");
        const bool long_code = unit.bytes - bytes >= 4 && unit.bytes[-4] == 0;
        if (!read_unit(unit, long_code)) return false;
    }
    if (units.failed()) return refuse("access unit: it has bytes that are no NAL unit");
    if (had != Had::slices && had != Had::filler) return refuse("access unit: it has no slice");
    return pictures.end() || refuse(pictures.error().c_str());
}

// What was decoded becomes what is shown and referred to.
void H264Reader::State::show() {
    if (key) std::swap(shown, next);
    frame_num = key ? 0 : static_cast<uint8_t>(frame_num + 1);
    was_key = key;
    referable = true;
}

H264Reader::H264Reader() : m_state(std::make_unique<State>()) {}
H264Reader::~H264Reader() = default;
H264Reader::H264Reader(H264Reader&&) noexcept = default;
H264Reader& H264Reader::operator=(H264Reader&&) noexcept = default;

bool H264Reader::decode(const uint8_t* bytes, size_t size) {
    State& state = *m_state;
    state.error.clear();
    state.was_key = false;
    if (state.read(bytes, size)) {
        state.show();
        return true;
    }
    state.pictures.undo();
    state.referable = false;
    return false;
}

const Picture& H264Reader::picture() const { return m_state->shown; }
const std::string& H264Reader::error() const { return m_state->error; }
bool H264Reader::was_key() const { return m_state->was_key; }

}  // namespace sim
