// What a disk database holds and whether it is whole: counted, verified, its .ini written anew.
// Texts for people stand in tools/qmtool. Nothing here but rebuild_ini() writes a file.
#ifndef SDK_DB_CHECK_H
#define SDK_DB_CHECK_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mainwork/qm_codec.h"
#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

enum class IniState { whole, missing, damaged, unreadable };

enum class SegmentState {
    whole,       // a header of this database is there
    unbegun,     // nothing was written under its number yet: blank, or what the ring left in it
    foreign,     // of another database
    headless,    // something is in it, but no header
    unreadable,  // it cannot be opened or read
    gone,        // the ring has taken it meanwhile
};
inline constexpr size_t SEGMENT_STATES = 6;

// The first two blocks of a segment's file.
struct HeaderBlocks {
    SegmentHeader header;       // of a copy that is there
    bool copy[2] = {};          // which copies are headers of the segment
    bool copies_agree = true;   // when both are
    bool rest_is_zero[2] = {};  // behind them
    bool blank = false;         // there are only zeros
    // Nothing is wrong with them.
    bool whole() const {
        return copy[0] && copy[1] && copies_agree && rest_is_zero[0] && rest_is_zero[1];
    }
};
// Of SEGMENT_START bytes, in the file with the number of a segment.
HeaderBlocks look_at_headers(const uint8_t* blocks, uint64_t number);

// One segment's file, open for reading; closed by the destructor.
class OpenSegment {
  public:
    OpenSegment(FileSystem& files, uint64_t which) : number(which), m_files(files) {}
    ~OpenSegment() {
        if (file >= 0) m_files.close(file);
    }
    OpenSegment(const OpenSegment&) = delete;
    OpenSegment& operator=(const OpenSegment&) = delete;

    const uint64_t number;
    SegmentState state = SegmentState::unreadable;
    SegmentHeader header;  // when it is whole or foreign
    HeaderBlocks blocks;
    uint64_t bytes = 0;  // the length of the file
    int file = -1;
    int error = 0;  // -errno when it is unreadable

  private:
    FileSystem& m_files;
};

// The directory at the end of a segment's file, as far as it is there.
struct DirectoryView {
    bool tail = false;    // the file ends as a directory does, perhaps one of the ring's last turn
    bool ours = false;    // the record's header is there and of that segment
    bool whole = false;   // and so is the rest of it
    uint64_t offset = 0;  // of the record
    uint32_t entries = 0;
};
DirectoryView look_for_directory(FileSystem& files, const OpenSegment& segment);

// The files of a database, as they were when it was opened. One thread at a time.
class DatabaseView {
  public:
    // `path` is that of the .ini file, or of a folder with exactly one database in it. Null when
    // there is none that can be read: `why` says so in words. `files` outlives the view.
    static std::unique_ptr<DatabaseView> open(FileSystem& files, const std::string& path,
                                              std::string& why);
    ~DatabaseView();

    FileSystem& files() const { return m_files; }
    int folder() const { return m_folder; }
    // That of the .ini file.
    std::string path() const;
    const std::string& ini_name() const { return m_name; }

    IniState ini_state() const { return m_ini_state; }
    const DatabaseIni& ini() const { return m_ini; }  // when it is whole
    int ini_error() const { return m_ini_error; }     // -errno when it is unreadable

    // That of the .ini when any segment has it, else that of the newest.
    const Identity& identity() const { return m_identity; }
    // Of the segment files, rising.
    const std::vector<uint64_t>& numbers() const { return m_numbers; }
    // Names that look like a segment's and are none; the first MOST_STRANGERS, and how many.
    const std::vector<std::string>& strangers() const { return m_strangers; }
    uint64_t stranger_count() const { return m_stranger_count; }
    static constexpr size_t MOST_STRANGERS = 1000;

    std::unique_ptr<OpenSegment> segment(uint64_t number) const;
    // The ring has not taken the segment, so what was read of it is what was recorded.
    bool still_there(const OpenSegment& segment) const;
    // Some process records into it right now.
    bool recorded() const;
    // The same by the locks that a recorder has on its other files.
    bool recorded_without_lock_file() const;

  private:
    DatabaseView(FileSystem& files) : m_files(files) {}
    bool find(const std::string& path, std::string& why);
    bool find_in_folder(const std::string& path, std::string& why);
    int load();
    void load_ini();
    void find_identity();
    void look_at_start(OpenSegment& segment) const;
    bool is_locked(const std::string& name) const;
    bool was_renamed(const uint8_t* blocks, uint64_t number) const;

    FileSystem& m_files;
    int m_folder = -1;
    std::string m_folder_path;
    std::string m_name;
    IniState m_ini_state = IniState::missing;
    int m_ini_error = 0;
    DatabaseIni m_ini;
    Identity m_identity;
    std::vector<uint64_t> m_numbers;
    std::vector<std::string> m_strangers;
    uint64_t m_stranger_count = 0;
};

// Bytes looked at so far, and about how many there are.
using OnProgress = std::function<void(uint64_t done, uint64_t total)>;

// The channels of a summary: those of each stream, then those of the sound.
inline constexpr int AUDIO_ROW = QMCODEC_STREAMS;
inline constexpr int SUMMARY_ROWS = QMCODEC_STREAMS + 1;

