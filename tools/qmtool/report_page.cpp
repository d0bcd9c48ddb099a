// The head of the page with its totals, and the time line.
#include "tools/qmtool/report_page.h"

#include <cstdio>
#include <string>

#include "tools/qmtool/output.h"
#include "tools/qmtool/report_plot.h"
#include "tools/qmtool/report_style.h"
#include "tools/qmtool/report_text.h"

namespace {

bool has_row(const ReportData& data, int row) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (data.lane(row, ch)) return true;
    return false;
}

int lanes(const ReportData& data) {
    int count = 0;
    for (int row = 0; row < sim::SUMMARY_ROWS; ++row)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) count += data.lane(row, ch) ? 1 : 0;
    return count;
}

std::string total(const char* name, const std::string& value, const char* kind = "") {
    return "<div class=\"" + std::string(kind) + "\"><dt>" + name + "</dt><dd>" + value +
           "</dd></div>";
}

std::string totals(const ReportSource& source) {
    const ReportData& data = source.data;
    const sim::Summary& summary = source.summary;
    std::string out = "<dl class=\"totals\">";
    if (data.frames() > 0) {
        out += total("From", time_text(data.earliest_us()), "wide") +
               total("To", time_text(data.latest_us()), "wide") +
               total("Length", span_text(data.latest_us() - data.earliest_us()));
    }
    return out + total("Frames", std::to_string(data.frames())) +
           total("Payload", bytes_text(static_cast<double>(data.bytes()))) +
           total("Channels and streams", std::to_string(lanes(data))) +
           total("Segments",
                 std::to_string(summary.segments[static_cast<size_t>(sim::SegmentState::whole)])) +
           total("Files", bytes_text(static_cast<double>(summary.file_bytes))) +
           total("Runs", std::to_string(summary.runs.count)) +
           total("Dropped frames", std::to_string(data.missing()),
                 data.missing() > 0 ? "bad" : "") +
           total("Gaps", std::to_string(summary.gaps.count)) + "</dl>";
}

// What is not in the page because it could not be read.
std::string not_read(const sim::Summary& summary) {
    std::string out;
    const auto tell = [&](const std::string& what) { out += "<li>" + what + "</li>"; };
    if (summary.damaged > 0)
        tell(counted(summary.damaged, "stretch", "stretches") +
             " cannot be read; qmtool verify tells where");
    if (segments_not_read(summary) > 0)
        tell(counted(segments_not_read(summary), "segment", "segments") +
             " cannot be read; qmtool verify tells why");
    const uint64_t foreign = summary.segments[static_cast<size_t>(sim::SegmentState::foreign)];
    if (foreign > 0)
        tell(counted(foreign, "segment belongs", "segments belong") + " to another database");
    uint64_t missing = 0;
    for (const sim::MissingRecords& records : summary.missing.items) missing += records.count;
    const char* at_least = summary.missing.count > summary.missing.items.size() ? "at least " : "";
    if (missing > 0) tell(at_least + counted(missing, "record is missing", "records are missing"));
    if (out.empty()) return "";
    return "<section aria-labelledby=\"unread\"><h2 id=\"unread\" class=\"bad\">Not read</h2><ul>" +
           out + "</ul></section>\n";
}

// How the pictures name the channels. The board writes into them, and counts from 1.
std::string channel_note(const ReportData& data) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        for (int row = 0; row < sim::AUDIO_ROW; ++row) {
            if (!data.lane(row, ch)) continue;
            char shown[16];
            snprintf(shown, sizeof shown, "CH%02d", ch + 1);
            return "<p class=\"note\">Channels are counted from 0 here, and from 1 in the pictures of "
                   "the virtual board: channel " +
                   std::to_string(ch) + " is " + shown + " in its picture.</p>\n";
        }
    }
    return "";
}

std::string navigation(const ReportData& data) {
    std::string out = "<nav aria-label=\"Streams\"><ul><li><a href=\"#time\">Time line</a></li>";
    for (int row = 0; row < sim::SUMMARY_ROWS; ++row)
        if (has_row(data, row))
            out +=
                "<li><a href=\"#row-" + std::to_string(row) + "\">" + row_name(row) + "</a></li>";
    return out + "</ul></nav>\n";
}

