// Body of the playback thread class.
#include "mainwork/qm_workers.h"
#include "sdk/runtime/thread_state.h"
#include "sdk/sim_control.h"
#include "sdk/video/frame.h"
#include "sdk/workers/playback_engine.h"

qm_thread_decode::qm_thread_decode()
    : db(nullptr), idr_distance{}, m_engine(new qm_playback_engine(*this, m_state->alarm)) {
    m_state->on_board = true;
}

qm_thread_decode::~qm_thread_decode() { delete m_engine; }

void* qm_thread_decode::Work(void*) {
    m_engine->work(db, m_stop_request);
    return nullptr;
}

// A request made while nothing plays is dropped: the next start is paused, at normal speed.

void qm_thread_decode::SetPBState(PB_STATE state) {
    if (m_state->running) m_engine->set_state(state);
}

void qm_thread_decode::SpeedControl(int direction, int step) {
    if (m_state->running) m_engine->change_speed(direction, step);
}

void qm_thread_decode::SetPBChannelEnableMask(unsigned long channels, unsigned long chips) {
    if (m_state->running) m_engine->set_channels(channels, chips);
}

void qm_thread_decode::EnablePBAudio(int enable) {
    if (m_state->running) m_engine->enable_audio(enable != 0);
}

void qm_thread_decode::SetPBAudioChannel(int channel) {
    if (m_state->running) m_engine->set_audio_channel(channel);
}

int qm_thread_decode::GetCalculData(E_CALCUL figure, int channel) {
    return m_engine->figure(figure, channel);
}

namespace sim {

PlaybackReport playback_report(qm_thread_decode& thread) { return thread.engine().report(); }

}  // namespace sim
