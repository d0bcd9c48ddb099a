// One access to a file that goes on beside its owner: a write that becomes durable, or a read.
#ifndef SDK_DB_PENDING_IO_H
#define SDK_DB_PENDING_IO_H

#include <condition_variable>
#include <mutex>
#include <thread>

#include "sdk/db/file_system.h"

namespace sim {

// One thread at a time calls it. While a write is pending its owner leaves the file alone.
class PendingIo {
  public:
    // Without a thread of its own, or when none can be made, the begin calls do all.
    PendingIo(FileSystem& files, bool own_thread) : m_files(files), m_own_thread(own_thread) {}
    ~PendingIo();  // waits for what is pending

    // Nothing may be pending. `data` stays as it is, `out` is left alone, until finish().
    // With `folder` the names in it become durable before.
    void begin_write(int file, const uint8_t* data, size_t size, uint64_t offset, int folder = -1);
    void begin_read(int file, uint8_t* out, size_t size, uint64_t offset);
    bool pending() const { return m_pending; }
    // Waits for what is pending. Of a write that was synced 0, of a read the bytes; or -errno of
    // what failed.
    int64_t finish();

  private:
    struct Job {
        int file = -1;
        const uint8_t* data = nullptr;
        uint8_t* out = nullptr;  // or null to write
        size_t size = 0;
        uint64_t offset = 0;
        int folder = -1;  // to be synced before a write
    };

    void begin(const Job& job);
    bool has_thread();
    void run();
    int64_t do_now(const Job& job);

    FileSystem& m_files;
    const bool m_own_thread;
    bool m_pending = false;
    std::thread m_thread;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_to_do = false;  // guarded by m_mutex, as those below
    bool m_ends = false;
    Job m_job;
    int64_t m_result = 0;
};

}  // namespace sim

#endif  // SDK_DB_PENDING_IO_H
