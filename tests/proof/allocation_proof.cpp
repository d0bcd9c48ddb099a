// Proves that a lack of memory at any moment crashes nothing, leaks nothing and loses nothing that
// was acknowledged: every single allocation of a session fails once, and from it on all of them.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/proof/read_back.h"
#include "tests/support/temp_dir.h"

namespace {

// All allocations of the program; one thread.
struct Memory {
    bool watched = false;   // the code under proof is running
    bool for_ever = false;  // else only once
    uint64_t fails_at = 0;  // counted from 1; 0 for never
    uint64_t watched_calls = 0;
    int64_t live = 0;  // not freed
};
Memory memory;

void* allocate(size_t size, size_t alignment) {
    if (memory.watched) {
        const uint64_t call = ++memory.watched_calls;
        if (memory.fails_at != 0 &&
            (call == memory.fails_at || (memory.for_ever && call > memory.fails_at)))
            return nullptr;
    }
    const size_t rounded = (size + alignment - 1) / alignment * alignment;
    void* const place = alignment > alignof(max_align_t)
                            ? aligned_alloc(alignment, rounded ? rounded : alignment)
                            : malloc(size ? size : 1);
    memory.live += place != nullptr;
    return place;
}

void* allocate_or_throw(size_t size, size_t alignment) {
    void* const place = allocate(size, alignment);
    if (!place) throw std::bad_alloc();
    return place;
}

void give_back(void* place) noexcept {
    memory.live -= place != nullptr;
    free(place);
}

}  // namespace

void* operator new(size_t size) { return allocate_or_throw(size, 1); }
void* operator new[](size_t size) { return allocate_or_throw(size, 1); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size, 1); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size, 1); }
void* operator new(size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<size_t>(alignment));
}
void operator delete(void* place) noexcept { give_back(place); }
void operator delete[](void* place) noexcept { give_back(place); }
void operator delete(void* place, size_t) noexcept { give_back(place); }
void operator delete[](void* place, size_t) noexcept { give_back(place); }
void operator delete(void* place, std::align_val_t) noexcept { give_back(place); }
void operator delete[](void* place, std::align_val_t) noexcept { give_back(place); }
void operator delete(void* place, size_t, std::align_val_t) noexcept { give_back(place); }
void operator delete[](void* place, size_t, std::align_val_t) noexcept { give_back(place); }

namespace {

using sim::DiskReader;
using sim::DiskWriter;
using Outcome = DiskWriter::Outcome;

constexpr char NAME[] = "memory.ini";
constexpr int64_t WAIT_US = 2'000'000;  // longer than a recorder waits before it tries again

unsigned long long ull(uint64_t n) { return n; }

// Runs code under proof. False when it ended with std::bad_alloc.
template <class Work>
bool watched(Work work) {
    memory.watched = true;
    try {
        work();
    } catch (const std::bad_alloc&) {
        memory.watched = false;
        return false;
    }
    memory.watched = false;
    return true;
}

uint64_t open_files() {
    uint64_t count = 0;
    for (int file = 0; file < 256; ++file) {
        struct stat ignored;
        count += fstat(file, &ignored) == 0;
    }
    return count;
}

sim::WriterOptions options() {
    sim::WriterOptions options;
    options.segment_bytes = sim::MIN_SEGMENT_BYTES;
    options.ring_segments = 4;
    options.batch_bytes = 4 * sim::BLOCK_BYTES;
    return options;
}

struct Totals {
    uint64_t opens_failed = 0, busy = 0, commits_failed = 0, reader_throws = 0, lost = 0;
};

// One session over a copy of a database that a kill left behind.
class Session {
  public:
    Session(Proof& proof, const FramePlan& plan, const std::string& path, Totals& totals)
        : m_proof(proof), m_plan(plan), m_path(path), m_totals(totals) {}

    void run();
    uint64_t acknowledged() const { return m_acknowledged; }

  private:
    bool open();
    void record(int frames);
    void commit();
    void read();
    void read_one(DiskReader& reader, uint64_t n);
    bool reader_call(const char* what, bool ended) {
        m_totals.reader_throws += !ended;
        m_proof.check(ended || memory.fails_at != 0, "%s fails though there is memory", what);
        return ended;
    }
    void finish();

