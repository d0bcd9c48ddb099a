// The PRIVATE command. The rectangle goes to the encoder as it is; nothing is stored here.
#include "mainwork/private_zone.h"

#include <cstdint>
#include <cstdio>

#include "env/app_env.h"
#include "mainwork/qm_codec.h"
#include "shell/qm_string.h"

namespace {

constexpr int ARGUMENTS = 6;
constexpr uint8_t ALL_CHANNELS = 16;
constexpr int ZONE = 0;  // a single zone a channel, of the main stream only

struct Zone {
    uint8_t enable;
    uint16_t start_x, start_y, width, height;  // pixels
};

void private_zone_help() {
    puts(" +------------------------------------------------------------------");
    puts(" | * private [channel] [enable] [start_x] [start_y] [width] [height]");
    puts(" | * private     0         1        0          0       256     256");
    puts(" +------------------------------------------------------------------");
}

void set_zone(QMVideoEncoder* encoder, uint8_t channel, const Zone& zone) {
    printf("app_private_zone() : %d, %d, (%d,%d) (%d,%d)\n", channel, zone.enable, zone.start_x,
           zone.start_y, zone.width, zone.height);
    encoder->SetPrivateZone(QMCODEC_STREAM_MAIN, channel, zone.enable, ZONE, zone.start_x,
                            zone.start_y, zone.width, zone.height);
}

}  // namespace

int app_private_zone(int argc, char** argv) {
    if (argc <= ARGUMENTS) {
        private_zone_help();
        return 0;
    }
    CAppEnv* env = GetAppEnv();
    if (!env) return 0;
    QMVideoEncoder* encoder = env->codec->GetVideoEncoder();
    if (!encoder) return 0;

    const auto channel = static_cast<uint8_t>(qm_atoi(argv[1]));
    const Zone zone = {
        static_cast<uint8_t>(qm_atoi(argv[2])),  static_cast<uint16_t>(qm_atoi(argv[3])),
        static_cast<uint16_t>(qm_atoi(argv[4])), static_cast<uint16_t>(qm_atoi(argv[5])),
        static_cast<uint16_t>(qm_atoi(argv[6])),
    };
    if (channel != ALL_CHANNELS) {
        set_zone(encoder, channel, zone);
        return 1;
    }
    for (uint8_t ch = 0; ch < QMCODEC_CHANNELS; ++ch) set_zone(encoder, ch, zone);
    return 1;
}
