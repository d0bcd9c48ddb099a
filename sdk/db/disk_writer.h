// The recorder of a disk database. One thread at a time; says nothing itself, its owner reports.
// The files stand in segment_files, the bytes in format.
#ifndef SDK_DB_DISK_WRITER_H
#define SDK_DB_DISK_WRITER_H

#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"
#include "sdk/db/pending_io.h"
#include "sdk/db/segment_files.h"

namespace sim {

struct WriterOptions {
    uint64_t segment_bytes = 512 * 64 * 1024;  // a multiple of 64 KiB, held to the format's limits
    uint64_t ring_segments = 1920;             // at least 1
    // Of the buffer; a multiple of the block size. Two of this size, each with room for a segment's
    // header, are one large page.
    size_t batch_bytes = (size_t{1} << 20) - SEGMENT_START;
    int64_t commit_us = 500'000;   // a batch is written that long after its first record
    int64_t retry_us = 1'000'000;  // between two attempts while nothing can be written
    bool own_thread = false;       // one that writes a full batch while the next is filled
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
    // Makes everything appended so far durable; tries at once, whatever failed before. False when
    // that is not possible now.
    bool commit(int64_t now_us);
    // commit() when it is due.
    bool commit_if_due(int64_t now_us);
    // When that is; INT64_MAX when nothing waits.
    int64_t due_us() const { return m_due_us; }
    // Writes the directory and cuts the segment; nothing can be appended after. False when frames
    // could not be written; they are in lost().
    bool finish(int64_t now_us);

    uint64_t next_sequence() const { return m_next_sequence; }  // of the next frame
    // Frames before it are durable.
    uint64_t durable_sequence() const {
        return m_next_sequence - m_batch.frames - m_handed_over.frames;
    }
    uint64_t lost() const { return m_lost; }                  // taken and never made durable
    bool failing() const { return m_failing; }                // the last attempt failed
    const std::string& trouble() const { return m_trouble; }  // what failed last, in words
    // Number of the segment being written; 0 for none.
    uint64_t segment() const { return m_planned ? m_header.number : 0; }

  private:
    static constexpr size_t TROUBLE_BYTES = 200;
    // What a batch ends with: a pad; or the directory, where the records end or at the end of the
    // segment.
    enum class Ending { pad, cut, fill };
    struct Release {
        void operator()(uint8_t* buffer) const;
    };
    using Buffer = std::unique_ptr<uint8_t[], Release>;
    static Buffer make_buffer(size_t bytes);
    // Records that become durable with one write.
    struct Batch {
        uint8_t* usual = nullptr;  // in m_buffers: room for the headers, then the batch
        Buffer larger;             // instead of it, for a large frame
        size_t capacity = 0;       // of the batch
        size_t filled = 0;         // by whole records
        uint64_t frames = 0;
        uint32_t seed = 0;                  // of the segment that the records are made for
        RecordHeader end;                   // names what comes behind the last record
        int64_t latest_utc_us = INT64_MIN;  // of all frames before the batch

        uint8_t* buffer() const { return larger ? larger.get() : usual; }
        uint8_t* area() const { return buffer() + SEGMENT_START; }
        void reserve(size_t bytes);
        void clear() { filled = 0, frames = 0; }
    };

    DiskWriter(FileSystem& files, const WriterOptions& options);

    void make_buffers();
    void recover(const Newest& newest);
    bool go_on_in(const SegmentHeader& header);
    Outcome take(const qm_dbframe& frame, int64_t utc_step_us, int64_t now_us);
    void put(const qm_dbframe& frame, int64_t utc_us);
    size_t batch_limit() const;
    void follow_time(int64_t mono_us, int64_t utc_step_us);

    // The segment: planned with its first frame, its file made with its first batch.
    void plan(uint64_t number, const RecordHeader& first);
    void plan_again(uint64_t number);
    void place(RecordHeader& header, size_t at);
    void place_again();
    void place_behind();
    bool end_segment(int64_t now_us);
    bool write_all(int64_t now_us);
    int open_segment();
    void leave_segment();
    uint64_t space_for_ending(uint64_t entries) const;
    bool fits_segment(uint64_t bytes) const;

    // The batch.
    RecordHeader ending_header(uint8_t kind) const;
    void stamp(RecordHeader& header, size_t at);
    size_t compose(Ending& ending);
    size_t compose_pad(size_t at, size_t bytes);
    size_t compose_directory(size_t at);
    bool write_out(Ending ending, int64_t now_us);
    bool hand_over(Ending ending, int attempts, int64_t now_us);
    int try_batch(Ending ending);
    int begin_write(Ending ending);
    bool settle(int64_t now_us);
    int finish_write();
    void give_up_write(int result);
    bool write_again(int attempts, int64_t now_us);
    void give_up_segment();
    void suspect(int result);
    void note_failure(int result, int64_t now_us);

    FileSystem& m_files;
    WriterOptions m_options;
    std::unique_ptr<SegmentFiles> m_segments;

    bool m_planned = false;
    SegmentHeader m_header;
    uint32_t m_seed = 0;           // of m_header
    int m_file = -1;               // of the segment; -1 before its first batch
    bool m_has_batch = false;      // a batch of it is durable
    bool m_allocated = true;       // its file has its full size
    bool m_has_directory = false;  // it ends with one
    uint64_t m_offset = 0;         // where the batch goes
    uint32_t m_hole = 0;           // before it
    std::vector<DirectoryEntry>
        m_entries;  // of all frames of the segment, the waiting ones as well

    Buffer m_buffers;     // of both batches: the disk gets a batch in few pieces
    Batch m_batch;        // being filled
    Batch m_handed_over;  // the one before it, with frames in it as long as they are not durable
    PendingIo m_write;    // of m_handed_over
    Ending m_write_ending = Ending::pad;
    int m_write_file = -1;
    uint64_t m_write_number = 0;    // of its segment
    uint64_t m_write_end = 0;       // in the file
    bool m_write_is_first = false;  // of its segment

    uint64_t m_next_sequence = 0;
    uint32_t m_run = 0;
    bool m_timed = false;  // a frame was appended: the two below are known
    int64_t m_latest_mono_us = 0;
    int64_t m_utc_step_us = 0;
    int64_t m_latest_utc_us = INT64_MIN;  // of all frames

    int64_t m_due_us = INT64_MAX;
    int64_t m_retry_us = 0;
    bool m_failing = false;
    bool m_suspect = false;  // the disk is to prove that it works
    uint64_t m_lost = 0;
    std::string m_trouble;
};

}  // namespace sim

#endif  // SDK_DB_DISK_WRITER_H
