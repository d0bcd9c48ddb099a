// What is behind qm_thread: the thread's handle and its alarm.
#ifndef SDK_RUNTIME_THREAD_STATE_H
#define SDK_RUNTIME_THREAD_STATE_H

#include <pthread.h>

#include "sdk/runtime/clock.h"

struct qm_thread_state {
    pthread_t handle = {};
    bool running = false;   // CreateThread succeeded, DestroyThread not called yet; console thread
    bool on_board = false;  // Work waits on `alarm` only, so the stepped clock waits for it
    void* argument = nullptr;
    sim::Alarm alarm;  // rung by DestroyThread, and by whoever has work for the thread
};

#endif  // SDK_RUNTIME_THREAD_STATE_H
