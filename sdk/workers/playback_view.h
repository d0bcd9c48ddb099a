// The `view` setting: pictures that playback delivers, written to a FIFO or a file while they play,
// so that a player shows them. Playback never waits for it.
#ifndef SDK_WORKERS_PLAYBACK_VIEW_H
#define SDK_WORKERS_PLAYBACK_VIEW_H

#include <cstdint>
#include <string>
#include <vector>

#include "sdk/video/frame.h"
#include "sdk/video/picture.h"

namespace sim {

// Playback thread only; SIGPIPE is blocked in it.
class PlaybackView {
  public:
    PlaybackView() = default;
    ~PlaybackView() { close(); }
    PlaybackView(const PlaybackView&) = delete;
    PlaybackView& operator=(const PlaybackView&) = delete;

    // Somebody may be looking: only then are pictures needed.
    static bool wanted();
    // A video frame that was delivered; `picture` is null when it could not be decoded. One stream
    // of one channel is shown: the first that comes, of the channel that the setting names.
    void show(const qm_dbframe& frame, const Picture* picture);
    // A player takes the rest of a picture when it can: tend() offers it until nothing waits.
    bool waits() const { return !m_waiting.empty(); }
    void tend();
    // Ends what was written; the next show() begins anew.
    void close();

  private:
    bool takes(const FrameInfo& info);
    bool open(const FrameInfo& info);
    bool compose(const qm_dbframe& frame, const Picture* picture);
    void flush();
    void close_file();
    void fail(const char* why);

    std::string m_path;  // of the setting, when it was looked at last
    bool m_raw = false;  // pictures, not H.264
    bool m_failed = false;
    bool m_chosen = false;  // the two below are
    uint8_t m_channel = 0;
    uint8_t m_stream = 0;
    int m_file = -1;
    bool m_key_needed = true;
    PictureSize m_size;              // of raw pictures; the first decides
    std::vector<uint8_t> m_waiting;  // a frame that is being written
    size_t m_written = 0;            // of it
};

}  // namespace sim

#endif  // SDK_WORKERS_PLAYBACK_VIEW_H
