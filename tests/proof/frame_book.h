// What was recorded into a database in memory and what must be found again: the books that the
// proofs with crash_files and faulty_files keep. What happens to the files stands in the proofs.
#ifndef TESTS_PROOF_FRAME_BOOK_H
#define TESTS_PROOF_FRAME_BOOK_H

#include <map>
#include <string>
#include <vector>

#include "sdk/db/disk_writer.h"
#include "tests/proof/crash_files.h"

inline const std::string BOOK_FOLDER = "rec";
inline const std::string BOOK_INI = "qm.ini";
inline const std::string BOOK_PATH = BOOK_FOLDER + "/" + BOOK_INI;

// The frame that has this number among all that were ever handed to a recorder: everything about
// it follows from the number. Three sizes: up to 300 bytes; 3000 to 7000, a third of them so that
// their record fills a block; 12000 to 20000.
enum class FrameSize { small, large, huge };
void make_frame(uint32_t id, FrameSize size, int64_t time_us, qm_dbframe& out);
inline constexpr int64_t BOOK_UTC_STEP_US = 1'700'000'000'000'000;

// A copy of the books goes with every copy of the files.
class FrameBook {
  public:
    explicit FrameBook(uint64_t ring) : m_ring(ring) {}

    // Hands a new frame to the recorder and enters it. What the recorder said is counted.
    sim::DiskWriter::Outcome append(sim::DiskWriter& writer, FrameSize size);
    bool commit(sim::DiskWriter& writer);
    bool finish(sim::DiskWriter& writer);
    // After each of these: what the recorder says is durable is durable. `files` may be null: then
    // the segments are not known, and cut_to() must tell from another book of the same recording.
    void acknowledge(const sim::DiskWriter& writer, const CrashFiles* files);
    // Only frames before `durable` are.
    void cut_to(uint64_t durable);
    // A recorder begins, after a crash or not: what it goes on behind is what there is.
    // False (and `wrong` says why) when it cannot go on there. With `excused` what the one before
    // did not acknowledge is nobody's promise: the disk was failing when it was written.
    bool begin(const sim::DiskWriter& writer, const CrashFiles* files, std::string& wrong,
               bool excused = false);

    // Reads everything and compares. Empty when all is well, else what is wrong. With `gaps` there
    // may be numbers that nobody has.
    std::string compare(sim::FileSystem& files, bool gaps = false,
                        const std::string& path = BOOK_PATH) const;

    void pass_time(int64_t us) { m_now_us += us; }
    int64_t now_us() const { return m_now_us; }
    uint64_t durable() const { return m_durable; }
    // The first frame that the ring must still have.
    uint64_t kept_from() const;
    // The segments that hold something durable, and their first frames.
    const std::map<uint64_t, uint64_t>& segments() const { return m_segments; }
    // For trouble in which more segments may go than the ring drops.
    void allow_dropped(uint64_t segments) { m_allowed = segments; }

    struct Counts {
        uint64_t appended = 0, stored = 0, refused = 0, busy = 0;
    };
    const Counts& counts() const { return m_counts; }

  private:
    struct Entry {
        uint64_t sequence;
        uint32_t id;
        FrameSize size;
        int64_t time_us;
        bool excused = false;  // it may be missing although it is below m_durable
    };
    bool promised(const Entry& entry) const { return !entry.excused && entry.sequence < m_durable; }
    static std::string compare_frame(const qm_dbframe& frame, const Entry& entry);
    const Entry* find(uint64_t sequence) const;

    uint64_t m_ring;
    uint64_t m_allowed = 0;
    std::vector<Entry> m_entries;  // rising; some numbers may be missing
    uint64_t m_durable = 0;
    std::map<uint64_t, uint64_t> m_segments;
    uint32_t m_next_id = 1;
    int64_t m_now_us = 1'000'000;
    Counts m_counts;
};

// What the complete check of the database finds, without its notes: empty when all is well.
enum class Tolerated {
    nothing,
    missing,  // numbers that nobody has
    crash,    // headers and directories as an interrupted first or last batch leaves them
};
std::string findings(sim::FileSystem& files, Tolerated tolerated,
                     const std::string& path = BOOK_PATH);

// The segments in the folder that hold at least one whole record under a header of their own, and
// their first frames. `above`: only those with higher numbers.
std::map<uint64_t, uint64_t> segments_with_records(const CrashFiles& files, uint64_t above = 0);

#endif  // TESTS_PROOF_FRAME_BOOK_H
