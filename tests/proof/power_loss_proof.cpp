// Power losses at every change of the files, in every outcome a disk may leave: what was durable is
// there, and a recorder goes on behind it. Kills are mixed in, and losses during the recovery. What
// a kill alone leaves stands in file_operations_proof.
#include <malloc.h>

#include <array>
#include <chrono>
#include <optional>

#include "tests/proof/crash_files.h"
#include "tests/proof/frame_book.h"
#include "tests/proof/proof.h"
#include "tests/proof/recording_session.h"

namespace {

// The files at some change, with the books as they were then.
struct Moment {
    CrashFiles files;
    FrameBook book;
    bool killed;  // the process is gone; else the power will be
};

// Keeps one moment of all that are offered, each as likely.
class OneMoment {
  public:
    OneMoment(ProofRandom& random, const FrameBook& book) : m_random(random), m_book(book) {}

    void offer(const CrashFiles& files, const FileChange& change) {
        if (!m_random.one_in(++m_offered)) return;
        const bool kill = m_random.one_in(3);
        const size_t done =
            change.kind == FileChange::Kind::write ? m_random.below(change.size + 1) : 0;
        m_moment.reset();
        m_moment.emplace(Moment{kill ? files.after_kill(change, done) : files, m_book, kill});
    }
    std::optional<Moment>& moment() { return m_moment; }

  private:
    ProofRandom& m_random;
    const FrameBook& m_book;
    uint64_t m_offered = 0;
    std::optional<Moment> m_moment;
};

class PowerLossProof {
  public:
    PowerLossProof(Proof& proof) : m_proof(proof) {}

    uint64_t states() const { return m_states; }
    uint64_t nested() const { return m_nested; }

    // What the next process finds, now that the machine or the process is gone: everything is
    // there, a recorder goes on, then again everything is there. `depth`: crashes during that.
    void check_state(CrashFiles files, FrameBook book, const sim::WriterOptions& options,
                     ProofRandom& random, int depth, const std::string& where) {
        ++m_states;
        if (!expect(book.compare(files), where, "after the crash")) return;
        OneMoment nested(random, book);
        {
            RecordingSession session(files, book, options);
            if (depth > 0)
                session.watch([&](const FileChange& change) { nested.offer(files, change); });
            for (const Step step : recovery_steps(random))
                if (!expect(session.run(step), where, "after the crash, recording")) return;
            if (random.one_in(8) && !expect(session.run(Step::seal), where, "filling on")) return;
        }
        if (!expect(book.compare(files), where, "after the recovery")) return;
        if (!files.offences().empty() && !expect(files.offences()[0], where, "recovering")) return;
        if (random.one_in(8) && !expect(findings(files, Tolerated::crash), where, "checked"))
            return;
        if (!nested.moment()) return;
        ++m_nested;
        Moment& moment = *nested.moment();
        RandomChooser chooser(random);
        if (moment.killed)
            check_state(moment.files, moment.book, options, random, depth - 1, where + ", kill");
        else
            check_state(moment.files.after_power_loss(chooser), moment.book, options, random,
                        depth - 1, where + ", power loss");
    }

    // Small and large frames, so that batches begin and end as those that were interrupted or not.
    static std::vector<Step> recovery_steps(ProofRandom& random) {
        static constexpr Step SOME[] = {Step::small, Step::large, Step::large, Step::commit};
        std::vector<Step> steps = {random.one_in(2) ? Step::small : Step::large};
        for (uint64_t more = random.below(4); more > 0; --more)
            steps.push_back(SOME[random.below(4)]);
        steps.push_back(random.one_in(2) ? Step::finish : Step::commit);
        return steps;
    }

    // False, and told, when `wrong` says something.
    bool expect(const std::string& wrong, const std::string& where, const char* when) {
        return m_proof.check(wrong.empty(), "%s: %s (%s)", when, wrong.c_str(), where.c_str());
    }

