// A frame record as it travels from the encoder through a frame list into a database and back.
#ifndef SDK_VIDEO_FRAME_H
#define SDK_VIDEO_FRAME_H

#include <cstddef>
#include <cstdint>
#include <memory>

namespace sim {

enum class FrameKind : uint8_t { idr, p, jpeg, audio };

inline bool is_key(FrameKind kind) { return kind == FrameKind::idr || kind == FrameKind::jpeg; }

// What is known of a frame beside its bytes.
struct FrameInfo {
    FrameKind kind = FrameKind::p;
    uint8_t stream = 0;   // QMCODEC_STREAM; audio travels with stream 0
    uint8_t channel = 0;  // 0..15
    uint32_t number = 0;  // frame slot since the channel was switched on
    int64_t time_us = 0;  // when it was due, board time; in a database the recorded time
    uint32_t run = 0;     // of a recorded frame: time is counted steadily within one run
    uint32_t bytes = 0;   // of the payload
};

}  // namespace sim

struct qm_dbframe {
    qm_dbframe* next = nullptr;  // in the list that holds it
    sim::FrameInfo info;
    std::unique_ptr<uint8_t[]> payload;
    size_t capacity = 0;

    // Makes room for `bytes` of payload; keeps what there is when it is enough.
    void reserve(size_t bytes) {
        if (bytes <= capacity) return;
        payload.reset(new uint8_t[bytes]);
        capacity = bytes;
    }
};

#endif  // SDK_VIDEO_FRAME_H
