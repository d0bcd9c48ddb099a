// Holding one segment of a disk database against the rules of its layout. The part of verify() that
// looks into a file; how segments follow each other stands in check_verify.
#ifndef SDK_DB_CHECK_SEGMENT_H
#define SDK_DB_CHECK_SEGMENT_H

#include <functional>
#include <vector>

#include "sdk/db/check.h"
#include "sdk/db/segment_scan.h"

namespace sim {

// What the next segment is measured by.
struct SegmentEnd {
    bool known = false;  // where the frames end; not in a quick look at an unfinished segment
    bool damaged = false;
    bool timed = false;  // latest_utc_us is known
    uint64_t first_sequence = 0;
    uint64_t next_sequence = 0;
    uint64_t frames = 0;
    uint32_t first_run = 0;
    int64_t latest_utc_us = INT64_MIN;  // in all records up to the end
};

class SegmentCheck {
  public:
    // `newest`: it has the highest number of the database. Both outlive the check.
    SegmentCheck(const DatabaseView& view, const OpenSegment& segment, bool newest)
        : m_view(&view), m_segment(&segment), m_newest(newest) {}

    // `at` is told how many bytes were looked at. Once.
    void run(bool quick, const std::function<void(uint64_t)>& at);

    // Nothing but notes was found.
    bool clean() const;
    // Forgets findings that an earlier check of the same segment did not have.
    void keep_what_was_in(const SegmentCheck& earlier);

    const std::vector<Finding>& findings() const { return m_findings; }
    // Findings that are only counted.
    uint64_t further() const { return m_further; }
    const SegmentEnd& end() const { return m_end; }

  private:
    // What a record is measured by: those before it.
    struct Before {
        bool any = false;        // a record
        bool any_frame = false;  // the four below are known
        RecordHeader record;
        uint32_t run = 0;
        int64_t utc_us = 0;     // of the last frame
        int64_t offset_us = 0;  // UTC less monotonic time in the run
        int64_t latest_mono_us = 0;
        uint64_t end = SEGMENT_START;
    };

    static constexpr size_t MOST_FINDINGS = 1000;

    Finding make(FindingKind kind, uint64_t offset) const;
    Finding make(FindingKind kind, uint64_t offset, const RecordHeader& record) const;
    void add(const Finding& finding);

    void check_headerless();
    void check_headers();
    void check_size();
    void check_quickly();
    void check_records(const std::function<void(uint64_t)>& at);
    void check_end(const ScanResult& scanned);
    uint64_t next_first_sequence() const;
    bool names_the_frames(const DirectoryView& directory);
    void check_lost_end(const ScanResult& scanned, const DirectoryView& directory);
    void check_torn_end(const ScanResult& scanned, const DirectoryView& directory);

    void on_record(const RecordHeader& record, uint64_t offset);
    void on_hole(uint64_t offset, uint64_t end, bool damage);
    void tell_damage(uint64_t missing);
    void check_place(const RecordHeader& record, uint64_t offset);
    void check_sequence(const RecordHeader& record, uint64_t offset);
    void check_time(const RecordHeader& record, uint64_t offset);
    void check_header_time(const RecordHeader& record);
    void check_fill(const RecordHeader& record, uint64_t offset);
    void check_directory(const RecordHeader& record, uint64_t offset);
    void add_entry(const RecordHeader& record, uint64_t offset);

    const DatabaseView* m_view;
    const OpenSegment* m_segment;
    bool m_newest;
    uint32_t m_seed = 0;
    std::unique_ptr<FileWindow> m_window;  // for what the scan does not look at
    uint64_t m_first_offset = 0;           // of the first record; 0 for none
    Before m_before;
    uint64_t m_next = 0;          // the sequence number of the next frame
    uint64_t m_hole_start = 0;    // of the hole before the next record
    uint64_t m_hole_end = 0;      // 0: there is none
    uint64_t m_damage_start = 0;  // of the damage before the next record
    uint64_t m_damage_end = 0;    // 0: there is none
    bool m_told_damage = false;   // since the last frame
    bool m_damaged = false;       // anywhere
    uint32_t m_entries = 0;       // of a directory of all frames so far
    uint32_t m_entries_crc = 0;
    bool m_entries_whole = true;  // no frame is missing
    SegmentEnd m_end;
    std::vector<Finding> m_findings;
    uint64_t m_further = 0;
};

}  // namespace sim

#endif  // SDK_DB_CHECK_SEGMENT_H
