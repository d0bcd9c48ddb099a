// Proves that every frame is accounted for over many turns of the ring, and that memory and open
// files do not grow with the turns.
#include <malloc.h>
#include <unistd.h>
#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/support/temp_dir.h"

namespace {

uint64_t held_bytes = 0;  // allocated and not freed, in the whole program; one thread

void* take(size_t size, size_t alignment) {
    void* place = nullptr;
    if (alignment == 0)
        place = malloc(size ? size : 1);
    else if (posix_memalign(&place, alignment, size) != 0)
        place = nullptr;
    if (!place) throw std::bad_alloc();
    held_bytes += malloc_usable_size(place);
    return place;
}

void give_back(void* place) noexcept {
    if (place) held_bytes -= malloc_usable_size(place);
    free(place);
}

}  // namespace

void* operator new(size_t size) { return take(size, 0); }
void* operator new[](size_t size) { return take(size, 0); }
void* operator new(size_t size, std::align_val_t alignment) {
    return take(size, static_cast<size_t>(alignment));
}
void operator delete(void* place) noexcept { give_back(place); }
void operator delete[](void* place) noexcept { give_back(place); }
void operator delete(void* place, size_t) noexcept { give_back(place); }
void operator delete[](void* place, size_t) noexcept { give_back(place); }
void operator delete(void* place, std::align_val_t) noexcept { give_back(place); }
void operator delete(void* place, size_t, std::align_val_t) noexcept { give_back(place); }

