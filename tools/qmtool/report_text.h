// Words and figures of a report's page.
#ifndef TOOLS_QMTOOL_REPORT_TEXT_H
#define TOOLS_QMTOOL_REPORT_TEXT_H

#include <cstdint>
#include <string>
#include <vector>

// Any bytes as the text of an HTML element, or of an attribute in quotation marks.
std::string html_text(const std::string& bytes);

std::string fixed(double value, int digits);
// "640 B", "41.9 kB", "1.2 GB": decimal.
std::string bytes_text(double bytes);
// "64.0 kbit/s", "1.25 Mbit/s".
std::string rate_text(double bits_a_second);
// "2.40 s", "4 min 05 s", "3 h 12 min", "2 d 04 h".
std::string span_text(int64_t us);
// The least of 1, 2, 2.5, 5 times a power of ten that is not below the value; 1 for 0.
double round_above(double value);
// Where a scale for values up to that one ends: a round number, and little of the scale is unused.
double scale_top(double most);
// "30", "17.5", "1.25": as few digits as it has, two behind the point at most.
std::string short_number(double value);
// A time on an axis of that length: "01:46:28", below a minute "01:46:28.5", in more than two days
// "2026-11-21".
std::string axis_text(int64_t utc_us, int64_t length_us);

std::string base64(const std::vector<uint8_t>& bytes);

#endif  // TOOLS_QMTOOL_REPORT_TEXT_H
