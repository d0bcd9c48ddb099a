// Decoding a key frame, scaling it down, coding it as JPEG.
#include "tools/qmtool/report_thumbnail.h"

#include <algorithm>

#include "sdk/video/jpeg_picture.h"
#include "sdk/video/picture_check.h"

namespace {

constexpr int WIDTH = 192;
constexpr int QUALITY = 80;
constexpr int MOST_TRIES = 8;

void scale_plane(const std::vector<uint8_t>& from, int width, int height, std::vector<uint8_t>& to,
                 int to_width, int to_height) {
    size_t out = 0;
    for (int y = 0; y < to_height; ++y) {
        const int top = y * height / to_height;
        const int bottom = std::max(top + 1, (y + 1) * height / to_height);
        for (int x = 0; x < to_width; ++x) {
            const int left = x * width / to_width;
            const int right = std::max(left + 1, (x + 1) * width / to_width);
            unsigned sum = 0;
            for (int j = top; j < bottom; ++j)
                for (int i = left; i < right; ++i)
                    sum += from[static_cast<size_t>(j) * static_cast<size_t>(width) +
                                static_cast<size_t>(i)];
            const auto count = static_cast<unsigned>((bottom - top) * (right - left));
            to[out++] = static_cast<uint8_t>((sum + count / 2) / count);
        }
    }
}

sim::PictureSize size_seen(sim::PictureSize recorded) {
    return {WIDTH, recorded.width * 9 == recorded.height * 16 ? WIDTH * 9 / 16 : WIDTH * 3 / 4};
}

}  // namespace

sim::Picture scaled_picture(const sim::Picture& from, sim::PictureSize to) {
    sim::Picture out;
    out.resize(to);
    const int width = from.size.width, height = from.size.height;
    scale_plane(from.y, width, height, out.y, to.width, to.height);
    scale_plane(from.u, width / 2, height / 2, out.u, to.width / 2, to.height / 2);
    scale_plane(from.v, width / 2, height / 2, out.v, to.width / 2, to.height / 2);
    return out;
}

Thumbnail make_thumbnail(sim::DiskReader& reader, int stream, int channel, int64_t middle_us) {
    Thumbnail out;
    const uint64_t end = reader.end();
    const uint64_t middle = std::min(reader.at_time(middle_us), end > 0 ? end - 1 : 0);
    uint64_t key = 0;
    bool found = reader.key_at_or_before(middle, stream, channel, key) ||
                 reader.key_after(middle, stream, channel, key);
    if (!found) out.why = "there is no key frame";
    qm_dbframe frame;
    for (int i = 0; found && i < MOST_TRIES; ++i) {
        sim::PictureCheck check;
        using Found = sim::PictureCheck::Found;
        if (!reader.read(key, frame)) {
            out.why = "its key frames cannot be read";
        } else if (check.check(frame.info, frame.payload.get(), frame.info.bytes) == Found::wrong) {
            out.why = "a key frame cannot be shown: " + check.error();
        } else {
            const sim::Picture& picture = *check.picture();
            out.info = frame.info;
            out.recorded = picture.size;
            out.size = size_seen(picture.size);
            const sim::Picture small = scaled_picture(picture, out.size);
            const bool full = frame.info.kind == sim::FrameKind::jpeg;
            out.jpeg = sim::jpeg_of(full ? small : sim::full_range(small), frame.info, QUALITY);
            return out;
        }
        found = reader.key_after(key, stream, channel, key);
    }
    return out;
}
