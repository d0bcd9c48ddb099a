// Codes of up to nine bits are looked up, longer ones found by their length.
#include "sdk/video/jpeg_entropy.h"

#include <algorithm>

namespace sim::jpeg {

void Bits::fill() {
    while (m_held <= 56 && m_at != m_end) {
        if (*m_at == 0xFF) {
            if (m_end - m_at < 2 || m_at[1] != 0) return;  // a marker
            m_bits |= uint64_t{0xFF} << (56 - m_held);
            m_at += 2;
        } else {
            m_bits |= static_cast<uint64_t>(*m_at++) << (56 - m_held);
        }
        m_held += 8;
    }
}

bool Bits::at_padding() {
    fill();
    if (m_held >= 8) return false;
    const uint64_t ones = m_held == 0 ? 0 : ~uint64_t{0} << (64 - m_held);
    return m_bits == ones;
}

bool HuffmanDecoder::build(const std::array<uint8_t, 16>& counts, const uint8_t* symbols) {
    m_built = false;
    m_short.fill(0);
    int code = 0, place = 0;
    for (int length = 1; length <= LONGEST; ++length) {
        const auto l = static_cast<size_t>(length);
        const int count = counts[l - 1];
        // The last code of each length, all ones, is not used.
        if (code + count > (1 << length) - (count > 0 ? 1 : 0) || place + count > 256) return false;
        m_symbol[l] = place - code;
        for (int i = 0; i < count; ++i, ++code, ++place) {
            const uint8_t symbol = symbols[place];
            m_symbols[static_cast<size_t>(place)] = symbol;
            if (length > SHORT) continue;
            const int room = SHORT - length;
            std::fill_n(m_short.begin() + (code << room), 1 << room,
                        static_cast<uint16_t>(length << 8 | symbol));
        }
        m_end[l] = code;
        code <<= 1;
    }
    m_built = true;
    return true;
}

int HuffmanDecoder::decode_long(Bits& bits) const {
    const uint32_t next = bits.peek(LONGEST);
    for (int length = SHORT + 1; length <= LONGEST; ++length) {
        const int code = static_cast<int>(next >> (LONGEST - length));
        const auto l = static_cast<size_t>(length);
        if (code >= m_end[l]) continue;
        if (!bits.skip(length)) return -1;
        return m_symbols[static_cast<size_t>(code + m_symbol[l])];
    }
    return -1;
}

}  // namespace sim::jpeg
