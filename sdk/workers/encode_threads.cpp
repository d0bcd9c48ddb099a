// Bodies of the three encode thread classes.
#include "mainwork/qm_workers.h"
#include "sdk/runtime/thread_state.h"
#include "sdk/workers/encode_worker.h"

qm_thread_encode::qm_thread_encode()
    : db(nullptr),
      stat{},
      audio_frames{},
      m_worker(new qm_encode_worker("main stream", frame_list, stat, QMCODEC_STREAM_MAIN,
                                    audio_frames, m_state->alarm)) {
    m_state->on_board = true;
}

qm_thread_encode::~qm_thread_encode() { delete m_worker; }

void* qm_thread_encode::Work(void* codec) {
    m_worker->work(codec, 1u << QMCODEC_STREAM_MAIN, db, m_stop_request);
    return nullptr;
}

qm_thread_encode_net::qm_thread_encode_net()
    : db(nullptr),
      stat{},
      m_streams(0),
      m_worker(new qm_encode_worker("other streams", frame_list, stat, QMCODEC_STREAM_MAIN, nullptr,
                                    m_state->alarm)) {
    m_state->on_board = true;
}

qm_thread_encode_net::~qm_thread_encode_net() { delete m_worker; }

void qm_thread_encode_net::SetStreamEnable(QMCODEC_STREAM stream) {
    if (stream >= 0 && stream < QMCODEC_STREAMS) m_streams |= 1u << stream;
}

void* qm_thread_encode_net::Work(void* codec) {
    m_worker->work(codec, m_streams, db, m_stop_request);
    return nullptr;
}

qm_thread_encode_jpeg::qm_thread_encode_jpeg()
    : db(nullptr),
      stat{},
      m_worker(new qm_encode_worker("JPEG stream", frame_list, stat, QMCODEC_STREAM_JPEG, nullptr,
                                    m_state->alarm)) {
    m_state->on_board = true;
}

qm_thread_encode_jpeg::~qm_thread_encode_jpeg() { delete m_worker; }

void* qm_thread_encode_jpeg::Work(void* codec) {
    m_worker->work(codec, 1u << QMCODEC_STREAM_JPEG, db, m_stop_request);
    return nullptr;
}
