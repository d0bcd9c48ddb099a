// The SDK's mutex and its scoped lock.
#ifndef SHELL_QM_MUTEX_H
#define SHELL_QM_MUTEX_H

#include <pthread.h>

// Non-recursive. May be taken from any thread, and before main runs.
class qm_mutex {
  public:
    qm_mutex();
    ~qm_mutex();
    qm_mutex(const qm_mutex&) = delete;
    qm_mutex& operator=(const qm_mutex&) = delete;

  private:
    friend class qm_lock;
    pthread_mutex_t m_handle;
};

// Holds a mutex from its construction (which waits for it) to its destruction.
class qm_lock {
  public:
    [[nodiscard]] explicit qm_lock(qm_mutex& mutex);
    ~qm_lock();
    qm_lock(const qm_lock&) = delete;
    qm_lock& operator=(const qm_lock&) = delete;

  private:
    qm_mutex& m_mutex;
};

#endif  // SHELL_QM_MUTEX_H
