// The macroblocks of a scene in the bits of a JPEG picture: pattern, bar and overlay, below a
// privacy zone. Restart intervals and the picture around them are jpeg_writer's.
#ifndef SDK_VIDEO_JPEG_MACROBLOCKS_H
#define SDK_VIDEO_JPEG_MACROBLOCKS_H

#include <array>

#include "sdk/video/jpeg_blocks.h"
#include "sdk/video/scene.h"

namespace sim::jpeg {

struct Range {
    int from = 0, to = 0;  // samples; `to` is outside
    bool empty() const { return from >= to; }
};
struct Area {
    Range x, y;
    bool empty() const { return x.empty() || y.empty(); }
};

// What is blanked out, in samples of luma and of chroma, clipped to the picture. A chroma sample is
// when one of its four luma samples is.
struct BlankAreas {
    Area luma, chroma;
};
BlankAreas blank_areas(PictureSize size, const PrivateZone& zone);

// What is seen where no overlay is.
enum class Ground { pattern, bar };

class MacroblockCoder {
  public:
    // `cells` is the pattern; it is referred to until the next configure().
    void configure(const Cells& cells, PictureSize size, const PrivateZone& zone, int quality);

    const Quantisers& quantisers(int component) const { return m_quantisers[component ? 1 : 0]; }

    // Macroblocks `from` to `to` - 1 of a row, at the begin of a restart interval.
    void code(Ground ground, int row, int from, int to, BitString& out) const;

    // The same behind macroblocks of the overlay, whose last DC coefficient is not known yet: the
    // first thing in the interval is then the difference of `first_dc` to that, `bits` follows.
    struct Tail {
        int first_dc = 0;
        BitString bits;
    };
    void code_tail(Ground ground, int row, int from, int to, Tail& out) const;

    // The first `count` macroblocks of a row, which begins a restart interval at column `from`, as
    // the overlay's masks. Returns the DC coefficient of the last luma block. Allocates nothing.
    int code_overlay(int row, int from, int count, const Overlay::Mask* masks,
                     ByteWriter& out) const;
    // The most bits of one such macroblock.
    size_t most_overlay_bits() const;

  private:
    // A luma block of the overlay, by its four cells. A zone cuts all blocks of a column alike.
    struct Variant {
        int dc = 0;
        BitString ac;
    };
    using Variants = std::array<Variant, 16>;
    enum Cut { none, whole, right_part, left_part };  // of a block, by the zone, in one direction
    static constexpr size_t CUTS = 4;
    static Cut cut_of(Range zone, int block);

    void make_variants();
    void make_variants(Cut x, Cut y);
    void code_all(Ground ground, int row, int from, int to, BitString& out, int* first_dc) const;
    void transform_block(int component, const std::array<uint8_t, 4>& cells, Range x, Range y,
                         Coefficients& out) const;

    const Cells* m_cells = nullptr;
    BlankAreas m_blank;  // up to the edge of the last macroblocks where it reaches the picture's
    std::array<Quantisers, 2> m_quantisers{};
    std::array<Variants, CUTS * CUTS> m_variants;
    BitString m_no_colour;  // both chroma blocks of a macroblock behind one without colour
};

}  // namespace sim::jpeg

#endif  // SDK_VIDEO_JPEG_MACROBLOCKS_H
