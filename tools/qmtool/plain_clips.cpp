// Writes H.264 and WAVE files.
#include "tools/qmtool/plain_clips.h"

#include <algorithm>
#include <vector>

#include "sdk/video/h264_reader.h"

namespace {

// RIFF: "fmt " with an extension of no bytes, "fact", "data". All numbers are little-endian.
constexpr size_t WAV_HEADER_BYTES = 12 + 8 + 18 + 8 + 4 + 8;
constexpr uint64_t MOST_WAV_SAMPLES = UINT32_MAX - WAV_HEADER_BYTES;
constexpr uint16_t MU_LAW = 7;

}  // namespace

ClipWriter::Taken H264Clip::picture(const ClipFrame& clip) {
    const qm_dbframe& frame = clip.frame;
    if (clip.wanted && !m_begun) {
        m_begun = true;
        m_first_us = clip.clip_us;
    }
    m_last_us = clip.clip_us;
    sim::NalUnits units(frame.payload.get(), frame.info.bytes);
    sim::NalUnit unit;
    sim::SequenceInfo sequence;
    // Of the other frames nothing is looked at.
    while (frame.info.kind == sim::FrameKind::idr && units.next(unit)) {
        if (unit.type() == sim::NalType::delimiter) continue;
        if (sim::read_sequence(unit, sequence)) m_size = sequence.size;
        break;
    }
    return m_file.write(frame.payload.get(), frame.info.bytes) ? Taken::written : Taken::failed;
}

bool H264Clip::settle(int64_t usual_us) {
    if (m_begun) m_shown_us = m_last_us - m_first_us + usual_us;
    return m_file.settle();
}

WavClip::WavClip(ClipFile& file) : PlainClip(file) {
    const uint8_t nothing[WAV_HEADER_BYTES] = {};
    m_file.write(nothing, sizeof nothing);
}

const std::string& WavClip::error() const { return m_error.empty() ? m_file.error() : m_error; }

ClipWriter::Taken WavClip::sound(const ClipFrame& clip) {
    const qm_dbframe& frame = clip.frame;
    const SoundPlaces::Place place = m_places.next(clip.clip_us, frame.info.bytes);
    if (m_places.samples() > MOST_WAV_SAMPLES) {
        m_error = "a WAVE file holds 4 GiB at most; a shorter span is needed";
        return Taken::failed;
    }
    m_silence_us += static_cast<int64_t>(place.silence) * SAMPLE_US;
    m_cut_us += static_cast<int64_t>(place.cut) * SAMPLE_US;
    static const std::vector<uint8_t> silence(64 * 1024, SILENCE);
    for (uint64_t left = place.silence; left > 0;) {
        const auto some = static_cast<size_t>(std::min<uint64_t>(left, silence.size()));
        if (!m_file.write(silence.data(), some)) return Taken::failed;
        left -= some;
    }
    return m_file.write(frame.payload.get() + place.cut,
                        static_cast<size_t>(frame.info.bytes - place.cut))
               ? Taken::written
               : Taken::failed;
}

bool WavClip::write_header() {
    std::vector<uint8_t> header;
    const auto text = [&](const char* four) { header.insert(header.end(), four, four + 4); };
    const auto number = [&](uint64_t value, int size) {
        for (int i = 0; i < size; ++i) header.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    const uint64_t samples = m_places.samples();
    constexpr int RATE = sim::AUDIO_SAMPLES_PER_SECOND;
    header.reserve(WAV_HEADER_BYTES);
    text("RIFF");
    number(m_file.written() - 8, 4);
    text("WAVE");
    text("fmt ");
    number(18, 4);
    number(MU_LAW, 2);
    number(1, 2);     // channels
    number(RATE, 4);  // samples a second
    number(RATE, 4);  // bytes a second
    number(1, 2);     // bytes of a sample of all channels
    number(8, 2);     // bits
    number(0, 2);     // bytes of the extension
    text("fact");
    number(4, 4);
    number(samples, 4);
    text("data");
    number(samples, 4);
    return m_file.write_at(0, header.data(), header.size());
}

// A chunk of odd length is filled with a byte that is not counted in it.
bool WavClip::settle(int64_t) {
    if (m_places.samples() % 2 == 1 && !m_file.write("", 1)) return false;
    m_heard_us = m_places.end_us() - m_places.start_us();
    return write_header() && m_file.settle();
}
