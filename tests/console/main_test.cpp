// The MAIN menu with ENCODE, PRIVATE and SETUP, through the whole program.
#include "tests/console/session.h"
#include "tests/console/texts.h"

using namespace texts;

namespace {

class MainMenu : public WiredSession {};
class EncodeCommand : public WiredSession {};
class PrivateCommand : public WiredSession {};
class SetupMenu : public WiredSession {};

}  // namespace

TEST_P(MainMenu, OpensAndClosesASession) { check_main("", ""); }

TEST_P(MainMenu, OpensASessionAgain) {
    const std::string session = MAIN_HELP + MAIN + MAIN_CLOSING + TOP;
    check_top("MAIN 0xf\nq\nmain 3\nquit\nMain 1 2\nexit\nq\n", session + session + session);
}

TEST_P(MainMenu, ShowsItsHelpAndIgnoresUnknownWords) {
    check_main("HELP\nMAIN\nMEMTEST\nENVPRINT\n\n", MAIN_HELP + MAIN + MAIN + MAIN + MAIN + MAIN);
}

TEST_P(EncodeCommand, ShowsItsHelp) { check_main("ENCODE\n", ENCODE_HELP + MAIN); }

TEST_P(EncodeCommand, RefusesOtherCodes) {
    check_main("ENCODE 7\nENCODE -1\n", "[Err] Parameter!\n" + MAIN + "[Err] Parameter!\n" + MAIN);
}

TEST_P(EncodeCommand, StartsAndStopsTheMainStream) {
    check_main("ENCODE 0\nENCODE 0\nENCODE 1\nENCODE 1\nENCODE 0\n",
               "Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n" + MAIN +
                   "[Err] Stream0 thread is already running!\n" + MAIN + MAIN + MAIN +
                   "Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n" + MAIN);
}

TEST_P(EncodeCommand, StartsAndStopsTheOtherStreams) {
    const std::string started =
        "Encode DB Stream(Dual) : dual_stream/qmdatabase.ini, Type : 2\n"
        "Encode DB Stream(Jpeg) : jpeg_stream/qmdatabase.ini, Type : 2\n";
    check_main("ENCODE 2\nENCODE 2\nENCODE 3\nENCODE 3\nENCODE 2\n",
               started + MAIN + "[Err] the thread for the other stream is already running!\n" +
                   MAIN + MAIN + MAIN + started + MAIN);
}

TEST_P(EncodeCommand, NamesTheDatabasesOfTheEnvironmentAsTyped) {
    check_top("ENVSETDB 0 a/b.ini\nMAIN\nENCODE 0\nq\nq\n",
              TOP + MAIN_HELP + MAIN + "Encode DB Stream : A/B.INI, Type : 2\n" + MAIN +
                  MAIN_CLOSING + TOP);
}

TEST_P(PrivateCommand, ShowsItsHelpWhenWordsAreMissing) {
    check_main("PRIVATE\nPRIVATE 0 1 0 0 256\n", PRIVATE_HELP + MAIN + PRIVATE_HELP + MAIN);
}

TEST_P(PrivateCommand, SetsOneZone) {
    check_main("private 0 1 0 0 256 256\nPRIVATE 3 0 8 16 32 64 7\n",
               "app_private_zone() : 0, 1, (0,0) (256,256)\n" + MAIN +
                   "app_private_zone() : 3, 0, (8,16) (32,64)\n" + MAIN);
}

TEST_P(PrivateCommand, SetsTheZoneOfEveryChannel) {
    std::string lines;
    for (int channel = 0; channel < 16; ++channel)
        lines += "app_private_zone() : " + std::to_string(channel) + ", 1, (0,0) (10,10)\n";
    check_main("PRIVATE 16 1 0 0 10 10\nPRIVATE 272 1 0 0 10 10\n", lines + MAIN + lines + MAIN);
}

TEST_P(SetupMenu, ShowsItsHelpAndReturnsToMain) {
    check_main("SETUP\nHELP\nMAIN\nENCODE 0\n\nq\n",
               SETUP_HELP + SETUP + SETUP_HELP + SETUP + SETUP + SETUP + SETUP + MAIN);
}

TEST_P(SetupMenu, ChangesTheEnvironmentInsideASession) {
    Environment changed;
    changed.decode_db = "D.INI";
    changed.streams[2] = "0 2 15 0 0 31 512000 3 0";
    check_main(
        "SETUP\nENVCHANGE -ve 2 16 3 15\nENVSETDB 10 d.ini\nENVPRINT\nENVCHANGE -ve 0 0 2 5\n"
        "ENVSETDB\nENVCHANGE\nquit\n",
        SETUP_HELP + SETUP + SETUP + SETUP + changed.printed() + SETUP + "property err : 2 5\n" +
            SETUP + ENVSETDB_HELP + SETUP + ENVCHANGE_HELP + SETUP + MAIN);
}

RUN_ON_BOTH_WIRES(MainMenu);
RUN_ON_BOTH_WIRES(EncodeCommand);
RUN_ON_BOTH_WIRES(PrivateCommand);
RUN_ON_BOTH_WIRES(SetupMenu);
