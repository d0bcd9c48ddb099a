// Damaged databases: every single bit, random damage, every cut, lost and swapped .ini files and
// directories. What is damaged is found, and no reader is handed a frame that was not recorded.
// What interruptions leave stands in power_loss_proof.
#include <algorithm>
#include <atomic>
#include <thread>

#include "sdk/db/check.h"
#include "sdk/db/crc32c.h"
#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "tests/proof/memory_files.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace {

using sim::BLOCK_BYTES;
using sim::SEGMENT_START;
using Bytes = MemoryFiles::Bytes;

const std::string NAME = "db.ini";
const std::string PATH = "folder/" + NAME;
constexpr uint64_t SEGMENT_BYTES = sim::MIN_SEGMENT_BYTES;

struct Place {
    uint64_t offset;
    uint64_t end;
    sim::RecordHeader header;
};

// A database of finished segments, and what is where in it.
struct Sample {
    MemoryFiles::Folder folder;
    uint64_t frames = 0;
    bool ended = false;  // the recording did, in the last segment; else it was killed behind it
    std::vector<std::vector<Place>> records;  // of the segment with number index + 1

    uint64_t bytes() const {
        uint64_t all = 0;
        for (const auto& [name, content] : folder)
            if (sim::segment_number(NAME, name) != 0) all += content.size();
        return all;
    }
    const Bytes& segment(uint64_t number) const {
        return folder.at(sim::segment_name(NAME, number));
    }
    uint32_t seed(uint64_t number) const {
        sim::SegmentHeader header;
        return sim::read_segment_header(segment(number).data(), header) ? header.seed() : 0;
    }
};

// The records of a finished segment that is whole, one behind the other.
std::vector<Place> places_of(const Bytes& segment) {
    std::vector<Place> places;
    sim::SegmentHeader header;
    sim::read_segment_header(segment.data(), header);
    for (uint64_t offset = SEGMENT_START; offset < segment.size();) {
        Place place{offset, 0, {}};
        if (!sim::read_record_header(segment.data() + offset, header.seed(), place.header)) break;
        place.end = offset = offset + place.header.total_bytes();
        places.push_back(place);
    }
    return places;
}

// `segments` full ones; with `cut` one more that ends with the recording.
Sample record(const FramePlan& plan, uint64_t segments, bool cut) {
    MemoryFiles files;
    std::string why;
    sim::WriterOptions options;
    options.segment_bytes = SEGMENT_BYTES;
    options.batch_bytes = 3 * BLOCK_BYTES;
    auto writer = sim::DiskWriter::open(files, PATH, options, why);
    Sample sample;
    qm_dbframe frame;
    const uint64_t further = cut ? 30 : 0;
    uint64_t behind = 0;
    while (behind <= further) {
        plan.make(1, writer->next_sequence(), frame);
        writer->append(frame, PROOF_UTC_STEP_US, 0);
        if (writer->segment() > segments) ++behind;
    }
    if (cut) writer->finish(0);
    sample.ended = cut;
    sample.frames = writer->durable_sequence();
    writer.reset();
    sample.folder = files.copy();
    sample.folder.erase(sim::lock_name(NAME));
    for (uint64_t number = 1; sample.folder.count(sim::segment_name(NAME, number)); ++number)
        sample.records.push_back(places_of(sample.segment(number)));
    return sample;
}

sim::Verified verify(MemoryFiles& files, bool quick = false) {
    std::string why;
    const auto view = sim::DatabaseView::open(files, PATH, why);
    if (!view) {
        sim::Verified refused;
        refused.findings = 1;
        return refused;
    }
    return sim::verify(*view, quick, {}, {});
}

struct ReadBack {
    std::vector<uint64_t> sequences;
    uint64_t wrong = 0;
};

ReadBack read_all(MemoryFiles& files, const FramePlan& plan) {
    ReadBack back;
    std::string why;
    const auto reader = sim::DiskReader::open(files, PATH, why);
    if (!reader) return back;
    static qm_dbframe frame;
    for (uint64_t n = reader->next(reader->first()); n < reader->end(); n = reader->next(n + 1)) {
        uint32_t recorder = 0;
        if (!reader->read(n, frame)) continue;
        if (!plan.wrong(frame, n, recorder).empty()) ++back.wrong;
        back.sequences.push_back(n);
    }
    return back;
}

