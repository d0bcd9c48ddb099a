// The lines of the status reports as an operator reads them, for building expected tables.
#ifndef TESTS_SUPPORT_REPORT_TEXT_H
#define TESTS_SUPPORT_REPORT_TEXT_H

#include <map>
#include <string>

// Above the rows of a rate table, after its title.
inline const std::string RATE_HEADING =
    "================================================\n"
    "CH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n"
    "------------------------------------------------\n";
inline const std::string RATE_RULE = "------------------------------------------------\n";
inline const std::string RATE_END = "================================================\n";

// Above the cells of an IDR or audio table, after its title.
inline const std::string CELL_HEADING =
    "===============================================\n"
    "01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16\n"
    "-----------------------------------------------\n";
inline const std::string CELL_END = "\n===============================================\n";

inline const std::string CELLS_00 = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";
inline const std::string CELLS_07 = "07 07 07 07 07 07 07 07 07 07 07 07 07 07 07 07 ";

// Rows of a rate table by channel, without the channel's number.
using RateRows = std::map<int, std::string>;

// Sixteen rows: `rows` where given, `idle` for the other channels.
inline std::string rate_rows(const std::string& idle, const RateRows& rows) {
    std::string text;
    for (int ch = 0; ch < 16; ++ch) {
        const auto row = rows.find(ch);
        text += (ch < 10 ? " " : "") + std::to_string(ch);
        text += (row == rows.end() ? idle : row->second) + "\n";
    }
    return text;
}

inline std::string encode_rows(const RateRows& rows = {}) {
    return rate_rows("         0          0        0.0         0", rows);
}

inline std::string search_rows(const RateRows& rows = {}) {
    return rate_rows("       0           0        0.0         0", rows);
}

// A rate table of an encode side that has counted nothing. Only the main, dual and JPEG streams
// have a buffer line.
inline std::string idle_rate_table(const std::string& title) {
    return title + RATE_HEADING + encode_rows() + RATE_END;
}
inline std::string idle_rate_table_with_buffer(const std::string& title) {
    return title + RATE_HEADING + encode_rows() + RATE_RULE + "* Buffer Count : 0\n" + RATE_END;
}

// An IDR table of two rows of cells.
inline std::string idr_table(const std::string& title, const std::string& settings,
                             const std::string& figures) {
    return title + CELL_HEADING + settings + "\n" + figures + CELL_END;
}

#endif  // TESTS_SUPPORT_REPORT_TEXT_H