namespace {

using sim::DiskReader;
using sim::DiskWriter;

constexpr uint64_t SEGMENT_BYTES = 512 * 1024;
constexpr uint64_t RING_SEGMENTS = 8;
constexpr uint32_t MOST_BYTES = 240;              // of a usual frame
constexpr uint32_t LARGE_BYTES = 100'000;         // of one in 1000
constexpr uint32_t NEVER_FITS = 600'000;          // of one in 5000
constexpr int64_t FRAME_US = 100;                 // between two frames
constexpr uint64_t WARM_TURNS = 3;                // memory has its size then
constexpr uint64_t MOST_HELD_DRIFT = 256 * 1024;  // lists that are filled more or less
constexpr uint64_t MOST_DRIFT_BYTES = 8 << 20;    // and what the allocator keeps of freed memory
// A reader that follows keeps some files open and knows some records.
constexpr uint64_t READER_FILES = 64 + 2;
constexpr uint64_t READER_BYTES = 256 * 1024 * 48;

// A sanitizer keeps freed memory aside: resident memory says nothing about the program then.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#elif defined(__has_feature)
constexpr bool SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool SANITIZED = false;
#endif

uint64_t resident_bytes() {
    unsigned long long all = 0, resident = 0;
    FILE* file = fopen("/proc/self/statm", "re");
    if (!file) return 0;
    if (fscanf(file, "%llu %llu", &all, &resident) != 2) resident = 0;
    fclose(file);
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t open_files() {
    uint64_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

unsigned long long ull(uint64_t n) { return n; }

struct Range {
    uint64_t least = UINT64_MAX, most = 0;
    void add(uint64_t value) {
        least = std::min(least, value);
        most = std::max(most, value);
    }
};

class Books {
  public:
    Books(Proof& proof, const std::string& path) : m_proof(proof), m_path(path) {
        m_frame.reserve(NEVER_FITS);
        memset(m_frame.payload.get(), 0x5a, NEVER_FITS);
    }

    void record(uint64_t frames);

  private:
    void append_one();
    void end_turn(bool follow);
    void check_reader(DiskReader& reader);
    void check_books();
    void check_drift();
    void check_end(DiskWriter& writer);

    Proof& m_proof;
    const std::string m_path;
    ProofRandom m_random{m_proof.seed()};
    std::unique_ptr<DiskWriter> m_writer;
    std::unique_ptr<DiskReader> m_follower;  // in the second half
    qm_dbframe m_frame, m_read;
    int64_t m_now_us = 0;
    uint64_t m_appended = 0, m_stored = 0, m_refused = 0, m_busy = 0, m_never_fit = 0;
    uint64_t m_turns = 0, m_first = 0;
    Range m_held, m_memory, m_files;  // between turns
    Range m_follower_held, m_follower_memory,
        m_follower_files;  // the same with a reader that follows
};

// The sizes are drawn, the sequence number stands in front.
void Books::append_one() {
    const uint64_t draw = m_random.next();
    sim::FrameInfo& info = m_frame.info;
    info.bytes = 8 + static_cast<uint32_t>(draw % MOST_BYTES);
    if ((draw >> 20) % 1000 == 0) info.bytes = LARGE_BYTES;
    if ((draw >> 20) % 5000 == 1) info.bytes = NEVER_FITS;
    info.kind = (draw >> 40) % 30 == 0 ? sim::FrameKind::idr : sim::FrameKind::p;
    info.channel = static_cast<uint8_t>((draw >> 50) % QMCODEC_CHANNELS);
    info.number = static_cast<uint32_t>(m_appended);
    info.time_us = m_now_us += FRAME_US;
    const uint64_t sequence = m_writer->next_sequence();
    memcpy(m_frame.payload.get(), &sequence, sizeof sequence);
    const DiskWriter::Outcome outcome = m_writer->append(m_frame, PROOF_UTC_STEP_US, m_now_us);
    ++m_appended;
    m_never_fit += info.bytes == NEVER_FITS;
    m_stored += outcome == DiskWriter::Outcome::stored;
    m_refused += outcome == DiskWriter::Outcome::refused;
    m_busy += outcome == DiskWriter::Outcome::busy;
    m_writer->commit_if_due(m_now_us);
}

// A reader of its own each turn, and later one that follows.
void Books::end_turn(bool follow) {
    ++m_turns;
    std::string why;
    {
        const auto reader = DiskReader::open(sim::real_file_system(), m_path, why);
        if (!m_proof.check(reader != nullptr, "a reader cannot open it: %s", why.c_str())) return;
        check_reader(*reader);
    }
    if (follow && !m_follower) m_follower = DiskReader::open(sim::real_file_system(), m_path, why);
    if (m_follower) check_reader(*m_follower);
    check_books();
    if (m_turns <= WARM_TURNS) return;
    (m_follower ? m_follower_held : m_held).add(held_bytes);
    (m_follower ? m_follower_memory : m_memory).add(resident_bytes());
    (m_follower ? m_follower_files : m_files).add(open_files());
}

void Books::check_reader(DiskReader& reader) {
    const uint64_t first = reader.first(), end = reader.end();
    // Of the batch that is being written the recorder learns later than a reader.
    m_proof.check(first >= m_first && end > first && end >= m_writer->durable_sequence() &&
                      end <= m_writer->next_sequence(),
                  "after %llu turns a reader sees %llu..%llu, %llu are durable", ull(m_turns),
                  ull(first), ull(end), ull(m_writer->durable_sequence()));
    m_first = first;
    for (int i = 0; i < 20 && first < end; ++i) {
        const uint64_t n = m_random.between(first, end - 1);
        uint64_t written = 0;
        const bool there = reader.read(n, m_read);
        if (there) memcpy(&written, m_read.payload.get(), sizeof written);
        m_proof.check(there && written == n, "frame %llu is frame %llu", ull(n), ull(written));
    }
}

void Books::check_books() {
    m_proof.check(m_appended == m_stored + m_refused + m_busy && m_refused == m_never_fit &&
                      m_busy == 0 && m_writer->next_sequence() == m_stored,
                  "%llu appended, %llu stored, %llu refused, %llu busy, %llu never fit, %llu "
                  "numbers",
                  ull(m_appended), ull(m_stored), ull(m_refused), ull(m_busy), ull(m_never_fit),
                  ull(m_writer->next_sequence()));
}

void Books::check_drift() {
    m_proof.check(m_memory.most > 0 && m_follower_memory.most > 0,
                  "%llu turns are too few to see anything grow", ull(m_turns));
    m_proof.check(m_held.most - m_held.least <= MOST_HELD_DRIFT, "%llu to %llu bytes allocated",
                  ull(m_held.least), ull(m_held.most));
    m_proof.check(SANITIZED || m_memory.most - m_memory.least <= MOST_DRIFT_BYTES,
                  "%llu to %llu bytes of memory", ull(m_memory.least), ull(m_memory.most));
    m_proof.check(m_follower_held.most <= m_held.most + READER_BYTES,
                  "%llu bytes allocated with a reader that follows, %llu without",
                  ull(m_follower_held.most), ull(m_held.most));
    m_proof.check(m_files.most == m_files.least, "%llu to %llu open files", ull(m_files.least),
                  ull(m_files.most));
    m_proof.check(
        SANITIZED || m_follower_memory.most <= m_memory.most + READER_BYTES + MOST_DRIFT_BYTES,
        "%llu bytes of memory with a reader that follows, %llu without",
        ull(m_follower_memory.most), ull(m_memory.most));
    m_proof.check(m_follower_files.most <= m_files.most + READER_FILES,
                  "%llu open files with a reader that follows, %llu without",
                  ull(m_follower_files.most), ull(m_files.most));
}

void Books::record(uint64_t frames) {
    sim::WriterOptions options;
    options.own_thread = true;
    options.segment_bytes = SEGMENT_BYTES;
    options.ring_segments = RING_SEGMENTS;
    options.batch_bytes = 256 * 1024;
    std::string why;
    m_writer = DiskWriter::open(sim::real_file_system(), m_path, options, why);
    if (!m_proof.check(m_writer != nullptr, "cannot record: %s", why.c_str())) return;
    uint64_t next_turn = RING_SEGMENTS;
    while (m_appended < frames) {
        append_one();
        if (m_writer->segment() < next_turn) continue;
        next_turn += RING_SEGMENTS;
        end_turn(m_appended >= frames / 2);
    }
    check_drift();
    m_follower.reset();
    check_end(*m_writer);
    m_proof.covered("%llu frames in: %llu stored, %llu refused, %llu busy, %llu lost",
                    ull(m_appended), ull(m_stored), ull(m_refused), ull(m_busy),
                    ull(m_writer->lost()));
    m_proof.covered(
        "%llu turns of the ring; %llu to %llu KiB allocated, %llu to %llu KiB of memory, "
        "%llu to %llu open files",
        ull(m_turns), ull(m_held.least / 1024), ull(m_held.most / 1024), ull(m_memory.least / 1024),
        ull(m_memory.most / 1024), ull(m_files.least), ull(m_files.most));
    m_proof.covered(
        "with a reader that follows: %llu to %llu KiB allocated, %llu to %llu KiB of "
        "memory, %llu to %llu open files",
        ull(m_follower_held.least / 1024), ull(m_follower_held.most / 1024),
        ull(m_follower_memory.least / 1024), ull(m_follower_memory.most / 1024),
        ull(m_follower_files.least), ull(m_follower_files.most));
    m_writer.reset();
}

// What was stored and is not kept was given up by the ring; what is kept is counted.
void Books::check_end(DiskWriter& writer) {
    m_proof.check(writer.finish(m_now_us) && writer.lost() == 0, "%llu frames were lost",
                  ull(writer.lost()));
    std::string why;
    const auto reader = DiskReader::open(sim::real_file_system(), m_path, why);
    if (!m_proof.check(reader != nullptr, "a reader cannot open it: %s", why.c_str())) return;
    const uint64_t first = reader->first(), end = reader->end();
    m_proof.check(end == m_stored, "%llu were stored, it ends at %llu", ull(m_stored), ull(end));
    uint64_t kept = 0;
    qm_dbframe frame;
    for (uint64_t n = reader->next(first); n < end; n = reader->next(n + 1)) {
        uint64_t written = 0;
        if (!m_proof.check(reader->read(n, frame), "frame %llu cannot be read", ull(n))) break;
        memcpy(&written, frame.payload.get(), sizeof written);
        m_proof.check(written == n, "frame %llu is frame %llu", ull(n), ull(written));
        ++kept;
    }
    m_proof.check(kept == end - first, "%llu frames from %llu to %llu", ull(kept), ull(first),
                  ull(end));
    m_proof.covered("%llu frames given up by the ring, %llu kept and read", ull(first), ull(kept));
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(
        argc, argv,
        "Records over many turns of the ring: every frame is stored, refused or given up by\n"
        "the ring, and memory and open files stay as they are.",
        {{"frames", "to record (1000000, large 100000000)"}});
    const TempDir folder;
    // Fewer would not turn the ring often enough, in whatever build.
    const uint64_t least = proof.given("frames") ? 0 : 500'000;
    const uint64_t frames = proof.count("frames", 1'000'000, 100'000'000);
    Books(proof, folder.file("books.ini")).record(std::max(frames, least));
    return proof.finish();
}