std::string axis(const ReportData& data) {
    std::string out = "<div class=\"axis five\">";
    const int64_t length = data.end_us() - data.begin_us();
    for (int i = 0; i <= 4; ++i)
        out += "<span>" + axis_text(data.begin_us() + i * (length / 4), length) + "</span>";
    return out + "</div>";
}

std::string run_lane(const ReportSource& source) {
    std::vector<size_t> marks;
    for (const sim::Run& run : source.summary.runs.items) {
        const size_t bin = source.data.bin_of(run.utc_us);
        if (marks.empty() || marks.back() != bin) marks.push_back(bin);
    }
    const std::string description = counted(source.summary.runs.count, "run begins", "runs begin") +
                                    ": a recording, or the time after a step of the clock";
    return "<div class=\"lane\"><span>runs</span>" +
           mark_line({"runs", "Where runs begin", description}, source.data.bins(), marks) +
           "</div>\n";
}

std::string lane_line(const ReportSource& source, int row, int channel, const Lane& lane) {
    const std::string name = std::string(row_name(row)) + " channel " + std::to_string(channel);
    const std::string description =
        "From " + time_text(lane.first_us) + " to " + time_text(lane.last_us) + ", " +
        counted(lane.frames(), "frame", "frames") + ", " +
        counted(lane.missing, "dropped", "dropped") + ", " +
        counted(source.summary.channels[row][channel].gaps, "gap", "gaps");
    return "<div class=\"lane\"><span>channel " + std::to_string(channel) + "</span>" +
           time_line({std::string("l") + std::to_string(row) + "-" + std::to_string(channel),
                      "When " + name + " was recorded", description},
                     source.data, lane) +
           "</div>\n";
}

std::string time_section(const ReportSource& source) {
    const ReportData& data = source.data;
    std::string out =
        "<section aria-labelledby=\"time\"><h2 id=\"time\">Time line</h2>\n<div class=\"lines\">";
    out += "<div class=\"lane\"><span></span>" + axis(data) + "</div>\n" + run_lane(source);
    for (int row = 0; row < sim::SUMMARY_ROWS; ++row) {
        if (has_row(data, row)) out += std::string("<h3>") + row_name(row) + "</h3>\n";
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            if (const Lane* lane = data.lane(row, ch)) out += lane_line(source, row, ch, *lane);
    }
    out += "<div class=\"lane\"><span></span>" + axis(data) + "</div>\n";
    return out +
           "<ul class=\"key\"><li><i class=\"k-band\"></i>recorded</li><li><i class=\"k-drop\"></i>"
           "dropped frames</li><li><i class=\"k-begin\"></i>a run begins</li><li><i "
           "class=\"k-odd\"></i>another key-frame distance than usual</li><li>times are UTC; one "
           "step is " +
           span_text(data.bin_us()) + "</li></ul></div></section>\n";
}

}  // namespace

uint64_t segments_not_read(const sim::Summary& summary) {
    return summary.segments[static_cast<size_t>(sim::SegmentState::headless)] +
           summary.segments[static_cast<size_t>(sim::SegmentState::unreadable)];
}

std::string page_start(const ReportSource& source) {
    std::string out =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
        html_text(source.view.ini_name()) + ", recordings</title>\n<style>" + REPORT_STYLE +
        "</style>\n</head>\n<body>\n<header><h1>Recordings</h1>\n<p class=\"path\">" +
        html_text(source.view.path());
    if (source.recorded) out += ", being recorded: this is what was in it so far";
    out += "</p>\n" + totals(source) + "</header>\n";
    if (source.data.frames() > 0) out += channel_note(source.data) + navigation(source.data);
    out += "<main>\n" + not_read(source.summary);
    if (source.data.frames() == 0) return out + "<p>Nothing is recorded in it.</p>\n";
    return out + time_section(source);
}

std::string page_end() { return "</main>\n</body>\n</html>\n"; }
