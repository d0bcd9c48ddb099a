// Starting and stopping the encode threads with their databases. What the threads do is the
// library's; how their progress is shown stands in encode_reports.cpp.
#include "mainwork/encode.h"

#include <cstdio>
#include <string>

#include "env/app_env.h"
#include "mainwork/mainwork.h"
#include "mainwork/qm_codec.h"
#include "mainwork/qm_db.h"
#include "mainwork/qm_workers.h"
#include "shell/qm_string.h"

namespace {

constexpr uint32_t MODE_RECORD = 1;

// Capacity figures handed to the databases.
constexpr uint32_t MAIN_CAPACITY_A = 512;
constexpr uint32_t MAIN_CAPACITY_B = 1920;
constexpr uint32_t OTHER_CAPACITY_A = 128;
constexpr uint32_t OTHER_CAPACITY_B = 960;

unsigned char* thread_argument(QMAVCodec* codec) { return reinterpret_cast<unsigned char*>(codec); }

template <class Thread>
void stop_thread(Thread*& thread) {
    if (thread) thread->DestroyThread();
    delete thread;
    thread = nullptr;
}

void close_database(iqm_db*& db) {
    if (!db) return;
    db->Close();
    qm_db_destroy(&db);
}

// Makes the thread and the opened database of one group. On failure neither is left.
template <class Thread>
bool open_group(Thread*& thread, iqm_db*& db, uint32_t type, const std::string& path,
                uint32_t capacity_a, uint32_t capacity_b) {
    thread = new Thread;
    qm_db_create(static_cast<DB_TYPE>(type), &db);
    QMDBOpenParam param = {path, MODE_RECORD, capacity_a, capacity_b};
    if (db && db->Open(&param) != 0) return true;
    delete thread;
    thread = nullptr;
    if (db) qm_db_destroy(&db);
    return false;
}

void run_main(CAppEnv& env, QMVideoEncoder* encoder, QMAudio* audio) {
    if (env.main_encode_thread) {
        puts("[Err] Stream0 thread is already running!");
        return;
    }
    printf("Encode DB Stream : %s, Type : %d\n", env.main_stream_db.c_str(),
           static_cast<int>(env.main_database_type));
    env.main_open_path = env.main_stream_db;
    if (!open_group(env.main_encode_thread, env.main_db, env.main_database_type, env.main_open_path,
                    MAIN_CAPACITY_A, MAIN_CAPACITY_B))
        return;
    env.main_encode_thread->db = env.main_db;
    env.main_encode_thread->CreateThread(thread_argument(env.codec), 0);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const uint8_t enable = env.venc[QMCODEC_STREAM_MAIN][ch].enable;
        if (enable) encoder->SetChannelEnable(QMCODEC_STREAM_MAIN, ch, enable);
        if (env.audio_enable[ch]) audio->SetAudioChannelEnable(ch, env.audio_enable[ch]);
    }
}

void stop_main(CAppEnv& env, QMVideoEncoder* encoder, QMAudio* audio) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        if (env.venc[QMCODEC_STREAM_MAIN][ch].enable)
            encoder->SetChannelEnable(QMCODEC_STREAM_MAIN, ch, 0);
        if (env.audio_enable[ch]) audio->SetAudioChannelEnable(ch, 0);
    }
    stop_thread(env.main_encode_thread);
    close_database(env.main_db);
}

// Kept: the streams are enabled on the thread once a channel, sixteen times each.
void switch_on_net_streams(CAppEnv& env, QMVideoEncoder* encoder) {
    constexpr QMCODEC_STREAM ORDER[] = {QMCODEC_STREAM_DUAL, QMCODEC_STREAM_3RD, QMCODEC_STREAM_4TH,
                                        QMCODEC_STREAM_PREVIEW};
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        for (const QMCODEC_STREAM stream : ORDER) {
            if (!env.IsAvailableStream(stream)) continue;
            const uint8_t enable = env.venc[stream][ch].enable;
            if (enable) encoder->SetChannelEnable(stream, ch, enable);
            env.net_encode_thread->SetStreamEnable(stream);
        }
    }
}

