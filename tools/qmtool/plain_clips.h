// Exports that need no boxes: H.264 byte for byte as it was recorded, and sound as a WAVE file.
#ifndef TOOLS_QMTOOL_PLAIN_CLIPS_H
#define TOOLS_QMTOOL_PLAIN_CLIPS_H

#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/clip_sound.h"
#include "tools/qmtool/clip_writer.h"

// `file` of both was created and is empty; it outlives the clip.
class PlainClip : public ClipWriter {
  public:
    explicit PlainClip(ClipFile& file) : m_file(file) {}

    Taken picture(const ClipFrame&) override { return Taken::written; }
    Taken sound(const ClipFrame&) override { return Taken::written; }
    bool publish() override { return m_file.publish(); }
    bool digest(std::string& sha256) override { return m_file.digest(sha256); }
    const std::string& error() const override { return m_file.error(); }
    uint64_t bytes() const override { return m_file.written(); }

  protected:
    ClipFile& m_file;
};

class H264Clip final : public PlainClip {
  public:
    using PlainClip::PlainClip;
    Taken picture(const ClipFrame& frame) override;
    bool settle(int64_t usual_us) override;

  private:
    int64_t m_first_us = 0;
    int64_t m_last_us = 0;
    bool m_begun = false;
};

// mu-law, 8000 samples a second, one channel. What is missing is silent, so that time stays true.
class WavClip final : public PlainClip {
  public:
    explicit WavClip(ClipFile& file);
    Taken sound(const ClipFrame& frame) override;
    bool settle(int64_t usual_us) override;
    const std::string& error() const override;

  private:
    bool write_header();

    SoundPlaces m_places;
    std::string m_error;  // of the format
};

#endif  // TOOLS_QMTOOL_PLAIN_CLIPS_H
