// Several processes at one database: who was let in is read from the frames.
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <vector>

#include "tests/proof/openers.h"
#include "tests/proof/read_back.h"

namespace openers {

namespace {

struct Shared {
    std::atomic<uint32_t> recorders{0};  // let in so far
    std::atomic<uint32_t> refused{0};
    std::atomic<uint32_t> failures{0};
    std::atomic<uint64_t> acknowledged{0};
};

// What one of several processes does until it has done it or is killed. Recorders are numbered as
// they are let in, so in order of their frames their numbers must not go back.
Answer take_part(const std::string& path, const FramePlan& plan, uint64_t seed, Shared& shared) {
    ProofRandom random(seed);
    const uint64_t turns = random.between(1, 4);
    for (uint64_t turn = 0; turn < turns; ++turn) {
        usleep(static_cast<useconds_t>(random.below(3000)));
        std::string why;
        Writer writer = open_writer(path, why);
        if (!writer) {
            ++shared.refused;
            continue;
        }
        const uint32_t recorder = ++shared.recorders;
        for (uint64_t batch = random.below(6); batch > 0; --batch) {
            if (!record(*writer, plan, recorder, random.between(1, 10))) ++shared.failures;
            uint64_t known = shared.acknowledged;
            const uint64_t durable = writer->durable_sequence();
            while (known < durable && !shared.acknowledged.compare_exchange_weak(known, durable))
                continue;
            usleep(static_cast<useconds_t>(random.below(1500)));
        }
        if (random.one_in(4)) _exit(yes);
        if (random.one_in(2) && !writer->finish(steady_us())) ++shared.failures;
    }
    return yes;
}

struct Totals {
    uint64_t processes = 0, killed = 0, let_in = 0, refused = 0, frames = 0;
};

void interleave(Proof& proof, const std::string& folder, uint64_t number, Shared& shared,
                Totals& totals) {
    proof.at(proof.seed(), number);
    ProofRandom random(proof.seed() * 1'000'003 + number);
    const FramePlan plan(random.next(), FramePlan::LEAST_BYTES, 3000);
    const std::string path = folder + "/" + NAME;
    new (&shared) Shared;
    const uint64_t count = random.between(2, 3);
    std::vector<pid_t> children;
    fflush(stdout);
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t seed = random.next();
        const pid_t child = fork();
        if (child < 0) abort();
        if (child == 0) _exit(take_part(path, plan, seed, shared));
        children.push_back(child);
    }
    totals.processes += count;
    for (const pid_t child : children) {
        const bool ends_by_kill = random.one_in(2);
        if (ends_by_kill) {
            usleep(static_cast<useconds_t>(random.below(8000)));
            kill(child, SIGKILL);
        }
        int status = 0;
        waitpid(child, &status, 0);
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        totals.killed += killed;
        proof.check(killed || (WIFEXITED(status) && WEXITSTATUS(status) == yes),
                    "a process ended with status %d", status);
    }
    proof.check(shared.failures == 0, "%u times a recorder could not record",
                shared.failures.load());
    proof.check(try_open(path) == yes, "all are gone and no recorder is let in");
    const ReadBack back = read_back(proof, path, plan, shared.acknowledged, random.next());
    proof.check(back.first == 0, "it begins with %llu",
                static_cast<unsigned long long>(back.first));
    totals.let_in += shared.recorders;
    totals.refused += shared.refused;
    totals.frames += back.recorders.size();
}

}  // namespace

void interleave_all(Proof& proof, const std::string& folder, uint64_t count) {
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) abort();
    Shared& shared = *new (memory) Shared;
    Totals totals;
    for (uint64_t i = 0; i < count; ++i) {
        const std::string own = folder + "/many" + std::to_string(i);
        interleave(proof, own, i, shared, totals);
        std::filesystem::remove_all(own);
    }
    munmap(memory, sizeof(Shared));
    const auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    proof.covered(
        "%llu times two or three processes at once: %llu processes, %llu killed, %llu "
        "recorders let in, %llu refused, %llu frames in the order they were let in",
        n(count), n(totals.processes), n(totals.killed), n(totals.let_in), n(totals.refused),
        n(totals.frames));
}

}  // namespace openers
