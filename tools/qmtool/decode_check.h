// What verify --decode does: every frame of a database is decoded, and its block code compared with
// what its record says. How it is told stands in verify.
#ifndef TOOLS_QMTOOL_DECODE_CHECK_H
#define TOOLS_QMTOOL_DECODE_CHECK_H

#include <cstdint>
#include <functional>
#include <string>

#include "sdk/db/check.h"
#include "sdk/video/frame.h"

struct DecodedFrames {
    uint64_t pictures = 0;  // looked at, as well as all below
    uint64_t fine = 0;      // decoded, and the block code is theirs
    uint64_t no_code = 0;   // decoded, and the block code is covered
    uint64_t waiting = 0;   // behind a gap, before the next key frame
    uint64_t wrong = 0;     // pictures, and sounds of another length
    uint64_t sounds = 0;
};

// `wrong` is called for each that is: its record, what it says, and what is wrong with it.
using TellWrong =
    std::function<void(uint64_t record, const sim::FrameInfo& info, const std::string& what)>;

// `progress`: in records. False when the database cannot be opened: `why` says so in words.
bool decode_all(const sim::DatabaseView& view, const TellWrong& tell,
                const std::function<void(uint64_t done, uint64_t total)>& progress,
                DecodedFrames& out, std::string& why);

#endif  // TOOLS_QMTOOL_DECODE_CHECK_H
