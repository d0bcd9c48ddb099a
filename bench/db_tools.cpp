// What several measurements of the database benchmark need.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "bench/db_measures.h"
#include "bench/db_memory_pool.h"
#include "bench/db_recorder.h"
#include "bench/measure.h"

namespace {

constexpr size_t PAGE = 4096;

// Pages of the file that are in the page cache.
size_t cached_pages(int file, size_t bytes) {
    void* map = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
    if (map == MAP_FAILED) return 0;
    std::vector<unsigned char> present((bytes + PAGE - 1) / PAGE);
    mincore(map, bytes, present.data());
    munmap(map, bytes);
    return static_cast<size_t>(
        std::count_if(present.begin(), present.end(), [](unsigned char page) { return page & 1; }));
}

}  // namespace

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const size_t half = samples.size() / 2;
    return samples.size() % 2 ? samples[half] : (samples[half - 1] + samples[half]) / 2;
}

void print_heading(const char* heading) {
    printf("\n%-58s %10s %-7s %s\n", heading, "figure", "", "target");
}

void print_row(const std::string& what, double figure, const char* unit, Wanted wanted,
               double target) {
    printf("  %-56s %10.3f %-7s", what.c_str(), figure, unit);
    if (wanted != Wanted::nothing) {
        const bool met = wanted == Wanted::at_least ? figure >= target : figure <= target;
        printf(" %s %g: %s", wanted == Wanted::at_least ? "at least" : "at most", target,
               met ? "met" : "MISSED");
    }
    printf("\n");
    fflush(stdout);
}

void clear_folder(const std::string& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        std::filesystem::remove_all(entry.path());
    sync();
}

double drop_cache(const std::string& folder) {
    size_t pages = 0, cached = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.file_size() == 0) continue;
        const int file = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) give_up("cannot open a file to drop its pages");
        fsync(file);
        posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        pages += (entry.file_size() + PAGE - 1) / PAGE;
        cached += cached_pages(file, entry.file_size());
        close(file);
    }
    return pages > 0 ? static_cast<double>(cached) / static_cast<double>(pages) : 0;
}

uint64_t store_ticks(Store& store, Workload& workload, int64_t& tick, uint64_t bytes,
                     MemoryPool* pool) {
    uint64_t done = 0;
    for (; done < bytes; ++tick) {
        const auto frames = workload.tick(tick);
        const int64_t now_us = now_ns() / 1000;
        for (const qm_dbframe& frame : frames) store.append(frame, now_us);
        store.between_ticks(now_us);
        done += Workload::tick_bytes(frames);
        if (pool) pool->written(done);
    }
    store.make_durable(now_ns() / 1000);
    return done;
}

void turn_ring(Recorder& recorder, Workload& workload, int64_t& tick) {
    while (!recorder.turned()) store_ticks(recorder, workload, tick, Workload::BLOCK);
}

int64_t make_database(const BenchPlan& plan, Workload& workload) {
    Recorder recorder(plan.folder, Recorder::ring_for(plan.bytes));
    int64_t tick = 0;
    store_ticks(recorder, workload, tick, plan.bytes);
    turn_ring(recorder, workload, tick);
    store_ticks(recorder, workload, tick, plan.bytes / 4);
    recorder.finish(now_ns() / 1000);
    return tick;
}
