// The codec session: opened before the MAIN menu, closed after it. What the commands do stands in
// their own files.
#include "mainwork/mainwork.h"

#include <cstdio>
#include <cstring>

#include "env/app_env.h"
#include "mainwork/encode.h"
#include "mainwork/private_zone.h"
#include "mainwork/qm_codec.h"
#include "searchwork/searchwork.h"
#include "setupwork/setupwork.h"
#include "shell/qm_string.h"
#include "statuswork/status_thread.h"
#include "statuswork/statuswork.h"

qm_mutex _l_mtx_mainwork;

namespace {

constexpr uint32_t ALL_CHIPS = (1u << QMCODEC_CHIPS) - 1;

// Kept: the prefix is skipped only in a text that holds both spellings; any other text goes to
// qm_atoh whole, which reads a prefix itself.
uint32_t parse_chip_mask(const char* text) {
    const bool both_spellings = strstr(text, "0X") && strstr(text, "0x");
    return qm_atoh(both_spellings ? text + 2 : text) & ALL_CHIPS;
}

void destroy_codec(CAppEnv& env) {
    DestroyQMAVCodec(env.codec);
    env.codec = nullptr;
}

_QM_AVCODEC_INIT_PARAM init_param_of(const CAppEnv& env) {
    _QM_AVCODEC_INIT_PARAM param;
    param.video_format = env.video_format;
    param.field_type = env.field_type;
    for (int i = 0; i < 4; ++i) param.parameter_file_name[i] = env.parameter_file_name[i];
    for (int i = 0; i < 2; ++i) param.qp_table[i] = env.qp_table[i];
    param.firmware = env.firmware;
    return param;
}

void set_codec_types(CAppEnv& env) {
    QMVideoEncoder* encoder = env.codec->GetVideoEncoder();
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream) {
        if (!env.IsAvailableStream(stream)) continue;
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            encoder->SetCodecType(stream, ch, env.venc[stream][ch].codectype);
    }
}

// Creates and initialises the codec. Returns its system object, or null after printing why not;
// no codec is left behind then.
QMCodecSystem* open_session(CAppEnv& env) {
    if (CreateQMAVCodec(&env.codec) != 0) {
        printf("AV Codec Create Fail.(Main %x)\n", env.chip_mask);
        return nullptr;
    }
    QMCodecSystem* system = env.codec->GetSystem();
    env.codec->SetBoardType(env.board_type, env.sub_ev_type);
    if (system->SetChipEnableMask(env.chip_mask) != 0) {
        printf("Chip Enable Mask Fail.(%x)\n", env.chip_mask);
        destroy_codec(env);
        return nullptr;
    }
    _QM_AVCODEC_INIT_PARAM param = init_param_of(env);
    set_codec_types(env);
    if (system->InitAVCodec(&param) != 0) {
        puts("AV Codec Init Fail.");
        puts("Destroy QM AV Codec.");
        destroy_codec(env);
        return nullptr;
    }
    env.main_encode_thread = nullptr;
    env.main_db = nullptr;
    env.net_encode_thread = nullptr;
    env.dual_db = nullptr;
    env.jpeg_encode_thread = nullptr;
    env.jpeg_db = nullptr;
    return system;
}

// The status printer reads the encoders, and the encoders the codec: stopped in that order.
void close_session(CAppEnv& env, QMCodecSystem* system) {
    app_status_stop();
    app_encode_command(ENCODE_STOP_MAIN);
    app_encode_command(ENCODE_STOP_OTHERS);
    puts("Release ReleaseAVCodec - Begin");
    system->ReleaseAVCodec();
    puts("Release ReleaseAVCodec - End");
    puts("Destroy QM AV Codec.");
    destroy_codec(env);
}

void setup_channel(QMVideoEncoder* encoder, int stream, int ch, const tagVEncChannelUnit& unit) {
    encoder->SetChannelEnable(stream, ch, 0);  // ENCODE switches it on
    encoder->SetResolution(stream, ch, unit.res);
    encoder->SetFrameRate(stream, ch, unit.framerate);
    if (stream == QMCODEC_STREAM_JPEG || stream == QMCODEC_STREAM_PREVIEW) return;
    encoder->SetIDRInterval(stream, ch, unit.idr);
    encoder->SetBitrateType(stream, ch, unit.bitratetype);
    encoder->SetBitrate(stream, ch, unit.bitratetype != 0 ? unit.bitrate : 0);
    encoder->SetQP(stream, ch, unit.qp);
}

}  // namespace

void mainwork_setup() {
    CAppEnv* env = GetAppEnv();
    if (!env || !env->codec) return;
    QMVideoEncoder* encoder = env->codec->GetVideoEncoder();
    env->codec->GetAudio();
    // Kept: seven passes, each gated by the availability of the stream before its own. The seventh
    // has no row in the record and sets up nothing.
    for (int stream = 0; stream <= QMCODEC_STREAMS; ++stream) {
        if (!env->IsAvailableStream(stream > 0 ? stream - 1 : 0)) continue;
        if (stream == QMCODEC_STREAMS) continue;
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
            const tagVEncChannelUnit& unit = env->venc[stream][ch];
            if (unit.enable) setup_channel(encoder, stream, ch, unit);
        }
    }
}

int app_mainwork(int argc, char** argv) {
    CAppEnv* env = GetAppEnv();
    if (!env) {
        puts("Get App Env Fail !!!");
        return 0;
    }
    env->codec = nullptr;
    env->chip_mask = argc == 2 ? parse_chip_mask(argv[1]) : ALL_CHIPS;

    QMCodecSystem* system = open_session(*env);
    if (!system) return 0;
    mainwork_setup();

    mainwork_help();
    tagMonitor menu = {mainwork_prompt, mainwork_help, mainwork_cmds};
    monitor(&menu);

    close_session(*env, system);
    return 0;
}

void mainwork_prompt() { printf("MAIN>"); }

void mainwork_help() {
    printf("\r\n=======================================================");
    printf("\r\n   HELP/H/?     \t: Help [cmd]");
    printf("\r\n   EXIT/Q/QUIT  \t: Exit Main Test");
    printf("\r\n=======================================================");
    printf("\r\n   ENCODE       \t: Encode Commands");
    printf("\r\n   SEARCH       \t: Search Mode");
    printf("\r\n   SETUP        \t: Setup Mode");
    printf("\r\n   STATUS       \t: Status Mode");
    printf("\r\n   PRIVATE      \t: Private Zone");
    printf("\r\n=======================================================");
    printf("\r\n             Halvik/Corvane Inc,");
    printf("\r\n=======================================================");
    puts("\r\n\r");
}

// clang-format off
const tagCommand mainwork_cmds[] = {
    {"ENCODE", app_mainwork_encode},
    {"SEARCH", app_searchwork},
    {"SETUP", app_setupwork},
    {"STATUS", app_statuswork},
    {"PRIVATE", app_private_zone},
    {nullptr, nullptr},
};
// clang-format on
