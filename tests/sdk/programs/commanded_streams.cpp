// Recordings of encoders that are given commands while they run, for tests with other decoders.
// What the matrix of settings has is in stream_matrix.h.
//
//     commanded_streams zones DB FORMAT           privacy zones come and go; FORMAT: 0 NTSC, 1 PAL
//     commanded_streams no-zones DB FORMAT        the same frames without a zone
//     commanded_streams rate DB FORMAT            16 channels at a constant bit rate
//     commanded_streams long DB FORMAT            small pictures, over many key intervals
//
// `zones` prints, for each frame, its stream, channel, number and the zone that was commanded
// before it: left, top, width, height; width 0 is none.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "mainwork/qm_codec.h"
#include "sdk/board/encoder_channel.h"
#include "sdk/db/disk_writer.h"

namespace {

constexpr int64_t UTC_US = 1'700'000'000'000'000;

[[noreturn]] void give_up(const std::string& why) {
    fprintf(stderr, "commanded_streams: %s\n", why.c_str());
    exit(1);
}

// A database that encoders are recorded into.
class Recorder {
  public:
    explicit Recorder(const std::string& path) {
        sim::WriterOptions options;
        options.segment_bytes = 8 << 20;
        std::string why;
        m_writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
        if (!m_writer) give_up(why);
    }

    sim::FrameInfo record(sim::EncoderChannel& encoder, const sim::Content& content) {
        using Outcome = sim::DiskWriter::Outcome;
        m_frame.info = encoder.encode(content);
        m_frame.reserve(m_frame.info.bytes);
        encoder.write(m_frame.payload.get());
        if (m_writer->append(m_frame, UTC_US, m_frame.info.time_us) != Outcome::stored)
            give_up("a frame is not stored");
        return m_frame.info;
    }

    int finish() { return m_writer->finish(0) ? 0 : 1; }

  private:
    std::unique_ptr<sim::DiskWriter> m_writer;
    qm_dbframe m_frame;
};

sim::EncoderChannel encoder_of(int stream, int channel, bool pal) {
    sim::EncoderChannel encoder;
    encoder.place(static_cast<uint8_t>(stream), static_cast<uint8_t>(channel));
    encoder.set_format(pal, {});
    encoder.set_frame_rate(pal ? 25 : 30, 0, {});
    return encoder;
}

sim::PrivateZone zone_of(int x, int y, int width, int height) {
    const auto held = [](int value) { return static_cast<uint16_t>(value); };
    return {true, held(x), held(y), held(width), held(height)};
}

std::vector<sim::PrivateZone> zones_of(sim::PictureSize size) {
    return {zone_of(13, 7, 91, 55),                              // odd
            zone_of(size.width - 21, size.height - 13, 90, 90),  // over the edges
            zone_of(50, 50, 0, 0),                               // empty
            zone_of(0, 0, 65535, 65535),                         // everything
            zone_of(37, 41, 1, 1),                               // one sample
            zone_of(16, 32, 64, 48),                             // whole macroblocks
            zone_of(size.width, size.height, 10, 10),            // outside
            zone_of(0, size.height - 40, 97, 37)};               // over the block code
}

// Encoders that run side by side; a database has frames in the order of time.
struct Lane {
    sim::EncoderChannel encoder;
    sim::Content content;
    std::vector<sim::PrivateZone> zones;
};

// Each of the zones for six frames, six frames without one before each.
int zones(const std::string& path, bool pal, bool with) {
    constexpr int LANES = 15;  // each stream, size, pattern
    constexpr uint8_t QUANTISERS[] = {27, 0, 51, 10};
    constexpr uint32_t KEY_INTERVALS[] = {0, 7, 1, 300};
    constexpr size_t HOLD = 6;
    Recorder recorder(path);
    std::vector<Lane> lanes;
    for (int i = 0; i < LANES; ++i) {
        const auto at = static_cast<size_t>(i);
        const uint32_t resolution = static_cast<uint32_t>(i) % 5;
        Lane lane{encoder_of(i % QMCODEC_STREAMS, i, pal), {}, {}};
        lane.encoder.set_resolution(resolution);
        lane.encoder.set_qp(QUANTISERS[at % 4]);
        lane.encoder.set_idr_interval(KEY_INTERVALS[at / 3 % 4]);
        lane.encoder.switch_on({});
        lane.content.pattern = static_cast<sim::Pattern>(i % sim::PATTERNS);
        lane.zones = zones_of(sim::picture_size(resolution, pal));
        lanes.push_back(std::move(lane));
    }
    for (size_t n = 0; n < lanes[0].zones.size() * 2 * HOLD; ++n)
        for (Lane& lane : lanes) {
            const sim::PrivateZone now =
                n / HOLD % 2 == 0 ? sim::PrivateZone{} : lane.zones[n / HOLD / 2];
            if (with) lane.encoder.set_zone(now);
            const sim::FrameInfo info = recorder.record(lane.encoder, lane.content);
            printf("%u %u %" PRIu32 " %u %u %u %u\n", unsigned{info.stream}, unsigned{info.channel},
                   info.number, unsigned{now.start_x}, unsigned{now.start_y}, unsigned{now.width},
                   unsigned{now.height});
        }
    return recorder.finish();
}

// Power-on settings but for the rate control. Those of odd channels are asked for a key frame out
// of turn now and then, less than once in 2 seconds.
int rate(const std::string& path, bool pal) {
    constexpr int SECONDS = 12;
    constexpr int OUT_OF_TURN = 71;  // frames
    Recorder recorder(path);
    std::vector<sim::EncoderChannel> encoders;
    for (int channel = 0; channel < QMCODEC_CHANNELS; ++channel) {
        encoders.push_back(encoder_of(0, channel, pal));
        encoders.back().set_bitrate_type(1);
        encoders.back().switch_on({});
    }
    for (int n = 0; n < SECONDS * (pal ? 25 : 30); ++n)
        for (size_t channel = 0; channel < encoders.size(); ++channel) {
            sim::Content content;
            content.pattern = static_cast<sim::Pattern>(channel % sim::PATTERNS);
            if (channel % 2 == 1 && n % OUT_OF_TURN == 40) encoders[channel].force_key();
            recorder.record(encoders[channel], content);
        }
    return recorder.finish();
}

int long_lanes(const std::string& path, bool pal) {
    constexpr int FRAMES = 700;
    constexpr uint32_t KEY_INTERVALS[] = {0, 1, 15, 300};
    Recorder recorder(path);
    std::vector<sim::EncoderChannel> encoders;
    for (int channel = 0; channel < 4; ++channel) {
        encoders.push_back(encoder_of(3, channel, pal));
        encoders.back().set_resolution(0);
        encoders.back().set_idr_interval(KEY_INTERVALS[channel]);
        encoders.back().switch_on({});
    }
    sim::Content content;
    content.pattern = sim::Pattern::moving_bar;
    for (int n = 0; n < FRAMES; ++n)
        for (sim::EncoderChannel& encoder : encoders) recorder.record(encoder, content);
    return recorder.finish();
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() != 3) give_up("usage: commanded_streams zones|no-zones|rate|long DB FORMAT");
    const bool pal = words[2] == "1";
    if (words[0] == "zones") return zones(words[1], pal, true);
    if (words[0] == "no-zones") return zones(words[1], pal, false);
    if (words[0] == "rate") return rate(words[1], pal);
    if (words[0] == "long") return long_lanes(words[1], pal);
    give_up("there is no " + words[0]);
}
