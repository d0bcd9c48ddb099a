// The environment: the one record of configuration and session that every menu works on.
//
// The record has no lock. The console thread writes it; the report builders on the status thread
// read the encoder pointers (under _l_mtx_mainwork) and the IDR settings (through load_idr).
#ifndef ENV_APP_ENV_H
#define ENV_APP_ENV_H

#include <atomic>
#include <cstdint>
#include <string>

#include "mainwork/qm_codec.h"

class iqm_db;
class qm_thread_encode;
class qm_thread_encode_net;
class qm_thread_encode_jpeg;

// Video-encode setup of one channel of one stream.
struct tagVEncChannelUnit {
    uint8_t enable;              // 1 encode this channel, 0 not
    uint8_t enable_motion_data;  // 1 deliver motion data, 0 not
    uint32_t codectype;          // codec type code: 0 main H.264, 1 dual H.264, 2 JPEG
    uint32_t framerate;          // frames/s, 0..30 (NTSC) or 0..25 (PAL)
    uint32_t idr;                // key-frame interval, frames; shared: see load_idr, store_idr
    uint32_t bitratetype;        // rate-control type code
    uint8_t qp;                  // quantiser, 0..51
    uint32_t bitrate;            // bits/s
    uint32_t res;                // 0 QCIF, 1 CIF, 2 Half D1, 3 D1, 4 HD
    uint8_t extra_data[8040];    // zero-filled by Default for streams 0..2, never read
};

// The IDR setting is the one word of a unit that two threads share.
inline uint32_t load_idr(tagVEncChannelUnit& unit) {
    return std::atomic_ref<uint32_t>(unit.idr).load(std::memory_order_relaxed);
}
inline void store_idr(tagVEncChannelUnit& unit, uint32_t frames) {
    std::atomic_ref<uint32_t>(unit.idr).store(frames, std::memory_order_relaxed);
}

class CAppEnv {
  public:
    // Sets the encode-thread pointers to null and the strings empty; the rest of the record relies
    // on g_appenv being a static object, zero before its construction.
    CAppEnv();
    // Destroys the strings; no pointer is owned.
    ~CAppEnv();
    CAppEnv(const CAppEnv&) = delete;
    CAppEnv& operator=(const CAppEnv&) = delete;

    // Loads the built-in configuration.
    void Default();
    // Loads an environment file. Returns 0 when there is none (nothing is changed), 1 otherwise.
    uint32_t LoadEnv(std::string file);
    // Prints the record.
    void PrintEnv();
    // 1 if the board carries the stream, else 0. Any number is allowed.
    int IsAvailableStream(int stream);
    // Parses one channel line of the environment file into `unit`. Returns 1.
    uint32_t _GetStreamSetupValue(tagVEncChannelUnit* unit, char* line);

    uint32_t board_type;          // 2 and 6 carry a preview stream, 6 also the third and fourth
    uint32_t sub_ev_type;         // board sub-variant
    uint32_t video_format;        // 0 NTSC, 1 PAL
    uint32_t field_type;          // field or frame mode code
    uint32_t main_database_type;  // DB_TYPE of each recording group
    uint32_t dual_database_type;
    uint32_t jpeg_database_type;
    tagVEncChannelUnit venc[QMCODEC_STREAMS][QMCODEC_CHANNELS];
    uint8_t audio_enable[QMCODEC_CHANNELS];  // 1 enabled, 0 disabled
    QMAVCodec* codec;    // non-null exactly while a session is open; MAIN creates and destroys it
    uint32_t chip_mask;  // bit n enables chip n
    std::string main_stream_db;  // database ini file of each recording group
    std::string dual_stream_db;
    std::string jpeg_stream_db;
    std::string decode_stream_db;  // database ini file to search
    std::string parameter_file_name[4];
    std::string qp_table[2];
    std::string firmware;

    // The recording groups. ENCODE creates and destroys what they point to; null when not running.
    std::string main_open_path;  // the path as it was opened
    qm_thread_encode* main_encode_thread;
    iqm_db* main_db;
    std::string dual_open_path;
    qm_thread_encode_net* net_encode_thread;
    iqm_db* dual_db;
    std::string jpeg_open_path;
    qm_thread_encode_jpeg* jpeg_encode_thread;
    iqm_db* jpeg_db;

    uint32_t decode_db_type;  // database that SEARCH opens: 0 main, 1 dual, 2 JPEG, 3 another file
};

extern CAppEnv g_appenv;

// The one record; every room reaches it through this call.
CAppEnv* GetAppEnv();

// True while a codec session is open; prints that there is none otherwise.
bool app_codec_is_created();

#endif  // ENV_APP_ENV_H
