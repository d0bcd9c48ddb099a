// Writes the slices of one picture after the other: headers and macroblocks (ITU-T H.264, 7.3.3 to
// 7.3.5). What they show is up to h264_writer.
#ifndef SDK_VIDEO_H264_SLICE_H
#define SDK_VIDEO_H264_SLICE_H

#include <vector>

#include "sdk/video/bit_writer.h"
#include "sdk/video/h264_predict.h"

namespace sim {

// Exact coding needs it: the highest quantiser with a step that is a power of 2 and small enough
// for every difference of texts.
inline constexpr int EXACT_QP = 28;

// idr_pic_id is IDR_ID and a number below 256: the last 8 of the 17 bits of its code. Nothing else
// in a NAL unit depends on that number, emulation prevention neither: the bit before it is 1, and
// at most 7 zeros follow it. So key pictures made once serve with any.
inline constexpr uint32_t IDR_ID = 255;
inline constexpr unsigned IDR_ID_BITS = 8;

class SliceWriter {
  public:
    struct Start {
        int first = 0;    // address of its first macroblock
        int columns = 0;  // macroblocks a row
        bool key = false;
        uint32_t idr_id = IDR_ID;  // of a key picture, up to 255 above
        uint32_t frame_num = 0;    // of any other, 0..255
        int qp = EXACT_QP;
    };
    void begin(const Start& start);
    // Where in the payload of a key picture's slice the number of idr_pic_id is, in bits.
    size_t idr_id_bit() const { return m_idr_id_bit; }
    int first() const { return m_start.first; }
    int next() const { return m_next; }  // address
    bool empty() const { return m_next == m_start.first; }

    // The next `count` macroblocks are as in the picture before.
    void skip(int count);
    // The next macroblock, at quantiser `qp`. Returns what a decoder shows.
    FlatBlocks code(const FlatBlocks& wanted, int qp);
    // The next macroblock, without loss.
    void code_exactly(const FlatBlocks& wanted);
    void code_samples(const MacroblockSamples& samples);

    // Ends the slice. Its payload is valid until the next call.
    const std::vector<uint8_t>& finish();

  private:
    struct Levels {
        std::array<int, 16> y;  // in scan order
        std::array<int, 4> u, v;
    };
    struct Coded {
        uint64_t slice = 0;  // 0: none
        int address = 0;
        bool pcm = false;
        Edge edge;
    };

    const Coded* left() const;
    const Coded* above() const;
    Prediction predict() const;
    void write_type(uint32_t type);
    void write_levels(const Levels& levels, int qp);
    void note(bool pcm, const Edges& edges);

    Start m_start;
    BitWriter m_bits;
    size_t m_idr_id_bit = 0;
    int m_next = 0;
    uint32_t m_skipped = 0;
    int m_qp = 0;          // of the last macroblock
    uint64_t m_slice = 0;  // counts them
    Coded m_left;
    std::vector<Coded> m_above;  // one a column
};

MacroblockSamples samples_of(const FlatBlocks& blocks);
// False when they are no flat blocks.
bool flat_blocks(const MacroblockSamples& samples, FlatBlocks& out);

}  // namespace sim

#endif  // SDK_VIDEO_H264_SLICE_H
