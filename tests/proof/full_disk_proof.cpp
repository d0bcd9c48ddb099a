// Proves that a full disk does not end a recording: the oldest frames go first, limits are kept,
// what belongs to others is left alone, and where no room is left at all that is said and made good
// later. The disks are small file systems that are really full.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "sdk/db/disk_writer.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/proof/read_back.h"
#include "tests/proof/small_disk.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace {

using sim::DiskReader;
using sim::DiskWriter;
using Outcome = DiskWriter::Outcome;

constexpr uint64_t SEGMENT_BYTES = sim::MIN_SEGMENT_BYTES;
constexpr int64_t FRAME_US = 2'000;         // between two frames
constexpr uint32_t NEVER_FITS = 70'000;     // bytes
constexpr uint64_t SMALL_FILES = 4 * 4096;  // .ini, lock, what is passing

struct Layout {
    SmallDisk::Kind kind;
    const char* name;
    uint64_t disk_bytes;
    uint64_t ring_segments;
    uint64_t room_left;  // by the foreign file
};

constexpr Layout LAYOUTS[] = {
    // clang-format off
    {SmallDisk::Kind::tmpfs, "tmpfs", 1 << 20, 8, 400 * 1024},
    {SmallDisk::Kind::tmpfs, "tmpfs, ring smaller than the room", 1 << 20, 4, 400 * 1024},
    {SmallDisk::Kind::ext4, "ext4", 8 << 20, 64, 1 << 20},
    // clang-format on
};

// One recorder and the books about it.
class Recorder {
  public:
    Recorder(Proof& proof, const FramePlan& plan, const std::string& path, uint64_t ring_segments,
             uint32_t number)
        : m_proof(proof), m_plan(plan), m_number(number) {
        sim::WriterOptions options;
        options.own_thread = true;
        options.segment_bytes = SEGMENT_BYTES;
        options.ring_segments = ring_segments;
        options.batch_bytes = 4 * sim::BLOCK_BYTES;
        std::string why;
        m_writer = DiskWriter::open(sim::real_file_system(), path, options, why);
        m_proof.check(m_writer != nullptr, "a recorder cannot open it: %s", why.c_str());
        if (m_writer) m_start = m_writer->next_sequence();
    }

    bool opened() const { return m_writer != nullptr; }
    DiskWriter& writer() { return *m_writer; }
    uint64_t busy() const { return m_busy; }
    uint64_t stored() const { return m_stored; }

    Outcome append() {
        m_now_us += FRAME_US;
        m_plan.make(m_number, m_writer->next_sequence(), m_frame);
        if (++m_appended % 97 == 0) {
            m_frame.info.bytes = NEVER_FITS;
            m_frame.reserve(NEVER_FITS);
        }
        const Outcome outcome = m_writer->append(m_frame, PROOF_UTC_STEP_US, m_now_us);
        m_stored += outcome == Outcome::stored;
        m_refused += outcome == Outcome::refused;
        m_busy += outcome == Outcome::busy;
        m_proof.check((outcome == Outcome::refused) == (m_frame.info.bytes == NEVER_FITS),
                      "a frame of %u bytes was %s", m_frame.info.bytes,
                      outcome == Outcome::refused ? "refused" : "taken");
        m_writer->commit_if_due(m_now_us);
        return outcome;
    }
    void wait(int64_t us) { m_now_us += us; }
    bool commit() { return m_writer->commit(m_now_us); }
    bool finish() { return m_writer->finish(m_now_us); }

    void check_books() {
        m_proof.check(m_appended == m_stored + m_refused + m_busy &&
                          m_writer->next_sequence() - m_start + m_writer->lost() == m_stored,
                      "%llu frames appended, %llu stored, %llu refused, %llu busy; %llu numbers",
                      ull(m_appended), ull(m_stored), ull(m_refused), ull(m_busy),
                      ull(m_writer->next_sequence() - m_start));
    }

    static unsigned long long ull(uint64_t n) { return n; }

  private:
    Proof& m_proof;
    const FramePlan& m_plan;
    const uint32_t m_number;
    std::unique_ptr<DiskWriter> m_writer;
    qm_dbframe m_frame;
    int64_t m_now_us = 1'000'000;
    uint64_t m_start = 0, m_appended = 0, m_stored = 0, m_refused = 0, m_busy = 0;
};

// One file system with a foreign file and a database.
class FullDisk {
  public:
    FullDisk(Proof& proof, const Layout& layout, const std::string& place)
        : m_proof(proof),
          m_layout(layout),
          m_plan(proof.seed(), FramePlan::LEAST_BYTES, 3000),
          m_disk(layout.kind, layout.disk_bytes, place) {}

    const std::string& trouble() const { return m_disk.trouble(); }

    void run(uint64_t frames) {
        m_foreign = std::make_unique<ForeignFile>(m_disk.path() + "/foreign");
        record_when_full(frames);
        record_when_room_is_taken();
        start_without_room();
        m_foreign.reset();
    }

