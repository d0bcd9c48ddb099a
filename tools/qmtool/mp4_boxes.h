// The boxes of QuickTime and MP4 files (ISO/IEC 14496-12), in memory. Which boxes a film has stands
// in mp4_movie.
#ifndef TOOLS_QMTOOL_MP4_BOXES_H
#define TOOLS_QMTOOL_MP4_BOXES_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// Boxes are begun and ended in pairs; all numbers are written big-endian.
class Boxes {
  public:
    Boxes& begin(std::string_view type);
    // With its version and flags.
    Boxes& begin_full(std::string_view type, uint8_t version, uint32_t flags);
    Boxes& end();

    Boxes& u8(uint64_t value) { return number(value, 1); }
    Boxes& u16(uint64_t value) { return number(value, 2); }
    Boxes& u24(uint64_t value) { return number(value, 3); }
    Boxes& u32(uint64_t value) { return number(value, 4); }
    Boxes& u64(uint64_t value) { return number(value, 8); }
    // 64 bits where `large`, else 32.
    Boxes& wide(bool large, uint64_t value) { return number(value, large ? 8 : 4); }
    Boxes& text(std::string_view characters);
    Boxes& bytes(const void* first, size_t size);
    Boxes& zeros(size_t count);
    // That of what is shown as it is.
    Boxes& unit_matrix();

    const std::vector<uint8_t>& out() const { return m_out; }

  private:
    Boxes& number(uint64_t value, int size);

    std::vector<uint8_t> m_out;
    std::vector<size_t> m_open;  // where those begin that are not ended
};

#endif  // TOOLS_QMTOOL_MP4_BOXES_H
