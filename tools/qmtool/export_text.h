// What is said of an export when it is done. How it is made stands in export.
#ifndef TOOLS_QMTOOL_EXPORT_TEXT_H
#define TOOLS_QMTOOL_EXPORT_TEXT_H

#include <cstdint>
#include <string>

#include "tools/qmtool/clip_gaps.h"

struct Exported {
    std::string path;      // of the clip
    std::string manifest;  // of the file; empty: none
    std::string sha256;    // of the clip; empty: not made, or several files
    int row = 0;           // of a summary
    int channel = 0;
    bool pictures = false;
    bool recorded_now = false;
    uint64_t frames = 0;        // pictures, or frames of sound of a clip that is sound
    uint64_t frames_ahead = 0;  // of them those between the key frame and the wanted start
    uint64_t sound_frames = 0;  // beside pictures
    uint64_t bytes = 0;
    int64_t wanted_us = 0;  // recorded times: of the first frame that was asked for
    int64_t start_us = 0;   // ... of the first frame in the file
    int64_t last_us = 0;    // ... of the last frame
    int64_t shown_us = 0;
    int64_t heard_us = 0;
    int64_t silence_us = 0;
    int64_t cut_us = 0;
    uint64_t left_out = 0;
    uint64_t losses = 0;   // gaps that are losses
    bool skipped = false;  // the file itself says that what lies ahead is not shown
};

void print_exported(const Exported& done, const ClipGaps& gaps);
void print_exported_json(const Exported& done, const ClipGaps& gaps);

#endif  // TOOLS_QMTOOL_EXPORT_TEXT_H
