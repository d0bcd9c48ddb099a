// Every call of a recorder fails with every error, once, until it is healed, for good: the
// recording goes on or says why not, and what was durable stays. What a power loss leaves stands in
// power_loss_proof, full disks in full_disk_proof.
#include <chrono>

#include "tests/proof/crash_files.h"
#include "tests/proof/faulty_files.h"
#include "tests/proof/frame_book.h"
#include "tests/proof/proof.h"

namespace {

constexpr uint64_t RING = 4;
constexpr int64_t STEP_US = 300'000;      // between two steps
constexpr int64_t HEALED_US = 2'000'000;  // after it recording must go on
constexpr uint64_t HEALED_STEPS = 12;     // until what stays is healed, from the first failure

enum class Mode { once, healed, for_good };
const char* mode_name(Mode mode) {
    return mode == Mode::once ? "once" : mode == Mode::healed ? "until healed" : "for good";
}

// What fails, one fault or two.
struct Case {
    std::vector<Fault> faults;
    Mode mode = Mode::once;

    bool of_room() const {
        for (const Fault& fault : faults)
            if (fault.error == ENOSPC || fault.error == EDQUOT) return true;
        return false;
    }
    std::string text() const {
        std::string all;
        for (const Fault& fault : faults)
            all += std::string(call_name(fault.call)) + " " + std::to_string(fault.number) + " " +
                   error_name(fault.error) + (fault.half ? " half done" : "") + ", ";
        return all + mode_name(mode);
    }
};

class NothingKept : public CrashChooser {
  public:
    size_t pick(size_t) override { return 0; }
    void pick_sectors(uint64_t, std::vector<bool>& there) override {
        there.assign(there.size(), false);
    }
    bool names_in_any_order() override { return false; }
};

// Two recordings over several segments and more than a turn of the ring, while calls fail.
class FaultyRecording {
  public:
    FaultyRecording(Proof& proof, const Case& what) : m_proof(proof), m_case(what) {
        m_options.segment_bytes = 64 * 1024;
        m_options.ring_segments = RING;
        m_options.batch_bytes = 16 * 1024;
        for (const Fault& fault : what.faults) m_files.fail(fault);
        m_files.on_failure = [this](int file) { m_disk.forget_unsynced(file); };
        if (!what.faults.empty()) m_book.allow_dropped(what.of_room() ? RING - 2 : 1);
    }

    void run() {
        record(36);
        m_files.begin_process();
        record(14);
        after_all();
    }
    const FaultyFiles& files() const { return m_files; }
    uint64_t busy() const { return m_book.counts().busy; }

  private:
    void expect(bool ok, const char* what) {
        m_proof.check(ok, "%s (%s; step %llu%s%s)", what, m_case.text().c_str(),
                      static_cast<unsigned long long>(m_steps), m_writer ? ", " : "",
                      m_writer ? m_writer->trouble().c_str() : "");
    }
    void expect(const std::string& wrong, const char* when) {
        m_proof.check(wrong.empty(), "%s: %s (%s)", when, wrong.c_str(), m_case.text().c_str());
    }

    // Heals when it is time; then recording goes on.
    void step() {
        ++m_steps;
        m_book.pass_time(STEP_US);
        if (m_case.mode != Mode::healed || m_healed || m_files.struck() == 0) return;
        if (m_since++ < HEALED_STEPS) return;
        heal();
    }
    void heal() {
        m_healed = true;
        m_files.heal();
        m_book.pass_time(HEALED_US);
        if (!m_writer) return;
        append();
        expect(m_book.commit(*m_writer), "healed, and it does not go on");
        m_book.acknowledge(*m_writer, &m_disk);
        expect(!m_writer->failing(), "healed, and it still says that it fails");
    }

