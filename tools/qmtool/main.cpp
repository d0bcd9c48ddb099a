// qmtool: looks into databases on disk. Command line and help; the commands stand in their files.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"

namespace {

struct Command {
    const char* name;
    int (*run)(const CommandLine& line);
    bool takes_quick;
    const char* help;
};

constexpr char DATABASE_HELP[] =
    "  DB        path of the database's .ini file, or of a folder with one database in it\n";
constexpr char STATUS_HELP[] =
    "\nExit status: 0 fine, 1 something was found, 2 wrong usage, 3 it cannot be read.\n";

// clang-format off
constexpr Command COMMANDS[] = {
    {"list", list_database, false,
     "Usage: qmtool list [--json] DB\n"
     "\n"
     "Lists what is recorded: frames, key frames, bytes, times and gaps of each channel, the runs,\n"
     "and the records that are missing. Also while it is being recorded.\n"
     "\n"},
    {"info", show_info, false,
     "Usage: qmtool info [--json] DB\n"
     "\n"
     "Shows the database as a whole: format, identity, ring, segments, size, records, up to when\n"
     "they are durable, whether it is being recorded, and the state of the .ini file.\n"
     "\n"},
    {"verify", verify_database, true,
     "Usage: qmtool verify [--quick] [--json] DB\n"
     "\n"
     "Holds every checksum and every rule of the layout against the files and tells what is wrong,\n"
     "one line each, at most 1000. Also while it is being recorded.\n"
     "\n"
     "  --quick   headers, directories and ends of the segments only\n"},
    {"rebuild", rebuild_database, false,
     "Usage: qmtool rebuild [--json] DB\n"
     "\n"
     "Writes the .ini file again from what the segments say: when it is missing, damaged or that\n"
     "of another database. Touches no segment. Refuses while the database is being recorded.\n"
     "\n"},
};
// clang-format on

void print_help() {
    printf(
        "Usage: qmtool COMMAND [OPTIONS] DB\n"
        "\n"
        "Looks into stream databases on disk.\n"
        "\n"
        "  list      what is recorded, channel by channel\n"
        "  info      the database as a whole\n"
        "  verify    whether everything in it is whole\n"
        "  rebuild   writes the .ini file again from the segments\n"
        "\n"
        "%s"
        "  --json    for machines\n"
        "  --help    this text; behind a command, more about it\n"
        "%s",
        DATABASE_HELP, STATUS_HELP);
}

void print_help(const Command& command) {
    printf("%s%s  --json    for machines\n  --help    this text\n%s", command.help, DATABASE_HELP,
           STATUS_HELP);
}

int wrong_usage(const std::string& what, const Command* command) {
    fprintf(stderr, "qmtool: %s\nTry: qmtool %s%s--help\n", what.c_str(),
            command ? command->name : "", command ? " " : "");
    return STATUS_USAGE;
}

const Command* find_command(const char* name) {
    for (const Command& command : COMMANDS)
        if (strcmp(command.name, name) == 0) return &command;
    return nullptr;
}

int run(int argc, char** argv) {
    if (argc < 2) return wrong_usage("a command is missing", nullptr);
    if (strcmp(argv[1], "--help") == 0) return print_help(), STATUS_FINE;
    const Command* command = find_command(argv[1]);
    if (!command) return wrong_usage("there is no command " + printable(argv[1]), nullptr);

    CommandLine line;
    bool named = false, options_end = false;
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        const bool option = !options_end && word.size() > 1 && word[0] == '-';
        if (option && word == "--") {
            options_end = true;
        } else if (option && word == "--help") {
            return print_help(*command), STATUS_FINE;
        } else if (option && word == "--json") {
            line.json = true;
        } else if (option && word == "--quick" && command->takes_quick) {
            line.quick = true;
        } else if (option) {
            return wrong_usage("there is no option " + printable(word), command);
        } else if (named) {
            return wrong_usage("one database, not two: " + printable(word), command);
        } else {
            line.database = word;
            named = true;
        }
    }
    if (!named) return wrong_usage("the database is missing", command);
    return command->run(line);
}

}  // namespace

std::unique_ptr<sim::DatabaseView> open_database(const CommandLine& line) {
    std::string why;
    auto view = sim::DatabaseView::open(sim::real_file_system(), line.database, why);
    if (!view) say_cannot(line, why);
    return view;
}

int say_cannot(const CommandLine& line, const std::string& why) {
    fflush(stdout);
    fprintf(stderr, "qmtool: %s: %s\n", printable(line.database).c_str(), printable(why).c_str());
    if (line.json) printf("%s\n", Json().object().text("error", why).end().written().c_str());
    return STATUS_CANNOT;
}

const char* state_text(sim::IniState state) {
    switch (state) {
        case sim::IniState::whole: return "whole";
        case sim::IniState::missing: return "missing";
        case sim::IniState::damaged: return "damaged";
        case sim::IniState::unreadable: return "unreadable";
    }
    return "";
}

int main(int argc, char** argv) {
    signal(SIGXFSZ, SIG_IGN);  // a limit of file sizes is an error of the output, told as such
    int status = STATUS_CANNOT;
    try {
        status = run(argc, argv);
    } catch (const std::bad_alloc&) {
        fprintf(stderr, "qmtool: not enough memory\n");
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        fprintf(stderr, "qmtool: cannot write the output\n");
        return STATUS_CANNOT;
    }
    return status;
}
