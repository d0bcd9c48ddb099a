// Writes moov: ISO/IEC 14496-12 chapter 8, 14496-14 and -15 for what is in an MP4, and the
// QuickTime file format where that differs.
#include "tools/qmtool/mp4_movie.h"

#include <algorithm>

#include "sdk/video/audio_tone.h"
#include "tools/qmtool/output.h"

namespace {

constexpr int64_t US_PER_SECOND = 1'000'000;
constexpr int64_t SECONDS_FROM_1904 = 2'082'844'800;  // to 1970
constexpr uint16_t UNDETERMINED = 0x55C4;             // the language "und"
constexpr uint32_t WHOLE = 1 << 16;                   // 1 in fixed point
constexpr uint32_t DPI_72 = 72 << 16;
constexpr uint8_t OBJECT_TYPE_JPEG = 0x6C;

uint64_t since_1904(int64_t utc_us) {
    const int64_t seconds = utc_us / US_PER_SECOND + SECONDS_FROM_1904;
    return seconds < 0 ? 0 : static_cast<uint64_t>(seconds);
}

uint64_t shown(const Edit& edit) { return edit.empty_ticks + edit.shown_ticks; }

class MovieWriter {
  public:
    MovieWriter(Boxes& boxes, const Movie& movie)
        : m_boxes(boxes),
          m_movie(movie),
          m_created(since_1904(movie.start_us)),
          m_quicktime(movie.kind == MovieKind::quicktime) {}

    void write();

  private:
    struct Track {
        uint32_t id;
        bool sound;
        uint32_t ticks_per_second;
        const SampleTable& samples;
        const Edit& edit;
        uint32_t divisor;  // of its ticks
    };

    bool begin_timed(const char* type, uint32_t flags, uint64_t duration);
    void write_track(const Track& track);
    void write_track_header(const Track& track);
    void write_edits(const Track& track);
    void write_media(const Track& track);
    void write_handler(const char* component, const char* type, const char* name);
    void write_data_reference();
    void write_descriptions(const Track& track);
    void write_picture_description(const SampleDescription& description);
    void write_avc_configuration(const SampleDescription& description);
    void write_jpeg_configuration();
    void write_sound_description();
    void write_date();

