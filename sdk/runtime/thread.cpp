// Body of the thread base class.
#include "shell/qm_thread.h"

#include <cstring>

#include "sdk/runtime/settings.h"
#include "sdk/runtime/thread_state.h"

namespace {

struct Start {
    qm_thread* thread;
    qm_thread_state* state;
};

void* run(void* start) {
    const Start given = *static_cast<Start*>(start);
    delete static_cast<Start*>(start);
    void* result = given.thread->Work(given.state->argument);
    given.state->alarm.set_live(false);
    return result;
}

}  // namespace

qm_thread::qm_thread() : m_stop_request(0), m_state(new qm_thread_state) {}

qm_thread::~qm_thread() { delete m_state; }

void qm_thread::CreateThread(unsigned char* argument, int) {
    if (m_state->running) return;
    m_stop_request.store(0);
    m_state->argument = argument;
    m_state->alarm.set_live(m_state->on_board);
    auto* start = new Start{this, m_state};
    const int error = pthread_create(&m_state->handle, nullptr, run, start);
    m_state->running = error == 0;
    if (error == 0) return;
    delete start;
    m_state->alarm.set_live(false);
    sim::complain("a thread cannot be started: %s", strerror(error));
}

void qm_thread::DestroyThread() {
    if (!m_state->running) return;
    m_stop_request.store(1);
    m_state->alarm.ring();
    pthread_join(m_state->handle, nullptr);
    m_state->running = false;
}