    bool open() {
        std::string why;
        for (size_t attempt = 0; attempt <= m_case.faults.size() && !m_writer; ++attempt) {
            if (attempt > 0 && m_case.mode == Mode::healed) heal();
            m_writer = sim::DiskWriter::open(m_files, BOOK_PATH, m_options, why);
            if (m_writer) break;
            expect(m_files.struck() > 0, "it does not open, and nothing failed");
            expect(!why.empty(), "it does not open, and does not say why");
        }
        expect(m_writer || m_case.mode == Mode::for_good, "it does not open when it could");
        if (!m_writer) return false;
        std::string wrong;
        m_book.begin(*m_writer, &m_disk, wrong, m_files.struck() > 0);
        expect(wrong, "opened");
        m_began = m_writer->next_sequence();
        m_stored = m_book.counts().stored;
        return true;
    }

    void append() {
        using Outcome = sim::DiskWriter::Outcome;
        const bool big = m_steps % 4 != 0;
        const Outcome outcome = m_book.append(*m_writer, big ? FrameSize::large : FrameSize::small);
        m_book.acknowledge(*m_writer, &m_disk);
        expect(outcome != Outcome::refused, "a frame that fits was refused");
        if (outcome == Outcome::busy) failing("a frame was not taken");
    }
    void commit() {
        const bool done = m_book.commit(*m_writer);
        m_book.acknowledge(*m_writer, &m_disk);
        if (!done) failing("not committed");
        if (done)
            expect(m_writer->durable_sequence() == m_writer->next_sequence(),
                   "committed, and not all is durable");
    }
    void failing(const char* what) {
        expect(m_files.struck() > 0, what);
        expect(m_writer->failing() && !m_writer->trouble().empty(),
               "it does not say that it fails");
    }

    void record(uint64_t steps) {
        if (!open()) return;
        for (uint64_t i = 0; i < steps; ++i) {
            step();
            append();
            if (i % 5 == 2) commit();
            if (i % 9 == 4) m_book.pass_time(STEP_US), m_writer->commit_if_due(m_book.now_us());
        }
        const bool finished = m_book.finish(*m_writer);
        if (finished) m_book.acknowledge(*m_writer, &m_disk);
        const uint64_t durable = m_writer->durable_sequence() - m_began;
        expect(finished || m_files.struck() > 0, "not finished, and nothing failed");
        expect(finished || m_case.mode != Mode::once || m_case.faults.size() > 1,
               "not finished after one failure");
        expect(finished == (m_writer->lost() == 0), "lost frames, or none, and finished says else");
        expect(m_book.counts().stored - m_stored == durable + m_writer->lost(),
               "taken are not as many as durable and lost");
        m_writer.reset();
    }

    // The books, the disk as it is, the disk after a power loss, and another recorder on it.
    void after_all() {
        m_files.heal();
        const FrameBook::Counts& counts = m_book.counts();
        expect(counts.appended == counts.stored + counts.refused + counts.busy,
               "appended are not as many as stored, refused and busy");
        for (const std::string& offence : m_files.offences()) expect(offence, "recording");
        for (const std::string& offence : m_disk.offences()) expect(offence, "recording");
        expect(m_disk.open_files() == 0, "files were left open");
        expect(m_book.compare(m_disk, true), "in the end");
        NothingKept chooser;
        CrashFiles lost = m_disk.after_power_loss(chooser);
        expect(m_book.compare(lost, true), "after a power loss in the end");
        go_on(lost, m_book);
    }

    void go_on(CrashFiles& files, FrameBook book) {
        std::string why;
        const auto writer = sim::DiskWriter::open(files, BOOK_PATH, m_options, why);
        expect(why, "afterwards it cannot be opened");
        if (!writer) return;
        book.begin(*writer, &files, why, m_files.struck() > 0);
        expect(why, "afterwards");
        for (int i = 0; i < 12; ++i)
            expect(book.append(*writer, FrameSize::large) == sim::DiskWriter::Outcome::stored,
                   "afterwards a frame is not taken");
        expect(book.finish(*writer), "afterwards it cannot be finished");
        book.acknowledge(*writer, &files);
        expect(book.compare(files, true), "recorded on afterwards");
        // Numbers may have been passed over behind a file that could not be read.
        expect(findings(files, Tolerated::missing), "checked");
    }

