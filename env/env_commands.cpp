// The environment commands. The record and its defaults stand in app_env.h.
#include "env/env_commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "env/app_env.h"
#include "shell/qm_string.h"

namespace {

const char INVALID_OPTION[] = "Invalide option !!";

// Arguments of ENVCHANGE -VE, compared as unsigned numbers.
constexpr unsigned ALL_CHANNELS = 16;
constexpr unsigned MAX_PROPERTY = 8;

void env_change_help() {
    puts("===============<ENV Help>===========================");
    puts("* Video Format : ENVCHANGE -vf [ 0 (ntsc) or 1(pal) ]");
    puts("* Video Encode : ENVCHANGE -ve [stream] [channel] [property] [value]");
    puts("*             -> [stream]   : 0 (H264), 1 (H264 dual), 2 (JPEG)");
    puts("*             -> [channel]  : 0 ~ 15");
    puts("*             -> [property] :");
    puts("*                             0 (enable)");
    puts("*                                  [value] : 1 (enable), 0 (disable)");
    puts("*                             1 (enable_motion_data)");
    puts("*                                  [value] : 1 (enable), 0 (disable)");
    puts("*                             3 (framerate)");
    puts("*                                  [value] : 0~30 (NTSC), 0~25 (PAL)");
    puts("*                             4 (idr)");
    puts("*                                  [value] : constant");
    puts("*                             5 (bitratetype)");
    puts("*                                  [value] : constant");
    puts("*                             6 (bitrate)");
    puts("*                                  [value] : constant");
    puts("*                             7 (res)");
    puts(
        "*                                  [value] : 0 (QCIF), 1 (CIF), 2 (Half D1), 3 (D1), 4 (HD)");
    puts("*                             8 (qp)");
    puts("*                                  [value] : ~ 51");
    puts("====================================================");
}

void env_setdb_help() {
    puts("===============<Help>===========================");
    puts("* ENVSETDB [dbtype] [path]");
    puts("*             -> [dbtype] :");
    puts("*                    0 : Encode stream 0");
    puts("*                    1 : Encode stream 1");
    puts("*                    2 : Encode stream 2");
    puts("*                   10 : Decode stream");
    puts("====================================================");
}

void change_qp(tagVEncChannelUnit& unit, int stream, int ch, int value, QMVideoEncoder* encoder) {
    unit.qp = static_cast<uint8_t>(value % 52);
    if (encoder) encoder->SetQP(stream, ch, unit.qp);
}

// Writes one property of one channel and passes it on when there is an encoder.
void change_property(CAppEnv& env, int stream, int ch, unsigned property, const char* text,
                     QMVideoEncoder* encoder) {
    tagVEncChannelUnit& unit = env.venc[stream][ch];
    const int value = atoi(text);
    const auto number = static_cast<uint32_t>(value);
    switch (property) {
        case 0:
            unit.enable = static_cast<uint8_t>(value);
            if (encoder) encoder->SetChannelEnable(stream, ch, unit.enable);
            break;
        case 1: unit.enable_motion_data = static_cast<uint8_t>(value); break;
        case 3:
            // Kept: PAL counts modulo 25, so 25 is stored as 0.
            unit.framerate = static_cast<uint32_t>(value % (env.video_format == 0 ? 31 : 25));
            if (encoder) encoder->SetFrameRate(stream, ch, unit.framerate);
            break;
        case 4: store_idr(unit, number); break;
        case 5:
            unit.bitratetype = number;
            if (encoder) encoder->SetBitrateType(stream, ch, unit.bitratetype);
            break;
        case 6:
            unit.bitrate = number;
            if (encoder) encoder->SetBitrate(stream, ch, unit.bitrate);
            break;
        case 7:
            unit.res = number;
            if (encoder) encoder->SetResolution(stream, ch, unit.res);
            // Kept: setting the resolution sets the quantiser to the same number as well.
            change_qp(unit, stream, ch, value, encoder);
            break;
        case 8: change_qp(unit, stream, ch, value, encoder); break;
        default:  // 2, the codec type, cannot be changed
            printf("property err : %d %s\n", static_cast<int>(property), text);
            break;
    }
}

void change_video_format(CAppEnv& env, int argc, char** argv) {
    if (argc <= 2) {
        puts("err 0");
        puts(INVALID_OPTION);
        return;
    }
    env.video_format = static_cast<uint32_t>(atoi(argv[2]));
}

void change_video_encode(CAppEnv& env, int argc, char** argv, QMVideoEncoder* encoder) {
    if (argc <= 5) {
        puts(INVALID_OPTION);
        return;
    }
    const auto stream = static_cast<unsigned>(atoi(argv[2]));
    const auto channel = static_cast<unsigned>(atoi(argv[3]));
    const auto property = static_cast<unsigned>(atoi(argv[4]));
    if (stream >= QMCODEC_STREAMS || channel > ALL_CHANNELS || property > MAX_PROPERTY) {
        puts(INVALID_OPTION);
        return;
    }
    const bool all = channel == ALL_CHANNELS;
    const int first = all ? 0 : static_cast<int>(channel);
    const int end = all ? QMCODEC_CHANNELS : first + 1;
    for (int ch = first; ch < end; ++ch)
        change_property(env, static_cast<int>(stream), ch, property, argv[5], encoder);
}

void print_stream(const char* title, const tagVEncChannelUnit (&units)[QMCODEC_CHANNELS]) {
    puts(title);
    puts(
        " == [enable] [codectype] [framerate] \n"
        "      [idr] [bitratetype] [qp] [bitrate] [res] [enable_motion_data] ==");
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        const tagVEncChannelUnit& unit = units[ch];
        printf(" [ch %2d] : %d %d %d %d %d %d %d %d %d\n", ch + 1, unit.enable,
               static_cast<int>(unit.codectype), static_cast<int>(unit.framerate),
               static_cast<int>(unit.idr), static_cast<int>(unit.bitratetype), unit.qp,
               static_cast<int>(unit.bitrate), static_cast<int>(unit.res), unit.enable_motion_data);
    }
}

}  // namespace