void run_jpeg(CAppEnv& env, QMVideoEncoder* encoder) {
    env.jpeg_open_path = env.jpeg_stream_db;
    if (!open_group(env.jpeg_encode_thread, env.jpeg_db, env.jpeg_database_type, env.jpeg_open_path,
                    OTHER_CAPACITY_A, OTHER_CAPACITY_B))
        return;
    env.jpeg_encode_thread->db = env.jpeg_db;
    env.jpeg_encode_thread->CreateThread(thread_argument(env.codec), 0);
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const uint8_t enable = env.venc[QMCODEC_STREAM_JPEG][ch].enable;
        if (env.IsAvailableStream(QMCODEC_STREAM_JPEG) && enable)
            encoder->SetChannelEnable(QMCODEC_STREAM_JPEG, ch, enable);
    }
}

// Unlike the main stream, the channels are switched on before the thread starts.
void run_net_and_jpeg(CAppEnv& env, QMVideoEncoder* encoder) {
    env.dual_open_path = env.dual_stream_db;
    if (!open_group(env.net_encode_thread, env.dual_db, env.dual_database_type, env.dual_open_path,
                    OTHER_CAPACITY_A, OTHER_CAPACITY_B))
        return;
    switch_on_net_streams(env, encoder);
    env.net_encode_thread->db = env.dual_db;
    env.net_encode_thread->CreateThread(thread_argument(env.codec), 0);
    run_jpeg(env, encoder);
}

void run_others(CAppEnv& env, QMVideoEncoder* encoder) {
    if (env.net_encode_thread || env.jpeg_encode_thread) {
        puts("[Err] the thread for the other stream is already running!");
        return;
    }
    run_net_and_jpeg(env, encoder);
    // Kept: printed after the work, also when a database failed to open.
    printf("Encode DB Stream(Dual) : %s, Type : %d\n", env.dual_stream_db.c_str(),
           static_cast<int>(env.dual_database_type));
    printf("Encode DB Stream(Jpeg) : %s, Type : %d\n", env.jpeg_stream_db.c_str(),
           static_cast<int>(env.jpeg_database_type));
}

void stop_others(CAppEnv& env, QMVideoEncoder* encoder) {
    constexpr int ORDER[] = {QMCODEC_STREAM_PREVIEW, QMCODEC_STREAM_JPEG, QMCODEC_STREAM_4TH,
                             QMCODEC_STREAM_3RD, QMCODEC_STREAM_DUAL};
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        for (const int stream : ORDER)
            if (env.IsAvailableStream(stream)) encoder->SetChannelEnable(stream, ch, 0);
    stop_thread(env.jpeg_encode_thread);
    stop_thread(env.net_encode_thread);
    close_database(env.dual_db);
    // Kept: the JPEG database is left open; the next start creates a new one over it.
}

void encode_help() {
    puts(" +---------------------------------------------------------------");
    puts(" | * Run  stream0 thread   \t : ENCODE 0 \t\t\t|");
    puts(" | * Stop stream0 thread   \t : ENCODE 1 \t\t\t|");
    puts(" | * Run  thread for the other stream  \t : ENCODE 2 \t\t\t|");
    puts(" | * Stop thread for the other stream  \t : ENCODE 3 \t\t\t|");
    puts(" +---------------------------------------------------------------");
}

}  // namespace

int app_encode_command(int code) {
    qm_lock lock(_l_mtx_mainwork);
    CAppEnv* env = GetAppEnv();
    QMVideoEncoder* encoder = env->codec->GetVideoEncoder();
    QMAudio* audio = env->codec->GetAudio();
    switch (code) {
        case ENCODE_RUN_MAIN: run_main(*env, encoder, audio); break;
        case ENCODE_STOP_MAIN: stop_main(*env, encoder, audio); break;
        case ENCODE_RUN_OTHERS: run_others(*env, encoder); break;
        case ENCODE_STOP_OTHERS: stop_others(*env, encoder); break;
        default: puts("[Err] Parameter!"); break;
    }
    return 0;
}

int app_mainwork_encode(int argc, char** argv) {
    if (argc < 2) {
        encode_help();
        return 0;
    }
    return app_encode_command(qm_atoi(argv[1]));
}
