// Proves that opening a database reads next to nothing of it, however many segments it has: what a
// reader and a recorder read is counted, over segments made by hand.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <vector>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "tests/proof/pass_files.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/support/temp_dir.h"

namespace {

using sim::DiskReader;
using sim::DiskWriter;

constexpr char NAME[] = "many.ini";
constexpr uint64_t SEGMENT_BYTES = sim::MIN_SEGMENT_BYTES;
constexpr uint64_t FRAMES = 3;  // a segment
constexpr uint64_t MOST_BYTES = 2 << 20;

unsigned long long ull(uint64_t n) { return n; }

// Counts what is read, that of one file apart.
class CountingFiles : public PassFiles {
  public:
    explicit CountingFiles(const std::string& apart) : m_apart(apart) {}

    int open(int folder, const std::string& name, Access access) override {
        const int file = PassFiles::open(folder, name, access);
        if (file < 0) return file;
        ++opens;
        m_files.erase(file);
        if (name == m_apart) m_files.insert(file);
        return file;
    }
    int64_t read(int file, void* out, size_t size, uint64_t offset) override {
        const int64_t got = PassFiles::read(file, out, size, offset);
        if (got > 0) (m_files.count(file) ? bytes_apart : bytes) += static_cast<uint64_t>(got);
        return got;
    }

    uint64_t opens = 0, bytes = 0, bytes_apart = 0;

  private:
    const std::string m_apart;
    std::set<int> m_files;
};

// A database of many small finished segments, as a recorder leaves them.
class Database {
  public:
    Database(Proof& proof, const std::string& folder, uint64_t segments)
        : m_proof(proof),
          m_plan(proof.seed(), FramePlan::LEAST_BYTES, 300),
          m_folder(folder),
          m_segments(segments) {
        fill(m_identity, 1);
    }

    bool make();
    void open_all();

  private:
    static void fill(sim::Identity& identity, uint8_t byte) {
        for (uint8_t& it : identity.bytes) it = byte++;
    }
    std::string path() const { return m_folder + "/" + NAME; }
    bool write_file(const std::string& name, const void* data, size_t size, uint64_t length) const;
    bool write_segment(uint64_t number, bool finished) const;
    bool write_ini(uint8_t identity) const;
    void open_reader(const char* what);
    void open_writer(const char* what, bool finish);
    void check_count(const char* who, const char* what, const CountingFiles& files,
                     int64_t took_us);
    void check_frame(DiskReader& reader, uint64_t n) const;
    uint64_t end() const { return m_segments * FRAMES; }

