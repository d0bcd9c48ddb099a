// Splits a byte stream into NAL units, takes their payload out, puts it in. Nothing here knows what
// a payload means.
#include "sdk/video/h264_nal.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

// The first of two zero bytes at or after `at`; `end` when there is no such pair.
const uint8_t* zero_pair(const uint8_t* at, const uint8_t* end) {
    while (end - at >= 2) {
        const void* const found = std::memchr(at, 0, static_cast<size_t>(end - at) - 1);
        if (found == nullptr) return end;
        at = static_cast<const uint8_t*>(found);
        if (at[1] == 0) return at;
        at += 2;  // neither is the first of a pair: at[1] is not 0
    }
    return end;
}

// The end of a unit that begins at `at`: before three zero bytes, a start code, or zeros up to
// `end`.
const uint8_t* unit_end(const uint8_t* at, const uint8_t* end) {
    for (;;) {
        const uint8_t* const pair = zero_pair(at, end);
        if (pair == end) return end > at && end[-1] == 0 ? end - 1 : end;
        if (end - pair == 2 || pair[2] <= 1) return pair;
        at = pair + 3;  // pair[2] is not 0: no pair begins in these three
    }
}

}  // namespace

bool NalUnits::next(NalUnit& out) {
    if (m_failed || m_at == m_end) return false;
    m_failed = true;
    const uint8_t* at = m_at;
    while (at != m_end && *at == 0) ++at;
    if (at == m_end || *at != 1 || at - m_at < 2) return false;  // no start code
    const uint8_t* const first = at + 1;
    const uint8_t* const last = unit_end(first, m_end);
    if (first == last || (*first & 0x80) != 0) return false;
    m_failed = false;
    out.bytes = first;
    out.size = static_cast<size_t>(last - first);

    at = last;
    while (at != m_end && *at == 0) ++at;
    m_at = at == m_end ? m_end : last;  // zeros may trail the last unit
    return true;
}

bool take_payload(const NalUnit& unit, std::vector<uint8_t>& payload) {
    payload.resize(unit.size - 1);
    const uint8_t* at = unit.bytes + 1;
    const uint8_t* const end = unit.bytes + unit.size;
    uint8_t* out = payload.data();
    while (at != end) {
        const uint8_t* pair = zero_pair(at, end);
        const uint8_t* const stop = pair == end ? end : pair + 2;
        out = std::copy(at, stop, out);
        at = stop;
        if (at == end) break;
        // 0 to 2 would not be in a unit; 3 is there to keep one of 0 to 3 out.
        if (*at < 3) return false;
        if (*at == 3) {
            ++at;
            if (at == end || *at > 3) return false;
        }
    }
    payload.resize(static_cast<size_t>(out - payload.data()));
    return true;
}

void append_unit(bool long_code, uint8_t header, const std::vector<uint8_t>& payload,
                 std::vector<uint8_t>& out) {
    if (long_code) out.push_back(0);
    out.insert(out.end(), {0, 0, 1, header});
    int zeros = 0;
    for (const uint8_t byte : payload) {
        if (zeros == 2 && byte <= 3) {
            out.push_back(3);  // emulation_prevention_three_byte
            zeros = 0;
        }
        out.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
}

bool is_filler(const NalUnit& unit) {
    if (unit.size < 2 || unit.bytes[unit.size - 1] != 0x80) return false;
    const size_t count = unit.size - 2;
    const uint8_t* const bytes = unit.bytes + 1;
    if (count == 0) return true;
    return bytes[0] == 0xFF && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

}  // namespace sim
