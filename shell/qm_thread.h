// The SDK's base class of every worker thread.
#ifndef SHELL_QM_THREAD_H
#define SHELL_QM_THREAD_H

#include <atomic>
#include <cstdint>

struct qm_thread_state;  // the library's own: handle, argument, wake-up

// Life of a thread object: new, CreateThread, DestroyThread, delete. CreateThread and DestroyThread
// are called from the console thread only.
class qm_thread {
  public:
    qm_thread();
    // The thread must have ended (DestroyThread) or never have been started.
    virtual ~qm_thread();
    qm_thread(const qm_thread&) = delete;
    qm_thread& operator=(const qm_thread&) = delete;

    // The thread's body, on the new thread; `argument` is what CreateThread was given. Returns soon
    // after the stop request is set; the result is not used.
    virtual void* Work(void* argument) = 0;

    // Starts a thread that runs Work(argument); the integer has no meaning (callers pass 0). Clears
    // the stop request, so an object may be started again after DestroyThread. Does nothing while
    // the thread runs. A thread that the machine refuses is one line on standard error.
    void CreateThread(unsigned char* argument, int);

    // Requests the stop and returns after Work has returned. Harmless when nothing runs.
    void DestroyThread();

  protected:
    // Zero while the thread should run. Written by DestroyThread, read by Work without a lock.
    std::atomic<uint32_t> m_stop_request;
    qm_thread_state* m_state;  // owned; null in implementations that need none
};

#endif  // SHELL_QM_THREAD_H
