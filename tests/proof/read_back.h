// Reads a whole database of planned frames and checks each one. What may be missing is the proofs'
// to say.
#ifndef TESTS_PROOF_READ_BACK_H
#define TESTS_PROOF_READ_BACK_H

#include <algorithm>
#include <string>
#include <vector>

#include "sdk/db/disk_reader.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"

// What a reader found: frames first <= n < end, and who recorded frame first + i.
struct ReadBack {
    bool opened = false;
    uint64_t first = 0;
    uint64_t end = 0;
    std::vector<uint32_t> recorders;
    uint64_t key_searches = 0;
};

// A few searches by time and for key frames, against what was read.
inline void check_searches(Proof& proof, sim::DiskReader& reader, ReadBack& back,
                           const std::vector<sim::FrameInfo>& infos, ProofRandom& random) {
    for (int i = 0; i < 8 && !infos.empty(); ++i) {
        const size_t at = random.below(infos.size());
        const uint64_t n = back.first + at;
        proof.check(reader.at_time(infos[at].time_us) == n, "frame %llu is not found by its time",
                    static_cast<unsigned long long>(n));
        const sim::FrameInfo& of = infos[random.below(infos.size())];
        const auto wanted = [&](const sim::FrameInfo& it) {
            return it.stream == of.stream && it.channel == of.channel && sim::is_key(it.kind);
        };
        const auto later =
            std::find_if(infos.begin() + static_cast<ptrdiff_t>(at) + 1, infos.end(), wanted);
        const auto sooner =
            std::find_if(infos.rend() - static_cast<ptrdiff_t>(at) - 1, infos.rend(), wanted);
        uint64_t key = 0;
        const bool before = reader.key_at_or_before(n, of.stream, of.channel, key);
        proof.check(
            before == (sooner != infos.rend()) &&
                (!before || key == back.first + static_cast<uint64_t>(infos.rend() - sooner - 1)),
            "another key frame at or before %llu", static_cast<unsigned long long>(n));
        const bool after = reader.key_after(n, of.stream, of.channel, key);
        proof.check(
            after == (later != infos.end()) &&
                (!after || key == back.first + static_cast<uint64_t>(later - infos.begin())),
            "another key frame behind %llu", static_cast<unsigned long long>(n));
        ++back.key_searches;
    }
}

// Nobody records meanwhile. Every frame from the first to the end must be there, right, once and in
// order of those who recorded; `acknowledged` frames (sequence numbers below it) must not lie
// behind the end.
inline ReadBack read_back(Proof& proof, const std::string& path, const FramePlan& plan,
                          uint64_t acknowledged, uint64_t seed) {
    ReadBack back;
    std::string why;
    const auto reader = sim::DiskReader::open(sim::real_file_system(), path, why);
    if (!proof.check(reader != nullptr, "a reader cannot open it: %s", why.c_str())) return back;
    back.opened = true;
    back.first = reader->first();
    back.end = reader->end();
    proof.check(back.end >= acknowledged, "frames up to %llu were acknowledged, it ends at %llu",
                static_cast<unsigned long long>(acknowledged),
                static_cast<unsigned long long>(back.end));
    std::vector<sim::FrameInfo> infos;
    qm_dbframe frame;
    uint32_t recorder = 0;
    for (uint64_t n = back.first; n < back.end; ++n) {
        const auto number = static_cast<unsigned long long>(n);
        if (!proof.check(reader->next(n) == n, "frame %llu is not there", number) ||
            !proof.check(reader->read(n, frame), "frame %llu cannot be read", number))
            return back;
        const std::string wrong = plan.wrong(frame, n, recorder);
        if (!proof.check(wrong.empty(), "frame %llu: %s", number, wrong.c_str())) return back;
        proof.check(back.recorders.empty() || back.recorders.back() <= recorder,
                    "frame %llu of recorder %u stands behind one of recorder %u", number, recorder,
                    back.recorders.empty() ? 0 : back.recorders.back());
        back.recorders.push_back(recorder);
        infos.push_back(frame.info);
    }
    ProofRandom random(seed);
    check_searches(proof, *reader, back, infos, random);
    return back;
}

#endif  // TESTS_PROOF_READ_BACK_H
