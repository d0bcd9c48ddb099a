// The environment record and its built-in defaults. Loading stands in load_env.cpp, printing and
// changing in env_commands.cpp.
#include "env/app_env.h"

#include <cstdio>
#include <cstring>

namespace {

const char MAIN_DIR[] = "qmdatabase";
const char INDEX_FILE[] = "qmdatabase.ini";

// The defaults of all channels of one stream.
struct tagStreamDefault {
    uint32_t codectype;
    uint32_t framerate;
    uint32_t idr;
    uint8_t qp;
    uint32_t bitrate;
};

constexpr uint32_t RES_CIF = 1;
constexpr uint32_t RES_D1 = 3;

constexpr tagStreamDefault RECORDED_STREAMS[] = {
    {0, 7, 7, 27, 2048000},  // main
    {1, 7, 7, 31, 2048000},  // dual
    {2, 2, 0, 31, 512000},   // JPEG
};

}  // namespace

CAppEnv g_appenv;

CAppEnv* GetAppEnv() { return &g_appenv; }

bool app_codec_is_created() {
    if (g_appenv.codec) return true;
    puts("[Err] AV Codec is not created!!!");
    return false;
}

CAppEnv::CAppEnv()
    : main_encode_thread(nullptr), net_encode_thread(nullptr), jpeg_encode_thread(nullptr) {}

CAppEnv::~CAppEnv() = default;

void CAppEnv::Default() {
    board_type = 0;
    main_database_type = dual_database_type = jpeg_database_type = 2;

    main_stream_db = std::string(MAIN_DIR) + "/" + INDEX_FILE;
    // Kept: the dual and JPEG databases have directories of their own beside the main one.
    dual_stream_db = std::string("dual_stream") + "/" + INDEX_FILE;
    jpeg_stream_db = std::string("jpeg_stream") + "/" + INDEX_FILE;
    decode_stream_db = main_stream_db;
    decode_db_type = 0;

    for (auto& name : parameter_file_name) name.clear();
    for (int i = 0; i < 2; ++i) {
        char name[64];
        snprintf(name, sizeof name, "parameter_files/qpt_table_0000%d.bin", i);
        qp_table[i] = name;
    }
    firmware = "parameter_files/qm7105fw.bin";

    video_format = 0;
    field_type = 0;

    for (int stream = 0; stream < 3; ++stream) {
        const tagStreamDefault& value = RECORDED_STREAMS[stream];
        for (auto& unit : venc[stream]) {
            unit.enable = 0;
            unit.enable_motion_data = 0;
            unit.codectype = value.codectype;
            unit.framerate = value.framerate;
            store_idr(unit, value.idr);
            unit.bitratetype = 0;
            unit.qp = value.qp;
            unit.bitrate = value.bitrate;
            unit.res = RES_D1;
            memset(unit.extra_data, 0, sizeof unit.extra_data);
        }
    }
    for (auto& unit : venc[QMCODEC_STREAM_PREVIEW]) {
        unit.enable = 0;
        unit.framerate = 0;
        unit.res = RES_CIF;
    }
    memset(audio_enable, 0, sizeof audio_enable);
}

int CAppEnv::IsAvailableStream(int stream) {
    switch (stream) {
        case QMCODEC_STREAM_PREVIEW: return board_type == 2 || board_type == 6;
        case QMCODEC_STREAM_3RD:
        case QMCODEC_STREAM_4TH: return board_type == 6;
        default: return 1;
    }
}
