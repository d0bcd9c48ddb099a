// The sections of the streams: a table, and a card of each channel with its picture and its plots.
#include <algorithm>

#include "tools/qmtool/output.h"
#include "tools/qmtool/report_page.h"
#include "tools/qmtool/report_plot.h"
#include "tools/qmtool/report_text.h"

namespace {

std::string name_of(int row, int channel) {
    return std::string(row_name(row)) + " channel " + std::to_string(channel);
}

std::string cell(const std::string& text, bool bad = false) {
    return (bad ? "<td class=\"bad\">" : "<td>") + text + "</td>";
}

std::string number_cell(uint64_t value, bool bad_above_0 = false) {
    return cell(std::to_string(value), bad_above_0 && value > 0);
}

constexpr int64_t RATE_US = 1'000'000;

// P frames follow key frames only where there are such.
bool has_p_frames(int row) { return row != QMCODEC_STREAM_JPEG && row != sim::AUDIO_ROW; }

std::string from_to(const Range& range) {
    const std::string least = std::to_string(range.least);
    return range.least == range.most ? least : least + "\u2013" + std::to_string(range.most);
}

// The usual distance of key frames, and what is marked as other than that.
std::string distance_text(const Lane& lane) {
    if (lane.key_distance.count == 0) return "\u2013";
    const uint32_t usual = lane.usual_key_distance();
    if (usual == 0) return from_to(lane.key_distance);
    const Range others = lane.other_key_distances(usual);
    if (others.count == 0) return std::to_string(usual);
    return std::to_string(usual) + ", <span class=\"odd\">" +
           counted(others.count, "other", "others") + ": " + from_to(others) + "</span>";
}

// Where key frames are that do not have the usual distance.
std::vector<size_t> other_keys(const ReportData& data, const Lane& lane) {
    std::vector<size_t> out;
    const uint32_t usual = lane.usual_key_distance();
    for (size_t bin = 0; usual > 0 && bin < data.bins(); ++bin)
        if (lane.bins[bin].has_other_key(usual)) out.push_back(bin);
    return out;
}

std::string sizes_text(const Range& range) {
    if (range.count == 0) return "\u2013";
    if (range.least == range.most) return bytes_text(range.least);
    return bytes_text(range.least) + "\u2013" + bytes_text(range.most) + ", mean " +
           bytes_text(range.mean());
}

std::string second_text(int64_t utc_us) {
    const std::string text = time_text(utc_us);
    return text.substr(0, text.rfind('.')) + "Z";
}

std::string table_row(const ReportSource& source, int row, int channel, const Lane& lane) {
    std::string out = "<tr><th scope=\"row\">" + std::to_string(channel) + "</th>" +
                      number_cell(lane.frames()) + number_cell(lane.missing, true) +
                      number_cell(source.summary.channels[row][channel].gaps) +
                      cell(fixed(lane.frame_rate(), 2)) + cell(rate_text(lane.bit_rate()));
    if (has_p_frames(row))
        out += number_cell(lane.key_sizes.count) + cell(distance_text(lane)) +
               cell(lane.key_sizes.count > 0 ? bytes_text(lane.key_sizes.mean()) : "\u2013");
    return out + cell(bytes_text(lane.sizes.mean())) + cell(bytes_text(lane.sizes.least)) +
           cell(bytes_text(lane.sizes.most)) + cell(second_text(lane.first_us)) +
           cell(second_text(lane.last_us)) + "</tr>\n";
}

std::string plot_figure(const PlotText& text, const std::string& most, const std::string& svg) {
    return "<figure class=\"plots\"><figcaption>" + text.title + "<span>up to " + most +
           "</span></figcaption>" + svg + "</figure>\n";
}

// The values that are drawn of one channel.
struct Rates {
    std::vector<double> frames, bits;  // a second; -1 where nothing was recorded
    double most_frames = 0, most_bits = 0;
};

// Bins that have one value, and what went on in them.
struct Step {
    size_t end = 0;
    Flow flow;
};

// Of the bins from `bin` on that were recorded. Steps shorter than RATE_US would go up and down
// with single frames; what is left at the end of a recording belongs to the step before.
std::vector<Step> steps_from(const ReportData& data, const Lane& lane, size_t bin) {
    const int64_t least = std::max(RATE_US, data.bin_us());
    std::vector<Step> out;
    Step step;
    int64_t length = 0;
    for (; bin < data.bins() && (lane.bins[bin].covered || lane.bins[bin].lost); ++bin) {
        step.end = bin + 1;
        step.flow.add(lane.bin_flow(bin, data.bin_begin_us(bin), data.bin_us()));
        length += data.bin_us();
        // Where a recording begins in a bin, most of a step must be left.
        if (length < least || step.flow.us < 0.75 * static_cast<double>(least)) continue;
        out.push_back(step);
        step = {};
        length = 0;
    }
    if (length > 0 && out.empty()) {
        out.push_back(step);
    } else if (length > 0) {
        out.back().end = step.end;
        out.back().flow.add(step.flow);
    }
    return out;
}

Rates rates_of(const ReportData& data, const Lane& lane) {
    Rates out;
    out.frames.assign(data.bins(), -1);
    out.bits.assign(data.bins(), -1);
    for (size_t bin = 0; bin < data.bins(); ++bin) {
        for (const Step& step : steps_from(data, lane, bin)) {
            const double frames = step.flow.frame_rate(), bits = step.flow.bit_rate();
            for (; bin < step.end; ++bin) {
                if (step.flow.us <= 0) continue;  // a single frame has no rate
                out.frames[bin] = frames;
                out.bits[bin] = bits;
            }
            out.most_frames = std::max(out.most_frames, frames);
            out.most_bits = std::max(out.most_bits, bits);
        }
    }
    return out;
}

std::string plots(const ReportData& data, int row, const Lane& lane, const std::string& id,
                  const std::string& name) {
    const Rates rates = rates_of(data, lane);
    const double frames = scale_top(rates.most_frames), bits = scale_top(rates.most_bits);
    const PlotText of_frames = {id + "f", "Frames a second",
                                name + ": mean " + fixed(lane.frame_rate(), 2) + ", most " +
                                    fixed(rates.most_frames, 2) + ", " +
                                    std::to_string(lane.missing) + " dropped"};
    const PlotText of_bits = {
        id + "b", "Bit rate",
        name + ": mean " + rate_text(lane.bit_rate()) + ", most " + rate_text(rates.most_bits)};
    const int64_t length = data.end_us() - data.begin_us();
    return plot_figure(
               of_frames, short_number(frames),
               value_plot(of_frames, data, lane, rates.frames, frames,
                          has_p_frames(row) ? other_keys(data, lane) : std::vector<size_t>{})) +
           plot_figure(of_bits, rate_text(bits),
                       value_plot(of_bits, data, lane, rates.bits, bits)) +
           "<div class=\"axis\"><span>" + axis_text(data.begin_us(), length) + "</span><span>" +
           axis_text(data.end_us(), length) + "</span></div>\n";
}

std::string facts(int row, const Lane& lane) {
    std::string out = counted(lane.frames(), "frame", "frames");
    if (lane.missing > 0)
        out += ", <span class=\"bad\">" + std::to_string(lane.missing) + " dropped</span>";
    if (has_p_frames(row) && lane.key_distance.count > 0)
        out += "<br>key frame every " + distance_text(lane);
    return out + "<br>" + sizes_text(lane.sizes);
}

std::string picture(int row, const Thumbnail& thumbnail, const Lane& lane,
                    const std::string& name) {
    std::string out = "<figure class=\"seen\">";
    if (thumbnail.jpeg.empty())
        out += "<div class=\"none\">No picture: " + html_text(thumbnail.why) + "</div>";
    else
        out += "<img alt=\"What " + name + " shows in frame " +
               std::to_string(thumbnail.info.number) + "\" width=\"" +
               std::to_string(thumbnail.size.width) + "\" height=\"" +
               std::to_string(thumbnail.size.height) + "\" src=\"data:image/jpeg;base64," +
               base64(thumbnail.jpeg) + "\">";
    out += "<figcaption>";
    if (!thumbnail.jpeg.empty())
        out += std::string("frame ") + std::to_string(thumbnail.info.number) + ", " +
               std::to_string(thumbnail.recorded.width) + " \u00d7 " +
               std::to_string(thumbnail.recorded.height) + "<br>" + "<time>" +
               time_text(thumbnail.info.time_us) + "</time><br>";
    return out + facts(row, lane) + "</figcaption></figure>\n";
}

}  // namespace