    Proof& m_proof;
    const FramePlan m_plan;
    const std::string m_folder;
    const uint64_t m_segments;
    sim::Identity m_identity;
};

bool Database::write_file(const std::string& name, const void* data, size_t size,
                          uint64_t length) const {
    const std::string whole = m_folder + "/" + name;
    const int file = open(whole.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (file < 0) return false;
    const bool written = write(file, data, size) == static_cast<ssize_t>(size) &&
                         ftruncate(file, static_cast<off_t>(length)) == 0;
    close(file);
    return written;
}

bool Database::write_ini(uint8_t identity) const {
    sim::DatabaseIni ini;
    fill(ini.identity, identity);
    ini.segment_bytes = SEGMENT_BYTES;
    ini.ring_segments = m_segments;
    const std::string text = sim::ini_text(ini);
    return write_file(NAME, text.data(), text.size(), text.size());
}

// Header, one batch of frames and a pad, and with `finished` the directory; unfinished, the rest of
// its length is zeros.
bool Database::write_segment(uint64_t number, bool finished) const {
    constexpr uint64_t END = sim::SEGMENT_START + sim::BLOCK_BYTES;
    static_assert(FRAMES * 400 + 400 < sim::BLOCK_BYTES);
    std::vector<uint8_t> bytes(END);
    sim::SegmentHeader header;
    header.database = m_identity;
    header.identity = number * 0x9e3779b97f4a7c15;
    header.number = number;
    header.bytes = SEGMENT_BYTES;
    header.first_sequence = (number - 1) * FRAMES;
    header.utc_us = FramePlan::utc_us(1, header.first_sequence);
    header.mono_us = header.utc_us - PROOF_UTC_STEP_US;
    header.latest_utc_us =
        number == 1 ? INT64_MIN : FramePlan::utc_us(1, header.first_sequence - 1);
    header.run = 1;
    sim::write_segment_header(header, bytes.data());

    uint64_t at = sim::SEGMENT_START;
    std::vector<sim::DirectoryEntry> entries;
    sim::RecordHeader record;
    qm_dbframe frame;
    for (uint64_t i = 0; i < FRAMES; ++i) {
        record = sim::RecordHeader();
        record.sequence = header.first_sequence + i;
        m_plan.make(1, record.sequence, frame);
        record.bytes = frame.info.bytes;
        record.kind = static_cast<uint8_t>(frame.info.kind);
        record.stream = frame.info.stream;
        record.channel = frame.info.channel;
        record.flags = i == 0 ? uint8_t{sim::FLAG_FIRST_OF_BATCH} : uint8_t{0};
        record.frame_number = frame.info.number;
        record.utc_us = frame.info.time_us + PROOF_UTC_STEP_US;
        record.mono_us = frame.info.time_us;
        record.run = header.run;
        memcpy(&bytes[at + sim::RECORD_BYTES], frame.payload.get(), frame.info.bytes);
        sim::seal_record(record, header.seed(), &bytes[at]);
        entries.push_back({record.utc_us, static_cast<uint32_t>(at / 8), record.kind, record.stream,
                           record.channel});
        at += record.total_bytes();
    }
    record.flags = 0;
    ++record.sequence;
    const uint64_t directory = sim::RECORD_BYTES + sim::directory_bytes(FRAMES);
    const uint64_t pad_end = finished ? END - directory : END;
    record.kind = sim::RECORD_PAD;
    record.bytes = static_cast<uint32_t>(pad_end - at - sim::RECORD_BYTES);
    sim::seal_record(record, header.seed(), &bytes[at]);
    if (finished) {
        uint8_t* out = &bytes[pad_end + sim::RECORD_BYTES];
        for (const sim::DirectoryEntry& entry : entries) {
            sim::write_entry(entry, out);
            out += sim::ENTRY_BYTES;
        }
        sim::write_tail(FRAMES, pad_end, out);
        record.kind = sim::RECORD_DIRECTORY;
        record.bytes = static_cast<uint32_t>(sim::directory_bytes(FRAMES));
        sim::seal_record(record, header.seed(), &bytes[pad_end]);
    }
    return write_file(sim::segment_name(NAME, number), bytes.data(), bytes.size(),
                      finished ? END : SEGMENT_BYTES);
}

bool Database::make() {
    bool made = write_ini(1);
    for (uint64_t number = 1; made && number <= m_segments; ++number)
        made = write_segment(number, true);
    return m_proof.check(made, "the database cannot be made");
}

void Database::check_count(const char* who, const char* what, const CountingFiles& files,
                           int64_t took_us) {
    m_proof.check(files.bytes <= MOST_BYTES, "%s, %s: %llu bytes read", who, what,
                  ull(files.bytes));
    m_proof.check(files.bytes_apart <= 2 * SEGMENT_BYTES,
                  "%s, %s: %llu bytes of the newest segment", who, what, ull(files.bytes_apart));
    m_proof.covered(
        "%s, %s: %llu bytes of the newest segment, %llu beyond, %llu files opened, %.1f "
        "ms",
        who, what, ull(files.bytes_apart), ull(files.bytes), ull(files.opens),
        static_cast<double>(took_us) / 1000);
}

void Database::check_frame(DiskReader& reader, uint64_t n) const {
    qm_dbframe frame;
    uint32_t recorder = 0;
    const bool there = reader.read(n, frame);
    const std::string wrong = there ? m_plan.wrong(frame, n, recorder) : "not there";
    m_proof.check(wrong.empty(), "frame %llu: %s", ull(n), wrong.c_str());
}

void Database::open_reader(const char* what) {
    CountingFiles files(sim::segment_name(NAME, m_segments));
    std::string why;
    const int64_t start = steady_us();
    const auto reader = DiskReader::open(files, path(), why);
    const int64_t took = steady_us() - start;
    if (!m_proof.check(reader != nullptr, "a reader, %s: %s", what, why.c_str())) return;
    check_count("reader", what, files, took);
    m_proof.check(reader->first() == 0 && reader->end() == end(), "%s: it is %llu..%llu", what,
                  ull(reader->first()), ull(reader->end()));
    const uint64_t before = files.bytes;
    ProofRandom random(m_proof.seed());
    constexpr uint64_t LOOKED_AT = 10;
    for (uint64_t i = 0; i < LOOKED_AT; ++i) {
        const uint64_t n = random.below(end());
        m_proof.check(reader->at_time(FramePlan::utc_us(1, n)) == n, "%s: %llu by its time", what,
                      ull(n));
        check_frame(*reader, n);
    }
    check_frame(*reader, 0);
    check_frame(*reader, end() - 1);
    m_proof.covered("reader, %s: %llu searches by time, and the frames: %llu bytes", what,
                    ull(LOOKED_AT), ull(files.bytes - before));
}

void Database::open_writer(const char* what, bool finish) {
    CountingFiles files(sim::segment_name(NAME, m_segments));
    sim::WriterOptions options;
    options.segment_bytes = SEGMENT_BYTES;
    options.ring_segments = m_segments + 1;
    std::string why;
    const int64_t start = steady_us();
    const auto writer = DiskWriter::open(files, path(), options, why);
    const int64_t took = steady_us() - start;
    if (!m_proof.check(writer != nullptr, "a recorder, %s: %s", what, why.c_str())) return;
    check_count("recorder", what, files, took);
    m_proof.check(writer->next_sequence() == end(), "%s: it goes on with %llu", what,
                  ull(writer->next_sequence()));
    if (!finish) return;
    qm_dbframe frame;
    m_plan.make(2, end(), frame);
    m_proof.check(writer->append(frame, PROOF_UTC_STEP_US, 0) == DiskWriter::Outcome::stored &&
                      writer->finish(0),
                  "%s: cannot record", what);
    const auto reader = DiskReader::open(sim::real_file_system(), path(), why);
    m_proof.check(reader && reader->end() == end() + 1, "%s: the frame is not there", what);
    if (reader) check_frame(*reader, end());
}

void Database::open_all() {
    const auto both = [&](const char* what) {
        open_reader(what);
        open_writer(what, false);
    };
    both("as it was finished");
    m_proof.check(write_ini(101), "cannot write");
    both("with another database's .ini");
    std::filesystem::remove(path());
    both("without .ini");
    m_proof.check(write_ini(1) && write_segment(m_segments, false), "cannot write");
    both("after a kill");
    open_writer("after a kill, recording", true);
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(
        argc, argv,
        "Opens a database of very many segments, and counts the bytes that are read: 2 MiB\n"
        "beyond the newest segment at most.",
        {{"segments", "how many (10000, large 100000)"}});
    const TempDir folder;
    Database database(proof, folder.path(), proof.count("segments", 10'000, 100'000));
    if (database.make()) database.open_all();
    return proof.finish();
}
