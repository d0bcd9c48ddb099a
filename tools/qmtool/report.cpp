// qmtool report: a page about a database. What stands in it is in report_page and report_lanes.
#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "sdk/db/disk_reader.h"
#include "tools/qmtool/clip_file.h"
#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"
#include "tools/qmtool/report_page.h"

namespace {

bool ends_with(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

// What was written.
struct Written {
    uint64_t bytes = 0, pictures = 0, without = 0;  // channels with a picture, and without
};

// Writes the page piece by piece, so that no more than a piece is kept.
class PageWriter {
  public:
    PageWriter(const ReportSource& source, sim::DiskReader& reader, ClipFile& file)
        : m_source(source), m_reader(reader), m_file(file) {}

    bool write(Written& out) {
        bool going = put(page_start(m_source));
        for (int row = 0; going && row < sim::SUMMARY_ROWS; ++row) going = write_row(row, out);
        going = going && put(page_end());
        out.bytes = m_file.written();
        return going;
    }

  private:
    bool put(const std::string& piece) {
        return !interrupted() && m_file.write(piece.data(), piece.size());
    }

    bool write_row(int row, Written& out) {
        bool begun = false;
        for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
            const Lane* lane = m_source.data.lane(row, ch);
            if (!lane) continue;
            if (!begun && !put(row_start(m_source, row))) return false;
            begun = true;
            Thumbnail thumbnail;
            if (row != sim::AUDIO_ROW) {
                thumbnail = make_thumbnail(m_reader, row, ch,
                                           lane->first_us + (lane->last_us - lane->first_us) / 2);
                ++(thumbnail.jpeg.empty() ? out.without : out.pictures);
            }
            if (!put(lane_card(m_source, row, ch, row == sim::AUDIO_ROW ? nullptr : &thumbnail)))
                return false;
        }
        return !begun || put(row_end());
    }

    const ReportSource& m_source;
    sim::DiskReader& m_reader;
    ClipFile& m_file;
};

void tell(const CommandLine& line, const ReportData& data, const Written& written) {
    if (line.json) {
        printf("%s\n", Json()
                           .object()
                           .text("file", line.output)
                           .number("bytes", written.bytes)
                           .number("frames", data.frames())
                           .number("missing_frames", data.missing())
                           .number("pictures", written.pictures)
                           .number("without_picture", written.without)
                           .end()
                           .written()
                           .c_str());
        return;
    }
    printf("%s: %s, %s", printable(line.output).c_str(),
           counted(data.frames(), "frame", "frames").c_str(),
           counted(written.pictures, "picture", "pictures").c_str());
    if (written.without > 0) printf(", %" PRIu64 " could not be decoded", written.without);
    printf(", %s\n", counted(written.bytes, "byte", "bytes").c_str());
}

int64_t earliest(const sim::Summary& summary) {
    int64_t us = summary.first_us;
    for (const auto& row : summary.channels)
        for (const sim::ChannelSummary& channel : row)
            if (channel.frames > 0) us = std::min(us, channel.first_us);
    return us;
}

// Says what is in the way of the file.
int cannot_write(const CommandLine& line, const std::string& why) {
    CommandLine of_file = line;
    of_file.database = line.output;
    return say_cannot(of_file, why);
}

}  // namespace

int write_report(const CommandLine& line) {
    if (!ends_with(line.output, ".html"))
        return say_wrong("report", "-o needs a name that ends in .html");
    const auto view = open_database(line);
    if (!view) return STATUS_CANNOT;
    std::string why;
    const auto reader = sim::DiskReader::open(view->files(), view->path(), why);
    if (!reader) return say_cannot(line, why);
    {
        ClipFile trial;  // what is in the way is said before the long work
        if (!trial.create(line.output, line.force)) return cannot_write(line, trial.error());
    }
    sim::Summary summary;
    ReportData data(ReportData::SHORT_BIN_US);
    {
        Progress progress;
        summary = sim::summarize(
            *view, [&](uint64_t done, uint64_t total) { progress.show(done / 2, total); });
        if (summary.any) data.begin_at(earliest(summary));
        const uint64_t half = summary.file_bytes / 2;
        data.take_all(*reader, [&](uint64_t done, uint64_t total) {
            progress.show(
                half + static_cast<uint64_t>(static_cast<double>(half) * static_cast<double>(done) /
                                             static_cast<double>(total)),
                2 * half);
        });
    }
    const bool recorded = view->recorded();
    const ReportSource source{*view, summary, data, recorded};
    watch_for_interruption();
    ClipFile file;
    if (!file.create(line.output, line.force)) return cannot_write(line, file.error());
    Written written;
    PageWriter page(source, *reader, file);
    if (!page.write(written) || interrupted() || !file.settle() || !file.publish())
        return cannot_write(line, file.error().empty() ? "interrupted" : file.error());
    tell(line, data, written);
    const bool found = summary.damaged > 0 || summary.missing.count > 0 ||
                       (segments_not_read(summary) > 0 && !recorded) || written.without > 0;
    return found ? STATUS_FINDINGS : STATUS_FINE;
}