  private:
    Proof& m_proof;
    uint64_t m_states = 0;
    uint64_t m_nested = 0;
};

sim::WriterOptions options_with(uint64_t ring, size_t batch_bytes) {
    sim::WriterOptions options;
    options.segment_bytes = 64 * 1024;
    options.ring_segments = ring;
    options.batch_bytes = batch_bytes;
    return options;
}

// ---- every outcome of short recordings ---------------------------------------------------------

// Where a recording begins: nothing there, a full ring that was finished, one that was killed.
struct Start {
    const char* name;
    std::vector<Step> steps;
};
const Start STARTS[] = {
    {"new", {}},
    {"full", {Step::turn, Step::seal, Step::small, Step::finish}},
    {"killed", {Step::turn, Step::seal, Step::large, Step::commit, Step::small}},
};

class Exhaustive {
  public:
    Exhaustive(Proof& proof, PowerLossProof& checks) : m_proof(proof), m_checks(checks) {}

    void run() {
        const uint64_t only = m_proof.number("workload");
        uint64_t workload = 0;
        for (const Start& start : STARTS)
            for (size_t length = 0; length <= 3; ++length)
                for (size_t code = 0; code < workloads(length); ++code)
                    if (++workload, only ? only == workload : workload % PROOF_SHARE == 0) {
                        m_proof.at(m_proof.seed(), workload);
                        run(start, steps_of(code, length), workload);
                    }
        m_proof.covered(
            "every outcome: %llu recordings of up to 3 operations after 3 beginnings, "
            "%llu crash points, %llu outcomes of them",
            counted(workload), counted(m_points), counted(m_outcomes));
    }

    static unsigned long long counted(uint64_t n) { return n; }

  private:
    static constexpr size_t STEPS = 8;  // without huge frames

    static size_t workloads(size_t length) {
        size_t count = 1;
        for (size_t i = 0; i < length; ++i) count *= STEPS;
        return count;
    }
    static std::vector<Step> steps_of(size_t code, size_t length) {
        std::vector<Step> steps;
        for (size_t i = 0; i < length; ++i, code /= STEPS) steps.push_back(ALL_STEPS[code % STEPS]);
        return steps;
    }

    // All crash points of the last step; those of the steps before are another recording's.
    void run(const Start& start, const std::vector<Step>& steps, uint64_t workload) {
        const sim::WriterOptions options = options_with(2, 8192);
        ProofRandom random(m_proof.seed() * 1'000'003 + workload);
        std::string where = start.name;
        CrashFiles files;
        FrameBook book(options.ring_segments);
        RecordingSession session(files, book, options);
        const size_t groups = m_proof.large() ? 8 : steps.size() < 3 ? 5 : 2;
        const auto crash = [&] { every_outcome(files, book, options, random, groups, where); };
        for (const Step step : start.steps)
            if (!m_checks.expect(session.run(step), where, "before")) return;
        if (steps.empty()) {
            session.watch([&](const FileChange&) { crash(); });
            m_checks.expect(session.begin(), where, "beginning");
        }
        for (size_t i = 0; i < steps.size(); ++i) {
            where += std::string(" ") + step_name(steps[i]);
            if (i + 1 == steps.size()) session.watch([&](const FileChange&) { crash(); });
            if (!m_checks.expect(session.run(steps[i]), where, "recording")) return;
        }
        files.on_change = nullptr;
        crash();
        if (!files.offences().empty()) m_checks.expect(files.offences()[0], where, "recording");
    }

    void every_outcome(const CrashFiles& files, const FrameBook& book,
                       const sim::WriterOptions& options, ProofRandom& random, size_t groups,
                       const std::string& where) {
        ++m_points;
        EveryChoice every(groups, true);
        do {
            ++m_outcomes;
            m_checks.check_state(files.after_power_loss(every), book, options, random,
                                 random.one_in(8) ? 1 : 0, where);
        } while (every.next());
    }

