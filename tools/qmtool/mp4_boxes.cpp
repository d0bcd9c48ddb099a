// Writes boxes into memory; the size of each is filled in at its end.
#include "tools/qmtool/mp4_boxes.h"

Boxes& Boxes::begin(std::string_view type) {
    m_open.push_back(m_out.size());
    return u32(0).text(type);
}

Boxes& Boxes::begin_full(std::string_view type, uint8_t version, uint32_t flags) {
    return begin(type).u8(version).u24(flags);
}

// A box of 4 GiB is none that is made in memory.
Boxes& Boxes::end() {
    const size_t first = m_open.back();
    m_open.pop_back();
    const size_t size = m_out.size() - first;
    for (size_t i = 0; i < 4; ++i) m_out[first + i] = static_cast<uint8_t>(size >> (24 - 8 * i));
    return *this;
}

Boxes& Boxes::number(uint64_t value, int size) {
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        m_out.push_back(static_cast<uint8_t>(value >> shift));
    return *this;
}

Boxes& Boxes::text(std::string_view characters) {
    m_out.insert(m_out.end(), characters.begin(), characters.end());
    return *this;
}

Boxes& Boxes::bytes(const void* first, size_t size) {
    const auto* at = static_cast<const uint8_t*>(first);
    m_out.insert(m_out.end(), at, at + size);
    return *this;
}

Boxes& Boxes::zeros(size_t count) {
    m_out.insert(m_out.end(), count, uint8_t{0});
    return *this;
}

Boxes& Boxes::unit_matrix() {
    constexpr uint32_t ONE = 1 << 16, LAST_ONE = 1 << 30;
    return u32(ONE).zeros(12).u32(ONE).zeros(12).u32(LAST_ONE);
}