// Findings, or notes that a whole database does not have.
uint64_t told(const sim::Verified& verified) { return verified.findings + verified.notes; }

bool all_back(const ReadBack& back, uint64_t frames) {
    return back.wrong == 0 && back.sequences.size() == frames &&
           (frames == 0 || back.sequences.back() == frames - 1);
}

// What is back are the first frames, and no frame of a segment that another follows is missing: the
// database looks like that of a recorder that was killed earlier.
bool looks_killed(const ReadBack& back, const Sample& sample) {
    uint64_t before_newest = sample.frames;
    for (const Place& place : sample.records.back())
        before_newest -= place.header.is_frame() ? 1 : 0;
    const uint64_t count = back.sequences.size();
    return count >= before_newest && (count == 0 || back.sequences.back() == count - 1);
}

// --- every single bit -----------------------------------------------------------------------

// As the scan of a segment sees a record.
bool record_whole(const Bytes& segment, const Place& place, uint32_t seed) {
    const uint8_t* bytes = segment.data() + place.offset;
    sim::RecordHeader header;
    if (!sim::read_record_header(bytes, seed, header) ||
        header.total_bytes() > segment.size() - place.offset)
        return false;
    const auto filled = static_cast<size_t>(header.total_bytes()) - sim::RECORD_BYTES;
    return sim::crc32c(sim::record_crc_start(bytes, seed), bytes + sim::RECORD_BYTES, filled) ==
           header.crc;
}

// Flips every bit of [from, end), with `whole` in between. Returns how many it did not see.
template <class Whole>
uint64_t flip_all(Bytes& bytes, uint64_t from, uint64_t end, const Whole& whole) {
    uint64_t unseen = 0;
    for (uint64_t at = from; at < end; ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            const auto mask = static_cast<uint8_t>(1u << bit);
            bytes[at] ^= mask;
            unseen += whole() ? 1 : 0;
            bytes[at] ^= mask;
        }
    }
    return unseen;
}

void every_bit_by_parts(Proof& proof, const Sample& sample) {
    uint64_t bits = 0, unseen = 0, parts = 0;
    for (uint64_t number = 1; number <= sample.records.size(); ++number) {
        Bytes segment = sample.segment(number);
        const auto headers_whole = [&] {
            return sim::look_at_headers(segment.data(), number).whole();
        };
        proof.check(headers_whole(), "the headers of segment %d are whole", int(number));
        unseen += flip_all(segment, 0, SEGMENT_START, headers_whole);
        uint64_t covered = SEGMENT_START;
        const uint32_t seed = sample.seed(number);
        for (const Place& place : sample.records[number - 1]) {
            const auto whole = [&] { return record_whole(segment, place, seed); };
            proof.check(whole(), "the record at %d is whole", int(place.offset));
            proof.check(place.offset == covered, "records follow each other");
            unseen += flip_all(segment, place.offset, place.end, whole);
            covered = place.end;
            ++parts;
        }
        proof.check(covered == segment.size(), "the records reach the end of the file");
        bits += covered * 8;
    }
    if (proof.check(unseen == 0, "%llu bits flipped unseen", 1ull * unseen)) proof.passed(bits);
    proof.covered(
        "every bit: %llu flips, each looked at by the functions that verify looks at a header or a "
        "record with (%llu records in %llu segments)",
        1ull * bits, 1ull * parts, 1ull * sample.records.size());
}

// Whole runs of verify, and of a reader, on a flipped bit.
void flip_and_verify(Proof& proof, const Sample& sample, const FramePlan& plan, MemoryFiles& files,
                     uint64_t number, uint64_t at, unsigned bit) {
    const auto mask = static_cast<uint8_t>(1u << bit);
    Bytes& bytes = files.bytes(sim::segment_name(NAME, number));
    bytes[at] ^= mask;
    proof.check(verify(files).findings > 0, "verify finds bit %u of byte %d in segment %d", bit,
                int(at), int(number));
    const ReadBack back = read_all(files, plan);
    proof.check(back.wrong == 0, "no wrong frame with bit %u of byte %d in segment %d flipped", bit,
                int(at), int(number));
    proof.check(back.sequences.size() + 64 >= sample.frames, "one batch at most is lost");
    bytes[at] ^= mask;
}