  private:
    void record_when_full(uint64_t frames);
    void record_when_room_is_taken();
    void start_without_room();
    void end_without_room(const std::string& path);
    void check_limits(const std::string& path, uint64_t ring_segments);
    void remove_database(const std::string& path);
    void leave_room(uint64_t bytes) {
        m_foreign->shrink_to(0);
        const uint64_t room = m_disk.room();
        if (room > bytes) m_foreign->grow_to(room - bytes);
    }
    // But for the database's folder, which needs some on most file systems.
    void take_all_room(const std::string& path) {
        m_foreign->shrink_to(m_foreign->bytes() > SEGMENT_BYTES ? m_foreign->bytes() - SEGMENT_BYTES
                                                                : 0);
        std::filesystem::create_directory(std::filesystem::path(path).parent_path());
        m_foreign->grow_until_full();
    }
    std::string path(const char* name) const { return m_disk.path() + "/db/" + name; }

    Proof& m_proof;
    const Layout& m_layout;
    const FramePlan m_plan;
    SmallDisk m_disk;
    std::unique_ptr<ForeignFile> m_foreign;
};

void FullDisk::check_limits(const std::string& path, uint64_t ring_segments) {
    const std::filesystem::path ini = path;
    uint64_t bytes = 0, blocks = 0, segments = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ini.parent_path())) {
        const std::string name = entry.path().filename();
        struct stat file;
        if (stat(entry.path().c_str(), &file) != 0) continue;
        bytes += static_cast<uint64_t>(file.st_size);
        blocks += static_cast<uint64_t>(file.st_blocks) * 512;
        segments += sim::segment_number(ini.filename(), name) != 0;
    }
    const uint64_t limit = ring_segments * SEGMENT_BYTES + SMALL_FILES;
    m_proof.check(segments <= ring_segments && bytes <= limit && blocks <= limit,
                  "%llu segments, %llu bytes in %llu on the disk, the limit is %llu",
                  Recorder::ull(segments), Recorder::ull(bytes), Recorder::ull(blocks),
                  Recorder::ull(limit));
    m_proof.check(m_foreign->untouched_size(), "the foreign file has another size");
}

void FullDisk::remove_database(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(path).parent_path(), ignored);
}

// So little is left that the ring cannot reach its length, or just enough for it.
void FullDisk::record_when_full(uint64_t frames) {
    leave_room(m_layout.room_left);
    const std::string path = this->path("full.ini");
    Recorder recorder(m_proof, m_plan, path, m_layout.ring_segments, 1);
    if (!recorder.opened()) return;
    std::string why;
    std::unique_ptr<DiskReader> reader;
    uint64_t recorded = 0, since_full = 0, first = 0, dropped_steps = 0;
    while (since_full < frames && recorded < frames + 100'000) {
        const Outcome outcome = recorder.append();
        m_proof.check(outcome != Outcome::busy && !recorder.writer().failing(),
                      "recording stands still: %s", recorder.writer().trouble().c_str());
        ++recorded;
        since_full += first > 0;
        if (recorded % 100 != 0) continue;
        if (!reader) reader = DiskReader::open(sim::real_file_system(), path, why);
        // Of the batch that is being written the recorder learns later than a reader.
        const uint64_t durable = recorder.writer().durable_sequence();
        const uint64_t next = recorder.writer().next_sequence();
        // A segment whose number is not the next one is found in the folder, now and then, and the
        // more rarely the slower the disk is.
        comes_true([&] { return !reader || reader->end() >= durable; });
        if (reader)
            m_proof.check(durable <= reader->end() && reader->end() <= next,
                          "a reader sees the end at %llu, not from %llu to %llu",
                          Recorder::ull(reader->end()), Recorder::ull(durable),
                          Recorder::ull(next));
        const uint64_t now_first = reader ? reader->first() : 0;
        m_proof.check(now_first >= first, "the first frame was %llu and is %llu",
                      Recorder::ull(first), Recorder::ull(now_first));
        dropped_steps += now_first > first;
        first = now_first;
        check_limits(path, m_layout.ring_segments);
    }
    m_proof.check(since_full >= frames, "the disk was not full after %llu frames",
                  Recorder::ull(recorded));
    m_proof.check(m_foreign->untouched(), "the foreign file was changed");
    m_proof.check(recorder.finish() && recorder.writer().lost() == 0, "the finish fails: %s",
                  recorder.writer().trouble().c_str());
    recorder.check_books();
    const ReadBack back = read_back(m_proof, path, m_plan, recorder.writer().next_sequence(), 1);
    m_proof.check(back.end > back.first, "nothing is left");
    m_proof.covered(
        "%s: %llu frames, %llu of them when full; the oldest gave way %llu times; %llu "
        "are left, %llu KiB were free at the end",
        m_layout.name, Recorder::ull(recorded), Recorder::ull(since_full),
        Recorder::ull(dropped_steps), Recorder::ull(back.end - back.first),
        Recorder::ull(m_disk.room() / 1024));
    remove_database(path);
}

