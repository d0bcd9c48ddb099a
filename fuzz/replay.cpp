// Plays a fuzz target without libFuzzer: the files of a folder, and so many inputs at random,
// always the same. Any failure ends the program as it would end the fuzzer.
//
//     replay ROUNDS [SEED [FOLDER]]
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "sdk/board/encoder_channel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

// Frames as the board makes them, H.264 and JPEG.
std::vector<Bytes> real_frames() {
    std::vector<Bytes> all;
    for (const uint8_t stream : {uint8_t{0}, uint8_t{2}}) {
        sim::EncoderChannel encoder;
        encoder.place(stream, 3);
        encoder.set_format(false, {});
        encoder.set_resolution(0);
        encoder.set_qp(40);
        encoder.switch_on({});
        for (int i = 0; i < 6; ++i) {
            Bytes bytes(encoder.encode().bytes);
            encoder.write(bytes.data());
            all.push_back(bytes);
        }
    }
    return all;
}

// Every file of a folder; how many they were.
long play_files(const std::string& folder) {
    long played = 0;
    std::error_code failed;
    for (const auto& file : std::filesystem::directory_iterator(folder, failed)) {
        std::ifstream in(file.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(in), {}};
        const Bytes input(text.begin(), text.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++played;
    }
    return played;
}

}  // namespace

int main(int argc, char** argv) {
    const long rounds = argc > 1 ? atol(argv[1]) : 1000;
    std::mt19937_64 random(argc > 2 ? strtoull(argv[2], nullptr, 10) : 1);
    const long files = argc > 3 ? play_files(argv[3]) : 0;
    if (argc > 3 && files == 0) {
        fprintf(stderr, "%s: no inputs\n", argv[3]);
        return 1;
    }
    const std::vector<Bytes> frames = real_frames();
    for (long i = 0; i < rounds; ++i) {
        Bytes input;
        if (i % 2 == 0) {
            input.resize(random() % 300);
            for (uint8_t& byte : input) byte = static_cast<uint8_t>(random());
        } else {
            input = frames[random() % frames.size()];
            for (uint64_t left = 1 + random() % 4; left > 0; --left)
                input[random() % input.size()] = static_cast<uint8_t>(random());
            if (random() % 4 == 0) input.resize(random() % input.size());
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    fprintf(stderr, "%ld files, %ld inputs at random\n", files, rounds);
    return 0;
}
