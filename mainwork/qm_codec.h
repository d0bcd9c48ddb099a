// The SDK's codec object and what it hands out: chip control, video encoder, audio.
//
// Calling order: CreateQMAVCodec; GetSystem; SetBoardType; SetChipEnableMask; SetCodecType for the
// channels; InitAVCodec; any setters and worker threads; ReleaseAVCodec after every thread has
// stopped; DestroyQMAVCodec. All calls come from the console thread; setters may be called while
// worker threads run. The system, encoder and audio objects belong to the codec.
#ifndef MAINWORK_QM_CODEC_H
#define MAINWORK_QM_CODEC_H

#include <cstdint>
#include <string>

inline constexpr int QMCODEC_CHANNELS = 16;  // a stream, numbered 0..15
inline constexpr int QMCODEC_STREAMS = 6;    // numbered as QMCODEC_STREAM
inline constexpr int QMCODEC_CHIPS = 4;      // numbered 0..3, one bit each in a chip mask
inline constexpr int QMCODEC_CHANNELS_PER_CHIP = QMCODEC_CHANNELS / QMCODEC_CHIPS;

enum QMCODEC_STREAM : int32_t {
    QMCODEC_STREAM_MAIN = 0,
    QMCODEC_STREAM_DUAL = 1,
    QMCODEC_STREAM_JPEG = 2,
    QMCODEC_STREAM_PREVIEW = 3,
    QMCODEC_STREAM_3RD = 4,
    QMCODEC_STREAM_4TH = 5,
};

// What InitAVCodec reads; a plain value on the caller's stack.
struct _QM_AVCODEC_INIT_PARAM {
    uint32_t video_format;               // 0 NTSC, 1 PAL
    uint32_t field_type;                 // field or frame mode code
    std::string parameter_file_name[4];  // chip parameter files; empty when unused
    std::string qp_table[2];             // QP table files
    std::string firmware;                // firmware file
};

// Chip-level control.
class QMCodecSystem {
  public:
    // Bit n enables chip n, mask 0..15. Returns 0 on success.
    virtual int SetChipEnableMask(uint32_t mask) = 0;
    // Returns 0 on success.
    virtual int InitAVCodec(_QM_AVCODEC_INIT_PARAM* param) = 0;
    // Undoes InitAVCodec. No result is used.
    virtual int ReleaseAVCodec() = 0;

  protected:
    ~QMCodecSystem() = default;
};

// Encoder settings of one channel (0..15) of one stream (QMCODEC_STREAM). A value out of range is
// held to the nearest that makes sense; it takes effect at the channel's next frame. No caller
// reads a result.
class QMVideoEncoder {
  public:
    virtual int SetChannelEnable(int stream, int channel, uint8_t enable) = 0;
    virtual int SetCodecType(int stream, int channel, uint32_t codectype) = 0;
    virtual int SetFrameRate(int stream, int channel, uint32_t frames_per_second) = 0;
    virtual int SetIDRInterval(int stream, int channel, uint32_t frames) = 0;
    virtual int SetBitrate(int stream, int channel, uint32_t bits_per_second) = 0;
    virtual int SetBitrateType(int stream, int channel, uint32_t type) = 0;
    // 0 QCIF, 1 CIF, 2 Half D1, 3 D1, 4 HD.
    virtual int SetResolution(int stream, int channel, uint32_t resolution) = 0;
    // 0..51.
    virtual int SetQP(int stream, int channel, uint8_t qp) = 0;
    // A rectangle, in pixels, that the encoder blanks out; `enable` 0 removes it.
    virtual int SetPrivateZone(int stream, uint8_t channel, uint8_t enable, int zone,
                               uint16_t start_x, uint16_t start_y, uint16_t width,
                               uint16_t height) = 0;

  protected:
    ~QMVideoEncoder() = default;
};

// Audio capture.
class QMAudio {
  public:
    // Channel 0..15; non-zero switches on. No caller reads the result.
    virtual int SetAudioChannelEnable(int channel, uint8_t enable) = 0;

  protected:
    ~QMAudio() = default;
};

// One open session with the board.
class QMAVCodec {
  public:
    virtual int SetBoardType(uint32_t board_type, uint32_t sub_board_type) = 0;
    virtual QMCodecSystem* GetSystem() = 0;
    virtual QMVideoEncoder* GetVideoEncoder() = 0;  // may be null
    virtual QMAudio* GetAudio() = 0;

  protected:
    ~QMAVCodec() = default;
};

// Returns 0 and stores the new codec in *out, or a failure code.
int CreateQMAVCodec(QMAVCodec** out);
// Destroys the codec and all it handed out.
void DestroyQMAVCodec(QMAVCodec* codec);

#endif  // MAINWORK_QM_CODEC_H