void bits_by_verify(Proof& proof, const Sample& sample, const FramePlan& plan, uint64_t samples) {
    MemoryFiles files;
    files.put(sample.folder);
    proof.check(verify(files).findings == 0, "the whole database is found whole");
    ProofRandom random(proof.seed());
    uint64_t runs = 0;
    for (uint64_t number = 1; number <= sample.records.size(); ++number) {
        for (const Place& place : sample.records[number - 1]) {
            proof.at(proof.seed(), runs++);
            flip_and_verify(proof, sample, plan, files, number,
                            random.between(place.offset, place.end - 1),
                            static_cast<unsigned>(random.below(8)));
        }
    }
    for (uint64_t i = 0; i < samples; ++i) {
        proof.at(proof.seed(), runs++);
        const uint64_t number = random.between(1, sample.records.size());
        flip_and_verify(proof, sample, plan, files, number,
                        random.below(sample.segment(number).size()),
                        static_cast<unsigned>(random.below(8)));
    }
    proof.covered(
        "of these, one of every record and %llu at random by a complete verify and a "
        "complete reading",
        1ull * samples);
}

// --large: every bit by a complete verify of a database of the touched segment and the next one.
void every_bit_by_verify(Proof& proof, const Sample& sample) {
    uint64_t unseen = 0, bits = 0;
    for (uint64_t number = 1; number <= sample.records.size(); ++number) {
        MemoryFiles files;
        const std::string name = sim::segment_name(NAME, number);
        files.put(NAME, sample.folder.at(NAME));
        files.put(name, sample.segment(number));
        if (number < sample.records.size())
            files.put(sim::segment_name(NAME, number + 1), sample.segment(number + 1));
        Bytes& bytes = files.bytes(name);
        proof.check(told(verify(files)) == 0, "segment %d is whole", int(number));
        unseen += flip_all(bytes, 0, bytes.size(), [&] { return verify(files).findings == 0; });
        bits += bytes.size() * 8;
    }
    if (proof.check(unseen == 0, "%llu bits flipped unseen", 1ull * unseen)) proof.passed(bits);
    proof.covered("every bit: %llu flips, each by a complete verify of the segment and the next",
                  1ull * bits);
}

// --- random damage --------------------------------------------------------------------------

class Damage {
  public:
    Damage(const Sample& sample, MemoryFiles& files) : m_sample(sample), m_files(files) {
        for (const auto& [name, bytes] : sample.folder) m_names.push_back(name);
    }

    // Damages one or two files. False when all bytes are as they were.
    bool strike(ProofRandom& random) {
        m_touched.clear();
        switch (random.below(3)) {
            case 0: overwrite(random); break;
            case 1: swap_blocks(random); break;
            default: zero(random); break;
        }
        return std::any_of(m_touched.begin(), m_touched.end(), [&](const std::string& name) {
            return m_files.bytes(name) != m_sample.folder.at(name);
        });
    }
    void heal() {
        for (const std::string& name : m_touched) m_files.bytes(name) = m_sample.folder.at(name);
    }

  private:
    Bytes& pick(ProofRandom& random) {
        m_touched.push_back(m_names[random.below(m_names.size())]);
        return m_files.bytes(m_touched.back());
    }
    void overwrite(ProofRandom& random) {
        Bytes& bytes = pick(random);
        const uint64_t size = std::min<uint64_t>(random.between(1, 64), bytes.size());
        const uint64_t start = random.below(bytes.size() - size + 1);
        for (uint64_t i = 0; i < size; ++i) bytes[start + i] = static_cast<uint8_t>(random.next());
    }
    void zero(ProofRandom& random) {
        Bytes& bytes = pick(random);
        const uint64_t size = std::min<uint64_t>(random.between(1, 16384), bytes.size());
        const uint64_t start = random.below(bytes.size() - size + 1);
        std::fill_n(bytes.begin() + static_cast<int64_t>(start), size, uint8_t{0});
    }
    void swap_blocks(ProofRandom& random) {
        Bytes& a = pick(random);
        Bytes& b = pick(random);
        if (a.size() < BLOCK_BYTES || b.size() < BLOCK_BYTES) return;
        uint8_t* one = a.data() + random.below(a.size() / BLOCK_BYTES) * BLOCK_BYTES;
        uint8_t* other = b.data() + random.below(b.size() / BLOCK_BYTES) * BLOCK_BYTES;
        if (one != other) std::swap_ranges(one, one + BLOCK_BYTES, other);
    }

