// The commands of qmtool: each in a file of its own, named after it.
#ifndef TOOLS_QMTOOL_COMMAND_H
#define TOOLS_QMTOOL_COMMAND_H

#include <memory>
#include <string>

#include "sdk/db/check.h"

// What the program ends with.
enum ExitStatus {
    STATUS_FINE = 0,
    STATUS_FINDINGS = 1,
    STATUS_USAGE = 2,
    STATUS_CANNOT = 3,  // read, or write
};

// A command finds only those options given that it takes, and all given that it needs.
struct CommandLine {
    std::string database;
    bool json = false;
    bool quick = false;
    bool decode = false;
    bool force = false;
    bool manifest = false;
    int channel = -1;  // 0..15; -1: not given
    int stream = -1;   // 0..5, of an export also sim::AUDIO_ROW; -1: not given
    // As they were given, empty when they were not; see time_option.h.
    std::string from;
    std::string to;
    std::string at;
    std::string output;
};

int list_database(const CommandLine& line);
int show_info(const CommandLine& line);
int verify_database(const CommandLine& line);
int rebuild_database(const CommandLine& line);
int export_clip(const CommandLine& line);
int show_frame(const CommandLine& line);
int write_report(const CommandLine& line);

// The database of the command line; null after it was said why not.
std::unique_ptr<sim::DatabaseView> open_database(const CommandLine& line);
// Says what is in the way, on standard error, with --json also as an object with the key "error" on
// standard output. Returns STATUS_CANNOT.
int say_cannot(const CommandLine& line, const std::string& why);
// Says what is wrong with an option, on standard error. Returns STATUS_USAGE.
int say_wrong(const char* command, const std::string& what);
// "whole", "missing", "damaged", "unreadable".
const char* state_text(sim::IniState state);

#endif  // TOOLS_QMTOOL_COMMAND_H
