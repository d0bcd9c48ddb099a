// The top-level menu, its environment commands and the command line.
#include "tests/console/session.h"
#include "tests/console/texts.h"

using namespace texts;

namespace {

class TopMenu : public WiredSession {};
class CommandLine : public WiredSession {};

const char CTRL_X[] = "\x18";
const char CTRL_Z[] = "\x1a";

// An environment file that differs from the built-in defaults, and how it is printed.
const char BOARD_6[] =
    "[GENERAL]\n"
    "board_type = 6\n"
    "video_format = 1\n"
    "main_database_type = 1\n"
    "main_stream_db = main/a.ini\n"
    "decode_stream_db = other/d.ini\n"
    "[MAIN STREAM]\n"
    "ch_03 = 1 0 25 50 1 60 512000 2\n";

Environment board_6() {
    Environment environment;
    environment.board_type = "6";
    environment.video_format = "1";
    environment.database_types = {"1", "2", "2"};
    environment.main_db = "main/a.ini";
    environment.dual_db = "";
    environment.jpeg_db = "";
    environment.decode_db = "other/d.ini";
    environment.streams.fill("0 0 0 0 0 0 0 0 0");
    environment.channel = {0, 3, "1 0 25 50 1 8 512000 2 0"};
    return environment;
}

}  // namespace

TEST_P(TopMenu, IsLeftByEachOfItsWords) {
    check_top("q\n", "");
    for (const char* word : {"Exit\n", "QUIT\n", "Q now\n"}) {
        start();
        check_top(word, "");
    }
}

TEST_P(TopMenu, HelpIgnoresTheWordsAfterIt) {
    check_top("HELP\nh MAIN\n?\nq\n", TOP_HELP + TOP + TOP_HELP + TOP + TOP_HELP + TOP);
}

TEST_P(TopMenu, IgnoresEmptyLinesAndUnknownWords) {
    check_top("\n \t\r\nMA\nMAINX\nENCODE 0\nSTATUS\nMEMTEST\nq\n",
              TOP + TOP + TOP + TOP + TOP + TOP + TOP);
}

TEST_P(TopMenu, ReadsTheLineAfterTheOneThatLeaves) { check_top("q\nHELP\n", ""); }

TEST_P(TopMenu, RecallsEarlierLines) {
    // Ctrl-Z shows HELP and Enter runs it; then NONE is erased in favour of the newest line, which
    // is HELP still, and the second Ctrl-Z stays on it.
    check_top(std::string("HELP\n") + CTRL_Z + "\nNONE" + CTRL_Z + CTRL_Z + "\nq\n",
              TOP_HELP + TOP + "HELP" + TOP_HELP + TOP + "\b \b\b \b\b \b\b \bHELP" +
                  "\b \b\b \b\b \b\b \bHELP" + TOP_HELP + TOP);
}

TEST_P(TopMenu, RecallsForwardOnlyWhatIsThere) {
    // The first Ctrl-X shows the entry under the cursor, the second has nothing to show.
    check_top(std::string("X1\n") + CTRL_X + CTRL_X + "\nq\n", TOP + "X1" + TOP);
}

TEST_P(TopMenu, PrintsTheBuiltInEnvironment) {
    check_top("ENVPRINT\nq\n", Environment().printed() + TOP);
}

TEST_P(TopMenu, ShowsTheHelpOfTheEnvironmentCommands) {
    check_top("ENVCHANGE\nENVSETDB\nENVSETDB 0\nq\n",
              ENVCHANGE_HELP + TOP + ENVSETDB_HELP + TOP + ENVSETDB_HELP + TOP);
}

TEST_P(TopMenu, RefusesWrongEnvironmentCommands) {
    check_top("ENVCHANGE -vf\nENVCHANGE -ve 6 0 0 1\nENVCHANGE -xx\nENVSETDB 3 a\nq\n",
              "err 0\nInvalide option !!\n" + TOP + "Invalide option !!\n" + TOP +
                  "err 2 -XX\nInvalide option !!\n" + TOP + "Error parameter !!!\n" + TOP);
}

TEST_P(TopMenu, ChangesTheEnvironment) {
    Environment changed;
    changed.video_format = "1";
    changed.dual_db = "TMP/X.INI";
    changed.streams[1] = "1 1 7 7 0 31 2048000 3 0";
    changed.channel = {0, 1, "0 0 7 7 0 1 2048000 1 0"};
    check_top(
        "ENVCHANGE -vf 1\nENVSETDB 1 tmp/x.ini\nENVCHANGE -ve 1 16 0 1\n"
        "ENVCHANGE -ve 0 0 7 1\nENVPRINT\nq\n",
        TOP + TOP + TOP + TOP + changed.printed() + TOP);
}

TEST_P(CommandLine, WithoutAnArgumentLoadsTheFileOfTheWorkingDirectory) {
    write_environment("qm7105.ini", BOARD_6);
    check_top("ENVPRINT\nq\n", board_6().printed() + TOP);
}

TEST_P(CommandLine, OneArgumentNamesTheFile) {
    write_environment("qm7105.ini", "[GENERAL]\nboard_type = 2\n");
    write_environment("board6.ini", BOARD_6);
    start({"board6.ini"});
    check_top("ENVPRINT\nq\n", board_6().printed() + TOP);
}

TEST_P(CommandLine, MissingFileGivesTheDefaults) {
    write_environment("qm7105.ini", BOARD_6);
    start({"missing.ini"});
    check_top("ENVPRINT\nq\n", Environment().printed() + TOP);
}

TEST_P(CommandLine, TwoArgumentsAreIgnored) {
    write_environment("qm7105.ini", BOARD_6);
    write_environment("other.ini", "[GENERAL]\nboard_type = 2\n");
    start({"other.ini", "other.ini"});
    check_top("ENVPRINT\nq\n", board_6().printed() + TOP);
}

RUN_ON_BOTH_WIRES(TopMenu);
RUN_ON_BOTH_WIRES(CommandLine);