    const Sample& m_sample;
    MemoryFiles& m_files;
    std::vector<std::string> m_names;
    std::vector<std::string> m_touched;
};

void random_damage(Proof& proof, const Sample& sample, const FramePlan& plan, uint64_t count,
                   const char* what) {
    MemoryFiles files;
    files.put(sample.folder);
    Damage damage(sample, files);
    proof.check(told(verify(files)) == 0, "whole before: %s", what);
    uint64_t unchanged = 0, noted = 0, untold = 0, killed = 0;
    for (uint64_t i = 0; i < count; ++i) {
        proof.at(proof.seed(), i);
        ProofRandom random(proof.seed() * 0x9e3779b97f4a7c15 + i);
        const bool changed = damage.strike(random);
        const sim::Verified verified = verify(files);
        const ReadBack back = read_all(files, plan);
        const bool kept = all_back(back, sample.frames);
        unchanged += changed ? 0 : 1;
        noted += verified.findings == 0 && verified.notes > 0 ? 1 : 0;
        untold += changed && kept && told(verified) == 0 ? 1 : 0;
        const bool like_killed =
            !sample.ended && !kept && verified.findings == 0 && looks_killed(back, sample);
        killed += like_killed ? 1 : 0;
        proof.check(changed ? verified.findings > 0 || kept || like_killed : told(verified) == 0,
                    "damage %d of %s: %llu findings, %d of %d frames", int(i), what,
                    1ull * verified.findings, int(back.sequences.size()), int(sample.frames));
        proof.check(back.wrong == 0, "damage %d of %s: %llu wrong frames", int(i), what,
                    1ull * back.wrong);
        damage.heal();
    }
    proof.covered(
        "random damage of %s: %llu (1 to 64 bytes, swapped blocks, zeros); %llu changed no byte; "
        "%llu are told as notes only, %llu not at all with all frames back, %llu took the end of a "
        "recording that was killed and look as if it had been killed earlier",
        what, 1ull * count, 1ull * unchanged, 1ull * noted, 1ull * untold, 1ull * killed);
}

// --- cuts -----------------------------------------------------------------------------------

void every_cut(Proof& proof, const Sample& sample, const FramePlan& plan) {
    const std::string name = sim::segment_name(NAME, 1);
    MemoryFiles files;
    files.put(NAME, sample.folder.at(NAME));
    const Bytes whole = sample.segment(1);
    files.put(name, whole);
    for (uint64_t size = 0; size <= whole.size(); ++size) {
        proof.at(proof.seed(), size);
        files.bytes(name).assign(whole.begin(), whole.begin() + static_cast<int64_t>(size));
        uint64_t frames = 0;
        for (const Place& place : sample.records[0])
            frames += place.header.is_frame() && place.end <= size ? 1 : 0;
        proof.check(all_back(read_all(files, plan), frames), "cut to %d bytes: %d frames are back",
                    int(size), int(frames));
        // Of nothing at all nobody knows that something was there.
        if (size == 0 || size == whole.size()) continue;
        proof.check(verify(files).findings > 0, "cut to %d bytes: found", int(size));
    }
    proof.covered("every cut of a segment: %llu lengths", 1ull * whole.size() + 1);
}

// --- the .ini file and directories ----------------------------------------------------------

