// Recordings for tests with other decoders, and what such a decoder made of them held against our
// own.
//
//     recorded_streams make DB FORMAT             records the matrix; FORMAT: 0 NTSC, 1 PAL
//     recorded_streams list DB                    its frames: stream, channel, number, time, key
//     recorded_streams check DB STREAM CHANNEL    compares pictures from standard input, planar
//                                                 4:2:0, one after the other; says what it found
//     recorded_streams ends FILE                  of an H.264 file: pictures, first and last number
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "sdk/video/picture_check.h"
#include "sdk/video/scene.h"
#include "tests/sdk/programs/stream_matrix.h"

namespace {

constexpr int64_t UTC_US = 1'700'000'000'000'000;
// Of JPEG: what two exact inverse transforms may differ by after rounding.
constexpr int JPEG_ROUNDING = 2;

[[noreturn]] void give_up(const std::string& why) {
    fprintf(stderr, "recorded_streams: %s\n", why.c_str());
    exit(1);
}

int make(const std::string& path, bool pal) {
    sim::WriterOptions options;
    options.segment_bytes = 8 << 20;
    std::string why;
    const auto writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
    if (!writer) give_up(why);
    make_matrix(pal, [&](const qm_dbframe& frame) {
        if (writer->append(frame, UTC_US, frame.info.time_us) != sim::DiskWriter::Outcome::stored)
            give_up("a frame is not stored");
    });
    return writer->finish(0) ? 0 : 1;
}

std::unique_ptr<sim::DiskReader> open(const std::string& path) {
    std::string why;
    auto reader = sim::DiskReader::open(sim::real_file_system(), path, why);
    if (!reader) give_up(why);
    return reader;
}

int list(const std::string& path) {
    const auto reader = open(path);
    sim::FrameInfo info;
    for (uint64_t n = reader->next(0); n < reader->end(); n = reader->next(n + 1))
        if (reader->info(n, info))
            printf("%u %u %" PRIu32 " %" PRId64 " %d\n", unsigned{info.stream},
                   unsigned{info.channel}, info.number, info.time_us, is_key(info.kind) ? 1 : 0);
    return 0;
}

int most_difference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    int most = 0;
    for (size_t i = 0; i < a.size(); ++i) most = std::max(most, std::abs(a[i] - b[i]));
    return most;
}

bool read_plane(std::vector<uint8_t>& plane) {
    return fread(plane.data(), 1, plane.size(), stdin) == plane.size();
}

struct Checked {
    int frames = 0, codes = 0, hidden_codes = 0, difference = 0;
};

// One picture of the other decoder.
void check_frame(const qm_dbframe& frame, sim::PictureCheck& ours, Checked& out) {
    using Found = sim::PictureCheck::Found;
    const sim::FrameInfo& info = frame.info;
    const std::string name = "frame " + std::to_string(info.number) + ": ";
    const Found found = ours.check(info, frame.payload.get(), info.bytes);
    if (found != Found::fine && found != Found::no_code) give_up(name + "ours: " + ours.error());
    const sim::Picture& expected = *ours.picture();
    sim::Picture theirs;
    theirs.resize(expected.size);
    if (!read_plane(theirs.y) || !read_plane(theirs.u) || !read_plane(theirs.v))
        give_up(name + "the other decoder has no picture of it");
    const int difference =
        std::max({most_difference(theirs.y, expected.y), most_difference(theirs.u, expected.u),
                  most_difference(theirs.v, expected.v)});
    out.difference = std::max(out.difference, difference);
    if (difference > (info.kind == sim::FrameKind::jpeg ? JPEG_ROUNDING : 0))
        give_up(name + "its samples differ by " + std::to_string(difference));
    sim::BlockCode code;
    if (found == Found::no_code) {  // a zone lies over it
        ++out.hidden_codes;
    } else if (sim::read_block_code(theirs, code) != sim::CodeFound::valid ||
               code != sim::BlockCode{info.stream, info.channel, info.number}) {
        give_up(name + "its block code is another's");
    } else {
        ++out.codes;
    }
    ++out.frames;
}

int check(const std::string& path, int stream, int channel) {
    const auto reader = open(path);
    sim::PictureCheck ours;
    Checked checked;
    qm_dbframe frame;
    for (uint64_t n = reader->next(0); n < reader->end(); n = reader->next(n + 1)) {
        if (!reader->read(n, frame)) give_up("a record cannot be read");
        if (frame.info.stream == stream && frame.info.channel == channel)
            check_frame(frame, ours, checked);
    }
    if (getchar() != EOF) give_up("the other decoder has more pictures than were recorded");
    printf("%d %d %d %d\n", checked.frames, checked.codes, checked.hidden_codes,
           checked.difference);
    return 0;
}

// Goes from delimiter to delimiter.
int ends(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> all{std::istreambuf_iterator<char>(file), {}};
    const auto* const bytes = reinterpret_cast<const uint8_t*>(all.data());
    constexpr uint8_t DELIMITER[] = {0, 0, 0, 1, 9};
    std::vector<size_t> starts;
    for (size_t i = 0; i + sizeof DELIMITER <= all.size(); ++i)
        if (memcmp(bytes + i, DELIMITER, sizeof DELIMITER) == 0) starts.push_back(i);
    if (starts.empty() || starts[0] != 0) give_up(path + " does not begin with an access unit");
    starts.push_back(all.size());
    sim::H264Reader reader;
    sim::BlockCode first, code;
    for (size_t i = 0; i + 1 < starts.size(); ++i) {
        if (!reader.decode(bytes + starts[i], starts[i + 1] - starts[i])) give_up(reader.error());
        if (sim::read_block_code(reader.picture(), code) != sim::CodeFound::valid)
            give_up("a picture has no block code");
        if (i == 0) first = code;
    }
    printf("%zu %" PRIu32 " %" PRIu32 "\n", starts.size() - 1, first.number, code.number);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "make" && words.size() == 3) return make(words[1], words[2] == "1");
    if (command == "list" && words.size() == 2) return list(words[1]);
    if (command == "check" && words.size() == 4)
        return check(words[1], atoi(words[2].c_str()), atoi(words[3].c_str()));
    if (command == "ends" && words.size() == 2) return ends(words[1]);
    give_up("usage: recorded_streams make|list|check|ends ...");
}
