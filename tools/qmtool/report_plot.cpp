// Paths of SVG, in whole units.
#include "tools/qmtool/report_plot.h"

#include <algorithm>
#include <cmath>

#include "tools/qmtool/report_text.h"

namespace {

constexpr int HEIGHT = 100;

std::string open_plot(const PlotText& text, const char* kind, size_t bins) {
    return "<svg class=\"" + std::string(kind) + "\" role=\"img\" aria-labelledby=\"" + text.id +
           "-t " + text.id + "-d\" viewBox=\"0 0 " + std::to_string(bins) + " " +
           std::to_string(HEIGHT) + "\" preserveAspectRatio=\"none\"><title id=\"" + text.id +
           "-t\">" + html_text(text.title) + "</title><desc id=\"" + text.id + "-d\">" +
           html_text(text.description) + "</desc>";
}

std::string path(const char* kind, const std::string& steps) {
    return steps.empty() ? "" : "<path class=\"" + std::string(kind) + "\" d=\"" + steps + "\"/>";
}

// One step of a path, "H12" or "M12,100".
std::string step(char kind, size_t value) { return kind + std::to_string(value); }
std::string move_to(size_t bin, int y) { return step('M', bin) + "," + std::to_string(y); }
std::string down_to(int y) { return step('V', static_cast<size_t>(y)); }

// Upright, in the middle of the bins.
std::string marks_path(const std::vector<size_t>& marks, int top, int bottom = HEIGHT) {
    std::string out;
    for (const size_t bin : marks)
        out += step('M', bin) + ".5," + std::to_string(top) + down_to(bottom);
    return out;
}

std::vector<size_t> missing_bins(const ReportData& data, const Lane& lane) {
    std::vector<size_t> out;
    for (size_t bin = 0; bin < data.bins(); ++bin)
        if (lane.bins[bin].missing > 0) out.push_back(bin);
    return out;
}

int height_of(double value, double most) {
    return HEIGHT - static_cast<int>(std::lround(std::clamp(value / most, 0.0, 1.0) * HEIGHT));
}

// Steps from bin to bin; `area`: closed down to the ground.
std::string steps_of(const std::vector<double>& values, double most, bool area) {
    std::string out;
    for (size_t bin = 0; bin < values.size();) {
        if (values[bin] < 0) {
            ++bin;
            continue;
        }
        int y = height_of(values[bin], most);
        out += move_to(bin, area ? HEIGHT : y);
        if (area) out += down_to(y);
        for (++bin; bin < values.size() && values[bin] >= 0; ++bin) {
            const int next = height_of(values[bin], most);
            if (next == y) continue;
            out += step('H', bin) + down_to(next);
            y = next;
        }
        out += step('H', bin);
        if (area) out += down_to(HEIGHT) + "Z";
    }
    return out;
}

}  // namespace

std::string time_line(const PlotText& text, const ReportData& data, const Lane& lane) {
    std::vector<double> covered(data.bins());
    for (size_t bin = 0; bin < covered.size(); ++bin)
        covered[bin] = lane.bins[bin].covered ? 1 : -1;
    return open_plot(text, "line", data.bins()) + path("area", steps_of(covered, 1, true)) +
           path("drop", marks_path(missing_bins(data, lane), 0)) + "</svg>";
}

std::string value_plot(const PlotText& text, const ReportData& data, const Lane& lane,
                       const std::vector<double>& values, double most,
                       const std::vector<size_t>& key_marks) {
    return open_plot(text, "plot", data.bins()) + path("area", steps_of(values, most, true)) +
           path("edge", steps_of(values, most, false)) +
           path("drop", marks_path(missing_bins(data, lane), HEIGHT - 15)) +
           path("odd", marks_path(key_marks, 0, 15)) + "</svg>";
}

std::string mark_line(const PlotText& text, size_t bins, const std::vector<size_t>& marks) {
    std::string begins;
    for (const size_t bin : marks) begins += move_to(bin, 0) + down_to(HEIGHT);
    return open_plot(text, "line", bins) + path("begin", begins) + "</svg>";
}
