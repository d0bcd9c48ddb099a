// The whole board at work in memory: every stream of every channel of a board of type 6, through
// the calls of the program. For real seconds, what it costs; stepped, how fast it can go.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "bench/measure.h"
#include "env/app_env.h"
#include "mainwork/encode.h"
#include "mainwork/mainwork.h"
#include "mainwork/qm_codec.h"
#include "sdk/sim_control.h"

namespace {

const char USAGE[] = "full_load_bench ENVFILE [--seconds NUMBER] [--stepped]";

constexpr int64_t US_PER_S = 1'000'000;
constexpr int64_t STEPPED_START_US = 1'700'000'000 * US_PER_S;
constexpr int AUDIO_FRAMES_PER_SECOND = 25;

// What MAIN does before its menu.
void open_session(CAppEnv& env) {
    env.chip_mask = (1u << QMCODEC_CHIPS) - 1;
    if (CreateQMAVCodec(&env.codec) != 0) give_up("no codec");
    env.codec->SetBoardType(env.board_type, env.sub_ev_type);
    if (env.codec->GetSystem()->SetChipEnableMask(env.chip_mask) != 0) give_up("no chips");
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
            env.codec->GetVideoEncoder()->SetCodecType(stream, ch, env.venc[stream][ch].codectype);
    _QM_AVCODEC_INIT_PARAM param;
    param.video_format = env.video_format;
    param.field_type = env.field_type;
    if (env.codec->GetSystem()->InitAVCodec(&param) != 0) give_up("no initialised codec");
    mainwork_setup();
}

void close_session(CAppEnv& env) {
    env.codec->GetSystem()->ReleaseAVCodec();
    DestroyQMAVCodec(env.codec);
    env.codec = nullptr;
}

// Frames that all enabled channels give in one second, audio with them.
int64_t frames_per_second(const CAppEnv& env) {
    int64_t frames = 0;
    for (const auto& stream : env.venc)
        for (const auto& unit : stream) frames += unit.enable ? unit.framerate : 0;
    for (const uint8_t enable : env.audio_enable) frames += enable ? AUDIO_FRAMES_PER_SECOND : 0;
    return frames;
}

// CPU time of the process so far, its threads and the system's work for it included.
double cpu_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options(argc, argv);
    const int seconds = options.number("seconds", 60);
    const bool stepped = options.has("stepped");
    if (stepped) sim::use_stepped_clock(STEPPED_START_US);

    CAppEnv& env = *GetAppEnv();
    if (!env.LoadEnv(options.word(0, USAGE))) give_up("no environment file");
    open_session(env);
    app_encode_command(ENCODE_RUN_MAIN);
    app_encode_command(ENCODE_RUN_OTHERS);

    const sim::BoardReport before = sim::board_report(env.codec);
    const double cpu_before = cpu_seconds();
    const int64_t begin_ns = now_ns();
    for (int second = 0; second < seconds; ++second)
        stepped ? sim::step_clock(US_PER_S) : static_cast<void>(sleep(1));
    const double elapsed = static_cast<double>(now_ns() - begin_ns) / 1e9;
    const double cpu = cpu_seconds() - cpu_before;
    const sim::BoardReport after = sim::board_report(env.codec);

    app_encode_command(ENCODE_STOP_MAIN);
    app_encode_command(ENCODE_STOP_OTHERS);
    close_session(env);

    const uint64_t delivered = after.delivered - before.delivered;
    printf("%s clock, %d s, %lld frames/s asked for\n", stepped ? "stepped" : "real",
           seconds, static_cast<long long>(frames_per_second(env)));
    printf("  frames delivered   %llu\n", static_cast<unsigned long long>(delivered));
    printf("  frames dropped     %llu\n", static_cast<unsigned long long>(after.late));
    printf("  frames/s           %.0f\n", static_cast<double>(delivered) / elapsed);
    printf("  CPU, %% of a core   %.2f\n", 100 * cpu / elapsed);
    printf("  peak resident KiB  %ld\n", proc_status_kib(getpid(), "VmHWM"));
    return 0;
}