    Proof& m_proof;
    const Case& m_case;
    CrashFiles m_disk;
    FaultyFiles m_files{m_disk};
    FrameBook m_book{RING};
    sim::WriterOptions m_options;
    std::unique_ptr<sim::DiskWriter> m_writer;
    uint64_t m_steps = 0;
    uint64_t m_since = 0;  // steps since the first failure
    bool m_healed = false;
    uint64_t m_began = 0;   // sequence number with which the recorder began
    uint64_t m_stored = 0;  // in the books then
};

class IoErrorsProof {
  public:
    explicit IoErrorsProof(Proof& proof) : m_proof(proof) {}

    void run() {
        const Case nothing;
        FaultyRecording plain(m_proof, nothing);
        plain.run();
        m_proof.check(plain.busy() == 0, "frames were not taken, and nothing failed");
        for (size_t call = 0; call < CALLS; ++call)
            m_calls[call] = plain.files().calls(static_cast<Call>(call));
        for (size_t call = 0; call < CALLS; ++call) each_error(static_cast<Call>(call));
        m_proof.covered("single faults: %llu recordings, %llu call sites, %llu calls failed",
                        counted(m_recordings), counted(m_sites), counted(m_struck));
        if (m_proof.large() || m_proof.given("pairs")) pairs();
    }

    static unsigned long long counted(uint64_t n) { return n; }

  private:
    void each_error(Call call) {
        uint64_t sites = m_calls[static_cast<size_t>(call)];
        m_sites += sites;
        for (uint64_t number = 1; number <= sites; ++number)
            for (const int error : errors_of(call))
                for (const Mode mode : {Mode::once, Mode::healed, Mode::for_good})
                    for (const bool half : {false, true}) {
                        if (half && call != Call::write) continue;
                        one({{{call, number, error, mode != Mode::once, half}}, mode});
                    }
    }

    void pairs() {
        const uint64_t singles = m_recordings;
        ProofRandom random(m_proof.seed());
        for (uint64_t left = m_proof.count("pairs", 0, 200'000); left > 0; --left) {
            Case pair;
            pair.mode = static_cast<Mode>(random.below(3));
            pair.faults = {any(random, pair.mode), any(random, pair.mode)};
            one(pair);
        }
        m_proof.covered("pairs of faults: %llu recordings", counted(m_recordings - singles));
    }
    Fault any(ProofRandom& random, Mode mode) const {
        Fault fault;
        do fault.call = static_cast<Call>(random.below(CALLS));
        while (m_calls[static_cast<size_t>(fault.call)] == 0);
        fault.number = random.between(1, m_calls[static_cast<size_t>(fault.call)]);
        const std::vector<int>& errors = errors_of(fault.call);
        fault.error = errors[random.below(errors.size())];
        fault.stays = mode != Mode::once;
        fault.half = fault.call == Call::write && random.one_in(2);
        return fault;
    }

    void one(const Case& what) {
        ++m_recordings;
        const uint64_t only = m_proof.number("recording");
        if (only != 0 ? only != m_recordings : m_recordings % PROOF_SHARE != 0) return;
        m_proof.at(m_proof.seed(), m_recordings);
        FaultyRecording recording(m_proof, what);
        recording.run();
        m_struck += recording.files().struck();
    }

    Proof& m_proof;
    uint64_t m_calls[CALLS] = {};  // of each kind while nothing fails
    uint64_t m_recordings = 0;
    uint64_t m_sites = 0;
    uint64_t m_struck = 0;
};

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "Every file operation of two recordings over more than a turn of the ring fails\n"
                "with every error that it can give: once, until it is healed, for good.",
                {{"recording", "only this one, as told with a failure"},
                 {"pairs", "pairs of faults, at random (none; with --large 200,000)"}});
    const auto began = std::chrono::steady_clock::now();
    IoErrorsProof(proof).run();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    proof.covered("%.1f s", took.count());
    return proof.finish();
}
