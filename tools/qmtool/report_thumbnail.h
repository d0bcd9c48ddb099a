// One small picture of a channel for a report.
#ifndef TOOLS_QMTOOL_REPORT_THUMBNAIL_H
#define TOOLS_QMTOOL_REPORT_THUMBNAIL_H

#include <cstdint>
#include <string>
#include <vector>

#include "sdk/db/disk_reader.h"
#include "sdk/video/frame.h"
#include "sdk/video/picture.h"

// The means of the samples that become one; where it is made larger, the nearest one.
sim::Picture scaled_picture(const sim::Picture& from, sim::PictureSize to);

struct Thumbnail {
    sim::FrameInfo info;
    sim::PictureSize recorded;  // size
    sim::PictureSize size;      // its own, as it was seen: 4:3 or 16:9
    std::vector<uint8_t> jpeg;  // empty when no picture could be decoded
    std::string why;            // then
};

// From the key frame in the middle of what was recorded; when it cannot be decoded, from one of the
// next.
Thumbnail make_thumbnail(sim::DiskReader& reader, int stream, int channel, int64_t middle_us);

#endif  // TOOLS_QMTOOL_REPORT_THUMBNAIL_H
