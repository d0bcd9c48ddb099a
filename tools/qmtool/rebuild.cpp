// qmtool rebuild: the .ini file written again from what the segments say.
#include <cinttypes>
#include <cstdio>

#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"

namespace {

const char* before_text(const sim::Rebuilt& rebuilt) {
    return rebuilt.other_identity ? "that of another database" : state_text(rebuilt.before);
}

void print_text(const sim::DatabaseView& view, const sim::Rebuilt& rebuilt) {
    printf("%s was %s; it %s\n", printable(view.ini_name()).c_str(), before_text(rebuilt),
           rebuilt.written ? "was written again" : "stays as it is");
    printf("  identity      %s\n", sim::to_text(rebuilt.ini.identity).c_str());
    printf("  segment size  %" PRIu64 " bytes\n", rebuilt.ini.segment_bytes);
    printf("  ring          %s\n",
           counted(rebuilt.ini.ring_segments, "segment", "segments").c_str());
    printf("  found         %s of it", counted(rebuilt.segments, "segment", "segments").c_str());
    if (rebuilt.foreign > 0) printf(", %" PRIu64 " of other databases", rebuilt.foreign);
    if (rebuilt.without_header > 0)
        printf(", %" PRIu64 " without a header", rebuilt.without_header);
    printf("\n");
}

void print_json(const sim::DatabaseView& view, const sim::Rebuilt& rebuilt) {
    Json json;
    json.object()
        .text("database", view.path())
        .truth("written", rebuilt.written)
        .text("ini_before", state_text(rebuilt.before))
        .truth("ini_of_another_database", rebuilt.other_identity)
        .text("identity", sim::to_text(rebuilt.ini.identity))
        .number("segment_bytes", rebuilt.ini.segment_bytes)
        .number("ring_segments", rebuilt.ini.ring_segments)
        .number("segments", rebuilt.segments)
        .number("foreign_segments", rebuilt.foreign)
        .number("segments_without_header", rebuilt.without_header)
        .end();
    printf("%s\n", json.written().c_str());
}

}  // namespace

int rebuild_database(const CommandLine& line) {
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    const sim::Rebuilt rebuilt = sim::rebuild_ini(sim::real_file_system(), *view);
    if (!rebuilt.why.empty()) return say_cannot(line, rebuilt.why);
    if (line.json)
        print_json(*view, rebuilt);
    else
        print_text(*view, rebuilt);
    return STATUS_FINE;
}
