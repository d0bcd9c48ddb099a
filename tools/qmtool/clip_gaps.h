// What is told of a clip beside how long it is: frames that are missing and why, holes, changes of
// the clock and of the pictures' size. Follows one stream of a channel, or its sound.
#ifndef TOOLS_QMTOOL_CLIP_GAPS_H
#define TOOLS_QMTOOL_CLIP_GAPS_H

#include <cstdint>
#include <string>

#include "sdk/db/check.h"
#include "sdk/video/frame.h"
#include "sdk/video/picture.h"

struct ClipGap {
    enum class Kind {
        dropped,     // frames were not recorded
        hole,        // none is missing by its number, but it took longer than two frames
        run,         // the recording began again, or the clock was set
        lost,        // records cannot be read, or are not there
        new_size,    // the pictures have another one
        no_picture,  // the bytes of a frame are none
        codec,       // frames are of another codec than the file
        no_key,      // frames refer to others that are not of the span
    };
    Kind kind = Kind::dropped;
    bool sound = false;
    int64_t after_us = 0;  // recorded times; from `new_size` on those of the frames themselves
    int64_t until_us = 0;
    uint32_t first = 0;  // frame numbers that are missing, when they are known
    uint32_t count = 0;
    uint64_t records = 0;  // of `lost`: how many
    sim::PictureSize size;
};

// Something of the database is not in the clip that should be.
inline bool is_loss(ClipGap::Kind kind) {
    return kind == ClipGap::Kind::lost || kind >= ClipGap::Kind::no_picture;
}

const char* key_of(ClipGap::Kind kind);  // of JSON
std::string text_of(const ClipGap& gap);

// The first ones, and how many.
struct ClipGaps : sim::Bounded<ClipGap> {
    uint64_t losses = 0;
    void add(const ClipGap& gap) {
        if (is_loss(gap.kind)) ++losses;
        Bounded::add(gap);
    }
};

class GapFinder {
  public:
    GapFinder(bool sound, ClipGaps& gaps) : m_sound(sound), m_gaps(gaps) {}

    // The next frame of the stream; `records` of any stream before it were not there, or it is not
    // known of which, since the frame before.
    void take(const sim::FrameInfo& frame, uint64_t records);
    // A frame before the first one of the clip.
    void pass(const sim::FrameInfo& frame) { follow(frame); }
    // The next frame of the stream, which does not go into the clip: `kind` says why not.
    void leave_out(const sim::FrameInfo& frame, uint64_t records, ClipGap::Kind kind);
    // A record that is known to be the stream's next could not be read.
    void lose(const sim::FrameInfo& frame);
    // The rate may change at the next frame without a hole.
    void expect_other_rate();
    // No further frame.
    void end() { tell_hole(); }
    // ... and `records` as above were not there before `end_us`.
    void end(uint64_t records, int64_t end_us);

    // The usual time from frame to frame, as far as it is known.
    int64_t usual_us() const;

  private:
    static constexpr size_t DISTANCES = 15;

    void follow(const sim::FrameInfo& frame);
    void look(const sim::FrameInfo& frame, uint64_t records, bool keeps_rate);
    void tell_hole();
    void decide_hole(const sim::FrameInfo& frame);
    bool joins_last(ClipGap::Kind kind, const sim::FrameInfo& frame);

    const bool m_sound;
    ClipGaps& m_gaps;
    bool m_any = false;
    sim::FrameInfo m_last;
    int64_t m_steps[DISTANCES] = {};
    size_t m_distances = 0;  // known
    // The last step was a hole, or the first one of a lower rate: the next one tells.
    bool m_long_step = false;
    ClipGap m_hole;
    int64_t m_usual_before_us = 0;
};

#endif  // TOOLS_QMTOOL_CLIP_GAPS_H
