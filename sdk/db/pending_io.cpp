// The thread that writes behind a recorder and reads ahead of a reader.
#include "sdk/db/pending_io.h"

#include <new>
#include <system_error>

namespace sim {

PendingIo::~PendingIo() {
    if (!m_thread.joinable()) return;
    {
        std::lock_guard lock(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

// Made when it is first needed. Without one everything still works, only slower.
bool PendingIo::has_thread() {
    if (!m_own_thread || m_thread.joinable()) return m_own_thread;
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
    } catch (const std::bad_alloc&) {
    }
    return m_thread.joinable();
}

int64_t PendingIo::do_now(const Job& job) {
    if (job.out) return m_files.read(job.file, job.out, job.size, job.offset);
    int result = job.folder >= 0 ? m_files.sync_folder(job.folder) : 0;
    if (result >= 0) result = m_files.write(job.file, job.data, job.size, job.offset);
    if (result >= 0) result = m_files.sync(job.file);
    return result;
}

void PendingIo::begin_write(int file, const uint8_t* data, size_t size, uint64_t offset,
                            int folder) {
    begin({file, data, nullptr, size, offset, folder});
}

void PendingIo::begin_read(int file, uint8_t* out, size_t size, uint64_t offset) {
    begin({file, nullptr, out, size, offset, -1});
}

void PendingIo::begin(const Job& job) {
    m_pending = true;
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

int64_t PendingIo::finish() {
    m_pending = false;
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_to_do; });
    return m_result;
}

// What is pending when it is to end is done first.
void PendingIo::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_to_do || m_ends; });
        if (!m_to_do) return;
        const Job job = m_job;
        lock.unlock();
        const int64_t result = do_now(job);
        lock.lock();
        m_result = result;
        m_to_do = false;
        m_changed.notify_all();
    }
}

}  // namespace sim
