// Writes inputs to begin fuzzing with into folders named after the targets: frames as the board
// makes them, and databases of them that nothing is wrong with or one thing.
//
//     make_seeds FOLDER
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sdk/board/encoder_channel.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t FRAMES = 28;  // that database_tools_fuzz picks from
// Bytes that it reads for each bit of a change.
constexpr size_t OPERANDS[8] = {3, 3, 1, 1, 1, 3, 4, 8};
constexpr int QP = 51;  // small frames: quick to change, quick to decode

bool put(const std::filesystem::path& folder, const std::string& name, const Bytes& bytes) {
    std::error_code failed;
    std::filesystem::create_directories(folder, failed);
    std::ofstream out(folder / name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return out.good();
}

// The first two frames of a channel: with its number the pattern changes.
std::vector<Bytes> frames(uint8_t stream, uint8_t channel) {
    sim::EncoderChannel encoder;
    encoder.place(stream, channel);
    encoder.set_format(false, {});
    encoder.set_resolution(0);
    encoder.set_qp(QP);
    encoder.switch_on({});
    std::vector<Bytes> made;
    for (int i = 0; i < 2; ++i) {
        made.emplace_back(encoder.encode().bytes);
        encoder.write(made.back().data());
    }
    return made;
}

// Every frame in its order; at the one in the middle the bits of `change`, with operands.
Bytes database(uint8_t change) {
    Bytes input;
    for (uint8_t frame = 0; frame < FRAMES; ++frame) {
        const bool changed = frame == FRAMES / 4;
        input.push_back(frame);
        input.push_back(changed ? change : 0);
        for (int bit = 0; changed && bit < 8; ++bit)
            if ((change >> bit & 1) != 0) input.resize(input.size() + OPERANDS[bit], 0x21);
    }
    return input;
}

// One key frame again and again, its time up or down.
constexpr uint8_t FARTHEST = 40, LESS = 38;
void step(Bytes& input, bool down, uint8_t far, int times) {
    constexpr uint8_t KEY = 0, TIME = 1 << 1;
    const uint8_t low = down ? 0x00 : 0xFF, high = down ? 0x80 : 0xFF;
    for (; times > 0; --times) input.insert(input.end(), {KEY, TIME, low, low, high, far});
}

// As far as it goes.
Bytes far_times() {
    Bytes input;
    for (int turn = 0; turn < 3; ++turn) {
        step(input, true, FARTHEST, 4);
        step(input, false, FARTHEST, 4);
        step(input, true, LESS, 1);
    }
    return input;
}

// The last picture of a channel is further before the wanted time than a number reaches.
Bytes far_pause() {
    Bytes input;
    step(input, true, FARTHEST, 3);
    for (const int byte : {0x80, 0, 0, 0, 0, 0, 0, 0, 0x6E, 0x02, 0xFF, 0xFF, 0xFF, 0x28})
        input.push_back(static_cast<uint8_t>(byte));
    step(input, false, FARTHEST, 3);
    step(input, true, LESS, 1);
    step(input, true, FARTHEST, 4);
    step(input, false, FARTHEST, 4);
    for (const int byte : {0x00, 0x02, 0x00, 0x93, 0x80, 0x26})
        input.push_back(static_cast<uint8_t>(byte));
    return input;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "Usage: make_seeds FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    bool written = true;
    for (uint8_t channel = 0; channel < 5; ++channel) {
        const std::string name = std::to_string(channel);
        for (const Bytes& frame : frames(0, channel)) {
            Bytes input = {0};  // a whole access unit
            input.insert(input.end(), frame.begin(), frame.end());
            const std::string part = std::to_string(frame.size());
            written &= put(folder / "h264_reader_fuzz", name + "-" + part, input);
        }
        written &= put(folder / "jpeg_reader_fuzz", name, frames(2, channel).front());
    }
    // Macroblocks of a key picture and of one that refers to it.
    written &= put(folder / "h264_reader_fuzz", "key", {0xA1, 0x26, 0x9A, 0x68, 0xA6, 0x9A});
    written &= put(folder / "h264_reader_fuzz", "p", {0xA2, 0x48, 0x22, 0x10, 0xFF, 0x80});
    written &= put(folder / "database_tools_fuzz", "whole", database(0));
    for (int bit = 0; bit < 8; ++bit)
        written &= put(folder / "database_tools_fuzz", "change-" + std::to_string(bit),
                       database(static_cast<uint8_t>(1 << bit)));
    written &= put(folder / "database_tools_fuzz", "far-times", far_times());
    written &= put(folder / "database_tools_fuzz", "far-pause", far_pause());
    if (!written) perror(argv[1]);
    return written ? 0 : 1;
}
