// Writes JPEG (ITU-T T.81), baseline, 4:2:0, with the Huffman and quantisation tables of its annex
// K, the latter scaled by quality. Every picture stands alone. No clock, no thread, no file.
#ifndef SDK_VIDEO_JPEG_WRITER_H
#define SDK_VIDEO_JPEG_WRITER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "sdk/video/scene.h"

namespace sim {

// Quality 1..100 for a quantiser 0..51: 100 at 0, falling evenly to 4 at 51.
int jpeg_quality(int qp);

class JpegWriter {
  public:
    JpegWriter();
    ~JpegWriter();
    JpegWriter(JpegWriter&&) noexcept;
    JpegWriter& operator=(JpegWriter&&) noexcept;

    // Makes the parts for a scene. Does nothing when nothing is different.
    void configure(const Scene& scene, const PrivateZone& zone, int qp);

    // Composes the picture of frame `number`; returns its bytes without fill. Allocates nothing
    // once a picture was composed.
    size_t compose(uint32_t number);
    // Writes what was composed, filled up to `bytes`, which are at least what compose() returned,
    // with fill bytes (0xFF) before the EOI marker.
    void write(size_t bytes, uint8_t* out) const;

    // What was drawn, before coding.
    void original(Picture& out) const;

  private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

}  // namespace sim

#endif  // SDK_VIDEO_JPEG_WRITER_H
