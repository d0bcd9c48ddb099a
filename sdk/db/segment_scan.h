// Walking through the records of one segment, whatever became of it. Where records are kept and how
// they are found again stands in disk_reader.
#ifndef SDK_DB_SEGMENT_SCAN_H
#define SDK_DB_SEGMENT_SCAN_H

#include <functional>
#include <memory>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

// Reads a file through a window, so that memory stays bounded. The window grows with what is asked
// for: a look at one record reads one block.
class FileWindow {
  public:
    FileWindow(FileSystem& files, int file) : m_files(files), m_file(file) {}

    // `size` bytes (at most a block) at `offset`; null when the file ends before, or cannot be
    // read.
    const uint8_t* at(uint64_t offset, size_t size);
    // Goes on with the checksum over `size` bytes. False when they cannot be read.
    bool crc(uint64_t offset, uint64_t size, uint32_t& crc);
    // True when all bytes in between are there and 0.
    bool zero(uint64_t offset, uint64_t end);
    // What was read is read anew: the file may have grown.
    void forget();
    // -errno of the first bytes asked for that could not be read, else 0.
    int error() const { return m_error; }

  private:
    static constexpr size_t WINDOW_BYTES = 256 * 1024;
    // Aligned for files that are read past the page cache.
    struct Window {
        alignas(BLOCK_BYTES) uint8_t bytes[WINDOW_BYTES];
    };

    bool holds(uint64_t offset, size_t size) const;
    bool fill(uint64_t offset, size_t least);
    const uint8_t* some(uint64_t offset, uint64_t size, size_t& got);

    FileSystem& m_files;
    const int m_file;
    std::unique_ptr<Window> m_window;
    uint64_t m_offset = 0;  // of the window in the file
    size_t m_filled = 0;
    size_t m_reach = 0;  // bytes of the last read
    int m_error = 0;
};

// Where the records of a segment end and how.
struct ScanResult {
    uint64_t end = SEGMENT_START;  // behind the last record
    uint64_t next_sequence = 0;    // of the next frame
    uint32_t frames = 0;
    bool damaged = false;               // something that was durable is missing
    bool finished = false;              // the last record is a directory
    bool padded = false;                // ... or a pad
    RecordHeader last;                  // the last frame, when there is one
    int64_t latest_utc_us = INT64_MIN;  // in all records up to the end, also of segments before
};

class SegmentScan {
  public:
    using OnRecord = std::function<void(const RecordHeader&, uint64_t offset)>;
    // `damage` is false for the remains of an interrupted write that the next record tells of.
    using OnHole = std::function<void(uint64_t offset, uint64_t end, bool damage)>;

    // Either callback may be empty. Records of all kinds are told, in order.
    SegmentScan(FileSystem& files, int file, const SegmentHeader& header, OnRecord on_record,
                OnHole on_hole);

    // Goes on behind what is known of the segment already.
    void resume(const ScanResult& known) { m_result = known; }
    // Goes on where the last call ended, as far as records follow.
    void follow();
    // Follows, and looks for records behind what is unreadable, up to the segment's end. A segment
    // that is being written may be followed further afterwards.
    void run();

    const ScanResult& result() const { return m_result; }
    int error() const { return m_window.error(); }

  private:
    bool in_order(const RecordHeader& header, uint64_t offset) const;
    bool whole_record(uint64_t offset, RecordHeader& header);
    bool step();
    void take(const RecordHeader& header, uint64_t offset);
    void tell_hole(uint64_t offset, uint64_t end, bool damage);
    bool complete(uint64_t limit) const;
    bool next_batch(uint64_t limit, uint64_t& found, RecordHeader& header);
    void salvage(uint64_t end, uint64_t before_sequence);

    FileSystem& m_files;
    const int m_file;
    FileWindow m_window;
    const SegmentHeader m_header;
    const uint32_t m_seed;
    const OnRecord m_on_record;
    const OnHole m_on_hole;
    ScanResult m_result;
    uint64_t m_wasted = 0;  // bytes of records whose checksum did not hold
};

// Who looks among many segments for one of a database asks some of them: places of at most 200 of
// `count`, evenly spread, from the last to the first.
std::vector<size_t> places_to_ask(size_t count);

// The header of an open segment from either of its copies. False when neither is one, or it is not
// that of segment `number`. `copies` (when not null): how many of the two are whole.
bool load_segment_header(FileSystem& files, int file, uint64_t number, SegmentHeader& header,
                         int* copies = nullptr);

}  // namespace sim

#endif  // SDK_DB_SEGMENT_SCAN_H
