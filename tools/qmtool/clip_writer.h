// What an export writes into: a film, H.264 as it was recorded, or sound. Pictures in files of
// their own are in jpeg_folder; where frames come from is in clip_source.
#ifndef TOOLS_QMTOOL_CLIP_WRITER_H
#define TOOLS_QMTOOL_CLIP_WRITER_H

#include <cstdint>
#include <string>

#include "sdk/video/frame.h"
#include "sdk/video/picture.h"

// A frame and where it belongs.
struct ClipFrame {
    const qm_dbframe& frame;
    uint64_t record = 0;  // sequence number
    int64_t clip_us = 0;  // its time in the clip
    bool wanted = false;  // it was asked for, or comes behind such a frame
};

// Frames come in order of recording.
class ClipWriter {
  public:
    enum class Taken {
        written,
        no_picture,  // the frame is not what the file can hold, and was left out
        failed,      // error() says why; nothing goes on
    };

    virtual ~ClipWriter() = default;
    virtual Taken picture(const ClipFrame& frame) = 0;
    virtual Taken sound(const ClipFrame& frame) = 0;
    // Writes what is still to be written, and makes it durable. The last picture is shown for
    // `usual_us`; pictures that begin when it would end, or are missing, are not known of.
    virtual bool settle(int64_t usual_us) = 0;
    // Gives the file, or the files, their name.
    virtual bool publish() = 0;
    // Of the whole clip: `sha256` of the file; empty when there are several.
    virtual bool digest(std::string& sha256) = 0;
    virtual const std::string& error() const = 0;
    virtual uint64_t bytes() const = 0;

    // The size of the last picture that was taken; 0 x 0 when it is not known.
    sim::PictureSize size() const { return m_size; }
    // Silence that stands for missing sound, and sound of which there was too much.
    int64_t silence_us() const { return m_silence_us; }
    int64_t cut_us() const { return m_cut_us; }
    int64_t shown_us() const { return m_shown_us; }  // after settle()
    int64_t heard_us() const { return m_heard_us; }

  protected:
    sim::PictureSize m_size;
    int64_t m_silence_us = 0;
    int64_t m_cut_us = 0;
    int64_t m_shown_us = 0;
    int64_t m_heard_us = 0;
};

#endif  // TOOLS_QMTOOL_CLIP_WRITER_H
