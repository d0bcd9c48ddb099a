// The encoder of one channel of one stream: when its next frame is due, and what it will be. No
// clock and no lock: the board calls it with the time, under its own mutex.
#ifndef SDK_BOARD_ENCODER_CHANNEL_H
#define SDK_BOARD_ENCODER_CHANNEL_H

#include <cstdint>
#include <optional>

#include "sdk/board/rate_control.h"
#include "sdk/runtime/clock.h"
#include "sdk/video/frame.h"
#include "sdk/video/h264_writer.h"
#include "sdk/video/jpeg_writer.h"
#include "sdk/video/scene.h"

namespace sim {

// Frames a second at the most: NTSC 30, PAL 25.
inline uint32_t frame_rate_limit(bool pal) { return pal ? 25 : 30; }

// A moment on a steady grid: tick `count` of `rate` a second from `start_us`. Not rounded.
struct Tick {
    int64_t start_us = 0;
    int64_t count = 0;
    int64_t rate = 1;
};

// Times of a steady rate: event n is due at first + n / rate, exactly, rounded once.
class Ticker {
  public:
    void start(const Tick& first, uint32_t rate) {
        m_first = first;
        m_rate = rate;
        m_count = 0;
    }
    int64_t due_us() const { return m_rate == 0 ? NEVER : at_us(m_count); }
    // When the event before was due; not at rate 0.
    int64_t previous_us() const { return at_us(m_count - 1); }
    void advance() { ++m_count; }
    // Passes over what is due before `time_us`; returns how many that were.
    uint32_t advance_to(int64_t time_us);

  private:
    int64_t at_us(int64_t count) const {
        const int64_t passed = (m_first.count * m_rate + count * m_first.rate) * US_PER_S;
        return m_first.start_us + passed / (m_first.rate * m_rate);
    }

    Tick m_first;
    int64_t m_rate = 0;
    int64_t m_count = 0;
};

// What the cameras see, and what is written over it.
struct Content {
    std::optional<Pattern> pattern;  // without one each channel has its own
    Text text = Text::full;
    uint64_t seed = 1;
};

// Power-on settings are those of a picture: D1 at the format's full rate, a key frame every 30.
class EncoderChannel {
  public:
    void place(uint8_t stream, uint8_t channel);
    void set_format(bool pal, const Tick& next);

    // Switching on starts frame 0, a key frame, at `first`.
    void switch_on(const Tick& first);
    void switch_off() { m_on = false; }
    bool on() const { return m_on; }

    // Settings; values out of range are held to the nearest that makes sense. `next` is where a
    // rate begins that has no earlier frame to follow.
    void set_codec_type(uint32_t type);
    void set_frame_rate(uint32_t rate, int64_t now_us, const Tick& next);
    void set_idr_interval(uint32_t frames);
    void set_bitrate(uint32_t bits_per_second);
    void set_bitrate_type(uint32_t type);
    void set_resolution(uint32_t resolution);
    void set_qp(uint8_t qp);
    void set_zone(const PrivateZone& zone);

    // The next frame is a key frame, out of turn perhaps.
    void force_key() { m_key_wanted = true; }

    // NEVER when off or at rate 0.
    int64_t due_us() const { return m_on ? m_ticker.due_us() : NEVER; }
    // Stream, channel and number of the frame that is due.
    FrameInfo names() const;
    // The frame that is due; the next one is due then. Changes of the content, of size, zone and
    // quantiser are seen from a key frame on. Throws std::bad_alloc; then the frame is due still.
    FrameInfo encode(const Content& content = {});
    // Writes the frame that was encoded last: as many bytes as it was said to have.
    void write(uint8_t* out) const;
    // The frame that is due gets lost before it is encoded. A key frame is made up for by the next.
    void lose();
    // As lose(), for all that were due before `time_us`; returns how many.
    uint32_t lose_until(int64_t time_us);

  private:
    bool is_jpeg() const;
    bool key_due() const;
    uint32_t rate() const;
    void advance();
    void restart_rate_control();
    Scene scene(const Content& content) const;
    uint32_t bytes_wanted(bool key, bool jpeg) const;
    size_t compose_jpeg(const Content& content, uint32_t wanted);
    size_t compose_h264(const Content& content, bool key, uint32_t wanted);
    template <class BytesAt>
    int pick_qp(const Scene& scene, uint32_t wanted, BytesAt bytes_at);
    uint32_t hold_rate(uint32_t least, uint32_t wanted);

    uint8_t m_stream = 0;
    uint8_t m_channel = 0;
    bool m_pal = false;
    bool m_on = false;

    uint32_t m_codec_type = 0;
    uint32_t m_asked_rate = 30;
    uint32_t m_idr_interval = 30;
    uint32_t m_bitrate = 2'048'000;
    uint32_t m_bitrate_type = 0;
    uint32_t m_resolution = 3;
    uint8_t m_qp = 27;
    PrivateZone m_zone;

    Ticker m_ticker;
    uint32_t m_number = 0;  // of the frame that is due
    int64_t m_last_us = 0;  // when the last frame was due
    bool m_key_wanted = true;
    ConstantBitRate m_rate_control;
    uint32_t m_owed = 0;  // bytes above the rate, that later frames give back

    // Made with the first frame of their kind.
    std::optional<H264Writer> m_h264;
    std::optional<JpegWriter> m_jpeg;
    uint32_t m_bytes = 0;  // of the frame encoded last
    bool m_was_jpeg = false;
    // At a constant bit rate: the quantiser that was picked, and for what. -1: it is to be picked.
    int m_picked_qp = -1;
    Scene m_picked_for;
    PrivateZone m_picked_zone;
};

}  // namespace sim

#endif  // SDK_BOARD_ENCODER_CHANNEL_H
