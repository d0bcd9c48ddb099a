// A private zone, clipped to a picture: which macroblocks it touches, and blanking their samples.
#ifndef SDK_VIDEO_ZONE_BLANKING_H
#define SDK_VIDEO_ZONE_BLANKING_H

#include <algorithm>
#include <cstdint>

#include "sdk/video/picture.h"

namespace sim {

class ZoneBlanking {
  public:
    enum class Cover {
        none,
        part,
        whole,  // of what the picture shows of the macroblock
    };

    ZoneBlanking() = default;
    ZoneBlanking(const PrivateZone& zone, PictureSize size) : m_size(size) {
        if (!zone.enabled) return;
        m_left = std::min<int>(zone.start_x, size.width);
        m_top = std::min<int>(zone.start_y, size.height);
        m_right = std::min(zone.start_x + zone.width, size.width);
        m_bottom = std::min(zone.start_y + zone.height, size.height);
    }

    bool empty() const { return m_left >= m_right || m_top >= m_bottom; }

    Cover cover(int column, int row) const {
        const int left = column * MACROBLOCK, top = row * MACROBLOCK;
        const int right = std::min(left + MACROBLOCK, m_size.width);
        const int bottom = std::min(top + MACROBLOCK, m_size.height);
        if (empty() || left >= m_right || right <= m_left || top >= m_bottom || bottom <= m_top)
            return Cover::none;
        const bool whole = left >= m_left && right <= m_right && top >= m_top && bottom <= m_bottom;
        return whole ? Cover::whole : Cover::part;
    }

    // A luma sample; a chroma sample, which is blanked when any of its four luma samples is.
    bool hides(int x, int y) const {
        return x >= m_left && x < m_right && y >= m_top && y < m_bottom;
    }
    bool hides_chroma(int x, int y) const {
        return !empty() && 2 * x + 1 >= m_left && 2 * x < m_right && 2 * y + 1 >= m_top &&
               2 * y < m_bottom;
    }

    // Everything that is hidden, of a picture of that size.
    void blank(Picture& picture) const {
        if (empty()) return;
        const auto fill = [](std::vector<uint8_t>& plane, int width, int left, int right, int top,
                             int bottom, uint8_t value) {
            for (int y = top; y < bottom; ++y) {
                uint8_t* const row =
                    plane.data() + static_cast<size_t>(y) * static_cast<size_t>(width);
                std::fill(row + left, row + right, value);
            }
        };
        fill(picture.y, m_size.width, m_left, m_right, m_top, m_bottom, BLACK_LUMA);
        for (std::vector<uint8_t>* plane : {&picture.u, &picture.v})
            fill(*plane, m_size.width / 2, m_left / 2, (m_right + 1) / 2, m_top / 2,
                 (m_bottom + 1) / 2, NO_COLOUR);
    }

  private:
    PictureSize m_size;
    int m_left = 0, m_top = 0, m_right = 0, m_bottom = 0;  // in samples, the latter two behind it
};

}  // namespace sim

#endif  // SDK_VIDEO_ZONE_BLANKING_H