    Proof& m_proof;
    const FramePlan& m_plan;
    const std::string& m_path;
    Totals& m_totals;
    std::unique_ptr<DiskWriter> m_writer;
    qm_dbframe m_frame;
    int64_t m_now_us = 1'000'000;
    uint64_t m_start = 0, m_stored = 0, m_appended = 0, m_busy = 0;
    uint64_t m_acknowledged = 0;
};

// A second attempt, when the memory is there again, must do.
bool Session::open() {
    for (int attempt = 0; attempt < 2 && !m_writer; ++attempt) {
        std::string why;
        const bool ended = watched(
            [&] { m_writer = DiskWriter::open(sim::real_file_system(), m_path, options(), why); });
        m_proof.check(!ended || m_writer || !why.empty(), "an open fails and does not say why");
        m_totals.opens_failed += !m_writer;
    }
    m_proof.check(m_writer || memory.for_ever, "the second open fails as well");
    return m_writer != nullptr;
}

void Session::record(int frames) {
    for (int i = 0; i < frames; ++i) {
        m_plan.make(2, m_writer->next_sequence(), m_frame);
        Outcome outcome = Outcome::busy;
        const bool ended = watched(
            [&] { outcome = m_writer->append(m_frame, PROOF_UTC_STEP_US, m_now_us += 1000); });
        m_proof.check(ended, "std::bad_alloc passes out of append");
        m_proof.check(outcome != Outcome::refused, "a frame is refused for ever");
        ++m_appended;
        m_stored += outcome == Outcome::stored;
        m_busy += outcome == Outcome::busy;
        if (outcome == Outcome::busy) m_now_us += WAIT_US;
        if (i % 7 == 6) commit();
    }
}

void Session::commit() {
    bool durable = false;
    m_proof.check(watched([&] { durable = m_writer->commit(m_now_us); }),
                  "std::bad_alloc passes out of commit");
    m_totals.commits_failed += !durable;
    if (!durable) {
        m_now_us += WAIT_US;
        m_proof.check(watched([&] { durable = m_writer->commit(m_now_us); }),
                      "std::bad_alloc passes out of the second commit");
        m_proof.check(durable || memory.for_ever, "the second commit fails as well: %s",
                      m_writer->trouble().c_str());
    }
    if (durable) m_acknowledged = m_writer->next_sequence();
    m_proof.check(m_acknowledged <= m_writer->durable_sequence(), "what was durable is not");
}

// A call of a reader is right or ends with std::bad_alloc, and does no harm to the next.
void Session::read() {
    std::unique_ptr<DiskReader> reader;
    for (int attempt = 0; attempt < 2 && !reader; ++attempt) {
        std::string why;
        const bool ended =
            watched([&] { reader = DiskReader::open(sim::real_file_system(), m_path, why); });
        m_totals.reader_throws += !ended;
        m_proof.check(!ended || reader || !why.empty(), "a reader's open does not say why");
    }
    m_proof.check(reader || memory.for_ever, "the second open of a reader fails as well");
    if (!reader) return;
    for (int round = 0; round < 2; ++round) {
        uint64_t first = 0, end = 0;
        if (!reader_call("first", watched([&] { first = reader->first(); })) ||
            !reader_call("end", watched([&] { end = reader->end(); })))
            continue;
        m_proof.check(end >= m_acknowledged && first < end,
                      "a reader sees %llu..%llu, %llu are "
                      "acknowledged",
                      ull(first), ull(end), ull(m_acknowledged));
        for (uint64_t n = first; n < end; n += 9) read_one(*reader, n);
        bool recorded = true;
        if (reader_call("recorded", watched([&] { recorded = reader->recorded(); })))
            m_proof.check(recorded, "a reader does not see that it is recorded");
    }
}

void Session::read_one(DiskReader& reader, uint64_t n) {
    qm_dbframe frame;
    bool there = true;
    uint32_t recorder = 0;
    uint64_t found = n, key = 0;
    if (reader_call("read", watched([&] { there = reader.read(n, frame); }))) {
        const std::string wrong = there ? m_plan.wrong(frame, n, recorder) : "not there";
        if (!m_proof.check(wrong.empty(), "frame %llu: %s", ull(n), wrong.c_str())) return;
        const int64_t time_us = frame.info.time_us;
        if (reader_call("at_time", watched([&] { found = reader.at_time(time_us); })))
            m_proof.check(found == n, "frame %llu is not found by its time but %llu", ull(n),
                          ull(found));
    }
    sim::FrameInfo info;
    if (reader_call("info", watched([&] { there = reader.info(n, info); })))
        m_proof.check(there && info.number == static_cast<uint32_t>(n), "info of %llu", ull(n));
    if (reader_call("next", watched([&] { found = reader.next(n); })))
        m_proof.check(found == n, "behind %llu comes %llu", ull(n), ull(found));
    if (reader_call("key_at_or_before", watched([&] {
                        there = reader.key_at_or_before(n, info.stream, info.channel, key);
                    })))
        m_proof.check(!there || key <= n, "a key frame before %llu is %llu", ull(n), ull(key));
    if (reader_call("key_after",
                    watched([&] { there = reader.key_after(n, info.stream, info.channel, key); })))
        m_proof.check(!there || key > n, "a key frame behind %llu is %llu", ull(n), ull(key));
}

void Session::finish() {
    bool written = false;
    m_proof.check(watched([&] { written = m_writer->finish(m_now_us); }),
                  "std::bad_alloc passes out of finish");
    const uint64_t lost = m_writer->lost();
    m_totals.lost += lost;
    m_proof.check(written == (lost == 0), "finish tells %d, lost are %llu", written, ull(lost));
    const uint64_t durable = m_writer->durable_sequence();
    m_proof.check(m_appended == m_stored + m_busy && durable - m_start + lost == m_stored,
                  "%llu appended, %llu stored, %llu busy, %llu durable, %llu lost", ull(m_appended),
                  ull(m_stored), ull(m_busy), ull(durable - m_start), ull(lost));
    m_proof.check(durable >= m_acknowledged, "acknowledged frames are lost");
    m_acknowledged = durable;
    m_totals.busy += m_busy;
}

void Session::run() {
    if (!open()) return;
    m_start = m_acknowledged = m_writer->next_sequence();
    record(40);
    read();
    record(100);
    commit();
    read();
    finish();
    memory.watched = true;
    m_writer.reset();
    memory.watched = false;
}

// ---- All places ---------------------------------------------------------------------------------

class Places {
  public:
    Places(Proof& proof, const std::string& folder)
        : m_proof(proof),
          m_plan(proof.seed(), FramePlan::LEAST_BYTES, 3000),
          m_origin(folder + "/origin"),
          m_copy(folder + "/copy"),
          m_path(m_copy + "/" + NAME) {}