struct ChannelSummary {
    uint64_t frames = 0;
    uint64_t key_frames = 0;
    uint64_t bytes = 0;  // of their payloads
    int64_t first_us = 0;
    int64_t last_us = 0;
    uint64_t gaps = 0;
    uint64_t missing_frames = 0;  // by their frame numbers
    int64_t longest_gap_us = 0;
};

// Between two frames of a channel in one run, numbers are missing, or more than a second and more
// than twice the channel's usual distance.
struct Gap {
    int row = 0;
    int channel = 0;
    int64_t after_us = 0;
    int64_t until_us = 0;
    uint32_t missing_frames = 0;
};

struct Run {
    uint32_t run = 0;
    uint64_t first_sequence = 0;
    int64_t utc_us = 0;
    bool stepped = false;  // the machine's clock was, by step_us; else a recording began
    int64_t step_us = 0;
};

// Sequence numbers that no record has.
struct MissingRecords {
    uint64_t first = 0;
    uint64_t count = 0;
    int64_t after_us = 0;
    int64_t until_us = 0;
};

// A list that keeps its first ones.
template <class Item>
struct Bounded {
    static constexpr size_t MOST = 1000;
    std::vector<Item> items;
    uint64_t count = 0;
    void add(const Item& item) {
        if (items.size() < MOST) items.push_back(item);
        ++count;
    }
};

struct Summary {
    uint64_t segments[SEGMENT_STATES] = {};  // by SegmentState
    uint64_t file_bytes = 0;                 // of all segments' files
    uint64_t frames = 0;
    uint64_t damaged = 0;        // stretches that cannot be read
    uint64_t segment_bytes = 0;  // of the newest segment
    bool any = false;            // there is a frame; the two below are known
    int64_t first_us = 0;        // of the first frame
    int64_t last_us = 0;         // of the last one
    // The rest is not counted by count_records().
    ChannelSummary channels[SUMMARY_ROWS][QMCODEC_CHANNELS];
    Bounded<Gap> gaps;
    Bounded<Run> runs;
    Bounded<MissingRecords> missing;
};

// Reads every record's header; of segments that are not finished every byte.
Summary summarize(const DatabaseView& view, const OnProgress& progress);
// Reads the directories; of segments that are not finished every byte.
Summary count_records(const DatabaseView& view, const OnProgress& progress);

enum class FindingKind {
    header_copy,      // one of the two headers is not there, or not that of the segment
    header_rest,      // bytes behind a header that are not 0
    no_header,        // neither is there
    foreign,          // a segment of another database
    cannot_read,      // amount: errno
    file_size,        // amount: the length the header tells; end: that of the file
    damage,           // offset..end cannot be read; amount: frames that are missing there
    missing_records,  // first: sequence number, amount: how many, before this segment or record
    order,            // sequence numbers go back from the segment before
    batch_flag,       // a batch begins where none can, or does not where one must
    hole,             // amount: bytes told of, where there are others
    fill,             // bytes behind a payload that are not 0
    pad,              // bytes in a pad that are not 0
    run,              // the run is below that of the record before
    time,             // the time is not that of the run
    header_time,      // the header's times and run are not those of the records
    directory,        // not that of the records
    no_directory,     // the file is cut, but no directory ends it; note: another segment follows
    unused_bytes,     // note: offset..end, behind a finished segment
    torn_end,         // note: offset.., what an interrupted write left behind
    unbegun,          // note: a segment that nothing was written into yet
    ini_missing,
    ini_damaged,
    ini_foreign,   // it is of another database
    ini_size,      // amount: the size of segments it tells; end: that of the newest
    strange_name,  // text: the name
};

struct Finding {
    FindingKind kind;
    bool note = false;     // nothing is wrong
    uint64_t segment = 0;  // 0: not of one
    bool placed = false;   // offset is known
    uint64_t offset = 0;
    uint64_t end = 0;
    int row = -1;  // of a summary; -1 when not known
    int channel = -1;
    bool timed = false;     // utc_us is known
    bool about = false;     // it is the time of a record near by
    int64_t utc_us = 0;     // recorded time
    uint64_t first = 0;     // see the kinds
    uint64_t amount = 0;    // see the kinds
    std::string text = {};  // see the kinds
};
using OnFinding = std::function<void(const Finding&)>;

struct Verified {
    uint64_t findings = 0;
    uint64_t notes = 0;
    uint64_t segments = 0;
    uint64_t frames = 0;
    uint64_t bytes = 0;  // looked at
};

// Holds the database against every rule of its layout; `quick`: headers, directories and ends only.
// Nothing is reported of what is being written or taken by the ring meanwhile.
Verified verify(const DatabaseView& view, bool quick, const OnFinding& on_finding,
                const OnProgress& progress);

struct Rebuilt {
    bool written = false;  // else the .ini was right already, or `why` says what is in the way
    std::string why;       // empty: it was done
    IniState before = IniState::missing;
    bool other_identity = false;  // the .ini was of another database
    DatabaseIni ini;              // what it says now
    uint64_t segments = 0;        // that have this identity
    uint64_t foreign = 0;         // that have another
    uint64_t without_header = 0;
};

// Writes the .ini file from the segments, in one step: after an interruption it is the old one or
// the new one. Refuses while the database is recorded.
Rebuilt rebuild_ini(FileSystem& files, const DatabaseView& named);

}  // namespace sim

#endif  // SDK_DB_CHECK_H
