// Any bytes given to the JPEG reader: refused with a sentence, or a picture. With libFuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "sdk/video/jpeg_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static sim::JpegReader reader;  // as in use: one for many pictures
    const bool decoded = reader.decode(bytes, size);
    const sim::Picture& picture = reader.picture();
    const auto samples =
        static_cast<size_t>(picture.size.width) * static_cast<size_t>(picture.size.height);
    if (decoded != reader.error().empty() || decoded != (samples > 0)) std::abort();
    if (picture.y.size() != samples || picture.u.size() != samples / 4) std::abort();
    // No block takes fewer than 2 bits, and a macroblock has 6 of them.
    if (samples / 256 * 12 / 8 > size) std::abort();
    return 0;
}
