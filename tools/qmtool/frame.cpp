// qmtool frame: the picture that a channel showed at a time.
#include <strings.h>

#include <cinttypes>
#include <cstdio>

#include "sdk/db/disk_reader.h"
#include "sdk/video/jpeg_picture.h"
#include "sdk/video/picture_check.h"
#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"
#include "tools/qmtool/picture_file.h"
#include "tools/qmtool/time_option.h"

namespace {

using Found = sim::PictureCheck::Found;

constexpr int JPEG_QUALITY = 92;
// A picture stands for a moment no longer than this without a word.
constexpr int64_t PAUSE_US = 1'000'000;

enum class Kind { jpg, png, ppm, none };

Kind kind_of(const std::string& path) {
    const size_t dot = path.rfind('.');
    const std::string ending = dot == std::string::npos ? "" : path.substr(dot);
    const auto is = [&](const char* other) { return strcasecmp(ending.c_str(), other) == 0; };
    if (is(".jpg") || is(".jpeg")) return Kind::jpg;
    if (is(".png")) return Kind::png;
    return is(".ppm") ? Kind::ppm : Kind::none;
}

// The picture, with what it was decoded from.
struct Shown {
    sim::PictureCheck check;
    qm_dbframe frame;  // the last one that was decoded
    bool found = false;
};

// The last key frame of the stream that was recorded at or before a time.
bool find_key(sim::DiskReader& reader, int stream, int channel, int64_t time_us, uint64_t& key) {
    sim::FrameInfo info;
    uint64_t from = reader.at_time(time_us);
    while (reader.key_at_or_before(from, stream, channel, key)) {
        if (reader.info(key, info) && info.time_us <= time_us) return true;
        if (key == 0) return false;
        from = key - 1;
    }
    return false;
}

// Decodes from the key frame on up to the last frame that is due at the time. Behind a frame that
// cannot be read there is no picture.
void decode_up_to(sim::DiskReader& reader, uint64_t key, int stream, int channel, int64_t time_us,
                  Shown& out) {
    const uint64_t end = reader.end();
    qm_dbframe frame;
    sim::FrameInfo info;
    uint64_t next_key = 0;
    const uint64_t stop = reader.key_after(key, stream, channel, next_key) ? next_key : end;
    for (uint64_t n = key; n < stop; n = reader.next(n + 1)) {
        if (!reader.info(n, info) || info.stream != stream || info.channel != channel ||
            info.kind == sim::FrameKind::audio)
            continue;
        if (info.time_us > time_us) return;
        out.found = false;
        if (!reader.read(n, frame)) return;
        const Found found = out.check.check(info, frame.payload.get(), info.bytes);
        if (!out.check.picture()) {
            if (found == Found::wrong) return;
            continue;
        }
        std::swap(out.frame.payload, frame.payload);
        std::swap(out.frame.capacity, frame.capacity);
        out.frame.info = info;
        out.found = true;
    }
}

std::vector<uint8_t> bytes_of(const Shown& shown, Kind kind) {
    const bool jpeg = shown.frame.info.kind == sim::FrameKind::jpeg;
    const sim::Picture& picture = *shown.check.picture();
    if (kind == Kind::jpg && jpeg) {
        const uint8_t* const at = shown.frame.payload.get();
        return {at, at + shown.frame.info.bytes};
    }
    if (kind == Kind::jpg)
        return sim::jpeg_of(sim::full_range(picture), shown.frame.info, JPEG_QUALITY);
    const RgbPicture rgb = rgb_of(picture, !jpeg);
    return kind == Kind::png ? png_of(rgb) : ppm_of(rgb);
}

bool write_file(const CommandLine& line, const std::vector<uint8_t>& bytes, std::string& why) {
    watch_for_interruption();
    ClipFile file;
    const bool written = file.create(line.output, line.force) &&
                         file.write(bytes.data(), bytes.size()) && file.settle() &&
                         !interrupted() && file.publish();
    if (!written) why = file.error().empty() ? "interrupted" : file.error();
    return written;
}

void tell(const CommandLine& line, const Shown& shown, int64_t wanted_us, size_t bytes) {
    const sim::FrameInfo& info = shown.frame.info;
    const sim::PictureSize size = shown.check.picture()->size;
    if (line.json) {
        printf("%s\n", Json()
                           .object()
                           .text("file", line.output)
                           .text("stream", row_name(info.stream))
                           .number("channel", info.channel)
                           .number("frame", info.number)
                           .time("time", info.time_us)
                           .time("wanted", wanted_us)
                           .number("width", static_cast<uint64_t>(size.width))
                           .number("height", static_cast<uint64_t>(size.height))
                           .number("bytes", bytes)
                           .end()
                           .written()
                           .c_str());
        return;
    }
    printf("%s: %s channel %u, frame %" PRIu32 ", %s, %d x %d, %s\n",
           printable(line.output).c_str(), row_name(info.stream), unsigned{info.channel},
           info.number, time_text(info.time_us).c_str(), size.width, size.height,
           counted(bytes, "byte", "bytes").c_str());
    int64_t before_us = 0;
    if (__builtin_sub_overflow(wanted_us, info.time_us, &before_us)) before_us = INT64_MAX;
    if (before_us > PAUSE_US)
        printf("  %s before the wanted time; between them this channel has no picture\n",
               duration_text(before_us).c_str());
}

// Says what is in the way of the file.
int cannot_write(const CommandLine& line, const std::string& why) {
    CommandLine of_file = line;
    of_file.database = line.output;
    return say_cannot(of_file, why);
}

}  // namespace

int show_frame(const CommandLine& line) {
    const Kind kind = kind_of(line.output);
    if (kind == Kind::none)
        return say_wrong("frame", "-o needs a name that ends in .jpg, .png or .ppm");
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    std::string why;
    const auto reader = sim::DiskReader::open(view->files(), view->path(), why);
    if (!reader) return say_cannot(line, why);

    int64_t first_us = 0, last_us = 0, time_us = 0;
    if (!recorded_ends(*reader, first_us, last_us))
        return say_cannot(line, "nothing is recorded in it");
    if (!parse_time(line.at, first_us, last_us, time_us))
        return say_wrong("frame", wrong_time("--at", line.at));

    const int stream = line.stream < 0 ? QMCODEC_STREAM_MAIN : line.stream;
    const std::string lane =
        std::string(row_name(stream)) + " channel " + std::to_string(line.channel);
    uint64_t key = 0;
    if (!find_key(*reader, stream, line.channel, time_us, key))
        return say_cannot(line, lane + " shows no picture at " + time_text(time_us));
    Shown shown;
    decode_up_to(*reader, key, stream, line.channel, time_us, shown);
    if (!shown.found || !shown.check.picture()) {
        const std::string& wrong = shown.check.error();
        return say_cannot(line, lane + " has no picture at " + time_text(time_us) +
                                    " that can be decoded: " +
                                    (wrong.empty() ? "frames before it are missing" : wrong));
    }
    const std::vector<uint8_t> bytes = bytes_of(shown, kind);
    if (!write_file(line, bytes, why)) return cannot_write(line, why);
    tell(line, shown, time_us, bytes.size());
    return STATUS_FINE;
}
