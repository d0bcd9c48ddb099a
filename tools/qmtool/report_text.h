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

std::string base64(const std::vector<uint8_t>& bytes);

#endif  // TOOLS_QMTOOL_REPORT_TEXT_H
