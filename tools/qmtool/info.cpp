// qmtool info: the database as a whole.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"

namespace {

struct Info {
    const sim::DatabaseView& view;
    const sim::Summary& summary;
    bool recorded;
    bool with_ini;     // its values are known
    bool foreign_ini;  // but are those of another database

    uint64_t segments(sim::SegmentState state) const {
        return summary.segments[static_cast<size_t>(state)];
    }
    uint64_t segment_bytes() const {
        if (summary.segment_bytes != 0) return summary.segment_bytes;
        return with_ini ? view.ini().segment_bytes : 0;
    }
};

void print_state(const Info& info) {
    printf("%-16s %s", ".ini file", state_text(info.view.ini_state()));
    if (info.foreign_ini) printf(", of another database");
    if (info.view.ini_state() == sim::IniState::unreadable)
        printf(": %s", strerror(-info.view.ini_error()));
    printf("\n");
}

void print_segments(const Info& info) {
    const std::vector<uint64_t>& numbers = info.view.numbers();
    printf("%-16s %" PRIu64, "segments", info.segments(sim::SegmentState::whole));
    if (!numbers.empty())
        printf(", numbers %" PRIu64 " to %" PRIu64, numbers.front(), numbers.back());
    printf("\n");
    constexpr struct {
        sim::SegmentState state;
        const char* words;
    } OTHERS[] = {
        {sim::SegmentState::unbegun, "not begun"},
        {sim::SegmentState::foreign, "of another database"},
        {sim::SegmentState::headless, "without a header"},
        {sim::SegmentState::unreadable, "cannot be read"},
    };
    for (const auto& other : OTHERS)
        if (info.segments(other.state) > 0)
            printf("%-16s %" PRIu64 " %s\n", "", info.segments(other.state), other.words);
}

void print_text(const Info& info) {
    printf("%-16s %s\n", "database", printable(info.view.path()).c_str());
    printf("%-16s %u\n", "format", sim::FORMAT_VERSION);
    printf("%-16s %s\n", "identity", sim::to_text(info.view.identity()).c_str());
    if (info.with_ini)
        printf("%-16s %s\n", "ring",
               counted(info.view.ini().ring_segments, "segment", "segments").c_str());
    else
        printf("%-16s not known\n", "ring");
    printf("%-16s %" PRIu64 " bytes\n", "segment size", info.segment_bytes());
    print_segments(info);
    printf("%-16s %" PRIu64 " bytes\n", "on disk", info.summary.file_bytes);
    printf("%-16s %" PRIu64 "\n", "records", info.summary.frames);
    if (info.summary.any) {
        printf("%-16s %s\n", "first", time_text(info.summary.first_us).c_str());
        printf("%-16s %s\n", "durable up to", time_text(info.summary.last_us).c_str());
    }
    printf("%-16s %s\n", "being recorded", info.recorded ? "yes" : "no");
    print_state(info);
}

void print_json(const Info& info) {
    const std::vector<uint64_t>& numbers = info.view.numbers();
    Json json;
    json.object()
        .text("database", info.view.path())
        .number("format", sim::FORMAT_VERSION)
        .text("identity", sim::to_text(info.view.identity()));
    info.with_ini ? json.number("ring_segments", info.view.ini().ring_segments)
                  : json.null("ring_segments");
    json.number("segment_bytes", info.segment_bytes());
    json.object("segments")
        .number("whole", info.segments(sim::SegmentState::whole))
        .number("not_begun", info.segments(sim::SegmentState::unbegun))
        .number("foreign", info.segments(sim::SegmentState::foreign))
        .number("without_header", info.segments(sim::SegmentState::headless))
        .number("unreadable", info.segments(sim::SegmentState::unreadable));
    numbers.empty() ? json.null("first") : json.number("first", numbers.front());
    numbers.empty() ? json.null("last") : json.number("last", numbers.back());
    json.end().number("bytes_on_disk", info.summary.file_bytes);
    json.number("records", info.summary.frames);
    info.summary.any ? json.time("first", info.summary.first_us) : json.null("first");
    info.summary.any ? json.time("durable_up_to", info.summary.last_us)
                     : json.null("durable_up_to");
    json.truth("recorded_now", info.recorded)
        .text("ini", state_text(info.view.ini_state()))
        .truth("ini_of_another_database", info.foreign_ini)
        .number("damaged_stretches", info.summary.damaged);
    printf("%s\n", json.end().written().c_str());
}

}  // namespace

int show_info(const CommandLine& line) {
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    sim::Summary summary;
    {
        Progress progress;
        summary = sim::count_records(
            *view, [&](uint64_t done, uint64_t total) { progress.show(done, total); });
    }
    const bool with_ini = view->ini_state() == sim::IniState::whole;
    const bool foreign_ini = with_ini && !(view->ini().identity == view->identity());
    const Info info = {*view, summary, view->recorded(), with_ini, foreign_ini};
    if (line.json)
        print_json(info);
    else
        print_text(info);
    const bool lost = info.segments(sim::SegmentState::headless) > 0 && !info.recorded;
    const bool found = !with_ini || foreign_ini || lost || summary.damaged > 0 ||
                       info.segments(sim::SegmentState::foreign) > 0 ||
                       info.segments(sim::SegmentState::unreadable) > 0;
    return found ? STATUS_FINDINGS : STATUS_FINE;
}
