// What openers of a database have in common: a recorder that is let in or not.
#ifndef TESTS_PROOF_OPENERS_H
#define TESTS_PROOF_OPENERS_H

#include <memory>
#include <string>

#include "sdk/db/disk_writer.h"
#include "tests/proof/proof.h"
#include "tests/proof/proof_frames.h"

namespace openers {

using Writer = std::unique_ptr<sim::DiskWriter>;

inline constexpr char NAME[] = "open.ini";
enum Answer : int { yes = 10, no = 11, no_without_reason = 12, wrong = 13, waited = 14 };

inline Writer open_writer(const std::string& path, std::string& why) {
    sim::WriterOptions options;
    options.segment_bytes = sim::MIN_SEGMENT_BYTES;
    options.ring_segments = 200;
    options.batch_bytes = 4 * sim::BLOCK_BYTES;
    return sim::DiskWriter::open(sim::real_file_system(), path, options, why);
}

inline bool record(sim::DiskWriter& writer, const FramePlan& plan, uint32_t recorder,
                   uint64_t frames) {
    qm_dbframe frame;
    for (uint64_t i = 0; i < frames; ++i) {
        plan.make(recorder, writer.next_sequence(), frame);
        if (writer.append(frame, PROOF_UTC_STEP_US, steady_us()) !=
            sim::DiskWriter::Outcome::stored)
            return false;
    }
    return writer.commit(steady_us());
}

// Whether a recorder is let in.
inline Answer try_open(const std::string& path) {
    std::string why;
    if (open_writer(path, why)) return yes;
    return why.empty() ? no_without_reason : no;
}

// Two or three processes open, record, end and are killed at random, `count` times.
void interleave_all(Proof& proof, const std::string& folder, uint64_t count);

}  // namespace openers

#endif  // TESTS_PROOF_OPENERS_H