std::string row_start(const ReportSource& source, int row) {
    const std::string id = std::string("row-") + std::to_string(row);
    std::string out =
        "<section aria-labelledby=\"" + id + "\"><h2 id=\"" + id + "\">" + row_name(row) +
        "</h2>\n<div class=\"scroll\" role=\"region\" tabindex=\"0\" "
        "aria-label=\"Figures of " +
        row_name(row) + "\"><table><caption><span>Figures of " + row_name(row) +
        " by channel; rates without pauses</span> <span class=\"more\">The table goes on "
        "to the right: scroll it.</span></caption><thead><tr>";
    std::vector<const char*> heads = {"Channel", "Frames",   "Dropped",
                                      "Gaps",    "Frames/s", "Bit rate"};
    if (has_p_frames(row))
        heads.insert(heads.end(), {"Key frames", "Key distance", "Mean key size"});
    heads.insert(heads.end(), {"Mean size", "Least", "Most", "First", "Last"});
    for (const char* head : heads) out += std::string("<th scope=\"col\">") + head + "</th>";
    out += "</tr></thead><tbody>\n";
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (const Lane* lane = source.data.lane(row, ch)) out += table_row(source, row, ch, *lane);
    return out + "</tbody></table></div>\n<div class=\"cards\">\n";
}

std::string lane_card(const ReportSource& source, int row, int channel,
                      const Thumbnail* thumbnail) {
    const Lane* lane = source.data.lane(row, channel);
    if (!lane) return "";
    const std::string name = name_of(row, channel);
    const std::string id = std::string("p") + std::to_string(row) + "-" + std::to_string(channel);
    return "<article class=\"card\" aria-labelledby=\"" + id + "\"><h3 id=\"" + id + "\">" + name +
           "</h3>\n" +
           (thumbnail ? picture(row, *thumbnail, *lane, name)
                      : "<p class=\"note\">" + facts(row, *lane) + "</p>\n") +
           plots(source.data, row, *lane, id, name) + "</article>\n";
}

std::string row_end() { return "</div></section>\n"; }
