// The frames that every side of the database benchmark stores: 16 channels x 6 streams in turns,
// made once, with payload that does not compress.
#ifndef BENCH_DB_WORKLOAD_H
#define BENCH_DB_WORKLOAD_H

#include <cstdint>
#include <span>
#include <vector>

#include "sdk/video/frame.h"

class Workload {
  public:
    static constexpr int CHANNELS = 16;
    static constexpr int STREAMS = 6;
    static constexpr size_t TICK_FRAMES = size_t{CHANNELS} * STREAMS;
    static constexpr int64_t TICKS_PER_SECOND = 30;
    static constexpr int64_t GROUP_TICKS = 30;  // from key frame to key frame
    static constexpr size_t BLOCK = 1 << 20;

    enum class Keys {
        spread,    // the key frames of the channel-streams fall on all ticks alike
        together,  // all on every 30th tick, as when all encoders start at once
    };

    explicit Workload(Keys keys);

    // The frames of a tick; they repeat after GROUP_TICKS, with other numbers and times. Valid
    // until the next call.
    std::span<qm_dbframe> tick(int64_t tick);
    // Of `tick`, in microseconds, counted steadily.
    static int64_t tick_us(int64_t tick);
    static size_t tick_bytes(std::span<const qm_dbframe> frames);

    // The payloads of all ticks one behind the other, in whole blocks: what a plain file of the
    // same amount is written from, without gathering anything.
    std::span<const uint8_t> plain() const { return m_plain; }

  private:
    std::vector<qm_dbframe> m_frames;
    std::vector<uint8_t> m_plain;
};

#endif  // BENCH_DB_WORKLOAD_H
