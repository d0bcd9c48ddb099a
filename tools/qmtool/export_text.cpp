// Tells of an export, in words or as JSON.
#include "tools/qmtool/export_text.h"

#include <cinttypes>
#include <cstdio>

#include "tools/qmtool/output.h"

namespace {

constexpr size_t MOST_LINES = 100;

void print_sound(const Exported& done) {
    if (done.sound_frames == 0 && done.pictures) return;
    if (done.pictures) printf("  sound  %s\n", duration_text(done.heard_us).c_str());
    if (done.silence_us > 0)
        printf("  %s of the sound is silence, where none was recorded\n",
               duration_text(done.silence_us).c_str());
    if (done.cut_us > 0)
        printf("  %s of the sound is left out, where there was more than time for it\n",
               duration_text(done.cut_us).c_str());
}

}  // namespace

void print_exported(const Exported& done, const ClipGaps& gaps) {
    printf("%s: %s channel %d, %s, %s, %s\n", printable(done.path).c_str(), row_name(done.row),
           done.channel, counted(done.frames, "frame", "frames").c_str(),
           duration_text(done.pictures ? done.shown_us : done.heard_us).c_str(),
           counted(done.bytes, "byte", "bytes").c_str());
    printf("  from   %s\n  to     %s\n", time_text(done.wanted_us).c_str(),
           time_text(done.last_us).c_str());
    if (done.frames_ahead > 0)
        printf("  starts at the key frame of %s, %s before the wanted start%s\n",
               time_text(done.start_us).c_str(),
               duration_text(done.wanted_us - done.start_us).c_str(),
               done.skipped ? "; players skip that" : "");
    if (done.left_out > 0)
        printf("  %s before the first key frame left out\n",
               counted(done.left_out, "frame is", "frames are").c_str());
    print_sound(done);
    if (!done.manifest.empty())
        printf("  manifest  %s\n  SHA-256   %s\n", printable(done.manifest).c_str(),
               done.sha256.empty() ? "of each file in the manifest" : done.sha256.c_str());
    if (gaps.count == 0) return;
    printf("Gaps\n");
    size_t printed = 0;
    for (const ClipGap& gap : gaps.items) {
        if (printed == MOST_LINES) break;
        printf("  %s  %s\n", time_text(gap.after_us).c_str(), text_of(gap).c_str());
        ++printed;
    }
    if (gaps.count > printed) printf("  and %" PRIu64 " more\n", gaps.count - printed);
}

void print_exported_json(const Exported& done, const ClipGaps& gaps) {
    Json json;
    json.object()
        .text("file", done.path)
        .text("stream", row_name(done.row))
        .number("channel", static_cast<uint64_t>(done.channel))
        .truth("recorded_now", done.recorded_now)
        .number("frames", done.frames)
        .number("frames_before_start", done.frames_ahead)
        .number("sound_frames", done.sound_frames)
        .number("bytes", done.bytes)
        .time("key_frame", done.start_us)
        .time("start", done.wanted_us)
        .time("last", done.last_us)
        .signed_number("duration_us", done.shown_us)
        .signed_number("sound_us", done.heard_us)
        .signed_number("silence_us", done.silence_us)
        .signed_number("sound_left_out_us", done.cut_us)
        .number("frames_left_out", done.left_out);
    done.manifest.empty() ? json.null("manifest") : json.text("manifest", done.manifest);
    done.sha256.empty() ? json.null("sha256") : json.text("sha256", done.sha256);
    json.number("gap_count", gaps.count).number("loss_count", done.losses).array("gaps");
    for (const ClipGap& gap : gaps.items) {
        json.object()
            .text("kind", key_of(gap.kind))
            .truth("sound", gap.sound)
            .time("after", gap.after_us)
            .time("until", gap.until_us)
            .number("first_frame", gap.first)
            .number("frames", gap.count)
            .number("records", gap.records)
            .number("width", static_cast<uint64_t>(gap.size.width))
            .number("height", static_cast<uint64_t>(gap.size.height))
            .text("text", text_of(gap))
            .end();
    }
    printf("%s\n", json.end().end().written().c_str());
}
