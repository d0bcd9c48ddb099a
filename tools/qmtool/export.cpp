// qmtool export: writes one stream of a channel into a file that players read.
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/clip_manifest.h"
#include "tools/qmtool/clip_source.h"
#include "tools/qmtool/clip_times.h"
#include "tools/qmtool/command.h"
#include "tools/qmtool/export_text.h"
#include "tools/qmtool/jpeg_folder.h"
#include "tools/qmtool/mp4_clip.h"
#include "tools/qmtool/output.h"
#include "tools/qmtool/plain_clips.h"
#include "tools/qmtool/time_option.h"

namespace {

constexpr char EXPORT[] = "export";

enum class Target { mov, mp4, h264, wav, folder, none };

bool ends_with(const std::string& text, const char* ending) {
    const size_t size = strlen(ending);
    return text.size() > size && strcasecmp(text.c_str() + text.size() - size, ending) == 0;
}

bool is_folder(const std::string& path) {
    struct stat there = {};
    return stat(path.c_str(), &there) == 0 && S_ISDIR(there.st_mode);
}

Target target_of(const std::string& path) {
    if (path.back() == '/' || is_folder(path)) return Target::folder;
    if (ends_with(path, ".mov")) return Target::mov;
    if (ends_with(path, ".mp4")) return Target::mp4;
    if (ends_with(path, ".h264") || ends_with(path, ".264")) return Target::h264;
    if (ends_with(path, ".wav")) return Target::wav;
    return Target::none;
}

// Why the stream cannot go into such a file, as far as that is known before its frames are looked
// at; empty when it can.
std::string misfit(Target target, int row) {
    const bool sound = row == sim::AUDIO_ROW;
    const bool jpeg = row == QMCODEC_STREAM_JPEG;
    switch (target) {
        case Target::none:
            return "-o takes a name that ends in .mov, .mp4, .h264, .264 or .wav, or a folder";
        case Target::wav: return sound ? "" : "a .wav file takes --stream audio";
        case Target::h264: return sound || jpeg ? "a .h264 file takes a stream of H.264" : "";
        case Target::folder:
        case Target::mov:
        case Target::mp4: return sound ? "--stream audio goes into a .wav file" : "";
    }
    return "";
}

// Other files take what comes first.
ClipWish::Codec codec_of(Target target) {
    if (target == Target::h264) return ClipWish::Codec::h264;
    return target == Target::folder ? ClipWish::Codec::jpeg : ClipWish::Codec::of_first_frame;
}

class Export {
  public:
    explicit Export(const CommandLine& line) : m_line(line), m_target(target_of(line.output)) {}
    int run();

  private:
    int open();
    int set_span();
    int begin_output();
    ClipWriter::Taken take(const ClipFrame& frame, bool picture);
    int copy();
    int finish();
    void tell();
    int cannot_write(const std::string& what, const std::string& why);
    std::string clip_path() const;