void CAppEnv::PrintEnv() {
    puts("\n========== environment =============");
    puts("\n <GENERAL>");
    printf(" [board type]           \t: %d\n", static_cast<int>(board_type));
    printf(" [video format]         \t: %d\n", static_cast<int>(video_format));
    printf(" [database type]        \t: %d\n", static_cast<int>(main_database_type));
    printf(" [dual database type]   \t: %d\n", static_cast<int>(dual_database_type));
    printf(" [jpeg database type]   \t: %d\n", static_cast<int>(jpeg_database_type));
    printf(" [Encode Stream 0]      \t: %s\n", main_stream_db.c_str());
    printf(" [Encode Stream 1]      \t: %s\n", dual_stream_db.c_str());
    printf(" [Encode Stream JPEG]   \t: %s\n", jpeg_stream_db.c_str());
    printf(" [Decode Stream]        \t: %s\n", decode_stream_db.c_str());

    // Kept: all six streams are printed, whatever the board carries.
    print_stream("\n <H264 Main Stream>", venc[QMCODEC_STREAM_MAIN]);
    print_stream("\n <H264 Dual Stream>", venc[QMCODEC_STREAM_DUAL]);
    print_stream("\n <JPEG Stream>", venc[QMCODEC_STREAM_JPEG]);
    print_stream("\n <PREVIEW Stream>", venc[QMCODEC_STREAM_PREVIEW]);
    print_stream("\n <H264 3rd Stream>", venc[QMCODEC_STREAM_3RD]);
    print_stream("\n <H264 4th Stream>", venc[QMCODEC_STREAM_4TH]);

    puts("\n <AUDIO>");
    puts(" == [enable] ==");
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        printf(" [ch %2d] : %d\n", ch + 1, audio_enable[ch]);
    puts("\n=============================================================");
}

int app_env_printenv(int, char**) {
    GetAppEnv()->PrintEnv();
    return 0;
}

int app_env_change(int argc, char** argv) {
    CAppEnv* env = GetAppEnv();
    if (argc == 1) {
        env_change_help();
        return 0;
    }
    QMVideoEncoder* encoder = env->codec ? env->codec->GetVideoEncoder() : nullptr;
    if (strcmp(argv[1], "-VF") == 0) {
        change_video_format(*env, argc, argv);
    } else if (strcmp(argv[1], "-VE") == 0) {
        change_video_encode(*env, argc, argv, encoder);
    } else {
        printf("err 2 %s\n", argv[1]);
        puts(INVALID_OPTION);
    }
    return 0;
}

// Kept: the path arrives upper-cased, as every word of a command line does, and is stored so; and
// decode_db_type is left alone, only the environment file sets it.
int app_env_change_dbpath(int argc, char** argv) {
    if (argc < 3) {
        env_setdb_help();
        return 0;
    }
    CAppEnv* env = GetAppEnv();
    const char* path = argv[2];
    switch (qm_atoi(argv[1])) {
        case 0: env->main_stream_db = path; break;
        case 1: env->dual_stream_db = path; break;
        case 2: env->jpeg_stream_db = path; break;
        case 10: env->decode_stream_db = path; break;
        default: puts("Error parameter !!!"); break;
    }
    return 0;
}
