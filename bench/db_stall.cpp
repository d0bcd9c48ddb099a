// How long the recorder's thread is held up: frames are handed over 30 times a second in real time,
// and each time the whole tick is measured, with what it makes durable.
#include <time.h>

#include <cstdio>

#include "bench/db_measures.h"
#include "bench/db_memory_pool.h"
#include "bench/db_recorder.h"
#include "bench/measure.h"

namespace {

constexpr uint64_t STALL_RING = 8;               // segments: enough for several to be used again
constexpr uint64_t MOST_TICK_BYTES = 1'000'000;  // on average

void wait_until(int64_t time_ns) {
    const timespec until{static_cast<time_t>(time_ns / 1'000'000'000),
                         static_cast<long>(time_ns % 1'000'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
    }
}

std::vector<int64_t> paced(Store& store, Workload& workload, int64_t& tick, const BenchPlan& plan) {
    const int64_t ticks = plan.stall_seconds * Workload::TICKS_PER_SECOND;
    MemoryPool pool(plan.folder, 2 * MOST_TICK_BYTES * static_cast<uint64_t>(ticks));
    std::vector<int64_t> held_ns;
    uint64_t done = 0;
    const int64_t begin_ns = now_ns();
    for (int64_t i = 0; i < ticks; ++i, ++tick) {
        wait_until(begin_ns + i * 1'000'000'000 / Workload::TICKS_PER_SECOND);
        const auto frames = workload.tick(tick);
        const int64_t start_ns = now_ns();
        for (const qm_dbframe& frame : frames) store.append(frame, start_ns / 1000);
        store.between_ticks(start_ns / 1000);
        held_ns.push_back(now_ns() - start_ns);
        done += Workload::tick_bytes(frames);
        pool.written(done);
    }
    return held_ns;
}

void print(const std::string& name, std::vector<int64_t> held_ns, double p99_target) {
    const auto ms = [&](double part) { return static_cast<double>(quantile(held_ns, part)) / 1e6; };
    print_row(name + ", p50", ms(0.5), "ms", Wanted::nothing);
    print_row(name + ", p99", ms(0.99), "ms", p99_target > 0 ? Wanted::at_most : Wanted::nothing,
              p99_target);
    print_row(name + ", worst", ms(1), "ms", Wanted::nothing);
}

void measure_recorder(const BenchPlan& plan, Workload::Keys keys, const char* name,
                      double p99_target) {
    Workload workload(keys);
    clear_folder(plan.folder);
    Recorder recorder(plan.folder, STALL_RING);
    int64_t tick = 0;
    turn_ring(recorder, workload, tick);
    print(name, paced(recorder, workload, tick, plan), p99_target);
}

void measure_peer(const BenchPlan& plan, MakeStore make, const char* name) {
    Workload workload(Workload::Keys::spread);
    clear_folder(plan.folder);
    const uint64_t bytes =
        MOST_TICK_BYTES * Workload::TICKS_PER_SECOND * static_cast<uint64_t>(plan.stall_seconds);
    const std::unique_ptr<Store> store = make(plan.folder, workload, bytes);
    int64_t tick = 0;
    print(name, paced(*store, workload, tick, plan), 0);
}

}  // namespace

void measure_stalls(const BenchPlan& plan) {
    print_heading("a tick of 96 frames in real time, 30 a second");
    measure_recorder(plan, Workload::Keys::spread, "recorder, ring that has turned", 1.5);
    measure_peer(plan, make_raw_append, "raw append");
#ifdef QM_BENCH_SQLITE
    measure_peer(plan, make_sqlite_wal, "SQLite, write-ahead log");
    measure_peer(plan, make_sqlite_journal, "SQLite, rollback journal");
#endif
    measure_recorder(plan, Workload::Keys::together, "recorder, all key frames in one tick", 0);
    clear_folder(plan.folder);
}