void lost_ini(Proof& proof, const Sample& sample, const Sample& other, const FramePlan& plan) {
    MemoryFiles files;
    files.put(sample.folder);
    const Bytes whole = sample.folder.at(NAME);
    for (uint64_t size = 0; size < whole.size(); ++size) {
        proof.at(proof.seed(), size);
        files.put(NAME, Bytes(whole.begin(), whole.begin() + static_cast<int64_t>(size)));
        proof.check(all_back(read_all(files, plan), sample.frames), ".ini cut to %d bytes",
                    int(size));
        proof.check(verify(files).findings > 0, ".ini cut to %d bytes: found", int(size));
    }
    files.put(NAME, other.folder.at(NAME));
    proof.check(all_back(read_all(files, plan), sample.frames), ".ini of another database");
    proof.check(verify(files).findings > 0, ".ini of another database: found");
    MemoryFiles::Folder without = sample.folder;
    without.erase(NAME);
    files.put(without);
    proof.check(all_back(read_all(files, plan), sample.frames), "no .ini");
    proof.check(verify(files).findings > 0, "no .ini: found");
    proof.covered(".ini: missing, of another database, cut to %llu lengths; all frames are back",
                  1ull * whole.size());
}

void lost_directories(Proof& proof, const Sample& sample, const FramePlan& plan) {
    MemoryFiles files;
    files.put(sample.folder);
    uint64_t cuts = 0;
    for (uint64_t number = 1; number <= sample.records.size(); ++number) {
        Bytes& bytes = files.bytes(sim::segment_name(NAME, number));
        const Bytes whole = bytes;
        const uint64_t start = sample.records[number - 1].back().offset;
        const auto all_there = [&](const char* what) {
            proof.at(proof.seed(), number);
            proof.check(all_back(read_all(files, plan), sample.frames), "segment %d: directory %s",
                        int(number), what);
            proof.check(told(verify(files)) > 0, "segment %d: directory %s: told", int(number),
                        what);
        };
        std::fill(bytes.begin() + static_cast<int64_t>(start), bytes.end(), uint8_t{0});
        all_there("zeroed");
        const uint64_t next = number % sample.records.size() + 1;
        const Bytes& other = sample.segment(next);
        bytes = whole;
        bytes.resize(start);
        const auto from = static_cast<int64_t>(sample.records[next - 1].back().offset);
        bytes.insert(bytes.end(), other.begin() + from, other.end());
        all_there("of another segment");
        // Every length in one segment; a few in the others.
        const uint64_t step = number == 1 ? 1 : 97;
        for (uint64_t size = start; size < whole.size(); size += step, ++cuts) {
            bytes.assign(whole.begin(), whole.begin() + static_cast<int64_t>(size));
            all_there("cut");
        }
        bytes = whole;
    }
    proof.covered(
        "directories of %llu segments: zeroed, of another segment, cut in %llu places; "
        "all frames are back",
        1ull * sample.records.size(), 1ull * cuts);
}

void kills_in_rebuild(Proof& proof, const Sample& sample, const Sample& other,
                      const FramePlan& plan) {
    const Bytes right = sample.folder.at(NAME);
    const Bytes states[] = {Bytes(), Bytes(right.begin(), right.begin() + 20),
                            other.folder.at(NAME)};
    uint64_t kills = 0;
    for (const Bytes& before : states) {
        bool ended = true;
        for (uint64_t k = 0; ended; ++k, ++kills) {
            proof.at(proof.seed(), k);
            MemoryFiles files;
            files.put(sample.folder);
            files.put(NAME, before);
            std::string why;
            {
                const auto view = sim::DatabaseView::open(files, PATH, why);
                files.end_after(k);
                sim::rebuild_ini(files, *view);
                ended = files.ended();
            }
            MemoryFiles after;
            after.put(files.copy());
            proof.check(after.bytes(NAME) == before || after.bytes(NAME) == right,
                        "killed at operation %d: the .ini is the old or the new one", int(k));
            for (const auto& [name, bytes] : sample.folder)
                proof.check(name == NAME || after.bytes(name) == bytes, "%s is as it was",
                            name.c_str());
            proof.check(all_back(read_all(after, plan), sample.frames), "all frames are back");
            const auto view = sim::DatabaseView::open(after, PATH, why);
            proof.check(view && sim::rebuild_ini(after, *view).why.empty(), "rebuilt again");
            proof.check(after.bytes(NAME) == right, "rebuilt to what it was");
            proof.check(verify(after).findings == 0, "and found whole");
        }
    }
    proof.covered("rebuild: %llu kills, at each operation", 1ull * kills);
}