    Proof& m_proof;
    PowerLossProof& m_checks;
    uint64_t m_points = 0;
    uint64_t m_outcomes = 0;
};

// ---- some outcomes of long recordings ----------------------------------------------------------

class Sampled {
  public:
    Sampled(Proof& proof, PowerLossProof& checks) : m_proof(proof), m_checks(checks) {}

    void run(uint64_t states) {
        const uint64_t first = m_checks.states();
        const uint64_t only = m_proof.number("run");
        uint64_t runs = 0;
        while (m_checks.states() - first < states && m_proof.failures() < MOST_FAILURES) {
            ++runs;
            m_proof.at(m_proof.seed(), only ? only : runs);
            run_one(only ? only : runs);
            if (only) break;
        }
        m_proof.covered("samples: %llu states of %llu recordings of up to 40 operations",
                        Exhaustive::counted(m_checks.states() - first), Exhaustive::counted(runs));
    }

  private:
    static constexpr uint64_t MOST_FAILURES = 1000;  // more would tell nothing new
    static constexpr int MOMENTS = 6;                // of a recording
    static constexpr int OUTCOMES = 5;               // of a moment

    void run_one(uint64_t number) {
        ProofRandom random(m_proof.seed() * 7'919 + number);
        const sim::WriterOptions options =
            options_with(random.between(2, 4), sim::BLOCK_BYTES * random.between(2, 4));
        CrashFiles files;
        FrameBook book(options.ring_segments);
        std::vector<OneMoment> moments(MOMENTS, OneMoment(random, book));
        std::string where;
        {
            RecordingSession session(files, book, options);
            session.watch([&](const FileChange& change) {
                for (OneMoment& it : moments) it.offer(files, change);
            });
            for (uint64_t steps = random.between(1, 40); steps > 0; --steps) {
                const Step step = pick_step(random);
                where = step_name(step);
                if (!m_checks.expect(session.run(step), where, "recording")) return;
            }
        }
        if (!files.offences().empty()) m_checks.expect(files.offences()[0], where, "recording");
        where = "sampled";
        for (OneMoment& it : moments) {
            if (!it.moment()) continue;
            const Moment& moment = *it.moment();
            for (int i = 0; i < (moment.killed ? 1 : OUTCOMES); ++i) {
                RandomChooser chooser(random);
                m_checks.check_state(
                    moment.killed ? moment.files : moment.files.after_power_loss(chooser),
                    moment.book, options, random, static_cast<int>(random.below(4)),
                    moment.killed ? "kill" : "power loss");
            }
        }
    }

    static Step pick_step(ProofRandom& random) {
        static constexpr std::array<Step, 16> steps = {
            Step::small,  Step::small,  Step::small,  Step::large,  Step::large,  Step::large,
            Step::commit, Step::commit, Step::commit, Step::finish, Step::reopen, Step::seal,
            Step::seal,   Step::turn,   Step::kill,   Step::huge};
        return steps[random.below(steps.size())];
    }

    Proof& m_proof;
    PowerLossProof& m_checks;
};

}  // namespace

int main(int argc, char** argv) {
    Proof proof(argc, argv,
                "Power losses at every change of a database's files. What was not synced is there\n"
                "or not, sector by sector, sizes and names as well.",
                {{"states", "sampled states (100,000; with --large 5,000,000)"},
                 {"run", "only this sampled recording, as told with a failure"},
                 {"workload", "only this short recording, as told with a failure"}});
    // The many copies of files are taken from memory that stays the process's own.
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    PowerLossProof checks(proof);
    const auto began = std::chrono::steady_clock::now();
    if (!proof.given("run")) Exhaustive(proof, checks).run();
    if (!proof.given("workload"))
        Sampled(proof, checks).run(proof.count("states", 100'000, 5'000'000));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    proof.covered("%llu states in all, %llu of them after a crash during the recovery; %.1f s",
                  Exhaustive::counted(checks.states()), Exhaustive::counted(checks.nested()),
                  took.count());
    return proof.finish();
}
