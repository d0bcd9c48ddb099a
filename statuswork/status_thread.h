// The thread that prints the selected reports once a second, and the commands RUN and STOP.
#ifndef STATUSWORK_STATUS_THREAD_H
#define STATUSWORK_STATUS_THREAD_H

#include <atomic>
#include <cstdint>

#include "shell/qm_thread.h"

class qm_thread_status : public qm_thread {
  public:
    qm_thread_status();
    ~qm_thread_status() override;
    void* Work(void* argument) override;
};

// The status monitor's record; zero at program start.
struct tagStatusRecord {
    qm_thread_status* thread;  // owned, null when none runs; console thread only
    // Selection masks, one byte a stream kind: bit 8 * byte + n is report n of the kind. Written by
    // SET on the console thread, read by the status thread once a cycle.
    std::atomic<uint32_t> mask_a;  // main, dual, audio, JPEG
    std::atomic<uint32_t> mask_b;  // preview, third, fourth, unused
};

extern tagStatusRecord _l_st_stat;

// RUN: starts the thread; does nothing when it runs. Returns 0.
int app_stat_run(int argc, char** argv);

// STOP: stops the thread; does nothing when none runs. Returns 0.
int app_stat_stop(int argc, char** argv);

// The same as STOP, for the end of the codec session.
int app_status_stop();

#endif  // STATUSWORK_STATUS_THREAD_H