// --- a database that is being written ---------------------------------------------------------

void while_recording(Proof& proof, const FramePlan& plan, int64_t for_us) {
    const TempDir dir;
    const std::string path = dir.file(NAME);
    std::atomic<bool> stop{false}, failed{false};
    std::atomic<uint64_t> frames{0};
    std::thread recorder([&] {
        sim::WriterOptions options;
        options.own_thread = true;
        options.segment_bytes = SEGMENT_BYTES;
        options.ring_segments = 5;
        options.batch_bytes = 2 * BLOCK_BYTES;
        std::string why;
        qm_dbframe frame;
        while (!stop) {
            auto writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
            if (!writer) {
                failed = true;
                break;
            }
            for (int i = 0; i < 3000 && !stop; ++i, ++frames) {
                plan.make(1, writer->next_sequence(), frame);
                if (writer->append(frame, PROOF_UTC_STEP_US, 0) != sim::DiskWriter::Outcome::stored)
                    failed = true;
            }
            if (frames % 2) writer->finish(0);
        }
    });
    // As long as that, and on a busy machine until there was something to be seen.
    constexpr uint64_t LEAST_LOOKS = 11, LEAST_FRAMES = 1000;
    const int64_t end = steady_us() + for_us;
    uint64_t looks = 0;
    const auto look = [&] {
        std::string why;
        proof.at(proof.seed(), looks);
        const auto view = sim::DatabaseView::open(sim::real_file_system(), path, why);
        if (!view) return;
        const sim::Verified verified = sim::verify(
            *view, looks % 4 == 0,
            [&](const sim::Finding& finding) {
                proof.check(finding.note, "finding of kind %d in segment %d at %d while recording",
                            int(finding.kind), int(finding.segment), int(finding.offset));
            },
            {});
        proof.check(verified.findings == 0, "nothing is found while recording");
        ++looks;
    };
    comes_true([&] {
        look();
        return failed || (steady_us() >= end && looks >= LEAST_LOOKS && frames >= LEAST_FRAMES);
    });
    stop = true;
    recorder.join();
    proof.check(!failed && looks >= LEAST_LOOKS && frames >= LEAST_FRAMES,
                "recorded and looked at");
    proof.covered("while it is recorded: %llu looks, %llu frames through a ring of 5 segments",
                  1ull * looks, 1ull * frames.load());
}

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "Damages databases in every way and holds verify, rebuild and the reader to it.",
                {{"damages", "random damages (20000, large 10000000)"},
                 {"samples", "flipped bits by a complete verify (2000)", true, 2000},
                 {"live", "only the looks at a database that is being recorded", false}});
    const FramePlan plan(proof.seed(), 16, 3000);
    const int64_t live_us = proof.large() ? 60'000'000 : 1'500'000;
    if (proof.given("live")) {
        while_recording(proof, plan, live_us);
        return proof.finish();
    }
    const Sample mebibyte = record(plan, 16, true);
    proof.check(mebibyte.bytes() > 1 << 20, "the database is of 1 MiB and more");
    every_bit_by_parts(proof, mebibyte);
    bits_by_verify(proof, mebibyte, plan, proof.number("samples"));
    if (proof.large()) every_bit_by_verify(proof, mebibyte);

    const Sample full = record(plan, 3, false);
    const Sample cut = record(plan, 2, true);
    const uint64_t damages = proof.count("damages", 20'000, 10'000'000);
    random_damage(proof, full, plan, damages - damages / 2, "three full segments");
    random_damage(proof, cut, plan, damages / 2, "two full segments and one that was cut");

    every_cut(proof, cut, plan);
    lost_ini(proof, cut, full, plan);
    lost_directories(proof, cut, plan);
    kills_in_rebuild(proof, cut, full, plan);
    while_recording(proof, plan, live_us);
    return proof.finish();
}