// The foreign file takes all that is left while the ring is still growing: the database goes on in
// what it has.
void FullDisk::record_when_room_is_taken() {
    leave_room(m_layout.room_left);
    const std::string path = this->path("taken.ini");
    Recorder recorder(m_proof, m_plan, path, m_layout.ring_segments, 1);
    if (!recorder.opened()) return;
    while (recorder.writer().segment() < 3) recorder.append();
    recorder.commit();
    m_foreign->grow_until_full();
    for (int i = 0; i < 3000; ++i) {
        const Outcome outcome = recorder.append();
        m_proof.check(outcome != Outcome::busy, "recording stands still: %s",
                      recorder.writer().trouble().c_str());
        m_foreign->grow_until_full();
        if (i % 100 == 0) check_limits(path, m_layout.ring_segments);
    }
    m_proof.check(recorder.finish(), "the finish fails: %s", recorder.writer().trouble().c_str());
    recorder.check_books();
    const ReadBack back = read_back(m_proof, path, m_plan, recorder.writer().next_sequence(), 2);
    m_proof.check(back.end > back.first, "nothing is left");
    m_proof.check(m_foreign->untouched(), "the foreign file was changed");
    m_proof.covered("%s: all room taken while 3 segments are there: %llu frames are left",
                    m_layout.name, Recorder::ull(back.end - back.first));
    remove_database(path);
}

// A new database where nothing is free: said, and when there is room again it goes on by itself.
void FullDisk::start_without_room() {
    const std::string path = this->path("none.ini");
    take_all_room(path);
    Recorder recorder(m_proof, m_plan, path, m_layout.ring_segments, 1);
    if (!recorder.opened()) return;
    for (int i = 0; i < 1000; ++i) recorder.append();
    m_proof.check(recorder.busy() > 0 && recorder.writer().durable_sequence() == 0,
                  "%llu frames are durable where there is no room",
                  Recorder::ull(recorder.writer().durable_sequence()));
    m_proof.check(recorder.writer().failing(), "nothing is written, and it does not say so");
    m_proof.check(!recorder.writer().trouble().empty(), "it does not say why");
    const std::string trouble = recorder.writer().trouble();
    recorder.check_books();

    m_foreign->shrink_to(m_foreign->bytes() - 3 * SEGMENT_BYTES);
    const uint64_t busy = recorder.busy();
    recorder.wait(2'000'000);
    for (int i = 0; i < 500; ++i) recorder.append();
    m_proof.check(recorder.busy() == busy, "%llu frames were not taken when there was room again",
                  Recorder::ull(recorder.busy() - busy));
    m_proof.check(recorder.commit() && !recorder.writer().failing(), "still: %s",
                  recorder.writer().trouble().c_str());
    m_proof.check(recorder.finish() && recorder.writer().lost() == 0, "frames were lost");
    recorder.check_books();
    read_back(m_proof, path, m_plan, recorder.writer().next_sequence(), 3);
    m_proof.check(m_foreign->untouched(), "the foreign file was changed");
    m_proof.covered("%s: begun without room: %llu frames not taken, then it goes on (\"%s\")",
                    m_layout.name, Recorder::ull(busy), trouble.c_str());
    remove_database(path);
    end_without_room(this->path("end.ini"));
}

// The recording ends before there is room: what was taken is counted as lost.
void FullDisk::end_without_room(const std::string& path) {
    take_all_room(path);
    Recorder recorder(m_proof, m_plan, path, m_layout.ring_segments, 1);
    if (!recorder.opened()) return;
    for (int i = 0; i < 100; ++i) recorder.append();
    m_proof.check(!recorder.finish(), "a finish without room says nothing");
    m_proof.check(
        recorder.writer().lost() == recorder.stored() && recorder.writer().durable_sequence() == 0,
        "%llu of %llu frames are counted as lost, %llu as durable",
        Recorder::ull(recorder.writer().lost()), Recorder::ull(recorder.stored()),
        Recorder::ull(recorder.writer().durable_sequence()));
    recorder.check_books();
    remove_database(path);
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "Records on small file systems that are full: recording goes on, the oldest goes\n"
                "first, limits are kept, foreign files are untouched; without any room it says so\n"
                "and goes on when there is room again. Needs the right to mount.",
                {{"frames", "recorded after a disk is full (10000, large 1000000)"}});
    const uint64_t frames = proof.count("frames", 10'000, 1'000'000);
    std::string why;
    if (!own_mounts(why)) {
        proof.skipped(why.c_str());
        return proof.finish();
    }
    const TempDir place;
    for (const Layout& layout : LAYOUTS) {
        FullDisk disk(proof, layout, place.path());
        if (disk.trouble().empty())
            disk.run(frames);
        else
            proof.skipped(disk.trouble().c_str());
    }
    return proof.finish();
}
