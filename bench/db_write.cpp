// Storing frames as fast as it goes: the recorder beside plain files and other databases. All are
// durable once a second and at the end, which is part of the time.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "bench/db_measures.h"
#include "bench/db_memory_pool.h"
#include "bench/db_recorder.h"
#include "bench/measure.h"

namespace {

const char FIRST_TURN[] = "recorder, first turn of the ring";
const char STEADY[] = "recorder, ring that has turned";
const char RAW[] = "raw append";
const char LMDB[] = "LMDB";
const char SQLITE_WAL[] = "SQLite, write-ahead log";
const char SQLITE_JOURNAL[] = "SQLite, rollback journal";

const Peer PEERS[] = {
    {RAW, make_raw_append},
    {"a file a frame", make_file_a_frame},
#ifdef QM_BENCH_SQLITE
    {SQLITE_WAL, make_sqlite_wal},
    {SQLITE_JOURNAL, make_sqlite_journal},
#else
    {SQLITE_WAL, nullptr},
    {SQLITE_JOURNAL, nullptr},
#endif
#ifdef QM_BENCH_LMDB
    {LMDB, make_lmdb},
#else
    {LMDB, nullptr},
#endif
#ifdef QM_BENCH_ROCKSDB
    {"RocksDB, blob files", make_rocksdb},
#else
    {"RocksDB, blob files", nullptr},
#endif
};

// One sample a repetition, in the order of the repetitions.
struct Samples {
    std::vector<double> mb_per_s;
    std::vector<double> cpu_s_per_gb;
};
using Results = std::map<std::string, Samples>;

double cpu_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void sample(Store& store, Workload& workload, int64_t& tick, const BenchPlan& plan,
            Samples& samples) {
    MemoryPool pool(plan.folder, 2 * plan.bytes);
    const double cpu_before = cpu_seconds();
    const int64_t begin_ns = now_ns();
    const double bytes = static_cast<double>(store_ticks(store, workload, tick, plan.bytes, &pool));
    const double seconds = static_cast<double>(now_ns() - begin_ns) / 1e9;
    samples.mb_per_s.push_back(bytes / 1e6 / seconds);
    samples.cpu_s_per_gb.push_back((cpu_seconds() - cpu_before) / (bytes / 1e9));
}

void sample_recorder(const BenchPlan& plan, Workload& workload, Results& results) {
    clear_folder(plan.folder);
    Recorder recorder(plan.folder, Recorder::ring_for(plan.bytes));
    int64_t tick = 0;
    sample(recorder, workload, tick, plan, results[FIRST_TURN]);
    turn_ring(recorder, workload, tick);
    sample(recorder, workload, tick, plan, results[STEADY]);
    recorder.finish(now_ns() / 1000);
}

void sample_peer(const Peer& peer, const BenchPlan& plan, Workload& workload, Results& results) {
    clear_folder(plan.folder);
    const std::unique_ptr<Store> store = peer.make(plan.folder, workload, plan.bytes);
    int64_t tick = 0;
    sample(*store, workload, tick, plan, results[peer.name]);
}

// The median of the ratios within each repetition; 0 when there is no such peer.
double ratio(const Results& results, const char* upper, const char* lower) {
    const auto above = results.find(upper), below = results.find(lower);
    if (below == results.end()) return 0;
    std::vector<double> ratios;
    for (size_t i = 0; i < above->second.mb_per_s.size(); ++i)
        ratios.push_back(above->second.mb_per_s[i] / below->second.mb_per_s[i]);
    return median(ratios);
}

// `target`: 0 for none.
void print_ratio(const Results& results, const char* upper, const char* lower, double target) {
    const double figure = ratio(results, upper, lower);
    const Wanted wanted = target > 0 ? Wanted::at_least : Wanted::nothing;
    if (figure > 0) print_row(std::string("  x ") + lower, figure, "", wanted, target);
}

void print_writing(const Results& results) {
    print_heading("writing, as fast as it goes");
    for (const auto& [name, samples] : results) {
        const auto [least, most] =
            std::minmax_element(samples.mb_per_s.begin(), samples.mb_per_s.end());
        char what[128];
        snprintf(what, sizeof what, "%-34s (%.0f to %.0f)", name.c_str(), *least, *most);
        print_row(what, median(samples.mb_per_s), "MB/s", Wanted::nothing);
    }
    print_row(STEADY, median(results.at(STEADY).mb_per_s), "MB/s", Wanted::nothing);
    print_ratio(results, STEADY, RAW, 1.3);
    print_ratio(results, STEADY, LMDB, 1.6);
    print_ratio(results, STEADY, SQLITE_WAL, 3.8);
    print_ratio(results, STEADY, SQLITE_JOURNAL, 0);
    print_row(FIRST_TURN, median(results.at(FIRST_TURN).mb_per_s), "MB/s", Wanted::nothing);
    print_ratio(results, FIRST_TURN, RAW, 1.0);
}

void print_cpu(const Results& results) {
    print_heading("CPU time while writing, user and system, of the process");
    for (const auto& [name, samples] : results) {
        const bool ours = name == STEADY || name == FIRST_TURN;
        print_row(name, median(samples.cpu_s_per_gb), "s/GB",
                  ours ? Wanted::at_most : Wanted::nothing, 0.28);
    }
}

}  // namespace

void measure_writing(const BenchPlan& plan, bool write, bool cpu) {
    Workload workload(Workload::Keys::spread);
    std::vector<const Peer*> peers;
    for (const Peer& peer : PEERS) {
        if (!peer.make) printf("left out, not installed when this was built: %s\n", peer.name);
        if (peer.make && (write || peer.name == RAW)) peers.push_back(&peer);
    }
    Results results;
    for (int repetition = 0; repetition < plan.repetitions; ++repetition) {
        // In turns: another one begins each time.
        const size_t first = static_cast<size_t>(repetition) % (peers.size() + 1);
        for (size_t i = 0; i <= peers.size(); ++i) {
            const size_t turn = (first + i) % (peers.size() + 1);
            if (turn == peers.size())
                sample_recorder(plan, workload, results);
            else
                sample_peer(*peers[turn], plan, workload, results);
        }
    }
    clear_folder(plan.folder);
    if (write) print_writing(results);
    if (cpu) print_cpu(results);
}
