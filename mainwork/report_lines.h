// The lines that every status report is made of.
#ifndef MAINWORK_REPORT_LINES_H
#define MAINWORK_REPORT_LINES_H

#include <cstdint>
#include <cstdio>
#include <string>

inline constexpr char WIDE_RULE[] = "================================================\n";
inline constexpr char COLUMN_TITLES[] = "CH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n";
inline constexpr char WIDE_DASH_RULE[] = "------------------------------------------------\n";
inline constexpr char NARROW_RULE[] = "===============================================\n";
inline constexpr char CHANNEL_HEADING[] = "01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16\n";
inline constexpr char NARROW_DASH_RULE[] = "-----------------------------------------------\n";
inline constexpr char CLOSING_RULE[] = "\n===============================================\n";

// Formats one line into a local buffer and appends it.
template <class... Args>
void append_line(std::string& report, const char* format, Args... args) {
    char line[256];
    snprintf(line, sizeof line, format, args...);
    report += line;
}

// One channel of a rate table; `format` takes (ch, total, frames, kbyte, kbit). Kept: kbit is
// suppressed for a channel without frames, kbyte is not.
inline void append_rate_row(std::string& report, const char* format, int ch, int32_t total,
                            int32_t frames, int32_t bytes) {
    const int32_t kbit = frames > 0 ? bytes / 128 : 0;
    const float kbyte = static_cast<float>(bytes) * 0.0009765625f;
    append_line(report, format, ch, total, frames, static_cast<double>(kbyte), kbit);
}

inline void append_cell(std::string& report, int32_t value) { append_line(report, "%02d ", value); }

#endif  // MAINWORK_REPORT_LINES_H