    Boxes& m_boxes;
    const Movie& m_movie;
    const uint64_t m_created;
    const bool m_quicktime;
};

// A full box with its version, by which its times are 32 or 64 bits; true for 64.
bool MovieWriter::begin_timed(const char* type, uint32_t flags, uint64_t duration) {
    const bool large = duration > UINT32_MAX || m_created > UINT32_MAX;
    m_boxes.begin_full(type, large ? 1 : 0, flags).wide(large, m_created).wide(large, m_created);
    return large;
}

void MovieWriter::write() {
    const bool has_sound = m_movie.sound.count() > 0;
    const uint64_t duration = std::max(shown(m_movie.picture_edit), shown(m_movie.sound_edit));
    m_boxes.begin("moov");
    const bool large = begin_timed("mvhd", 0, duration);
    m_boxes.u32(MOVIE_TICKS_PER_SECOND).wide(large, duration);
    m_boxes.u32(WHOLE).u16(0x100).zeros(10).unit_matrix().zeros(24).u32(has_sound ? 3 : 2).end();
    write_track({1, false, MOVIE_TICKS_PER_SECOND, m_movie.pictures, m_movie.picture_edit,
                 m_movie.pictures.divisor(MOVIE_TICKS_PER_SECOND)});
    if (has_sound)
        write_track({2, true, sim::AUDIO_SAMPLES_PER_SECOND, m_movie.sound, m_movie.sound_edit, 1});
    write_date();
    m_boxes.end();
}

void MovieWriter::write_track(const Track& track) {
    m_boxes.begin("trak");
    write_track_header(track);
    write_edits(track);
    write_media(track);
    m_boxes.end();
}

void MovieWriter::write_track_header(const Track& track) {
    constexpr uint32_t ENABLED = 1, IN_MOVIE = 2, IN_PREVIEW = 4;
    const uint64_t duration = shown(track.edit);
    const bool large = begin_timed("tkhd", ENABLED | IN_MOVIE | IN_PREVIEW, duration);
    m_boxes.u32(track.id).u32(0).wide(large, duration).zeros(8).u16(0);
    m_boxes.u16(track.sound ? 1 : 0).u16(track.sound ? 0x100 : 0).u16(0).unit_matrix();
    int width = 0, height = 0;
    if (!track.sound) {
        for (const SampleDescription& description : m_movie.descriptions) {
            width = std::max(width, description.size.width);
            height = std::max(height, description.size.height);
        }
    }
    m_boxes.u32(static_cast<uint64_t>(width) << 16).u32(static_cast<uint64_t>(height) << 16).end();
}

void MovieWriter::write_edits(const Track& track) {
    const Edit& edit = track.edit;
    const uint64_t skipped = edit.skipped / track.divisor;
    const bool large = shown(edit) > INT32_MAX || skipped > INT32_MAX;
    m_boxes.begin("edts").begin_full("elst", large ? 1 : 0, 0).u32(edit.empty_ticks > 0 ? 2 : 1);
    constexpr uint64_t NOTHING = UINT64_MAX;  // -1
    if (edit.empty_ticks > 0) m_boxes.wide(large, edit.empty_ticks).wide(large, NOTHING).u32(WHOLE);
    m_boxes.wide(large, edit.shown_ticks).wide(large, skipped).u32(WHOLE).end().end();
}

void MovieWriter::write_media(const Track& track) {
    m_boxes.begin("mdia");
    const uint64_t duration = track.samples.duration() / track.divisor;
    const bool large = begin_timed("mdhd", 0, duration);
    m_boxes.u32(track.ticks_per_second / track.divisor);
    m_boxes.wide(large, duration).u16(UNDETERMINED).u16(0).end();
    if (track.sound)
        write_handler("mhlr", "soun", "Sound");
    else
        write_handler("mhlr", "vide", "Pictures");

    m_boxes.begin("minf");
    if (track.sound)
        m_boxes.begin_full("smhd", 0, 0).zeros(4).end();
    else
        m_boxes.begin_full("vmhd", 0, 1).zeros(8).end();
    if (m_quicktime) write_handler("dhlr", "url ", "File");
    write_data_reference();
    m_boxes.begin("stbl");
    write_descriptions(track);
    track.samples.write(m_boxes, track.divisor);
    m_boxes.end().end().end();
}

// QuickTime counts the characters of the name, an MP4 ends it with 0 and knows no component.
void MovieWriter::write_handler(const char* component, const char* type, const char* name) {
    const std::string_view characters = name;
    m_boxes.begin_full("hdlr", 0, 0);
    if (m_quicktime)
        m_boxes.text(component).text(type).zeros(12).u8(characters.size()).text(characters);
    else
        m_boxes.u32(0).text(type).zeros(12).text(characters).u8(0);
    m_boxes.end();
}

// The samples are in this file.
void MovieWriter::write_data_reference() {
    m_boxes.begin("dinf").begin_full("dref", 0, 0).u32(1);
    m_boxes.begin_full("url ", 0, 1).end().end().end();
}

void MovieWriter::write_descriptions(const Track& track) {
    m_boxes.begin_full("stsd", 0, 0).u32(track.sound ? 1 : m_movie.descriptions.size());
    if (track.sound) {
        write_sound_description();
    } else {
        for (const SampleDescription& description : m_movie.descriptions)
            write_picture_description(description);
    }
    m_boxes.end();
}

void MovieWriter::write_picture_description(const SampleDescription& description) {
    constexpr uint16_t COLOUR_24_BITS = 24, NO_PALETTE = 0xFFFF;
    const char* const type = !description.jpeg ? "avc1" : m_quicktime ? "jpeg" : "mp4v";
    m_boxes.begin(type).zeros(6).u16(1).zeros(16);
    m_boxes.u16(static_cast<uint64_t>(description.size.width));
    m_boxes.u16(static_cast<uint64_t>(description.size.height));
    m_boxes.u32(DPI_72).u32(DPI_72).u32(0).u16(1).zeros(32).u16(COLOUR_24_BITS).u16(NO_PALETTE);
    if (!description.jpeg)
        write_avc_configuration(description);
    else if (!m_quicktime)
        write_jpeg_configuration();
    m_boxes.end();
}

// AVCDecoderConfigurationRecord: NAL units have their length before them, in 4 bytes.
void MovieWriter::write_avc_configuration(const SampleDescription& description) {
    const std::vector<uint8_t>& sps = description.sps;
    const std::vector<uint8_t>& pps = description.pps;
    m_boxes.begin("avcC").u8(1).u8(sps[1]).u8(sps[2]).u8(sps[3]).u8(0xFC | 3).u8(0xE0 | 1);
    m_boxes.u16(sps.size()).bytes(sps.data(), sps.size());
    m_boxes.u8(1).u16(pps.size()).bytes(pps.data(), pps.size()).end();
}

// An elementary stream descriptor that says JPEG, and nothing more.
void MovieWriter::write_jpeg_configuration() {
    constexpr uint8_t ES = 3, DECODER_CONFIG = 4, SYNC_CONFIG = 6, VISUAL_STREAM = 4;
    constexpr uint8_t SYNC_BYTES = 1, CONFIG_BYTES = 13;
    m_boxes.begin_full("esds", 0, 0);
    m_boxes.u8(ES).u8(3 + 2 + CONFIG_BYTES + 2 + SYNC_BYTES).u16(0).u8(0);
    m_boxes.u8(DECODER_CONFIG).u8(CONFIG_BYTES).u8(OBJECT_TYPE_JPEG).u8(VISUAL_STREAM << 2 | 1);
    m_boxes.u24(0).u32(0).u32(0);  // buffer, highest and usual rate: not told
    m_boxes.u8(SYNC_CONFIG).u8(SYNC_BYTES).u8(2).end();
}

void MovieWriter::write_sound_description() {
    constexpr uint16_t MONO = 1, LINEAR_BITS = 16;
    m_boxes.begin("ulaw").zeros(6).u16(1).u16(m_quicktime ? 1 : 0).zeros(6).u16(MONO);
    m_boxes.u16(LINEAR_BITS).u16(0).u16(0);
    m_boxes.u32(uint64_t{sim::AUDIO_SAMPLES_PER_SECOND} << 16);
    // Samples a packet, bytes a packet, bytes a frame, bytes a sample once it is decoded.
    if (m_quicktime) {
        constexpr uint32_t LAYOUT_MONO = 100 << 16 | 1;
        m_boxes.u32(1).u32(1).u32(1).u32(2);
        m_boxes.begin_full("chan", 0, 0).u32(LAYOUT_MONO).u32(0).u32(0).end();
    }
    m_boxes.end();
}

// The recorded start as text, with what is lost of it in the headers.
void MovieWriter::write_date() {
    const std::string text = time_text(m_movie.start_us);
    m_boxes.begin("udta");
    if (m_quicktime) {
        m_boxes
            .begin(
                "\xA9"
                "day")
            .u16(text.size())
            .u16(UNDETERMINED)
            .text(text)
            .end();
    } else {
        constexpr uint32_t UTF_8 = 1;
        m_boxes.begin_full("meta", 0, 0);
        m_boxes.begin_full("hdlr", 0, 0).u32(0).text("mdirappl").zeros(9).end();
        m_boxes.begin("ilst")
            .begin(
                "\xA9"
                "day")
            .begin("data");
        m_boxes.u32(UTF_8).u32(0).text(text).end().end().end().end();
    }
    m_boxes.end();
}

}  // namespace

void write_file_type(Boxes& boxes, MovieKind kind) {
    boxes.begin("ftyp");
    if (kind == MovieKind::quicktime)
        boxes.text("qt  ").u32(0x200).text("qt  ");
    else
        boxes.text("isom").u32(0x200).text("isom").text("iso2").text("avc1").text("mp41");
    boxes.end();
}

void write_movie(Boxes& boxes, const Movie& movie) { MovieWriter(boxes, movie).write(); }
