// Writes a film: the pictures of a stream and the sound of its channel. The samples are written as
// they come, the boxes that tell of them at the end.
#ifndef TOOLS_QMTOOL_MP4_CLIP_H
#define TOOLS_QMTOOL_MP4_CLIP_H

#include <map>
#include <string>
#include <vector>

#include "sdk/video/h264_reader.h"
#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/clip_sound.h"
#include "tools/qmtool/clip_writer.h"
#include "tools/qmtool/mp4_movie.h"

class Mp4Clip final : public ClipWriter {
  public:
    // `file` was created and is empty; it outlives the clip.
    Mp4Clip(ClipFile& file, MovieKind kind);

    Taken picture(const ClipFrame& frame) override;
    Taken sound(const ClipFrame& frame) override;
    bool settle(int64_t usual_us) override;
    bool publish() override { return m_file.publish(); }
    bool digest(std::string& sha256) override { return m_file.digest(sha256); }
    const std::string& error() const override { return m_file.error(); }
    uint64_t bytes() const override { return m_file.written(); }

  private:
    bool split(const qm_dbframe& frame, SampleDescription& description);
    bool take_description(const qm_dbframe& frame);
    void add_times(const ClipFrame& frame, uint32_t bytes, uint64_t offset);
    bool write_sound();
    bool write_silence(uint64_t samples);
    void set_edits(int64_t usual_us);
    bool finish_samples();

    ClipFile& m_file;
    Movie m_movie;
    uint64_t m_samples_at = 0;    // of the box of the samples
    uint32_t m_description = 0;   // of the last picture, from 1 on
    bool m_any = false;           // a picture was written
    bool m_begun = false;         // ... that was asked for
    int64_t m_first_us = 0;       // in the clip
    int64_t m_shown_from_us = 0;  // ... of what was asked for
    int64_t m_ticks = 0;          // of the last picture, since the first
    std::vector<sim::NalUnit> m_units;
    std::map<std::string, size_t> m_known;  // descriptions, by their bytes and size

    SoundPlaces m_places;
    std::vector<uint8_t> m_sound;  // not written yet
    struct Silence {
        uint32_t samples;
        uint64_t offset;  // in the file; 0: nowhere
    };
    Silence m_silences[2] = {{120 * sim::AUDIO_SAMPLES_PER_SECOND, 0},
                             {sim::AUDIO_SAMPLES_PER_SECOND, 0}};
};

#endif  // TOOLS_QMTOOL_MP4_CLIP_H