    const CommandLine& m_line;
    const Target m_target;
    std::string m_database;
    std::unique_ptr<sim::DiskReader> m_reader;
    ClipWish m_wish;
    std::unique_ptr<ClipSource> m_source;
    ClipFile m_file;
    std::unique_ptr<ClipWriter> m_writer;
    JpegFolder* m_folder = nullptr;  // m_writer, when it is one
    std::unique_ptr<ClipManifest> m_manifest;
    sim::PictureSize m_size;
    Exported m_done;
};

int Export::cannot_write(const std::string& what, const std::string& why) {
    fflush(stdout);
    fprintf(stderr, "qmtool: %s: %s\n", printable(what).c_str(), printable(why).c_str());
    if (m_line.json) printf("%s\n", Json().object().text("error", why).end().written().c_str());
    return STATUS_CANNOT;
}

int Export::open() {
    const auto view = open_database(m_line);
    if (!view) return STATUS_CANNOT;
    m_database = view->path();
    std::string why;
    m_reader = sim::DiskReader::open(view->files(), m_database, why, true);
    return m_reader ? STATUS_FINE : say_cannot(m_line, why);
}

int Export::set_span() {
    m_wish.row = m_line.stream;
    m_wish.channel = m_line.channel;
    m_wish.codec = codec_of(m_target);
    m_wish.with_sound = m_target == Target::mov || m_target == Target::mp4;
    m_wish.has_from = !m_line.from.empty();
    m_wish.has_to = !m_line.to.empty();
    int64_t first_us = 0, last_us = 0;
    if (!recorded_ends(*m_reader, first_us, last_us))
        return say_cannot(m_line, "it has no records");
    if (m_wish.has_from && !parse_time(m_line.from, first_us, last_us, m_wish.from_us))
        return say_wrong(EXPORT, wrong_time("--from", m_line.from));
    if (m_wish.has_to && !parse_time(m_line.to, first_us, last_us, m_wish.to_us))
        return say_wrong(EXPORT, wrong_time("--to", m_line.to));
    if (m_wish.from_us >= m_wish.to_us)
        return say_wrong(EXPORT, "--to is not later than --from: nothing lies between them");
    return STATUS_FINE;
}

// Without the slash at its end.
std::string Export::clip_path() const {
    std::string path = m_line.output;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

int Export::begin_output() {
    if (m_target == Target::folder) {
        auto folder = std::make_unique<JpegFolder>();
        m_folder = folder.get();
        m_writer = std::move(folder);
        if (!m_folder->create(m_line.output, m_line.force))
            return cannot_write(m_line.output, m_folder->error());
    } else {
        if (!m_file.create(m_line.output, m_line.force))
            return cannot_write(m_line.output, m_file.error());
        if (m_target == Target::h264)
            m_writer = std::make_unique<H264Clip>(m_file);
        else if (m_target == Target::wav)
            m_writer = std::make_unique<WavClip>(m_file);
        else
            m_writer = std::make_unique<Mp4Clip>(
                m_file, m_target == Target::mov ? MovieKind::quicktime : MovieKind::mp4);
    }
    if (!m_line.manifest) return STATUS_FINE;
    const std::string path = clip_path();
    m_manifest = std::make_unique<ClipManifest>();
    if (m_manifest->create(path + ".manifest.json", m_line.force,
                           {path.substr(path.rfind('/') + 1), m_database, row_name(m_line.stream),
                            m_line.channel}))
        return STATUS_FINE;
    return cannot_write(m_manifest->path(), m_manifest->error());
}

// Gives a frame to the file, and to the manifest.
ClipWriter::Taken Export::take(const ClipFrame& clip, bool picture) {
    const sim::FrameInfo& info = clip.frame.info;
    const ClipWriter::Taken taken = picture ? m_writer->picture(clip) : m_writer->sound(clip);
    if (taken == ClipWriter::Taken::failed) return taken;
    if (taken == ClipWriter::Taken::no_picture) {
        m_source->gaps().add(
            {ClipGap::Kind::no_picture, false, info.time_us, info.time_us, info.number, 1, 1, {}});
        return taken;
    }
    if (picture && m_writer->size() != m_size) {
        m_size = m_writer->size();
        m_source->pictures().expect_other_rate();
        if (m_done.frames > 0)
            m_source->gaps().add(
                {ClipGap::Kind::new_size, false, info.time_us, info.time_us, 0, 0, 0, m_size});
    }
    if (picture || m_wish.row == sim::AUDIO_ROW) {
        ++m_done.frames;
        if (!clip.wanted) ++m_done.frames_ahead;
        m_done.last_us = info.time_us;
    } else {
        ++m_done.sound_frames;
    }
    if (!m_manifest) return taken;
    const bool added = m_folder
                           ? m_manifest->add(clip, m_folder->last_name(), m_folder->last_digest())
                           : m_manifest->add(clip, "", "");
    return added ? taken : ClipWriter::Taken::failed;
}

int Export::copy() {
    Progress progress;
    ClipTimes times;
    qm_dbframe frame;
    uint64_t record = 0;
    for (;;) {
        const ClipSource::Got got = m_source->next(frame, record);
        if (interrupted()) return cannot_write(m_line.output, "interrupted");
        if (got == ClipSource::Got::end) break;
        progress.show(m_source->done(), m_source->total(), m_writer->bytes());
        if (got == ClipSource::Got::nothing) continue;
        const bool wanted = record >= m_source->wanted_record();
        const ClipFrame clip = {frame, record, times.of(frame.info), wanted};
        if (take(clip, got == ClipSource::Got::picture) != ClipWriter::Taken::failed) continue;
        if (m_manifest && !m_manifest->error().empty())
            return cannot_write(m_manifest->path(), m_manifest->error());
        return cannot_write(m_line.output, m_writer->error());
    }
    m_source->finish();
    return STATUS_FINE;
}

int Export::finish() {
    // What lies ahead is there only for what was asked for.
    if (m_done.frames == m_done.frames_ahead)
        return cannot_write(m_line.output, "nothing in this span can be written into it");
    const int64_t usual_us = m_source->pictures().usual_us();
    if (!m_writer->settle(std::clamp<int64_t>(usual_us, 0, ClipTimes::MOST_HOLE_US)))
        return cannot_write(m_line.output, m_writer->error());
    if (m_manifest) {
        if (!m_writer->digest(m_done.sha256)) return cannot_write(m_line.output, m_writer->error());
        if (!m_manifest->settle(m_writer->bytes(), m_done.sha256))
            return cannot_write(m_manifest->path(), m_manifest->error());
        m_done.manifest = m_manifest->path();
    }
    if (!m_writer->publish()) return cannot_write(m_line.output, m_writer->error());
    if (m_manifest && !m_manifest->publish())
        return cannot_write(m_manifest->path(), m_manifest->error());
    return STATUS_FINE;
}

void Export::tell() {
    const ClipGaps& gaps = m_source->gaps();
    m_done.path = m_line.output;
    m_done.row = m_wish.row;
    m_done.channel = m_wish.channel;
    m_done.pictures = m_wish.row != sim::AUDIO_ROW;
    m_done.recorded_now = m_reader->recorded();
    m_done.bytes = m_writer->bytes();
    m_done.wanted_us = m_source->wanted_us();
    m_done.start_us = m_source->start_us();
    m_done.shown_us = m_writer->shown_us();
    m_done.heard_us = m_writer->heard_us();
    m_done.silence_us = m_writer->silence_us();
    m_done.cut_us = m_writer->cut_us();
    m_done.left_out = m_source->left_out();
    m_done.skipped = m_target == Target::mov || m_target == Target::mp4;
    m_done.losses = gaps.losses;
    m_line.json ? print_exported_json(m_done, gaps) : print_exported(m_done, gaps);
}

int Export::run() {
    const std::string wrong = misfit(m_target, m_line.stream);
    if (!wrong.empty()) return say_wrong(EXPORT, wrong);
    if (const int status = open(); status != STATUS_FINE) return status;
    if (const int status = set_span(); status != STATUS_FINE) return status;
    m_source = std::make_unique<ClipSource>(*m_reader, m_wish);
    std::string why;
    if (!m_source->find_start(why)) return say_cannot(m_line, why);
    watch_for_interruption();
    if (const int status = begin_output(); status != STATUS_FINE) return status;
    if (const int status = copy(); status != STATUS_FINE) return status;
    if (const int status = finish(); status != STATUS_FINE) return status;
    tell();
    const bool lost = m_done.losses > 0 || (m_wish.has_from && m_done.left_out > 0);
    return lost ? STATUS_FINDINGS : STATUS_FINE;
}

}  // namespace

int export_clip(const CommandLine& line) { return Export(line).run(); }
