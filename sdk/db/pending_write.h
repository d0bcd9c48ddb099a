// One write that becomes durable while its owner goes on.
#ifndef SDK_DB_PENDING_WRITE_H
#define SDK_DB_PENDING_WRITE_H

#include <condition_variable>
#include <mutex>
#include <thread>

#include "sdk/db/file_system.h"

namespace sim {

// One thread at a time calls it. While a write is pending no other call for its file is made.
class PendingWrite {
  public:
    // Without a thread of its own, or when none can be made, begin() does all.
    PendingWrite(FileSystem& files, bool own_thread) : m_files(files), m_own_thread(own_thread) {}
    ~PendingWrite();  // waits for what is pending

    // Writes and syncs; `data` stays as it is until finish(). Nothing may be pending.
    void begin(int file, const uint8_t* data, size_t size, uint64_t offset);
    bool pending() const { return m_pending; }
    // Waits for what is pending: 0, or -errno of the write or the sync that failed.
    int finish();

  private:
    struct Job {
        int file;
        const uint8_t* data;
        size_t size;
        uint64_t offset;
    };

    bool has_thread();
    void run();
    int do_now(const Job& job);

    FileSystem& m_files;
    const bool m_own_thread;
    bool m_pending = false;
    std::thread m_thread;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_to_do = false;  // guarded by m_mutex, as those below
    bool m_ends = false;
    Job m_job{};
    int m_result = 0;
};

}  // namespace sim

#endif  // SDK_DB_PENDING_WRITE_H
