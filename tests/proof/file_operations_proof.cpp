// A recorder is killed at each of its file operations, and in the middle of writes: what it had
// acknowledged is there, and the next recorder goes on behind it, killed in turn. The power stays
// on; losses of it stand in power_loss_proof. Kills at random moments stand in kill_proof.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>

#include "tests/proof/crash_files.h"
#include "tests/proof/frame_book.h"
#include "tests/proof/pass_files.h"
#include "tests/proof/proof.h"
#include "tests/proof/recording_session.h"
#include "tests/support/temp_dir.h"

namespace {

unsigned long long counted(uint64_t n) { return n; }

sim::WriterOptions options_with(uint64_t ring, size_t batch_bytes) {
    sim::WriterOptions options;
    options.segment_bytes = 64 * 1024;
    options.ring_segments = ring;
    options.batch_bytes = batch_bytes;
    return options;
}

// A recording over several segments and a turn of the ring, ended, begun again and ended.
std::vector<Step> whole_session(ProofRandom& random) {
    std::vector<Step> steps = {Step::small, Step::commit, Step::large,  Step::large,  Step::commit,
                               Step::seal,  Step::small,  Step::commit, Step::turn,   Step::huge,
                               Step::large, Step::finish, Step::small,  Step::commit, Step::large,
                               Step::seal,  Step::large,  Step::finish};
    for (int i = 0; i < 6; ++i) {
        const Step more[] = {Step::small, Step::large, Step::commit, Step::huge, Step::reopen};
        steps.insert(steps.begin() + static_cast<ptrdiff_t>(random.below(steps.size())),
                     more[random.below(5)]);
    }
    return steps;
}

// ---- in memory: every operation ----------------------------------------------------------------

class EveryOperation {
  public:
    explicit EveryOperation(Proof& proof) : m_proof(proof) {}

    void run(uint64_t sessions) {
        const uint64_t only = m_proof.number("session");
        for (uint64_t number = 1; number <= sessions; ++number)
            if (only == 0 || only == number) run_session(number);
        m_proof.covered(
            "in memory: %llu recordings, killed at %llu points, %llu of them within a "
            "write; recoveries killed at %llu points",
            counted(sessions), counted(m_points), counted(m_within), counted(m_in_recovery));
        m_proof.check(only != 0 || m_points >= 1000 / PROOF_SHARE, "less than 1000 points");
    }

  private:
    void run_session(uint64_t number) {
        m_proof.at(m_proof.seed(), number);
        ProofRandom random(m_proof.seed() * 104'729 + number);
        const sim::WriterOptions options =
            options_with(random.between(2, 4), sim::BLOCK_BYTES * random.between(2, 4));
        CrashFiles files;
        FrameBook book(options.ring_segments);
        std::string where;
        RecordingSession session(files, book, options);
        session.watch([&](const FileChange& change) {
            at_every_part(files, change, random, [&](CrashFiles killed, size_t done) {
                ++m_points;
                if (done > 0) ++m_within;
                check_killed(killed, book, options, random, 1, where + ", " + change.name);
            });
        });
        for (const Step step : whole_session(random)) {
            where = step_name(step);
            if (!expect(session.run(step), where, "recording")) return;
        }
    }

    // Before the change; when it is a write also with a part of it done: of a sector, half, all but
    // a byte.
    template <class Action>
    void at_every_part(const CrashFiles& files, const FileChange& change, ProofRandom& random,
                       Action action) {
        action(files.after_kill(change, 0), 0);
        if (change.kind != FileChange::Kind::write) return;
        for (const size_t done : {random.between(1, 511), change.size / 2, change.size - 1,
                                  random.between(1, change.size)})
            action(files.after_kill(change, done), done);
    }

    void check_killed(CrashFiles& files, FrameBook book, const sim::WriterOptions& options,
                      ProofRandom& random, int depth, const std::string& where) {
        if (!expect(book.compare(files), where, "after the kill")) return;
        RecordingSession session(files, book, options);
        std::string at = where;
        if (depth > 0)
            session.watch([&](const FileChange& change) {
                if (!m_proof.large() && !random.one_in(4)) return;
                at_every_part(files, change, random, [&](CrashFiles killed, size_t) {
                    ++m_in_recovery;
                    check_killed(killed, book, options, random, depth - 1, at + ", recovery");
                });
            });
        for (const Step step : {Step::small, Step::large, Step::commit, Step::large, Step::finish})
            if (!expect(session.run(step), where, "after the kill, recording")) return;
        if (!expect(book.compare(files), where, "after the recovery")) return;
        if (!files.offences().empty()) expect(files.offences()[0], where, "recovering");
        if (random.one_in(4)) expect(findings(files, Tolerated::crash), where, "checked");
    }

    bool expect(const std::string& wrong, const std::string& where, const char* when) {
        return m_proof.check(wrong.empty(), "%s: %s (%s)", when, wrong.c_str(), where.c_str());
    }

    Proof& m_proof;
    uint64_t m_points = 0;
    uint64_t m_within = 0;
    uint64_t m_in_recovery = 0;
};

// ---- on the machine's files: some operations ---------------------------------------------------

// Ends the process at one operation of all, before it or in the middle of a write.
class KillingFiles : public PassFiles {
  public:
    // 0: never.
    KillingFiles(uint64_t at, bool half) : m_at(at), m_half(half) {}
    uint64_t operations() const { return m_operations; }

