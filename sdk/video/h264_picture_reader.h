// Reads the slices of one picture after the other: headers, macroblocks, samples. Which NAL units
// make an access unit, and what the picture before it was, is up to h264_reader.
#ifndef SDK_VIDEO_H264_PICTURE_READER_H
#define SDK_VIDEO_H264_PICTURE_READER_H

#include <array>
#include <string>
#include <vector>

#include "sdk/video/bit_reader.h"
#include "sdk/video/h264_predict.h"
#include "sdk/video/h264_reader.h"

namespace sim {

class PictureReader {
  public:
    // Begins a picture in `out`, which is not owned. A key picture is given its size; any other
    // replaces macroblocks of the picture that `out` holds, and undo() brings them back.
    struct Start {
        PictureSize size;
        bool key = false;
        uint8_t frame_num = 0;
        int qp = 26;  // of the picture parameter set
    };
    void begin(const Start& start, Picture& out);
    // Reads the payload of the next slice. False when it is refused: error() says why.
    bool read_slice(BitReader bits);
    // False when macroblocks are missing. After true the picture stays as it is.
    bool end();
    void undo();
    const std::string& error() const { return m_error; }

  private:
    // An intra macroblock that others may be predicted from. Of a skipped one nothing is noted.
    struct Coded {
        uint64_t slice = 0;  // 0: none
        uint32_t address = 0;
        bool pcm = false;
        Edge edge;
    };
    struct Neighbours {
        const Coded* left = nullptr;
        const Coded* above = nullptr;
    };
    struct Header;
    struct Saved {
        uint32_t address = 0;
        std::array<uint8_t, 384> samples;
    };

    const char* read_header(BitReader& bits, Header& header) const;
    const char* check_header(const Header& header) const;
    bool read_macroblocks(BitReader& bits);
    const char* read_macroblock(BitReader& bits);
    const char* read_intra(BitReader& bits, bool chroma);
    const char* read_pcm(BitReader& bits);
    Neighbours neighbours() const;
    void note(bool pcm, const Edges& edges);

    // What of a plane of macroblock `address` is inside the picture.
    struct View {
        uint8_t* at;
        size_t stride;
        size_t width, height;  // at most `side`
        size_t side;           // 16 or 8
    };
    std::array<View, 3> views(uint32_t address);
    void save();
    void paint(const FlatBlocks& values);

    bool refuse_slice(const char* why);
    bool refuse_macroblock(const char* why);

    Start m_start;
    Picture* m_out = nullptr;
    uint32_t m_columns = 0;
    uint32_t m_total = 0;   // macroblocks of a picture
    uint32_t m_next = 0;    // address of the next one
    uint32_t m_slices = 0;  // of this picture
    uint32_t m_idr_id = 0;  // of its first slice
    uint64_t m_slice = 0;   // counts all slices ever read
    int m_qp = 0;           // of the last macroblock
    Coded m_left;
    std::vector<Coded> m_above;  // one a column
    std::vector<Saved> m_saved;
    std::string m_error;
};

}  // namespace sim

#endif  // SDK_VIDEO_H264_PICTURE_READER_H
