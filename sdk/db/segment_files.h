// The files of one disk database as its recorder has them: the lock, the .ini file, the ring of
// segment files. What goes into a segment stands in disk_writer.
#ifndef SDK_DB_SEGMENT_FILES_H
#define SDK_DB_SEGMENT_FILES_H

#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

void fill_at_random(void* out, size_t size);

// ENOSPC or EDQUOT, as -errno.
bool no_room(int result);

// "folder/name.ini" in its two parts; the folder is "" for the working directory.
void split_path(const std::string& path, std::string& folder, std::string& name);

// The newest segment with a valid header, and the identity of the database: that of the .ini when
// any segment has it, else the newest segment's.
struct Newest {
    bool found = false;
    SegmentHeader header;
    int error = 0;  // of a newer file that could not be read: it may hold anything
};

// One thread at a time. Results are 0 or more, or -errno.
class SegmentFiles {
  public:
    // Makes the folder, takes the lock. Null when that fails: `why` says so in words.
    static std::unique_ptr<SegmentFiles> open(FileSystem& files, const std::string& path,
                                              std::string& why);
    ~SegmentFiles();

    // Reads the folder and the .ini file. -EAGAIN when another recorder is at work after all.
    int load(Newest& newest);
    const Identity& identity() const { return m_identity; }
    // Behind all numbers in use; above MAX_SEGMENT_NUMBER when they are used up.
    uint64_t next_number() const { return m_next; }
    // A name is taken that was not there before. Returns the next number.
    uint64_t pass_over(uint64_t number) { return m_next = number + 1; }

    // Brings the .ini file up to date when it says something else. A failure is made good later.
    void keep_ini(uint64_t segment_bytes, uint64_t ring_segments);

    // The file of a new segment, allocated; or -errno, and then nothing of it is left. The oldest
    // segment gives way when there are `ring` already or room is short. Its name is durable when
    // folder() is synced; then keep() or discard() follows.
    int make(uint64_t number, uint64_t bytes, uint64_t ring);
    int folder() const { return m_folder; }
    // The segment that was made holds something durable.
    void keep() { m_given_bytes = 0; }
    // The seed of what the file held before make(); 0 for a new file.
    uint32_t old_seed() const { return m_old_seed; }
    // The segment holds nothing: its file is the first to be used again.
    void use_first(uint64_t number);
    // The file of a segment that is written on.
    int open_to_go_on(uint64_t number);
    // Removes a segment that never held anything durable.
    void discard(uint64_t number);
    // A small write to a file of its own, made durable: whether the disk works. A lack of room
    // counts as working.
    int trial();
    // Room is short enough for the oldest segments to give way.
    bool short_of_room(uint64_t bytes);

  private:
    SegmentFiles(FileSystem& files, const std::string& name) : m_files(files), m_name(name) {}

    int open_existing(uint64_t number);
    int make_room(int result, uint64_t number, uint64_t bytes);
    int create(const std::string& name, uint64_t bytes);
    int recycle(uint64_t number, uint64_t bytes);
    int take_over(int file, uint64_t old_number, uint64_t number, uint64_t bytes);
    bool is_foreign(int file, uint64_t number);
    void drop_first();
    int remove_oldest();
    int remove_leftovers();
    int read_ini();
    int find_newest(Newest& newest, size_t& place);
    void decide_identity(Newest& newest, size_t& place);
    void drop_foreign_behind(size_t place);
    int check_free(const std::string& name);
    int write_ini(const std::string& text);

    FileSystem& m_files;
    const std::string m_name;  // of the .ini file
    int m_folder = -1;
    int m_lock = -1;
    int m_ini_file = -1;  // locked too, in case the lock file is removed
    Identity m_identity;
    bool m_has_ini = false;
    std::string m_ini;                  // what the .ini file says
    std::vector<uint64_t> m_numbers;    // of the segments there are, the next to give way first
    size_t m_blanks = 0;                // files at their front that are no segments
    uint64_t m_given_bytes = 0;         // of segments given up since one could be kept
    uint64_t m_taken_over_bytes = 0;    // of an older segment, for the one made last
    std::vector<uint64_t> m_leftovers;  // of files that could not be removed
    uint64_t m_next = 1;
    uint32_t m_old_seed = 0;
};

}  // namespace sim

#endif  // SDK_DB_SEGMENT_FILES_H
