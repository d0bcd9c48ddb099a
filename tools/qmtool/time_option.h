// A moment of a recording as it is given on the command line. How times are printed stands in
// output.
#ifndef TOOLS_QMTOOL_TIME_OPTION_H
#define TOOLS_QMTOOL_TIME_OPTION_H

#include <cstdint>
#include <string>

#include "sdk/db/disk_reader.h"

// The recorded times of the first and the last record that can be read. False when none can.
bool recorded_ends(sim::DiskReader& reader, int64_t& first_us, int64_t& last_us);

// "2026-11-21T01:46:28.5Z" (UTC; also with a space for the T, without the Z, with 0 to 6 digits of
// a fraction), "+12.5" seconds after `first_us`, or "-3" before `last_us`, those of the first and
// the last record. False, and `out` is as before, when it is none of these.
bool parse_time(const std::string& text, int64_t first_us, int64_t last_us, int64_t& out);

// What to say of a time that cannot be read.
std::string wrong_time(const char* option, const std::string& text);

#endif  // TOOLS_QMTOOL_TIME_OPTION_H
