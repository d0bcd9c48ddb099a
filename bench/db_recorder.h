// The project's own recorder as one of the stores of the database benchmark.
#ifndef BENCH_DB_RECORDER_H
#define BENCH_DB_RECORDER_H

#include "bench/db_store.h"
#include "sdk/db/disk_writer.h"

class Recorder : public Store {
  public:
    // Two segments more than `bytes` of payload fill.
    static uint64_t ring_for(uint64_t bytes);
    static std::string path(const std::string& folder) { return folder + "/bench.ini"; }

    Recorder(const std::string& folder, uint64_t ring_segments);

    void append(const qm_dbframe& frame, int64_t now_us) override;
    void make_durable(int64_t now_us) override;
    // What it is meant to be called with: it knows itself when something is due.
    void between_ticks(int64_t now_us) override;

    // The next batch begins in a segment that was used before.
    bool turned() const { return m_writer->segment() > m_ring; }
    uint64_t segment() const { return m_writer->segment(); }
    uint64_t segment_bytes() const { return m_options.segment_bytes; }
    // Ends the recording in order. Without it the recorder ends as after a kill.
    void finish(int64_t now_us);

  private:
    const uint64_t m_ring;
    sim::WriterOptions m_options;
    std::unique_ptr<sim::DiskWriter> m_writer;
};

#endif  // BENCH_DB_RECORDER_H
