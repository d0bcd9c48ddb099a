// Databases whose checksums are right and whose records are not: every command of qmtool that
// looks into frames runs on them. With libFuzzer.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "sdk/board/encoder_channel.h"
#include "sdk/db/disk_writer.h"
#include "sdk/video/audio_tone.h"
#include "tools/qmtool/command.h"

// What the command line of qmtool gives its commands.
std::unique_ptr<sim::DatabaseView> open_database(const CommandLine& line) {
    std::string why;
    return sim::DatabaseView::open(sim::real_file_system(), line.database, why);
}
int say_cannot(const CommandLine&, const std::string&) { return STATUS_CANNOT; }
int say_wrong(const char*, const std::string&) { return STATUS_USAGE; }
const char* state_text(sim::IniState) { return ""; }

namespace {

constexpr size_t MOST_RECORDS = 40;
constexpr int64_t UTC_US = 1'700'000'000'000'000;
// What the times of the records may be shifted by: nearly as far as a number reaches, with room for
// their own time and UTC_US.
constexpr int64_t MOST_SHIFT_US = INT64_MAX - (int64_t{1} << 52);

// The input, byte by byte; behind its end zeros.
class Input {
  public:
    Input(const uint8_t* bytes, size_t size) : m_bytes(bytes), m_size(size) {}
    bool more() const { return m_at < m_size; }
    uint8_t byte() { return m_at < m_size ? m_bytes[m_at++] : uint8_t{0}; }
    uint32_t word() { return byte() | uint32_t{byte()} << 8 | uint32_t{byte()} << 16; }

  private:
    const uint8_t* m_bytes;
    size_t m_size;
    size_t m_at = 0;
};

struct Made {
    sim::FrameInfo info;
    std::vector<uint8_t> bytes;
};

// Real frames of the main and the JPEG stream, and sound: what the input then changes.
const std::vector<Made>& frames() {
    static const std::vector<Made> all = [] {
        std::vector<Made> made;
        for (const uint8_t stream : {uint8_t{0}, uint8_t{2}}) {
            sim::EncoderChannel encoder;
            encoder.place(stream, 0);
            encoder.set_format(false, {});
            encoder.set_resolution(0);
            encoder.set_qp(45);
            encoder.set_idr_interval(6);
            encoder.switch_on({});
            for (int i = 0; i < 12; ++i) {
                Made one;
                one.info = encoder.encode();
                one.bytes.resize(one.info.bytes);
                encoder.write(one.bytes.data());
                made.push_back(one);
            }
        }
        for (uint32_t number = 0; number < 4; ++number) {
            Made one;
            one.info.kind = sim::FrameKind::audio;
            one.info.number = number;
            one.info.time_us = number * 40'000;
            one.bytes.resize(sim::AUDIO_FRAME_BYTES);
            sim::write_tone(0, number, one.bytes.data());
            made.push_back(one);
        }
        return made;
    }();
    return all;
}

// A quarter of an hour at most, in steps of 0.1 ms, or any distance.
int64_t step_of_time(Input& input) {
    const uint32_t word = input.word();
    constexpr uint32_t FAR = 1 << 23;
    if ((word & FAR) == 0) return static_cast<int64_t>(word) * 100 - 800'000;
    const auto mantissa = static_cast<int64_t>(word & (FAR - 1)) - FAR / 2;
    return mantissa * (int64_t{1} << input.byte() % 41);
}

int64_t shifted(int64_t shift_us, int64_t step_us) {
    int64_t sum = 0;
    if (__builtin_add_overflow(shift_us, step_us, &sum)) sum = step_us < 0 ? INT64_MIN : INT64_MAX;
    return std::clamp(sum, -MOST_SHIFT_US, MOST_SHIFT_US);
}

// One record: a real frame as the input wants it changed.
void change(Input& input, Made& frame, int64_t& shift_us) {
    const uint8_t what = input.byte();
    if (what & 1) frame.info.number = input.word();
    if (what & 2) shift_us = shifted(shift_us, step_of_time(input));
    if (what & 4) frame.info.kind = static_cast<sim::FrameKind>(input.byte() % 4);
    if (what & 8) frame.info.stream = input.byte() % 6;
    if (what & 16) frame.info.channel = input.byte() % 2;
    if (what & 32) frame.bytes.resize(input.word() % (2 * frame.bytes.size() + 1));
    for (int left = what >> 6; left > 0 && !frame.bytes.empty(); --left)
        frame.bytes[input.word() % frame.bytes.size()] = input.byte();
}

void record(Input& input, const std::string& path) {
    sim::WriterOptions options;
    options.segment_bytes = 64 * 1024;
    options.ring_segments = 100;
    std::string why;
    const auto writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
    if (!writer) abort();
    int64_t shift_us = 0;
    qm_dbframe out;
    for (size_t i = 0; i < MOST_RECORDS && (input.more() || i == 0); ++i) {
        Made frame = frames()[input.byte() % frames().size()];
        change(input, frame, shift_us);
        out.info = frame.info;
        out.info.bytes = static_cast<uint32_t>(frame.bytes.size());
        out.info.time_us += shift_us;
        out.reserve(frame.bytes.size());
        std::copy(frame.bytes.begin(), frame.bytes.end(), out.payload.get());
        if (writer->append(out, UTC_US, out.info.time_us) != sim::DiskWriter::Outcome::stored)
            abort();
    }
    if (!writer->finish(0)) abort();
}

void look_at(const std::string& folder) {
    CommandLine line;
    line.database = folder + "/db.ini";
    line.force = true;
    line.decode = true;
    verify_database(line);
    list_database(line);
    line.channel = 0;
    const auto run = [&](int (*command)(const CommandLine&), int stream, const char* output) {
        line.stream = stream;
        line.output = folder + "/" + output;
        const int status = command(line);
        if (status == STATUS_USAGE) abort();
        // Nothing half done stays.
        if (std::filesystem::exists(line.output + ".part")) abort();
    };
    run(export_clip, 0, "a.mov");
    run(export_clip, 0, "a.mp4");
    run(export_clip, 0, "a.h264");
    run(export_clip, 2, "j.mov");
    run(export_clip, 2, "pictures/");
    run(export_clip, sim::AUDIO_ROW, "a.wav");
    line.at = "-0.1";
    run(show_frame, 0, "f.png");
    run(show_frame, 2, "f.jpg");
    run(write_report, -1, "r.html");
}

// In memory where that is possible.
std::string new_folder() {
    for (const char* pattern : {"/dev/shm/qm-fuzz-XXXXXX", "/tmp/qm-fuzz-XXXXXX"}) {
        std::string path = pattern;
        if (mkdtemp(path.data())) return path;
    }
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool silent = freopen("/dev/null", "w", stdout) != nullptr;
    if (!silent) abort();
    const std::string folder = new_folder();
    Input input(bytes, size);
    record(input, folder + "/db.ini");
    look_at(folder);
    std::filesystem::remove_all(folder);
    return 0;
}
