// The thread that writes behind a recorder.
#include "sdk/db/pending_write.h"

#include <new>
#include <system_error>

namespace sim {

PendingWrite::~PendingWrite() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard lock(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

// Made with the first write. Without one everything still works, only slower.
bool PendingWrite::has_thread() {
    if (!m_own_thread || m_thread.joinable()) return m_own_thread;
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
    } catch (const std::bad_alloc&) {
    }
    return m_thread.joinable();
}

int PendingWrite::do_now(const Job& job) {
    const int written = m_files.write(job.file, job.data, job.size, job.offset);
    return written < 0 ? written : m_files.sync(job.file);
}

void PendingWrite::begin(int file, const uint8_t* data, size_t size, uint64_t offset) {
    m_pending = true;
    const Job job{file, data, size, offset};
    if (!has_thread()) {
        m_result = do_now(job);
        return;
    }
    {
        std::lock_guard lock(m_mutex);
        m_job = job;
        m_to_do = true;
    }
    m_changed.notify_all();
}

int PendingWrite::finish() {
    m_pending = false;
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_to_do; });
    return m_result;
}

// What is pending when it is to end is done first.
void PendingWrite::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_to_do || m_ends; });
        if (!m_to_do) return;
        const Job job = m_job;
        lock.unlock();
        const int result = do_now(job);
        lock.lock();
        m_result = result;
        m_to_do = false;
        m_changed.notify_all();
    }
}

}  // namespace sim
