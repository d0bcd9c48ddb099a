// Reading: all of a database in order from disk, beside a plain file; and finding a key frame by
// time and channel in the page cache.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include "bench/db_measures.h"
#include "bench/db_memory_pool.h"
#include "bench/db_recorder.h"
#include "bench/measure.h"
#include "sdk/db/disk_reader.h"

namespace {

constexpr double MOST_CACHED = 0.01;
constexpr int SEEKS = 200'000;
constexpr int WARM_SEEKS = 20'000;

std::unique_ptr<sim::DiskReader> open_reader(const BenchPlan& plan) {
    std::string why;
    auto reader =
        sim::DiskReader::open(sim::real_file_system(), Recorder::path(plan.folder), why, true);
    if (!reader) give_up("the reader: " + why);
    return reader;
}

// Bytes of payload of all frames, each read with its checksum.
uint64_t read_all(const BenchPlan& plan, MemoryPool* pool = nullptr) {
    const auto reader = open_reader(plan);
    qm_dbframe frame;
    uint64_t bytes = 0;
    const uint64_t end = reader->end();
    for (uint64_t n = reader->first(); n < end; ++n) {
        if (!reader->read(n, frame)) give_up("frame " + std::to_string(n) + " cannot be read");
        bytes += frame.info.bytes;
        if (pool) pool->written(bytes);
    }
    return bytes;
}

void write_plain(const std::string& path, uint64_t bytes) {
    const int file = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0640);
    const std::vector<uint8_t> block(Workload::BLOCK, 5);
    for (uint64_t done = 0; done < bytes;) {
        const size_t part = static_cast<size_t>(std::min<uint64_t>(block.size(), bytes - done));
        if (write(file, block.data(), part) != static_cast<ssize_t>(part)) give_up("no plain file");
        done += part;
    }
    fsync(file);
    close(file);
}

uint64_t read_plain(const std::string& path, MemoryPool& pool) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<uint8_t> block(Workload::BLOCK);
    uint64_t bytes = 0;
    for (ssize_t part; (part = read(file, block.data(), block.size())) > 0;) {
        bytes += static_cast<uint64_t>(part);
        pool.written(bytes);
    }
    close(file);
    return bytes;
}

// MB/s of `read`, which is handed the pool; nothing of the folder being in the page cache before.
template <class Read>
double from_disk(const BenchPlan& plan, Read read) {
    if (drop_cache(plan.folder) > MOST_CACHED) give_up("the page cache cannot be dropped");
    MemoryPool pool(plan.folder, 2 * plan.bytes);
    const int64_t begin_ns = now_ns();
    const double bytes = static_cast<double>(read(pool));
    return bytes / 1e6 / (static_cast<double>(now_ns() - begin_ns) / 1e9);
}

struct Seek {
    uint64_t first, end;
    int64_t first_us, last_us;
};

// Nanoseconds of one seek to a random time of a random channel-stream; checks what it found.
int64_t seek_once(sim::DiskReader& reader, const Seek& range, std::mt19937_64& random) {
    const int64_t time_us =
        range.first_us +
        static_cast<int64_t>(random() % static_cast<uint64_t>(range.last_us - range.first_us));
    const int stream = static_cast<int>(random() % Workload::STREAMS);
    const int channel = static_cast<int>(random() % Workload::CHANNELS);
    uint64_t key = 0;
    sim::FrameInfo info;
    const int64_t begin_ns = now_ns();
    const bool found = reader.key_at_or_before(reader.at_time(time_us), stream, channel, key) &&
                       reader.info(key, info);
    const int64_t took_ns = now_ns() - begin_ns;
    // A key frame comes every second, and the record at the time may itself be the one.
    const int64_t group_us = Workload::GROUP_TICKS * 1'000'000 / Workload::TICKS_PER_SECOND;
    const int64_t tick_us = 1'000'000 / Workload::TICKS_PER_SECOND + 1;
    if (!found || info.stream != stream || info.channel != channel || !is_key(info.kind) ||
        info.time_us > time_us + tick_us || info.time_us < time_us - group_us - tick_us)
        give_up("a seek found the wrong frame");
    return took_ns;
}

}  // namespace

void measure_reading(const BenchPlan& plan) {
    clear_folder(plan.folder);
    Workload workload(Workload::Keys::spread);
    make_database(plan, workload);
    const std::string plain = plan.folder + "/plain";
    write_plain(plain, read_all(plan));

    std::vector<double> ours, bare, ratios;
    for (int repetition = 0; repetition < plan.repetitions; ++repetition) {
        for (int side = 0; side < 2; ++side) {
            if ((side == 0) == (repetition % 2 == 0))
                ours.push_back(
                    from_disk(plan, [&](MemoryPool& pool) { return read_all(plan, &pool); }));
            else
                bare.push_back(
                    from_disk(plan, [&](MemoryPool& pool) { return read_plain(plain, pool); }));
        }
        ratios.push_back(ours.back() / bare.back());
    }
    print_heading("reading in order from disk");
    print_row("plain file, read() of 1 MiB", median(bare), "MB/s", Wanted::nothing);
    print_row("database, every checksum verified", median(ours), "MB/s", Wanted::nothing);
    print_row("  x plain file", median(ratios), "", Wanted::at_least, 1.0);
    clear_folder(plan.folder);
}

void measure_seeking(const BenchPlan& plan) {
    clear_folder(plan.folder);
    Workload workload(Workload::Keys::spread);
    make_database(plan, workload);
    read_all(plan);  // into the page cache
    const auto reader = open_reader(plan);
    Seek range{reader->first(), reader->end(), 0, 0};
    sim::FrameInfo info;
    // From where every channel-stream has a key frame behind it.
    const uint64_t from = range.first + (Workload::GROUP_TICKS + 1) * Workload::TICK_FRAMES;
    if (!reader->info(from, info)) give_up("no frame to begin with");
    range.first_us = info.time_us;
    if (!reader->info(range.end - 1, info)) give_up("no last frame");
    range.last_us = info.time_us;

    std::mt19937_64 random(17);
    for (int i = 0; i < WARM_SEEKS; ++i) seek_once(*reader, range, random);
    std::vector<int64_t> took_ns, timer_ns;
    for (int i = 0; i < SEEKS; ++i) {
        took_ns.push_back(seek_once(*reader, range, random));
        const int64_t begin_ns = now_ns();
        timer_ns.push_back(now_ns() - begin_ns);
    }
    print_heading("a key frame by time and channel, and its header, in the page cache");
    print_row("p50", static_cast<double>(quantile(took_ns, 0.5)) / 1e3, "us", Wanted::at_most, 2.5);
    print_row("p99", static_cast<double>(quantile(took_ns, 0.99)) / 1e3, "us", Wanted::at_most, 5);
    print_row("  of it the clock itself, p50", static_cast<double>(quantile(timer_ns, 0.5)) / 1e3,
              "us", Wanted::nothing);
    clear_folder(plan.folder);
}
