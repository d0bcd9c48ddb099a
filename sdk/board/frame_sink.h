// Where the board hands a stream's frames to.
#ifndef SDK_BOARD_FRAME_SINK_H
#define SDK_BOARD_FRAME_SINK_H

#include <cstddef>

#include "sdk/video/frame.h"

namespace sim {

// Called on the pacer's thread, under the board's mutex: must not wait, nor call the board.
class FrameSink {
  public:
    // An empty frame with room for `bytes` of payload. Null without memory: then the frame is
    // dropped, and the next one of its channel must be a key frame.
    virtual qm_dbframe* blank(size_t bytes) = 0;
    // A frame is dropped that could not even be made, for want of memory.
    virtual void not_made() = 0;
    // A finished frame; the sink owns it from here on. False when it had to be dropped and the next
    // frame of its channel must be a key frame.
    virtual bool deliver(qm_dbframe* frame) = 0;
    // The frames of one moment were delivered.
    virtual void end_of_batch() = 0;

  protected:
    ~FrameSink() = default;
};

}  // namespace sim

#endif  // SDK_BOARD_FRAME_SINK_H
