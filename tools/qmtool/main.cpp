// qmtool: looks into databases on disk. Command line and help; the commands stand in their files.
#include <strings.h>

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>

#include "tools/qmtool/command.h"
#include "tools/qmtool/output.h"

namespace {

// Options beside --json and --help, as bits.
enum Option : unsigned {
    QUICK = 1 << 0,
    DECODE = 1 << 1,
    CHANNEL = 1 << 2,
    STREAM = 1 << 3,
    AUDIO = 1 << 4,  // a stream may be the sound
    FROM = 1 << 5,
    TO = 1 << 6,
    AT = 1 << 7,
    OUTPUT = 1 << 8,
    FORCE = 1 << 9,
    MANIFEST = 1 << 10,
};

struct Command {
    const char* name;
    int (*run)(const CommandLine& line);
    unsigned takes;
    unsigned needs;
    const char* help;
};

constexpr char DATABASE_HELP[] =
    "  DB        path of the database's .ini file, or of a folder with one database in it\n";
constexpr char STATUS_HELP[] =
    "\nExit status: 0 fine, 1 something was found, 2 wrong usage, 3 it cannot be read, or written.\n";

// clang-format off
constexpr Command COMMANDS[] = {
    {"list", list_database, 0, 0,
     "Usage: qmtool list [--json] DB\n"
     "\n"
     "Lists what is recorded: frames, key frames, bytes, times and gaps of each channel, the runs,\n"
     "and the records that are missing. Also while it is being recorded.\n"
     "\n"},
    {"info", show_info, 0, 0,
     "Usage: qmtool info [--json] DB\n"
     "\n"
     "Shows the database as a whole: format, identity, ring, segments, size, records, up to when\n"
     "they are durable, whether it is being recorded, and the state of the .ini file.\n"
     "\n"},
    {"verify", verify_database, QUICK | DECODE, 0,
     "Usage: qmtool verify [--quick | --decode] [--json] DB\n"
     "\n"
     "Holds every checksum and every rule of the layout against the files and tells what is wrong,\n"
     "one line each, at most 1000. Also while it is being recorded.\n"
     "\n"
     "  --quick   headers, directories and ends of the segments only\n"
     "  --decode  decodes every frame too, and reads in it which one it is\n"},
    {"rebuild", rebuild_database, 0, 0,
     "Usage: qmtool rebuild [--json] DB\n"
     "\n"
     "Writes the .ini file again from what the segments say: when it is missing, damaged or that\n"
     "of another database. Touches no segment. Refuses while the database is being recorded.\n"
     "\n"},
    {"export", export_clip, CHANNEL | STREAM | AUDIO | FROM | TO | OUTPUT | FORCE | MANIFEST,
     CHANNEL | STREAM | OUTPUT,
     "Usage: qmtool export --channel N --stream NAME [--from T] [--to T] [--manifest] [--force]\n"
     "                     [--json] -o FILE DB\n"
     "\n"
     "Writes one stream of a channel into a file that players read. Also while it is being\n"
     "recorded: up to what is there then.\n"
     "\n"
     "  --channel  0 to 15, as list prints it\n"
     "  --stream   main, dual, JPEG, preview, third, fourth or audio\n"
     "  --from, --to\n"
     "             frames from the one time on and before the other, in UTC as list prints it,\n"
     "             or +12.5: seconds after the first record, -3: seconds before the last\n"
     "  -o FILE    .mov or .mp4: the pictures, and the sound of the channel\n"
     "             .h264 or .264: the bytes of H.264 as they were recorded\n"
     "             .wav: the sound\n"
     "             a folder, or a name that ends in /: JPEG pictures, one file each\n"
     "  --manifest writes FILE.manifest.json too: from which records FILE was made, its SHA-256\n"
     "  --force    even if FILE is there\n"},
    {"frame", show_frame, CHANNEL | STREAM | AT | OUTPUT | FORCE, CHANNEL | AT | OUTPUT,
     "Usage: qmtool frame --channel N [--stream NAME] --at T [--force] [--json] -o FILE DB\n"
     "\n"
     "Writes the picture that a channel showed at a time.\n"
     "\n"
     "  --channel  0 to 15, as list prints it\n"
     "  --stream   main (when it is not given), dual, JPEG, preview, third or fourth\n"
     "  --at       UTC as list prints it, or +12.5: seconds after the first record,\n"
     "             -3: seconds before the last\n"
     "  -o FILE    .jpg, .png or .ppm\n"
     "  --force    even if FILE is there\n"},
    {"report", write_report, OUTPUT | FORCE, OUTPUT,
     "Usage: qmtool report [--force] [--json] -o FILE DB\n"
     "\n"
     "Writes a page for the browser: what is recorded when, its rates, its gaps, its pictures.\n"
     "\n"
     "  -o FILE   .html\n"
     "  --force   even if FILE is there\n"},
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
        "  export    writes a channel's recording into a film, a sound or picture files\n"
        "  frame     writes one picture\n"
        "  report    writes a page about the database\n"
        "\n"
        "%s"
        "  --json    behind a command: for machines\n"
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

// The options behind which nothing follows.
struct Flag {
    const char* word;
    Option option;
    bool CommandLine::*field;
};
constexpr Flag FLAGS[] = {
    {"--quick", QUICK, &CommandLine::quick},
    {"--decode", DECODE, &CommandLine::decode},
    {"--force", FORCE, &CommandLine::force},
    {"--manifest", MANIFEST, &CommandLine::manifest},
};

// What is wrong with the value; empty when nothing is.
using Take = std::string (*)(const Command& command, const std::string& value, CommandLine& line);

std::string take_channel(const Command&, const std::string& value, CommandLine& line) {
    int channel = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, channel);
    if (error != std::errc() || stop != end || channel < 0 || channel >= QMCODEC_CHANNELS)
        return "a channel is a number from 0 to " + std::to_string(QMCODEC_CHANNELS - 1) +
               ", not " + printable(value);
    line.channel = channel;
    return "";
}

std::string take_stream(const Command& command, const std::string& value, CommandLine& line) {
    const int rows = command.takes & AUDIO ? sim::SUMMARY_ROWS : sim::AUDIO_ROW;
    std::string names;
    for (int row = 0; row < rows; ++row) {
        if (strcasecmp(value.c_str(), row_name(row)) == 0) {
            line.stream = row;
            return "";
        }
        names += std::string(row == 0 ? "" : row + 1 < rows ? ", " : " or ") + row_name(row);
    }
    return "a stream is " + names + ", not " + printable(value);
}

template <std::string CommandLine::*FIELD>
std::string take_text(const Command&, const std::string& value, CommandLine& line) {
    line.*FIELD = value;
    return "";
}

// The options behind which a value follows.
struct Valued {
    const char* word;
    Option option;
    const char* value;
    Take take;
};
constexpr Valued VALUED[] = {
    {"--channel", CHANNEL, "a number", take_channel},
    {"--stream", STREAM, "a name", take_stream},
    {"--from", FROM, "a time", take_text<&CommandLine::from>},
    {"--to", TO, "a time", take_text<&CommandLine::to>},
    {"--at", AT, "a time", take_text<&CommandLine::at>},
    {"-o", OUTPUT, "a file", take_text<&CommandLine::output>},
    {"--output", OUTPUT, "a file", take_text<&CommandLine::output>},
};

const Valued* find_valued(const Command& command, const std::string& word) {
    for (const Valued& valued : VALUED)
        if (word == valued.word && command.takes & valued.option) return &valued;
    return nullptr;
}

bool take_flag(const Command& command, const std::string& word, CommandLine& line) {
    for (const Flag& flag : FLAGS) {
        if (word != flag.word || !(command.takes & flag.option)) continue;
        line.*flag.field = true;
        return true;
    }
    return false;
}

// What is missing, or does not go together; empty when nothing is wrong.
std::string look_at(const Command& command, unsigned given, const CommandLine& line) {
    for (const Valued& valued : VALUED)
        if (command.needs & ~given & valued.option)
            return std::string(valued.word) + " is missing: " + command.name + " needs it";
    if (line.quick && line.decode) return "--quick and --decode do not go together";
    return "";
}

int run(int argc, char** argv) {
    if (argc < 2) return wrong_usage("a command is missing", nullptr);
    if (strcmp(argv[1], "--help") == 0) return print_help(), STATUS_FINE;
    const Command* command = find_command(argv[1]);
    if (!command) return wrong_usage("there is no command " + printable(argv[1]), nullptr);

    CommandLine line;
    unsigned given = 0;
    bool named = false, options_end = false;
    for (int i = 2; i < argc; ++i) {
        const std::string word = argv[i];
        const bool option = !options_end && word.size() > 1 && word[0] == '-';
        const Valued* valued = option ? find_valued(*command, word) : nullptr;
        if (option && word == "--") {
            options_end = true;
        } else if (option && word == "--help") {
            return print_help(*command), STATUS_FINE;
        } else if (option && word == "--json") {
            line.json = true;
        } else if (valued) {
            if (i + 1 == argc || argv[i + 1][0] == '\0')
                return wrong_usage(word + " needs " + valued->value + " behind it", command);
            const std::string wrong = valued->take(*command, argv[++i], line);
            if (!wrong.empty()) return wrong_usage(wrong, command);
            given |= valued->option;
        } else if (option) {
            if (!take_flag(*command, word, line))
                return wrong_usage("there is no option " + printable(word), command);
        } else if (named) {
            return wrong_usage("one database, not two: " + printable(word), command);
        } else {
            line.database = word;
            named = true;
        }
    }
    if (!named) return wrong_usage("the database is missing", command);
    const std::string wrong = look_at(*command, given, line);
    return wrong.empty() ? command->run(line) : wrong_usage(wrong, command);
}

}  // namespace

std::unique_ptr<sim::DatabaseView> open_database(const CommandLine& line) {
    std::string why;
    auto view = sim::DatabaseView::open(sim::real_file_system(), line.database, why);
    if (!view) say_cannot(line, why);
    std::error_code failed;
    if (!view || !std::filesystem::equivalent(line.output, view->path(), failed)) return view;
    CommandLine of_file = line;
    of_file.database = line.output;
    say_cannot(of_file, "it is the database");
    return nullptr;
}

int say_cannot(const CommandLine& line, const std::string& why) {
    fflush(stdout);
    fprintf(stderr, "qmtool: %s: %s\n", printable(line.database).c_str(), printable(why).c_str());
    if (line.json) printf("%s\n", Json().object().text("error", why).end().written().c_str());
    return STATUS_CANNOT;
}

int say_wrong(const char* command, const std::string& what) {
    return wrong_usage(what, find_command(command));
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
