// The virtual codec board: the codec object with its chips, encoders, audio and pacer.
#ifndef SDK_BOARD_BOARD_H
#define SDK_BOARD_BOARD_H

#include <cstdint>
#include <mutex>

#include "mainwork/qm_codec.h"
#include "sdk/board/encoder_channel.h"
#include "sdk/board/frame_sink.h"
#include "sdk/sim_control.h"
#include "shell/qm_thread.h"

namespace sim {

// One thread paces the whole board: it sleeps until the next frame of any channel is due, makes all
// frames that are due then, and hands them to the sinks of their streams. Lock order: the board's
// mutex, then a sink's own, then an alarm's.
class Board final : public QMAVCodec, QMCodecSystem, QMVideoEncoder, QMAudio {
  public:
    Board();
    virtual ~Board();

    // The board behind the argument of a worker thread; null for null.
    static Board* of(void* codec);

    // Frames of the streams in `stream_mask` go to `sink` from now on; their channels that are
    // already running start with a key frame. Detaching returns when the sink is no longer called.
    void attach(uint32_t stream_mask, FrameSink* sink);
    void detach(FrameSink* sink);

    BoardReport report();

    int SetBoardType(uint32_t board_type, uint32_t sub_board_type) override;
    QMCodecSystem* GetSystem() override { return this; }
    QMVideoEncoder* GetVideoEncoder() override { return this; }
    QMAudio* GetAudio() override { return this; }

  private:
    class Pacer final : public qm_thread {
      public:
        explicit Pacer(Board& board);
        void* Work(void* argument) override;
        void wake();

      private:
        Board& m_board;
    };

    struct AudioChannel {
        bool on = false;
        uint32_t number = 0;
        Ticker ticker;
    };

    int SetChipEnableMask(uint32_t mask) override;
    int InitAVCodec(_QM_AVCODEC_INIT_PARAM* param) override;
    int ReleaseAVCodec() override;

    int SetChannelEnable(int stream, int channel, uint8_t enable) override;
    int SetCodecType(int stream, int channel, uint32_t codectype) override;
    int SetFrameRate(int stream, int channel, uint32_t frames_per_second) override;
    int SetIDRInterval(int stream, int channel, uint32_t frames) override;
    int SetBitrate(int stream, int channel, uint32_t bits_per_second) override;
    int SetBitrateType(int stream, int channel, uint32_t type) override;
    int SetResolution(int stream, int channel, uint32_t resolution) override;
    int SetQP(int stream, int channel, uint8_t qp) override;
    int SetPrivateZone(int stream, uint8_t channel, uint8_t enable, int zone, uint16_t start_x,
                       uint16_t start_y, uint16_t width, uint16_t height) override;

    int SetAudioChannelEnable(int channel, uint8_t enable) override;

    // Takes m_mutex. Who waits for it holds up the pacer, which would else take it again at once.
    [[nodiscard]] std::unique_lock<std::mutex> lock_in_turn();
    // Runs `change` on one channel under the mutex and wakes the pacer; -1 when there is no such
    // channel.
    template <class Change>
    int with_channel(int stream, int channel, Change change);
    bool has_chip(int channel) const;
    Tick next_tick(uint32_t rate) const;

    // Makes the frames of the earliest moment that is due at `now`; returns when the next are due.
    int64_t produce(int64_t now);
    int64_t next_due_us() const;
    void produce_at(int64_t due);
    void produce_video(EncoderChannel& encoder);
    void produce_audio(AudioChannel& audio, int channel);
    uint64_t lose_until(int64_t time_us);

    std::mutex m_turn;   // held while waiting for m_mutex
    std::mutex m_mutex;  // guards all below but the pacer
    uint32_t m_chip_mask = 0;
    bool m_pal = false;
    int64_t m_start_us;  // ticks of the video and audio inputs count from here
    EncoderChannel m_video[QMCODEC_STREAMS][QMCODEC_CHANNELS];
    AudioChannel m_audio[QMCODEC_CHANNELS];
    FrameSink* m_sinks[QMCODEC_STREAMS] = {};
    BoardReport m_report;

    Pacer m_pacer;
};

}  // namespace sim

#endif  // SDK_BOARD_BOARD_H
