// The page of a report, piece by piece: HTML that stands alone, without scripts.
#ifndef TOOLS_QMTOOL_REPORT_PAGE_H
#define TOOLS_QMTOOL_REPORT_PAGE_H

#include <string>

#include "sdk/db/check.h"
#include "tools/qmtool/report_data.h"
#include "tools/qmtool/report_thumbnail.h"

// What a page is made of.
struct ReportSource {
    const sim::DatabaseView& view;
    const sim::Summary& summary;
    const ReportData& data;
    bool recorded;  // some process records into it
};

// Segments that are there and could not be read.
uint64_t segments_not_read(const sim::Summary& summary);

// Up to the end of the time line.
std::string page_start(const ReportSource& source);
// Of one row of the summary: the heading with the table, up to where the cards stand.
std::string row_start(const ReportSource& source, int row);
// What one channel shows; without a thumbnail for sound.
std::string lane_card(const ReportSource& source, int row, int channel, const Thumbnail* thumbnail);
std::string row_end();
std::string page_end();

#endif  // TOOLS_QMTOOL_REPORT_PAGE_H
