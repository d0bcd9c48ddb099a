// The measurements of the database benchmark, each printing its own part of the table.
#ifndef BENCH_DB_MEASURES_H
#define BENCH_DB_MEASURES_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench/db_store.h"

struct BenchPlan {
    std::string folder;  // empty at the start and the end of every measurement
    uint64_t bytes = uint64_t{1} << 30;
    int repetitions = 5;
    int stall_seconds = 20;
};

// Throughput (`write`) and CPU time (`cpu`) of storing the frames as fast as it goes.
void measure_writing(const BenchPlan& plan, bool write, bool cpu);
// How long a tick of the recorder's thread takes, in real time.
void measure_stalls(const BenchPlan& plan);
// In order, from disk.
void measure_reading(const BenchPlan& plan);
// By time and channel, in the page cache.
void measure_seeking(const BenchPlan& plan);
void measure_opening(const BenchPlan& plan);
void measure_memory(const BenchPlan& plan);

// The parts' common tools.

double median(std::vector<double> samples);

// How a figure is judged.
enum class Wanted { at_least, at_most, nothing };
// One row: what, the figure with its unit, the target and whether it is met.
void print_row(const std::string& what, double figure, const char* unit, Wanted wanted = {},
               double target = 0);
void print_heading(const char* heading);

// Removes what is in the folder and waits until the disk has nothing left to do for it.
void clear_folder(const std::string& folder);
// Writes back and drops the page cache of all files in the folder. Returns the share (0..1) of
// their pages that is still there.
double drop_cache(const std::string& folder);

// The frames of ticks `tick` and on into `store`, at least `bytes` of payload, and made durable.
// Counts up `tick`, returns the payload's bytes.
uint64_t store_ticks(Store& store, Workload& workload, int64_t& tick, uint64_t bytes,
                     class MemoryPool* pool = nullptr);

class Recorder;
// Goes on until the recorder's ring has turned.
void turn_ring(Recorder& recorder, Workload& workload, int64_t& tick);
// A database of a ring that has turned, `bytes` of payload and a little more, ended in order.
// Returns the tick behind its last.
int64_t make_database(const BenchPlan& plan, Workload& workload);

#endif  // BENCH_DB_MEASURES_H