    void make_origin();
    // The allocations of a session in which none fails.
    uint64_t count();
    void fail_at(uint64_t place, bool for_ever);
    const Totals& totals() const { return m_totals; }

  private:
    void run();
    void copy() {
        std::filesystem::remove_all(m_copy);
        std::filesystem::copy(m_origin, m_copy);
    }

    Proof& m_proof;
    const FramePlan m_plan;
    const std::string m_origin, m_copy, m_path;
    uint64_t m_end = 0;   // frames of the origin
    bool m_first = true;  // what is allocated once in the life of the process is not there yet
    Totals m_totals;
};

// A recorder that was killed in its third segment.
void Places::make_origin() {
    std::string why;
    const auto writer =
        DiskWriter::open(sim::real_file_system(), m_origin + "/" + NAME, options(), why);
    if (!m_proof.check(writer != nullptr, "cannot record: %s", why.c_str())) return;
    qm_dbframe frame;
    while (writer->segment() < 3 || m_end % 10 != 0) {
        m_plan.make(1, m_end++, frame);
        writer->append(frame, PROOF_UTC_STEP_US, 0);
    }
    m_proof.check(writer->commit(0), "cannot record: %s", writer->trouble().c_str());
}

void Places::run() {
    copy();
    const int64_t live = memory.live;
    const uint64_t files = open_files();
    uint64_t acknowledged = 0;
    {
        Session session(m_proof, m_plan, m_path, m_totals);
        session.run();
        acknowledged = std::max(m_end, session.acknowledged());
    }
    m_proof.check(memory.live == live || m_first, "%lld allocations are not freed",
                  static_cast<long long>(memory.live - live));
    m_proof.check(open_files() == files, "%llu files are still open", ull(open_files() - files));
    m_first = false;
    memory.fails_at = 0;
    read_back(m_proof, m_path, m_plan, acknowledged, 1);

    // The memory is back: the next recorder goes on.
    std::string why;
    const auto writer = DiskWriter::open(sim::real_file_system(), m_path, options(), why);
    if (!m_proof.check(writer != nullptr, "cannot record after it: %s", why.c_str())) return;
    m_proof.check(writer->next_sequence() >= acknowledged, "it goes on too early");
    qm_dbframe frame;
    for (int i = 0; i < 5; ++i) {
        m_plan.make(3, writer->next_sequence(), frame);
        m_proof.check(writer->append(frame, PROOF_UTC_STEP_US, 0) == Outcome::stored, "not stored");
    }
    m_proof.check(writer->finish(0), "cannot finish after it");
    read_back(m_proof, m_path, m_plan, writer->next_sequence(), 2);
}

uint64_t Places::count() {
    run();
    memory.watched_calls = 0;
    run();
    return memory.watched_calls;
}

void Places::fail_at(uint64_t place, bool for_ever) {
    memory.watched_calls = 0;
    memory.for_ever = for_ever;
    memory.fails_at = place;
    run();
    memory.for_ever = false;
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(
        argc, argv,
        "A session (open, recover, record, seal, read, seek, finish) in which every single\n"
        "allocation fails, once and from then on: no crash, no leak, no acknowledged frame\n"
        "lost, and later calls work again.",
        {{"place", "only the N-th allocation (all)"}});
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    const TempDir folder;
    Places places(proof, folder.path());
    places.make_origin();
    const uint64_t count = places.count();
    proof.check(count > 20, "only %llu allocations", ull(count));
    const uint64_t first = proof.given("place") ? proof.number("place") : 1;
    const uint64_t last = proof.given("place") ? first : count;
    for (uint64_t place = first; place <= last; ++place)
        for (const bool for_ever : {false, true}) {
            proof.at(proof.seed(), place);
            places.fail_at(place, for_ever);
        }
    const Totals& totals = places.totals();
    proof.covered("%llu allocations, each failed once and from then on", ull(last - first + 1));
    proof.covered(
        "%llu opens and %llu commits failed, %llu frames were not taken, %llu taken and "
        "lost, %llu calls of readers ended with std::bad_alloc",
        ull(totals.opens_failed), ull(totals.commits_failed), ull(totals.busy), ull(totals.lost),
        ull(totals.reader_throws));
    return proof.finish();
}
