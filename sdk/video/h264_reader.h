// Reads what h264_writer writes, and nothing else: splits a byte stream into NAL units, parses them
// strictly and decodes the pictures. Any bytes are safe; what another encoder wrote is refused.
#ifndef SDK_VIDEO_H264_READER_H
#define SDK_VIDEO_H264_READER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "sdk/video/picture.h"

namespace sim {

// ITU-T H.264, table 7-1.
enum class NalType : uint8_t {
    slice = 1,
    idr_slice = 5,
    sei = 6,
    sps = 7,
    pps = 8,
    delimiter = 9,
    filler = 12
};

struct NalUnit {
    const uint8_t* bytes = nullptr;  // from the header byte on; trailing zero bytes are not in it
    size_t size = 0;
    NalType type() const { return static_cast<NalType>(bytes[0] & 31); }
};

// Goes through the NAL units of an Annex B byte stream.
class NalUnits {
  public:
    NalUnits(const uint8_t* bytes, size_t size) : m_at(bytes), m_end(bytes + size) {}
    // False at the end, and at bytes that are no NAL unit: then failed() is true.
    bool next(NalUnit& out);
    bool failed() const { return m_failed; }

  private:
    const uint8_t* m_at;
    const uint8_t* m_end;
    bool m_failed = false;
};

// What a container needs to know of a sequence parameter set.
struct SequenceInfo {
    PictureSize size;         // cropped
    uint8_t profile = 0;      // profile_idc
    uint8_t constraints = 0;  // constraint_set flags, as the byte after profile_idc
    uint8_t level = 0;        // level_idc
    uint32_t time_scale = 0;  // 0 when there is no timing; the frame rate is time_scale / 2 / ticks
    uint32_t ticks = 0;       // num_units_in_tick
};
bool read_sequence(const NalUnit& sps, SequenceInfo& out);

// Decodes one stream of one channel.
class H264Reader {
  public:
    H264Reader();
    ~H264Reader();
    H264Reader(H264Reader&&) noexcept;
    H264Reader& operator=(H264Reader&&) noexcept;

    // Decodes one access unit. False when it is none of our writer's, is damaged, or refers to a
    // picture that was not decoded before it: error() says what, at which macroblock. After that
    // only a key picture goes on.
    bool decode(const uint8_t* bytes, size_t size);
    // The last picture; empty before the first. Valid until the next call.
    const Picture& picture() const;
    const std::string& error() const;
    // The last access unit was a key picture.
    bool was_key() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace sim

#endif  // SDK_VIDEO_H264_READER_H
