// Reading a disk database, also while it is written: by sequence number, by time and channel.
// Writes nothing and takes no lock. One thread at a time.
#ifndef SDK_DB_DISK_READER_H
#define SDK_DB_DISK_READER_H

#include <memory>
#include <string>
#include <vector>

#include "sdk/db/file_system.h"
#include "sdk/db/format.h"

namespace sim {

class DiskReader {
  public:
    // Null when there is no such database: `why` says so in words. A database without a readable
    // .ini opens as long as it has a segment.
    static std::unique_ptr<DiskReader> open(FileSystem& files, const std::string& path,
                                            std::string& why);
    ~DiskReader();

    // Records are kept for first() <= n < end(); some in between may be missing.
    uint64_t first();
    uint64_t end();
    // The least n' >= n that is there; end() when none is.
    uint64_t next(uint64_t n);

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
    DiskReader() = default;
};

}  // namespace sim

#endif  // SDK_DB_DISK_READER_H
