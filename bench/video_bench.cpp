// How many D1 pictures a second of CPU time are encoded, beside FFmpeg and GStreamer, and how fast
// a recording is exported, beside cp. Peers that are not installed are left out, and named.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "sdk/board/encoder_channel.h"
#include "sdk/db/disk_writer.h"

namespace {

const char USAGE[] = "video_bench QMTOOL [--repetitions NUMBER] [--encode-only | --export-only]";

constexpr uint32_t D1 = 3;
constexpr uint32_t RATE = 30;
constexpr uint32_t BITS_PER_SECOND = 2'000'000;
constexpr int OUR_FRAMES = 300'000;
constexpr int EXPORT_FRAMES = 60'000;  // half an hour of one channel
constexpr uint64_t SEGMENT_BYTES = 32 << 20;

double seconds_of(int who) {
    rusage usage;
    getrusage(who, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool installed(const char* program) {
    return system(("command -v " + std::string(program) + " >/dev/null").c_str()) == 0;
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// CPU seconds of a command and its children.
double cpu_of(const std::string& command) {
    const double before = seconds_of(RUSAGE_CHILDREN);
    if (system(command.c_str()) != 0) give_up("failed: " + command);
    return seconds_of(RUSAGE_CHILDREN) - before;
}

sim::EncoderChannel channel(uint8_t stream, bool constant_rate) {
    sim::EncoderChannel out;
    out.place(stream, 0);
    out.set_format(false, {});
    out.set_resolution(D1);
    out.set_frame_rate(RATE, 0, {});
    out.set_idr_interval(RATE);
    out.set_bitrate(BITS_PER_SECOND);
    out.set_bitrate_type(constant_rate ? 1 : 0);
    out.switch_on({});
    return out;
}

// Frames a second of CPU time: encoded, and written into one buffer.
double our_rate(uint8_t stream, bool constant_rate) {
    sim::EncoderChannel encoder = channel(stream, constant_rate);
    std::vector<uint8_t> buffer;
    uint32_t sum = 0;
    const double before = seconds_of(RUSAGE_SELF);
    for (int i = 0; i < OUR_FRAMES; ++i) {
        const sim::FrameInfo info = encoder.encode();
        if (buffer.size() < info.bytes) buffer.resize(info.bytes);
        encoder.write(buffer.data());
        sum += buffer[info.bytes / 2];
    }
    const double took = seconds_of(RUSAGE_SELF) - before;
    if (sum == 0) give_up("nothing was encoded");
    return OUR_FRAMES / took;
}

struct Peer {
    const char* name;
    const char* program;
    std::string command;
    int frames;
};

std::string ffmpeg_source(int frames) {
    return "ffmpeg -v error -threads 1 -f lavfi -i testsrc=size=704x480:rate=30 -frames:v " +
           std::to_string(frames) + " -pix_fmt yuv420p -threads 1 ";
}

// Finished access units in a file, for a peer that only wraps them anew.
std::string write_stream(const std::string& path, int frames) {
    sim::EncoderChannel encoder = channel(0, true);
    std::ofstream file(path, std::ios::binary);
    std::vector<uint8_t> buffer;
    for (int i = 0; i < frames; ++i) {
        buffer.resize(encoder.encode().bytes);
        encoder.write(buffer.data());
        file.write(reinterpret_cast<const char*>(buffer.data()),
                   static_cast<std::streamsize>(buffer.size()));
    }
    return path;
}

void print_row(const char* what, double rate, double ratio) {
    printf("  %-44s %9.0f frames/s", what, rate);
    if (ratio > 0) printf("   ours is %.1f times that", ratio);
    printf("\n");
}

// Both sides in turns.
void compare(const char* heading, const std::function<double()>& ours,
             const std::vector<Peer>& peers, int repetitions) {
    printf("\n%s, of one core\n", heading);
    std::vector<double> own;
    std::vector<std::vector<double>> theirs(peers.size()), ratios(peers.size());
    for (int i = 0; i < repetitions; ++i) {
        own.push_back(ours());
        for (size_t k = 0; k < peers.size(); ++k) {
            if (!installed(peers[k].program)) continue;
            theirs[k].push_back(peers[k].frames / cpu_of(peers[k].command));
            ratios[k].push_back(own.back() / theirs[k].back());
        }
    }
    print_row("ours", median(own), 0);
    for (size_t k = 0; k < peers.size(); ++k) {
        if (theirs[k].empty())
            printf("  %-44s is not installed\n", peers[k].name);
        else
            print_row(peers[k].name, median(theirs[k]), median(ratios[k]));
    }
}

void measure_encoding(int repetitions) {
    const std::string stream = write_stream("video_bench.h264", 30'000);
    compare(
        "D1 H.264, 2 Mbit/s, 30 frames/s, text running", [] { return our_rate(0, true); },
        {{"ffmpeg, test source and libx264 ultrafast", "ffmpeg",
          ffmpeg_source(1500) + "-c:v libx264 -preset ultrafast -b:v 2M -f null -", 1500},
         {"ffmpeg, finished frames wrapped anew (-c copy)", "ffmpeg",
          "ffmpeg -v error -y -framerate 30 -f h264 -i " + stream +
              " -c copy -f matroska /dev/null",
          30'000}},
        repetitions);
    std::filesystem::remove(stream);
    const std::string gstreamer =
        "gst-launch-1.0 -q videotestsrc num-buffers=3000 ! "
        "video/x-raw,format=I420,width=704,height=480,framerate=30/1 ! jpegenc ! fakesink";
    compare(
        "D1 JPEG", [] { return our_rate(2, false); },
        {{"GStreamer, test source and jpegenc", "gst-launch-1.0", gstreamer, 3000},
         {"ffmpeg, test source and mjpeg", "ffmpeg", ffmpeg_source(1500) + "-c:v mjpeg -f null -",
          1500}},
        repetitions);
}

void record(const std::string& path) {
    sim::WriterOptions options;
    options.segment_bytes = SEGMENT_BYTES;
    std::string why;
    const auto writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
    if (!writer) give_up("the recorder: " + why);
    sim::EncoderChannel encoder = channel(0, true);
    qm_dbframe frame;
    constexpr int64_t UTC_US = 1'700'000'000'000'000;
    for (int i = 0; i < EXPORT_FRAMES; ++i) {
        frame.info = encoder.encode();
        frame.reserve(frame.info.bytes);
        encoder.write(frame.payload.get());
        if (writer->append(frame, UTC_US, frame.info.time_us) != sim::DiskWriter::Outcome::stored)
            give_up("a frame was not stored");
    }
    if (!writer->finish(0)) give_up("the recording cannot be finished");
}

double wall_of(const std::string& command) {
    if (system("sync") != 0) give_up("no sync");
    const int64_t begin_ns = now_ns();
    if (system(command.c_str()) != 0) give_up("failed: " + command);
    return static_cast<double>(now_ns() - begin_ns) / 1e9;
}

// The same bytes: the segments, which an export reads, are what is copied. The export reads them
// past the page cache, in which cp finds them from the second time on. Both sides end when what
// they wrote is on the disk.
void measure_export(const std::string& qmtool, int repetitions) {
    const std::string folder = "video_bench.files", copies = folder + "/copies";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    record(folder + "/db.ini");
    uint64_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".seg") bytes += entry.file_size();
    const std::string copied = "cp " + folder + "/*.seg " + copies + " && sync " + copies + "/*";
    const auto mb = static_cast<double>(bytes) / 1e6;
    printf("\nexport of a recording of %.0f MB\n", mb);
    for (const char* name : {"clip.h264", "clip.mov"}) {
        const std::string clip = folder + "/" + name;
        const std::string exported = "'" + qmtool + "' export --channel 0 --stream main -o " +
                                     clip + " " + folder + "/db.ini >/dev/null";
        std::vector<double> ours, theirs, ratios;
        for (int i = 0; i < repetitions; ++i) {
            std::filesystem::remove(clip);
            std::filesystem::remove_all(copies);
            std::filesystem::create_directories(copies);
            ours.push_back(wall_of(exported));
            theirs.push_back(wall_of(copied));
            ratios.push_back(theirs.back() / ours.back());
        }
        printf("  qmtool export to %-12s %6.0f MB/s\n", name + 4, mb / median(ours));
        printf("  cp of the segments, and sync  %6.0f MB/s   ours is %.2f times that\n",
               mb / median(theirs), median(ratios));
    }
    std::filesystem::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options(argc, argv);
    const int repetitions = options.number("repetitions", 5);
    const std::string qmtool = options.word(0, USAGE);
    if (!options.has("export-only")) measure_encoding(repetitions);
    if (!options.has("encode-only")) measure_export(qmtool, repetitions);
    return 0;
}
