// Annex B streams and YUV4MPEG2, written without waiting.
#include "sdk/workers/playback_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "sdk/runtime/descriptor.h"
#include "sdk/runtime/settings.h"
#include "sdk/video/h264_reader.h"

namespace sim {

namespace {

constexpr mode_t FILE_MODE = 0640;
constexpr int PIPE_BYTES = 1 << 20;
constexpr char RAW_ENDING[] = ".y4m";

bool ends_with(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// Frames a second: as the stream says, else 25 for a height that is one of PAL's and 30 for others.
uint32_t rate_of(const qm_dbframe& frame, PictureSize size) {
    NalUnits units(frame.payload.get(), frame.info.bytes);
    NalUnit unit;
    SequenceInfo sequence;
    while (frame.info.kind == FrameKind::idr && units.next(unit))
        if (read_sequence(unit, sequence) && sequence.ticks > 0)
            return std::max(sequence.time_scale / 2 / sequence.ticks, 1U);
    return size.height % 144 == 0 && size.width <= 704 ? 25 : 30;
}

}  // namespace

bool PlaybackView::wanted() { return settings().view_wanted; }

void PlaybackView::fail(const char* why) {
    complain("view: %s: %s", m_path.c_str(), why);
    close_file();
    m_failed = true;
}

void PlaybackView::close() {
    close_file();
    m_chosen = false;
    m_failed = false;
}

void PlaybackView::close_file() {
    if (m_file >= 0) ::close(m_file);
    m_file = -1;
    m_waiting.clear();
    m_written = 0;
    m_key_needed = true;
    m_size = {};
}

bool PlaybackView::takes(const FrameInfo& info) {
    const std::string path = settings().view();
    if (path != m_path) {
        close();
        m_path = path;
        m_raw = ends_with(path, RAW_ENDING);
    }
    if (m_path.empty() || m_failed || (!m_raw && info.kind == FrameKind::jpeg)) return false;
    if (!m_chosen) {
        const int32_t wanted_channel = settings().view_channel;
        if (wanted_channel != 0 && wanted_channel != info.channel + 1) return false;
        m_chosen = true;
        m_channel = info.channel;
        m_stream = info.stream;
    }
    return info.channel == m_channel && info.stream == m_stream;
}

// A FIFO that nobody reads is tried again with the next key frame. A file is made anew: what is
// there stays as it is.
bool PlaybackView::open(const FrameInfo& info) {
    if (m_file >= 0) return true;
    if (!is_key(info.kind)) return false;
    struct stat status = {};
    const bool there = stat(m_path.c_str(), &status) == 0;
    if (there && !S_ISFIFO(status.st_mode)) {
        fail("there is such a file already");
        return false;
    }
    const int made = there ? 0 : O_CREAT | O_EXCL;
    m_file =
        above_console(::open(m_path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | made, FILE_MODE));
    if (m_file < 0) {
        if (errno != ENXIO) fail(strerror(errno));
        return false;
    }
    if (there) fcntl(m_file, F_SETPIPE_SZ, PIPE_BYTES);  // a player that reads slowly loses less
    m_key_needed = true;
    m_size = {};
    return true;
}

bool PlaybackView::compose(const qm_dbframe& frame, const Picture* picture) {
    if (!m_raw) {
        m_waiting.assign(frame.payload.get(), frame.payload.get() + frame.info.bytes);
        return true;
    }
    if (!picture || picture->y.empty()) return false;
    if (m_size.width == 0) {
        m_size = picture->size;
        char head[80];
        const int length =
            snprintf(head, sizeof head, "YUV4MPEG2 W%d H%d F%" PRIu32 ":1 Ip A0:0 C420%s\n",
                     m_size.width, m_size.height, rate_of(frame, m_size),
                     frame.info.kind == FrameKind::jpeg ? " XCOLORRANGE=FULL" : "");
        m_waiting.assign(head, head + length);
    }
    if (!(picture->size == m_size)) {
        fail("the size of the pictures changed, the view ends");
        return false;
    }
    constexpr char FRAME[] = "FRAME\n";
    m_waiting.insert(m_waiting.end(), FRAME, FRAME + sizeof FRAME - 1);
    for (const std::vector<uint8_t>* plane : {&picture->y, &picture->u, &picture->v})
        m_waiting.insert(m_waiting.end(), plane->begin(), plane->end());
    return true;
}

void PlaybackView::flush() {
    while (m_written < m_waiting.size()) {
        const ssize_t put =
            ::write(m_file, m_waiting.data() + m_written, m_waiting.size() - m_written);
        if (put > 0) {
            m_written += static_cast<size_t>(put);
        } else if (put < 0 && errno == EPIPE) {  // the player is gone; another one may come
            close_file();
            return;
        } else if (put < 0 && errno == EAGAIN) {
            return;
        } else if (put == 0 || errno != EINTR) {
            fail(put == 0 ? "nothing can be written" : strerror(errno));
            return;
        }
    }
    m_waiting.clear();
    m_written = 0;
}

void PlaybackView::tend() {
    if (waits()) flush();
}

// A frame that cannot be written while the one before waits is left out, and with it all that refer
// to it.
void PlaybackView::show(const qm_dbframe& frame, const Picture* picture) {
    if (!takes(frame.info) || !open(frame.info)) return;
    flush();
    if (m_file < 0) return;
    const bool left_out =
        !m_waiting.empty() || (!m_raw && m_key_needed && !is_key(frame.info.kind));
    if (left_out) {
        m_key_needed = true;
        return;
    }
    m_key_needed = false;
    if (compose(frame, picture)) flush();
}

}  // namespace sim
