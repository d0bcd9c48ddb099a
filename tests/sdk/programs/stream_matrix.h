// Every stream of every channel with settings of its own, so that together they are of every size,
// format, pattern, quantiser, rate control and key interval, with zones and changes while they run.
#ifndef TESTS_SDK_PROGRAMS_STREAM_MATRIX_H
#define TESTS_SDK_PROGRAMS_STREAM_MATRIX_H

#include <functional>

#include "mainwork/qm_codec.h"
#include "sdk/board/encoder_channel.h"
#include "sdk/video/frame.h"

// Makes all frames, in the order of time, and hands each over.
inline void make_matrix(bool pal, const std::function<void(const qm_dbframe&)>& take) {
    constexpr int FRAMES[] = {120, 80, 50, 40, 20};  // by resolution code
    constexpr uint8_t QUANTISERS[] = {0, 10, 27, 40, 51};
    constexpr uint32_t KEY_INTERVALS[] = {15, 1, 0, 300, 7};
    constexpr uint32_t BIT_RATES[] = {64'000, 2'000'000, 8'000'000};
    struct Lane {
        int index = 0;
        int frames = 0;
        sim::EncoderChannel encoder;
        sim::Content content;
    };
    static constexpr int LANES = QMCODEC_STREAMS * QMCODEC_CHANNELS;
    std::vector<Lane> lanes(LANES);
    for (int i = 0; i < LANES; ++i) {
        Lane& lane = lanes[static_cast<size_t>(i)];
        const auto at = static_cast<size_t>(i);
        lane.index = i;
        lane.frames = FRAMES[at % 5];
        lane.encoder.place(static_cast<uint8_t>(i / QMCODEC_CHANNELS),
                           static_cast<uint8_t>(i % QMCODEC_CHANNELS));
        lane.encoder.set_format(pal, {});
        lane.encoder.set_resolution(static_cast<uint32_t>(i % 5));
        lane.encoder.set_frame_rate(pal ? 25 : 30, 0, {});
        lane.encoder.set_idr_interval(KEY_INTERVALS[at / 3 % 5]);
        lane.encoder.set_qp(QUANTISERS[at / 5 % 5]);
        lane.encoder.set_bitrate(BIT_RATES[at % 3]);
        lane.encoder.set_bitrate_type(i % 4 == 3 ? 1 : 0);
        if (i % 6 == 1) lane.encoder.set_zone({true, 13, 7, 91, 55});          // odd
        if (i % 6 == 2) lane.encoder.set_zone({true, 101, 60, 60000, 60000});  // over the edge
        if (i % 6 == 3) lane.encoder.set_zone({true, 50, 50, 0, 0});           // empty
        lane.encoder.switch_on({});
        lane.content.pattern = static_cast<sim::Pattern>(i % sim::PATTERNS);
        lane.content.text = static_cast<sim::Text>(i / 8 % 3);
        lane.content.seed = static_cast<uint64_t>(i);
    }
    const auto change = [](Lane& lane, int n) {
        const auto tenth = [&](int tenths) { return n == lane.frames * tenths / 10; };
        if (lane.index % 6 == 4 && tenth(3)) lane.encoder.set_zone({true, 33, 41, 77, 45});
        if (lane.index % 6 == 4 && tenth(6)) lane.encoder.set_zone({});
        if (lane.index % 8 != 7) return;
        if (tenth(2)) lane.encoder.set_resolution(static_cast<uint32_t>((lane.index + 1) % 4));
        if (tenth(4)) lane.encoder.set_qp(33);
        if (tenth(5)) lane.encoder.set_bitrate_type(lane.index % 16 == 7 ? 1 : 0);
        if (tenth(6)) lane.encoder.set_bitrate(500'000);
        if (tenth(7)) lane.encoder.set_idr_interval(4);
        if (tenth(8)) lane.content.pattern = sim::Pattern::moving_bar;
        if (n % 11 == 10) lane.encoder.lose();
    };
    qm_dbframe frame;
    for (int n = 0; n < FRAMES[0]; ++n) {
        for (Lane& lane : lanes) {
            if (n >= lane.frames) continue;
            change(lane, n);
            frame.info = lane.encoder.encode(lane.content);
            frame.reserve(frame.info.bytes);
            lane.encoder.write(frame.payload.get());
            take(frame);
        }
    }
}

#endif  // TESTS_SDK_PROGRAMS_STREAM_MATRIX_H
