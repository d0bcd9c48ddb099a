// Opening a database, after an orderly end and after a kill, with nothing of it in the page cache;
// and how much memory its recorder takes.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "bench/db_measures.h"
#include "bench/db_recorder.h"
#include "bench/measure.h"
#include "sdk/db/disk_reader.h"

namespace {

constexpr int OPENINGS = 15;
constexpr double NEARLY_FULL = 0.9;

double ms_since(int64_t begin_ns) { return static_cast<double>(now_ns() - begin_ns) / 1e6; }

struct Openings {
    std::vector<double> reader_ms;        // DiskReader::open
    std::vector<double> reader_ready_ms;  // and the last frame is known
    std::vector<double> writer_ms;        // DiskWriter::open
};

void open_reader(const BenchPlan& plan, Openings& out) {
    drop_cache(plan.folder);
    std::string why;
    const int64_t begin_ns = now_ns();
    const auto reader =
        sim::DiskReader::open(sim::real_file_system(), Recorder::path(plan.folder), why);
    out.reader_ms.push_back(ms_since(begin_ns));
    if (!reader) give_up("the reader: " + why);
    sim::FrameInfo info;
    if (!reader->info(reader->end() - 1, info)) give_up("the last frame is not there");
    out.reader_ready_ms.push_back(ms_since(begin_ns));
}

// Returns the recorder, which goes on.
std::unique_ptr<Recorder> open_writer(const BenchPlan& plan, Openings& out) {
    drop_cache(plan.folder);
    const int64_t begin_ns = now_ns();
    auto recorder = std::make_unique<Recorder>(plan.folder, Recorder::ring_for(plan.bytes));
    out.writer_ms.push_back(ms_since(begin_ns));
    return recorder;
}

// Records until the newest segment, begun by this recorder, is nearly full: the most that the next
// one has to look through.
void fill_segment(Recorder& recorder, Workload& workload, int64_t& tick) {
    const uint64_t before = recorder.segment();
    while (recorder.segment() == before) store_ticks(recorder, workload, tick, 1);
    const double bytes = NEARLY_FULL * static_cast<double>(recorder.segment_bytes());
    store_ticks(recorder, workload, tick, static_cast<uint64_t>(bytes) - Workload::BLOCK);
}

void print(const char* when, const Openings& openings, double target_ms) {
    const std::string behind = std::string(", ") + when;
    print_row("reader" + behind, median(openings.reader_ms), "ms", Wanted::at_most, target_ms);
    print_row("reader, and the last frame" + behind, median(openings.reader_ready_ms), "ms",
              Wanted::nothing);
    print_row("recorder" + behind, median(openings.writer_ms), "ms", Wanted::at_most, target_ms);
}

// In a process of its own: what appending adds to its peak, in KiB.
[[noreturn]] void append_only(const BenchPlan& plan, Workload& workload, int answer) {
    // The frames belong to this process, and the peak begins now.
    for (int64_t tick = 0; tick < Workload::GROUP_TICKS; ++tick)
        for (qm_dbframe& frame : workload.tick(tick))
            for (uint32_t i = 0; i < frame.info.bytes; i += 1024) frame.payload[i] ^= 1;
    FILE* clear = fopen("/proc/self/clear_refs", "w");
    if (!clear || fputs("5", clear) < 0 || fclose(clear) != 0) _exit(1);
    const long before_kib = proc_status_kib(getpid(), "VmHWM");
    int64_t tick = 0;
    Recorder recorder(plan.folder, Recorder::ring_for(plan.bytes / 2));
    store_ticks(recorder, workload, tick, plan.bytes);
    recorder.finish(now_ns() / 1000);
    const long taken_kib = proc_status_kib(getpid(), "VmHWM") - before_kib;
    _exit(write(answer, &taken_kib, sizeof taken_kib) == sizeof taken_kib ? 0 : 1);
}

}  // namespace

void measure_opening(const BenchPlan& plan) {
    clear_folder(plan.folder);
    Workload workload(Workload::Keys::spread);
    int64_t tick = make_database(plan, workload);
    Openings ended, killed;
    for (int i = 0; i < OPENINGS; ++i) {
        open_reader(plan, ended);
        auto recorder = open_writer(plan, ended);
        store_ticks(*recorder, workload, tick, Workload::BLOCK);
        recorder->finish(now_ns() / 1000);
    }
    for (int i = 0; i < OPENINGS; ++i) {
        Openings not_counted;
        fill_segment(*open_writer(plan, not_counted), workload, tick);
        open_reader(plan, killed);
        open_writer(plan, killed);  // and ends as killed again
    }
    print_heading("opening, nothing in the page cache");
    print("after an orderly end", ended, 3);
    print("after a kill, segment 0.9 full", killed, 50);
    clear_folder(plan.folder);
}

void measure_memory(const BenchPlan& plan) {
    clear_folder(plan.folder);
    Workload workload(Workload::Keys::spread);
    int ends[2];
    if (pipe(ends) != 0) give_up("no pipe");
    const pid_t child = fork();
    if (child < 0) give_up("no process");
    if (child == 0) append_only(plan, workload, ends[1]);
    close(ends[1]);
    long taken_kib = 0;
    const bool told = read(ends[0], &taken_kib, sizeof taken_kib) == sizeof taken_kib;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!told || status != 0) give_up("the process that was to be measured failed");
    print_heading("peak memory of the recorder (VmHWM), beside the frames");
    print_row("nearly two turns of its ring", static_cast<double>(taken_kib) / 1024, "MiB",
              Wanted::at_most, 4);
    clear_folder(plan.folder);
}