    int open(int folder, const std::string& name, Access access) override {
        count();
        return PassFiles::open(folder, name, access);
    }
    void close(int file) override {
        count();
        PassFiles::close(file);
    }
    int write(int file, const void* data, size_t size, uint64_t offset) override {
        if (m_operations + 1 == m_at && m_half) {
            const size_t half = size / 2 / sim::BLOCK_BYTES * sim::BLOCK_BYTES;
            if (half > 0) PassFiles::write(file, data, half, offset);
        }
        count();
        return PassFiles::write(file, data, size, offset);
    }
    int sync(int file) override {
        count();
        return PassFiles::sync(file);
    }
    int sync_folder(int folder) override {
        count();
        return PassFiles::sync_folder(folder);
    }
    int allocate(int file, uint64_t size) override {
        count();
        return PassFiles::allocate(file, size);
    }
    int truncate(int file, uint64_t size) override {
        count();
        return PassFiles::truncate(file, size);
    }
    int rename(int folder, const std::string& from, const std::string& to) override {
        count();
        return PassFiles::rename(folder, from, to);
    }
    int remove(int folder, const std::string& name) override {
        count();
        return PassFiles::remove(folder, name);
    }

  private:
    void count() {
        if (++m_operations == m_at) _exit(KILLED);
    }
    static constexpr int KILLED = 9;
    const uint64_t m_at;
    const bool m_half;
    uint64_t m_operations = 0;
};

class RealOperations {
  public:
    explicit RealOperations(Proof& proof) : m_proof(proof), m_random(proof.seed()) {
        m_steps = whole_session(m_random);
    }

    void run(uint64_t kills) {
        void* shared = mmap(nullptr, sizeof(*m_durable), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (!m_proof.check(shared != MAP_FAILED, "no memory for two processes")) return;
        m_durable = new (shared) std::atomic<uint64_t>(0);
        const uint64_t operations = count_operations();
        for (uint64_t i = 0; i < kills; ++i) {
            m_proof.at(m_proof.seed(), i);
            kill_at(1 + i * operations / kills, i % 2 == 1);
        }
        m_proof.covered("on the machine's files: killed at %llu of %llu operations", counted(kills),
                        counted(operations));
        munmap(shared, sizeof(*m_durable));
    }

  private:
    // The same recording without a kill: its books tell what the killed one had handed over.
    uint64_t count_operations() {
        CrashFiles files;
        RecordingSession session(files, m_book, m_options);
        for (const Step step : m_steps) {
            const std::string wrong = session.run(step);
            m_proof.check(wrong.empty(), "recording in memory: %s", wrong.c_str());
        }
        const TempDir folder;
        KillingFiles counting(0, false);
        record(counting, folder.file("rec/qm.ini"));
        return counting.operations();
    }

    bool record(sim::FileSystem& files, const std::string& path) {
        FrameBook book(m_options.ring_segments);
        RecordingSession session(files, path, book, m_options);
        session.on_durable = [this](uint64_t durable) { *m_durable = durable; };
        for (const Step step : m_steps)
            if (!session.run(step).empty()) return false;
        return true;
    }

    void kill_at(uint64_t operation, bool half) {
        const TempDir folder;
        const std::string path = folder.file("rec/qm.ini");
        *m_durable = 0;
        std::fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            KillingFiles killing(operation, half);
            _exit(record(killing, path) ? 0 : 1);
        }
        int status = 0;
        m_proof.check(child > 0 && waitpid(child, &status, 0) == child, "no second process");
        m_proof.check(WIFEXITED(status) && WEXITSTATUS(status) == 9,
                      "operation %llu was not reached", counted(operation));

        FrameBook book = m_book;
        book.cut_to(*m_durable);
        sim::FileSystem& files = sim::real_file_system();
        expect(book.compare(files, false, path), operation, "after the kill");
        RecordingSession session(files, path, book, m_options);
        for (const Step step : {Step::small, Step::large, Step::finish})
            expect(session.run(step), operation, "after the kill, recording");
        expect(book.compare(files, false, path), operation, "after the recovery");
        expect(findings(files, Tolerated::crash, path), operation, "checked");
    }
    void expect(const std::string& wrong, uint64_t operation, const char* when) {
        m_proof.check(wrong.empty(), "%s at operation %llu: %s", when, counted(operation),
                      wrong.c_str());
    }

    Proof& m_proof;
    ProofRandom m_random;
    const sim::WriterOptions m_options = options_with(3, 16 * 1024);
    std::vector<Step> m_steps;
    FrameBook m_book{3};
    std::atomic<uint64_t>* m_durable = nullptr;  // in the memory of both processes
};

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "A recorder is killed at every file operation, before it and within writes, and\n"
                "so is the one that goes on (one operation in four; with --large all).",
                {{"sessions", "recordings in memory (24; with --large 200)"},
                 {"session", "only this one, as told with a failure"},
                 {"kills", "kills on the machine's files (40; with --large 1,000)"}});
    const auto began = std::chrono::steady_clock::now();
    EveryOperation(proof).run(proof.count("sessions", 24, 200));
    if (!proof.given("session")) RealOperations(proof).run(proof.count("kills", 40, 1000));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    proof.covered("%.1f s", took.count());
    return proof.finish();
}
