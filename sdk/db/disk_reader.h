// Reading a disk database, also while it is written: by sequence number, by time and channel.
// Writes nothing and takes no lock. One thread at a time. Files that are none of the database's
// segments, or cannot be read, are passed over.
#ifndef SDK_DB_DISK_READER_H
#define SDK_DB_DISK_READER_H

#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"
#include "sdk/db/read_ahead.h"
#include "sdk/db/segment_index.h"
#include "sdk/db/segment_scan.h"

namespace sim {

// Where memory runs out a call throws std::bad_alloc; the next one finds all as it was.
class DiskReader {
  public:
    // Null when there is no such database: `why` says so in words. A database without a readable
    // .ini opens as long as it has a segment. With `own_thread` a caller who reads all in order is
    // read ahead of.
    static std::unique_ptr<DiskReader> open(FileSystem& files, const std::string& path,
                                            std::string& why, bool own_thread = false);
    ~DiskReader();

    // Records are kept for first() <= n < end(); some in between may be missing.
    uint64_t first();
    uint64_t end();
    // The least n' >= n that is there; end() when none is.
    uint64_t next(uint64_t n);
    // The greatest n' < n that is there; n when none is.
    uint64_t previous(uint64_t n);

    bool info(uint64_t n, FrameInfo& out);
    // With its payload, its checksum verified.
    bool read(uint64_t n, qm_dbframe& out);

    // The first record at which the recording had reached `time_us`; end() when it never did.
    uint64_t at_time(int64_t time_us);
    // The last key frame of a channel at or before record n; the next one behind it. False when
    // there is none.
    bool key_at_or_before(uint64_t n, int stream, int channel, uint64_t& key);
    bool key_after(uint64_t n, int stream, int channel, uint64_t& key);

    // Some process records into it.
    bool recorded();

  private:
    enum class State : uint8_t { unknown, good, passed_over, unreadable };  // last: for now

    // A segment that is in use: its file, as long as it is open, and its index.
    struct Loaded {
        explicit Loaded(FileSystem& its_files) : files(its_files) {}
        ~Loaded() { close(); }
        Loaded(const Loaded&) = delete;
        Loaded& operator=(const Loaded&) = delete;
        void close();

        FileSystem& files;
        uint64_t number = 0;
        SegmentHeader header;
        uint32_t seed = 0;
        int file = -1;
        uint64_t used = 0;  // when, in calls
        SegmentIndex index;
        std::unique_ptr<SegmentScan> scan;  // of the newest segment
    };

    // A file that has a segment's name. What is known of it is found out when it is needed.
    struct Segment {
        uint64_t number = 0;
        uint64_t first_sequence = 0;
        int64_t latest_utc_us = 0;  // before it
        LaneSet keys;               // the channels with key frames in it
        bool keys_known = false;
        State state = State::unknown;
        Loaded* loaded = nullptr;
    };
    static constexpr size_t NONE = SIZE_MAX;

    DiskReader(FileSystem& files, std::string name, bool own_thread)
        : m_files(files), m_name(std::move(name)), m_stream(files, own_thread) {}

    bool start(const std::string& folder, std::string& why);
    void read_ini();
    int open_file(uint64_t number);
    int open_header(uint64_t number, SegmentHeader& header);
    size_t place_of(uint64_t number) const;
    bool list_segments();
    void keep_listed(std::vector<Segment>& listed);
    bool settle();
    bool decide_identity();

    bool examine(Segment& segment);
    bool good(size_t place);
    size_t good_above(size_t place);
    template <class Before>
    size_t last_where(Before before);
    size_t holder(uint64_t n);
    uint64_t limit(size_t place);

    bool refresh();
    bool follow_newest();
    bool has_begun();
    bool find_newer();
    bool find_listed();
    bool look_in_folder();
    void adopt(size_t place);

    Loaded* load(size_t place);
    void load_index(Loaded& loaded, bool newest);
    int hold_file(Loaded& loaded);
    void unload(Loaded* loaded);
    void make_room(const Loaded* in_use);
    bool close_one(const Loaded* in_use);
    void pass_over(size_t place);
    bool still_there(Loaded& loaded);

    bool locate(uint64_t n, size_t& place, size_t& entry);
    const uint8_t* read_ahead(const Loaded& loaded, uint64_t offset, size_t wanted) const;
    bool reads_on(const Loaded& loaded, uint64_t offset) const;
    const uint8_t* streamed(const Loaded& loaded, uint64_t offset, size_t wanted);
    bool stream_from(uint64_t number, uint64_t offset, uint64_t end);
    bool stream_on();
    void load_ahead();
    void announce_ending(uint64_t number);
    const uint8_t* bytes_at(Loaded& loaded, uint64_t offset, size_t wanted, size_t& got);
    const uint8_t* header_at(Loaded& loaded, size_t entry, size_t wanted, RecordHeader& header,
                             size_t& got);
    bool read_entry(Loaded& loaded, size_t entry, qm_dbframe& out);
    bool first_known(uint64_t& first);
    bool next_known(uint64_t n, uint64_t& found);
    bool at_time_known(int64_t time_us, uint64_t& found);
    bool key_after_known(uint64_t n, size_t lane, uint64_t& key);

    FileSystem& m_files;
    const std::string m_name;  // of the .ini file
    int m_folder = -1;
    int m_lock = -1;
    int m_error = 0;  // of the last file that is there and could not be opened
    bool m_has_ini = false;
    Identity m_ini_identity;
    Identity m_identity;
    bool m_has_identity = false;

    std::vector<Segment> m_segments;  // rising numbers
    size_t m_newest = NONE;           // place of the newest good one
    uint64_t m_end = 0;
    int64_t m_list_due_us = 0;  // steady clock
    std::vector<std::unique_ptr<Loaded>> m_loaded;
    uint64_t m_calls = 0;

    // Bytes read ahead of a caller who reads on.
    std::unique_ptr<uint8_t[]> m_ahead;
    uint64_t m_ahead_segment = 0;  // identity
    uint64_t m_ahead_offset = 0;
    size_t m_ahead_bytes = 0;
    size_t m_ahead_reach = 0;    // of the last read
    uint64_t m_ahead_next = 0;   // where the last record that was read ends
    uint64_t m_read_number = 0;  // of its segment
    bool m_read_last = false;    // it was the last of its segment
    uint64_t m_read_on = 0;      // bytes of records that were read one after the other
    ReadAhead m_stream;          // when they are many
    uint64_t m_announced = 0;    // number of the segment whose ending was announced last
    uint64_t m_load_soon = 0;    // number of the segment that is needed next; 0 for none
    uint8_t m_record[RECORD_BYTES] = {};
};

}  // namespace sim

#endif  // SDK_DB_DISK_READER_H
