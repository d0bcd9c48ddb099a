// Recording until the process is killed.
#include "tests/proof/kill_recorder.h"

#include <unistd.h>

#include <cstdio>

#include "sdk/db/disk_writer.h"
#include "tests/proof/pass_files.h"

namespace {

using sim::DiskWriter;

// Keeps what is being done in the whereabouts. Some writes are done in pieces, as a disk may do
// them, so that a kill leaves them half done.
class WatchedFiles : public PassFiles {
  public:
    WatchedFiles(Whereabouts& whereabouts, uint64_t seed)
        : m_whereabouts(whereabouts), m_random(seed) {}

    int write(int file, const void* data, size_t size, uint64_t offset) override {
        return during(writing, [&] {
            if (size % sim::BLOCK_BYTES != 0 || m_random.one_in(2))
                return PassFiles::write(file, data, size, offset);
            int result = 0;
            for (size_t at = 0; at < size && result == 0; at += sim::BLOCK_BYTES) {
                const auto* piece = static_cast<const uint8_t*>(data) + at;
                result = PassFiles::write(file, piece, sim::BLOCK_BYTES, offset + at);
            }
            return result;
        });
    }
    int sync(int file) override {
        return during(syncing, [&] { return PassFiles::sync(file); });
    }
    int sync_folder(int folder) override {
        return during(syncing, [&] { return PassFiles::sync_folder(folder); });
    }
    int allocate(int file, uint64_t size) override {
        return during(naming, [&] { return PassFiles::allocate(file, size); });
    }
    int truncate(int file, uint64_t size) override {
        return during(naming, [&] { return PassFiles::truncate(file, size); });
    }
    int rename(int folder, const std::string& from, const std::string& to) override {
        return during(naming, [&] { return PassFiles::rename(folder, from, to); });
    }
    int remove(int folder, const std::string& name) override {
        return during(naming, [&] { return PassFiles::remove(folder, name); });
    }

  private:
    template <class Work>
    int during(Operation operation, Work work) {
        m_whereabouts.operation = operation;
        const int result = work();
        m_whereabouts.operation = none;
        return result;
    }
    Whereabouts& m_whereabouts;
    ProofRandom m_random;
};

[[noreturn]] void tell_wrong(int pipe, uint64_t code) {
    const Message message{Message::wrong, code};
    if (write(pipe, &message, sizeof message) < 0) _exit(2);
    _exit(1);
}

void tell(int pipe, Message::What what, uint64_t sequence) {
    const Message message{what, sequence};
    if (write(pipe, &message, sizeof message) != sizeof message) _exit(2);
}

}  // namespace

void record_until_killed(const std::string& path, const FramePlan& plan, const Session& session,
                         Whereabouts& whereabouts, int pipe) {
    ProofRandom random(session.seed);
    WatchedFiles files(whereabouts, random.next());
    sim::WriterOptions options;
    options.own_thread = true;
    options.segment_bytes = sim::MIN_SEGMENT_BYTES;
    options.ring_segments = RING_SEGMENTS;
    options.batch_bytes = 4 * sim::BLOCK_BYTES;
    whereabouts.enter(opening);
    std::string why;
    const auto writer = DiskWriter::open(files, path, options, why);
    if (!writer) {
        fprintf(stderr, "recorder %u: %s\n", session.recorder, why.c_str());
        tell_wrong(pipe, 1);
    }
    tell(pipe, Message::opened, writer->next_sequence());
    whereabouts.enter(recording);
    qm_dbframe frame;
    for (uint64_t i = 0; i < session.frames; ++i) {
        plan.make(session.recorder, writer->next_sequence(), frame);
        const int64_t now = steady_us();
        if (writer->append(frame, PROOF_UTC_STEP_US, now) != DiskWriter::Outcome::stored)
            tell_wrong(pipe, 2);
        if (random.one_in(10)) tell(pipe, Message::durable, writer->durable_sequence());
        if (!random.one_in(session.frames_commit)) continue;
        if (!writer->commit(now)) tell_wrong(pipe, 3);
        tell(pipe, Message::durable, writer->durable_sequence());
    }
    whereabouts.enter(finishing);
    if (!writer->finish(steady_us()) || writer->lost() != 0) tell_wrong(pipe, 4);
    tell(pipe, Message::durable, writer->durable_sequence());
    whereabouts.enter(ended);
    for (;;) pause();
}
