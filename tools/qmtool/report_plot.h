// The drawings of a report as SVG elements, each with a title and a description. They take any
// width: a unit to the right is a bin, and lines keep their thickness.
#ifndef TOOLS_QMTOOL_REPORT_PLOT_H
#define TOOLS_QMTOOL_REPORT_PLOT_H

#include <string>
#include <vector>

#include "tools/qmtool/report_data.h"

struct PlotText {
    std::string id;  // of the element, unique in the page
    std::string title, description;
};

// When the channel was recorded, with marks where numbers are missing.
std::string time_line(const PlotText& text, const ReportData& data, const Lane& lane);

// A value for each bin, below 0 where there is none, on a scale from 0 to `most`; marks at its foot
// where numbers are missing, and at its head at `key_marks`.
std::string value_plot(const PlotText& text, const ReportData& data, const Lane& lane,
                       const std::vector<double>& values, double most,
                       const std::vector<size_t>& key_marks = {});

// Marks where bins begin.
std::string mark_line(const PlotText& text, size_t bins, const std::vector<size_t>& marks);

#endif  // TOOLS_QMTOOL_REPORT_PLOT_H
