// Storing frames in a disk database of this project.
#include "bench/db_recorder.h"

#include "bench/measure.h"

namespace {

constexpr int64_t UTC_STEP_US = 1'700'000'000'000'000;

}  // namespace

uint64_t Recorder::ring_for(uint64_t bytes) {
    const uint64_t segment = sim::WriterOptions().segment_bytes;
    return (bytes + segment - 1) / segment + 2;
}

Recorder::Recorder(const std::string& folder, uint64_t ring_segments) : m_ring(ring_segments) {
    m_options.ring_segments = ring_segments;
    m_options.own_thread = true;
    std::string why;
    m_writer = sim::DiskWriter::open(sim::real_file_system(), path(folder), m_options, why);
    if (!m_writer) give_up("the recorder: " + why);
}

void Recorder::append(const qm_dbframe& frame, int64_t now_us) {
    if (m_writer->append(frame, UTC_STEP_US, now_us) != sim::DiskWriter::Outcome::stored)
        give_up("the recorder took no frame: " + m_writer->trouble());
}

void Recorder::make_durable(int64_t now_us) {
    if (!m_writer->commit(now_us)) give_up("the recorder: " + m_writer->trouble());
}

void Recorder::between_ticks(int64_t now_us) {
    if (!m_writer->commit_if_due(now_us) && m_writer->failing())
        give_up("the recorder: " + m_writer->trouble());
}

void Recorder::finish(int64_t now_us) {
    if (!m_writer->finish(now_us)) give_up("the recorder: " + m_writer->trouble());
}
