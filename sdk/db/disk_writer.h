// The recorder of a disk database. One thread at a time; says nothing itself, its owner reports.
#ifndef SDK_DB_DISK_WRITER_H
#define SDK_DB_DISK_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

struct WriterOptions {
    uint64_t segment_bytes = 512 * 64 * 1024;  // a multiple of 64 KiB, held to the format's limits
    uint64_t ring_segments = 1920;             // at least 1
    size_t batch_bytes = 1 << 20;              // of the buffer; a multiple of the block size
    int64_t commit_us = 500'000;   // a batch is written that long after its first record
    int64_t retry_us = 1'000'000;  // between two attempts while nothing can be written
};

class DiskWriter {
  public:
    enum class Outcome {
        stored,   // it will be durable within commit_us, or after the trouble
        refused,  // it can never fit
        busy,     // nothing can be written now and the buffer is full: the frame was not taken
    };

    // Takes the database's lock and finds where to go on. Null when it cannot be recorded: `why`
    // says so in words. `files` outlives the writer.
    static std::unique_ptr<DiskWriter> open(FileSystem& files, const std::string& path,
                                            const WriterOptions& options, std::string& why);
    // As after a kill: writes nothing, lets the lock go.
    ~DiskWriter();

    // The recorded time of the frame is info.time_us (monotonic) + utc_step_us (UTC).
    Outcome append(const qm_dbframe& frame, int64_t utc_step_us, int64_t now_us);
    // Makes everything appended so far durable. False when that is not possible now.
    bool commit(int64_t now_us);
    // commit() when it is due.
    bool commit_if_due(int64_t now_us);
    // When that is; NEVER when nothing waits.
    int64_t due_us() const { return m_due_us; }
    // Writes the directory and cuts the segment; nothing can be appended after. False when frames
    // could not be written; they are in lost().
    bool finish(int64_t now_us);

    uint64_t next_sequence() const;      // of the next frame
    uint64_t durable_sequence() const;   // frames before it are durable
    uint64_t lost() const;               // frames taken and never made durable
    bool failing() const;                // the last attempt failed
    const std::string& trouble() const;  // what failed last, in words
    uint64_t segment() const;            // number of the one being written; 0 for none

  private:
    DiskWriter() = default;
    int64_t m_due_us = INT64_MAX;
};

}  // namespace sim

#endif  // SDK_DB_DISK_WRITER_H
