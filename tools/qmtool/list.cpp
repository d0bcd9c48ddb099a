// qmtool list: what is recorded, channel by channel.
#include <cinttypes>
#include <cstdio>

#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"

namespace {

// Lines of gaps and of missing records in the text; JSON has up to Bounded::MOST of each.
constexpr size_t MOST_LINES = 100;

void print_rest(uint64_t count, size_t printed) {
    if (count > printed) printf("  and %" PRIu64 " more\n", count - printed);
}

void print_channels(const sim::Summary& summary) {
    printf("\n%-8s %7s %11s %11s %15s  %-24s  %-24s %8s\n", "Stream", "Channel", "Frames",
           "Key frames", "Bytes", "First", "Last", "Gaps");
    for (int row = 0; row < sim::SUMMARY_ROWS; ++row) {
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
            const sim::ChannelSummary& sums = summary.channels[row][ch];
            if (sums.frames == 0) continue;
            printf("%-8s %7d %11" PRIu64 " %11" PRIu64 " %15" PRIu64 "  %-24s  %-24s %8" PRIu64
                   "\n",
                   row_name(row), ch, sums.frames, sums.key_frames, sums.bytes,
                   time_text(sums.first_us).c_str(), time_text(sums.last_us).c_str(), sums.gaps);
        }
    }
}

std::string reason_of(const sim::Run& run) {
    if (!run.stepped) return "recording began";
    return std::string("the clock was stepped by ") + (run.step_us > 0 ? "+" : "") +
           duration_text(run.step_us);
}

void print_runs(const sim::Summary& summary) {
    printf("\nRuns\n");
    size_t printed = 0;
    for (const sim::Run& run : summary.runs.items) {
        if (printed == MOST_LINES) break;
        printf("  %s  record %" PRIu64 ", %s\n", time_text(run.utc_us).c_str(), run.first_sequence,
               reason_of(run).c_str());
        ++printed;
    }
    print_rest(summary.runs.count, printed);
}

void print_gaps(const sim::Summary& summary) {
    if (summary.gaps.count == 0) return;
    printf("\nGaps\n");
    size_t printed = 0;
    for (const sim::Gap& gap : summary.gaps.items) {
        if (printed == MOST_LINES) break;
        printf("  %s channel %d: %s to %s", row_name(gap.row), gap.channel,
               time_text(gap.after_us).c_str(), time_text(gap.until_us).c_str());
        if (gap.missing_frames > 0)
            printf(", %s missing", counted(gap.missing_frames, "frame", "frames").c_str());
        printf("\n");
        ++printed;
    }
    print_rest(summary.gaps.count, printed);
}

void print_missing(const sim::Summary& summary) {
    if (summary.missing.count == 0) return;
    printf("\nMissing records\n");
    size_t printed = 0;
    for (const sim::MissingRecords& missing : summary.missing.items) {
        if (printed == MOST_LINES) break;
        printf("  %" PRIu64 " from number %" PRIu64 " on, between %s and %s\n", missing.count,
               missing.first, time_text(missing.after_us).c_str(),
               time_text(missing.until_us).c_str());
        ++printed;
    }
    print_rest(summary.missing.count, printed);
}

uint64_t not_read(const sim::Summary& summary) {
    return summary.segments[static_cast<size_t>(sim::SegmentState::headless)] +
           summary.segments[static_cast<size_t>(sim::SegmentState::unreadable)];
}

void print_text(const sim::DatabaseView& view, const sim::Summary& summary, bool recorded) {
    printf("Database %s%s\n", printable(view.path()).c_str(), recorded ? ", being recorded" : "");
    const uint64_t segments = summary.segments[static_cast<size_t>(sim::SegmentState::whole)];
    printf("%s in %s\n", counted(summary.frames, "frame", "frames").c_str(),
           counted(segments, "segment", "segments").c_str());
    if (summary.any) {
        print_channels(summary);
        print_runs(summary);
    }
    print_gaps(summary);
    print_missing(summary);
    if (summary.damaged > 0)
        printf("\nDamaged: %s cannot be read; qmtool verify tells where\n",
               counted(summary.damaged, "stretch", "stretches").c_str());
    if (not_read(summary) > 0)
        printf("\nNot read: %s; qmtool verify tells why\n",
               counted(not_read(summary), "segment", "segments").c_str());
}

void write_channel(Json& json, int row, int ch, const sim::ChannelSummary& sums) {
    json.object()
        .text("stream", row_name(row))
        .number("channel", static_cast<uint64_t>(ch))
        .number("frames", sums.frames)
        .number("key_frames", sums.key_frames)
        .number("bytes", sums.bytes)
        .time("first", sums.first_us)
        .time("last", sums.last_us)
        .number("gaps", sums.gaps)
        .number("missing_frames", sums.missing_frames)
        .signed_number("longest_gap_us", sums.longest_gap_us)
        .end();
}

void write_lists(Json& json, const sim::Summary& summary) {
    json.number("run_count", summary.runs.count).array("runs");
    for (const sim::Run& run : summary.runs.items) {
        json.object()
            .number("run", run.run)
            .number("first_record", run.first_sequence)
            .time("start", run.utc_us)
            .text("why", run.stepped ? "clock_stepped" : "recording_began")
            .signed_number("step_us", run.step_us)
            .end();
    }
    json.end().number("gap_count", summary.gaps.count).array("gaps");
    for (const sim::Gap& gap : summary.gaps.items) {
        json.object()
            .text("stream", row_name(gap.row))
            .number("channel", static_cast<uint64_t>(gap.channel))
            .time("after", gap.after_us)
            .time("until", gap.until_us)
            .number("missing_frames", gap.missing_frames)
            .end();
    }
    json.end().number("missing_record_count", summary.missing.count).array("missing_records");
    for (const sim::MissingRecords& missing : summary.missing.items) {
        json.object()
            .number("first", missing.first)
            .number("count", missing.count)
            .time("after", missing.after_us)
            .time("until", missing.until_us)
            .end();
    }
    json.end();
}

void print_json(const sim::DatabaseView& view, const sim::Summary& summary, bool recorded) {
    Json json;
    json.object()
        .text("database", view.path())
        .truth("recorded_now", recorded)
        .number("frames", summary.frames)
        .number("segments", summary.segments[static_cast<size_t>(sim::SegmentState::whole)])
        .number("segments_not_read", not_read(summary))
        .number("damaged_stretches", summary.damaged)
        .array("channels");
    for (int row = 0; row < sim::SUMMARY_ROWS; ++row)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            if (summary.channels[row][ch].frames > 0)
                write_channel(json, row, ch, summary.channels[row][ch]);
    json.end();
    write_lists(json, summary);
    printf("%s\n", json.end().written().c_str());
}

}  // namespace

int list_database(const CommandLine& line) {
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    sim::Summary summary;
    {
        Progress progress;
        summary = sim::summarize(
            *view, [&](uint64_t done, uint64_t total) { progress.show(done, total); });
    }
    const bool recorded = view->recorded();
    if (line.json)
        print_json(*view, summary, recorded);
    else
        print_text(*view, summary, recorded);
    const bool found =
        summary.damaged > 0 || summary.missing.count > 0 || (not_read(summary) > 0 && !recorded);
    return found ? STATUS_FINDINGS : STATUS_FINE;
}
