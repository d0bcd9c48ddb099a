// Writes the samples of a film and gathers what its boxes say.
#include "tools/qmtool/mp4_clip.h"

#include <algorithm>

#include "tools/qmtool/clip_jpeg.h"

namespace {

// What is gathered of the sound before it is written in one piece, half a second.
constexpr size_t SOUND_PIECE_BYTES = sim::AUDIO_SAMPLES_PER_SECOND / 2;
constexpr size_t LENGTH_BYTES = 4;
constexpr uint64_t SAMPLES_HEADER_BYTES = 16;
// Two pictures have at least this distance, so that each is shown.
constexpr int64_t LEAST_TICKS = 1;
constexpr int64_t SOUND_FRAME_US = SAMPLE_US * sim::AUDIO_FRAME_BYTES;
// Samples of sound are counted in 32 bits; a part of them waits to be written.
constexpr uint64_t MOST_SOUND = UINT32_MAX - 2 * SOUND_PIECE_BYTES;
constexpr int64_t UNKNOWN_US = 40'000;  // how long a single picture is shown

// Damaged times may be anything.
int64_t ticks_of(int64_t us) {
    constexpr int64_t MOST_US = int64_t{1} << 59;
    us = std::clamp(us, -MOST_US, MOST_US);
    return (us * (MOVIE_TICKS_PER_SECOND / 10'000) + (us < 0 ? -50 : 50)) / 100;
}

uint64_t as_ticks(int64_t us) { return static_cast<uint64_t>(std::max<int64_t>(0, ticks_of(us))); }

}  // namespace

// The length of the samples' box is written at the end: where it needs 64 bits over both of its
// halves, else the first of them is an empty box.
Mp4Clip::Mp4Clip(ClipFile& file, MovieKind kind) : m_file(file) {
    m_movie.kind = kind;
    Boxes boxes;
    write_file_type(boxes, kind);
    m_samples_at = boxes.out().size();
    boxes.zeros(SAMPLES_HEADER_BYTES);
    m_file.write(boxes.out().data(), boxes.out().size());
}

// The units of an access unit that belong into a sample, in m_units, and its parameter sets.
bool Mp4Clip::split(const qm_dbframe& frame, SampleDescription& description) {
    m_units.clear();
    sim::NalUnits units(frame.payload.get(), frame.info.bytes);
    sim::NalUnit unit;
    bool picture = false;
    while (units.next(unit)) {
        switch (unit.type()) {
            case sim::NalType::sps:
                description.sps.assign(unit.bytes, unit.bytes + unit.size);
                break;
            case sim::NalType::pps:
                description.pps.assign(unit.bytes, unit.bytes + unit.size);
                break;
            case sim::NalType::delimiter:
            case sim::NalType::filler: break;
            case sim::NalType::slice:
            case sim::NalType::idr_slice: picture = true; [[fallthrough]];
            default: m_units.push_back(unit);
        }
        if (unit.type() != sim::NalType::sps || description.sps.size() < 4) continue;
        sim::SequenceInfo sequence;
        if (sim::read_sequence(unit, sequence)) description.size = sequence.size;
    }
    return picture && !units.failed();
}

// What a frame is decoded with, when it is a picture.
bool Mp4Clip::take_description(const qm_dbframe& frame) {
    SampleDescription description;
    if (frame.info.kind == sim::FrameKind::jpeg) {
        JpegLayout layout;
        if (!look_at_jpeg(frame.payload.get(), frame.info.bytes, layout)) return false;
        description.jpeg = true;
        description.size = layout.size;
    } else {
        if (!split(frame, description)) return false;
        // A frame without parameter sets goes on with those before it.
        if (description.sps.empty() && description.pps.empty()) return m_description > 0;
        if (description.sps.size() < 4 || description.sps.size() > UINT16_MAX ||
            description.pps.empty() || description.pps.size() > UINT16_MAX)
            return false;
    }
    m_size = description.size;
    std::string key(description.sps.begin(), description.sps.end());
    key.append(description.pps.begin(), description.pps.end());
    for (const size_t part : {static_cast<size_t>(description.size.width),
                              static_cast<size_t>(description.size.height), description.sps.size()})
        key += ' ' + std::to_string(part);
    const auto [known, added] =
        m_known.try_emplace(std::move(key), m_movie.descriptions.size() + 1);
    if (added) m_movie.descriptions.push_back(std::move(description));
    m_description = static_cast<uint32_t>(known->second);
    return true;
}

void Mp4Clip::add_times(const ClipFrame& frame, uint32_t bytes, uint64_t offset) {
    if (!m_any) m_first_us = frame.clip_us;
    m_ticks = m_any ? std::max(m_ticks + LEAST_TICKS, ticks_of(frame.clip_us - m_first_us)) : 0;
    if (!m_any) m_movie.start_us = frame.frame.info.time_us;
    m_any = true;
    if (frame.wanted && !m_begun) {
        m_begun = true;
        m_movie.start_us = frame.frame.info.time_us;
        m_shown_from_us = frame.clip_us;
        m_movie.picture_edit.skipped = static_cast<uint64_t>(m_ticks);
    }
    m_movie.pictures.add(m_ticks, bytes, offset, m_description, sim::is_key(frame.frame.info.kind));
}

ClipWriter::Taken Mp4Clip::picture(const ClipFrame& clip) {
    const qm_dbframe& frame = clip.frame;
    if (!take_description(frame)) return Taken::no_picture;
    const uint64_t offset = m_file.written();
    if (frame.info.kind == sim::FrameKind::jpeg) {
        m_file.write(frame.payload.get(), frame.info.bytes);
    } else {
        for (const sim::NalUnit& unit : m_units) {
            const auto size = static_cast<uint32_t>(unit.size);
            uint8_t length[LENGTH_BYTES];
            for (size_t i = 0; i < LENGTH_BYTES; ++i)
                length[i] = static_cast<uint8_t>(size >> (24 - 8 * i));
            m_file.write(length, sizeof length);
            m_file.write(unit.bytes, unit.size);
        }
    }
    add_times(clip, static_cast<uint32_t>(m_file.written() - offset), offset);
    return m_file.error().empty() ? Taken::written : Taken::failed;
}

bool Mp4Clip::write_sound() {
    const uint64_t offset = m_file.written();
    if (!m_sound.empty() && !m_file.write(m_sound.data(), m_sound.size())) return false;
    m_movie.sound.add_run(static_cast<uint32_t>(m_sound.size()), offset);
    m_sound.clear();
    return true;
}

// Stretches of silence stand in the file once, however often they are heard: a second, and one of
// two minutes where it is needed, so that a pause of days takes few entries.
bool Mp4Clip::write_silence(uint64_t samples) {
    for (Silence& silence : m_silences) {
        if (samples < silence.samples) continue;
        if (!write_sound()) return false;
        if (silence.offset == 0) {
            silence.offset = m_file.written();
            const std::vector<uint8_t> bytes(silence.samples, SILENCE);
            if (!m_file.write(bytes.data(), bytes.size())) return false;
        }
        for (; samples >= silence.samples; samples -= silence.samples)
            m_movie.sound.add_run(silence.samples, silence.offset);
    }
    m_sound.insert(m_sound.end(), static_cast<size_t>(samples), SILENCE);
    return true;
}

ClipWriter::Taken Mp4Clip::sound(const ClipFrame& clip) {
    const qm_dbframe& frame = clip.frame;
    const SoundPlaces::Place place = m_places.next(clip.clip_us, frame.info.bytes);
    m_silence_us += static_cast<int64_t>(place.silence) * SAMPLE_US;
    m_cut_us += static_cast<int64_t>(place.cut) * SAMPLE_US;
    if (m_movie.sound.count() + place.silence + frame.info.bytes > MOST_SOUND) {
        m_file.give_up("the sound is longer than a film can hold");
        return Taken::failed;
    }
    if (place.silence > 0 && !write_silence(place.silence)) return Taken::failed;
    m_sound.insert(m_sound.end(), frame.payload.get() + place.cut,
                   frame.payload.get() + frame.info.bytes);
    if (m_sound.size() >= SOUND_PIECE_BYTES && !write_sound()) return Taken::failed;
    return Taken::written;
}

// What was asked for begins with the first picture of it; sound before that is skipped, and sound
// that begins later waits. It ends with the pictures where it would end a bit later.
void Mp4Clip::set_edits(int64_t usual_us) {
    m_movie.pictures.end(static_cast<uint32_t>(as_ticks(usual_us > 0 ? usual_us : UNKNOWN_US)));
    Edit& seen = m_movie.picture_edit;
    seen.shown_ticks = m_movie.pictures.duration() - seen.skipped;
    constexpr uint64_t TICKS = MOVIE_TICKS_PER_SECOND / 10'000;  // in 100 microseconds
    m_shown_us = static_cast<int64_t>(seen.shown_ticks / TICKS * 100 +
                                      seen.shown_ticks % TICKS * 100 / TICKS);
    if (!m_places.any()) return;

    Edit& heard = m_movie.sound_edit;
    const int64_t late_us = m_places.start_us() - m_shown_from_us;
    int64_t end_us = m_places.end_us() - m_shown_from_us;
    if (end_us > m_shown_us && end_us <= m_shown_us + SOUND_FRAME_US) end_us = m_shown_us;
    if (late_us > 0)
        heard.empty_ticks = as_ticks(late_us);
    else
        heard.skipped = static_cast<uint64_t>(-late_us / SAMPLE_US);
    const uint64_t end = as_ticks(end_us);
    heard.shown_ticks = end > heard.empty_ticks ? end - heard.empty_ticks : 0;
    m_heard_us = std::max<int64_t>(0, end_us - std::max<int64_t>(0, late_us));
}

bool Mp4Clip::finish_samples() {
    const uint64_t size = m_file.written() - m_samples_at;
    Boxes boxes;
    if (size > UINT32_MAX)
        boxes.u32(1).text("mdat").u64(size);
    else
        boxes.begin(m_movie.kind == MovieKind::quicktime ? "wide" : "free")
            .end()
            .u32(size - 8)
            .text("mdat");
    return m_file.write_at(m_samples_at, boxes.out().data(), boxes.out().size());
}

bool Mp4Clip::settle(int64_t usual_us) {
    if (!write_sound() || !finish_samples()) return false;
    set_edits(usual_us);
    Boxes boxes;
    write_movie(boxes, m_movie);
    return m_file.write(boxes.out().data(), boxes.out().size()) && m_file.settle();
}
