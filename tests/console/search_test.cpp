// The SEARCH menu with SETDB and PB, through the whole program.
#include "tests/console/session.h"
#include "tests/console/texts.h"
#include "tests/support/wait.h"

using namespace texts;

namespace {

class SearchMenu : public WiredSession {
  protected:
    // A search of the main stream, kept in memory, with nothing recorded.
    void check_search(const std::string& input, const std::string& expected) {
        check_main("SEARCH\n" + input + "EXIT\n",
                   "Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP + SEARCH + expected + MAIN);
    }

    void check_refusal(const std::string& environment, const std::string& expected) {
        write_environment("qm7105.ini", environment);
        check_main("SEARCH\n", expected + MAIN);
    }
};

const std::string SELECTED_DUAL = "Selected Decode DB Stream : 1\nDecode DB Stream : 1, Type : 2\n";

}  // namespace

TEST_P(SearchMenu, ShowsItsHelpAndIgnoresUnknownWords) {
    check_search("HELP\nENCODE 0\nSEARCH\n\n", SEARCH_HELP + SEARCH + SEARCH + SEARCH + SEARCH);
}

TEST_P(SearchMenu, InitAndReleasePrintNothing) { check_search("INIT\nRELEASE\n", SEARCH + SEARCH); }

TEST_P(SearchMenu, OpensTheOtherMenusAndReturns) {
    check_search("SETUP\nq\nSTATUS\nSET\n9\nq\nPRIVATE 1 1 2 3 4 5\n",
                 SETUP_HELP + SETUP + SEARCH + STATUS_HELP + STATUS + set_screen() + "\n" + STATUS +
                     SEARCH + "app_private_zone() : 1, 1, (2,3) (4,5)\n" + SEARCH);
}

TEST_P(SearchMenu, IsRefusedByBoardsWithoutADecoder) {
    check_refusal("[GENERAL]\nboard_type = 2\n",
                  "[Err] Board type [2] can't support search mode.\n");
}

TEST_P(SearchMenu, IsRefusedByBoard6) {
    check_refusal("[GENERAL]\nboard_type = 6\n",
                  "[Err] Board type [6] can't support search mode.\n");
}

TEST_P(SearchMenu, IsRefusedByBoard7) {
    check_refusal("[GENERAL]\nboard_type = 7\n",
                  "[Err] Board type [7] can't support search mode.\n");
}

TEST_P(SearchMenu, DoesNotOpenTheJpegDatabase) {
    check_refusal(
        "[GENERAL]\nmain_stream_db = a\ndual_stream_db = b\njpeg_stream_db = c\n"
        "decode_stream_db = c\n",
        "##### Decode DB Type Error.\nDecode DB Stream : 0, Type : 0\n");
}

TEST_P(SearchMenu, DoesNotOpenAnUnknownDatabase) {
    check_refusal("[GENERAL]\ndecode_stream_db = elsewhere\n",
                  "##### Decode DB Type Error.\nDecode DB Stream : 0, Type : 0\n");
}

TEST_P(SearchMenu, OpensTheDualDatabaseOfTheEnvironment) {
    write_environment("qm7105.ini",
                      "[GENERAL]\nmain_stream_db = a\ndual_stream_db = b\ndecode_stream_db = b\n");
    check_main("SEARCH\nSETDB 1\nq\n", "Decode DB Stream : 1, Type : 2\n" + SEARCH_HELP + SEARCH +
                                           "Selected Decode DB Stream : 1\n" + SEARCH + MAIN);
}

TEST_P(SearchMenu, SetdbTakesTheStreamAsAWord) {
    check_search("SETDB 0\nSETDB 1\nSETDB 1\nSETDB 0\n",
                 "Selected Decode DB Stream : 0\n" + SEARCH + SELECTED_DUAL + SEARCH +
                     "Selected Decode DB Stream : 1\n" + SEARCH +
                     "Selected Decode DB Stream : 0\nDecode DB Stream : 0, Type : 2\n" + SEARCH);
}

TEST_P(SearchMenu, SetdbWithAnUnusableNumberStopsPlayback) {
    check_search("SETDB 5\nSETDB 0\nPB 4\n",
                 "Selected Decode DB Stream : 5\n##### Decode DB Type Error.\n"
                 "Decode DB Stream : 0, Type : 2\n" +
                     SEARCH + "Selected Decode DB Stream : 0\n" + SEARCH + SEARCH);
}

TEST_P(SearchMenu, SetdbAsksForTheStream) {
    check_search("SETDB\n1\n\n4\nSETDB 1 2\n0\n1\nx\n",
                 setdb_screen("MAIN(0)") + "\n" + setdb_screen("DUAL(1)") + "\n" +
                     setdb_screen("DUAL(1)") + "\n" + SELECTED_DUAL + SEARCH +
                     setdb_screen("DUAL(1)") + "\n" + setdb_screen("MAIN(0)") + "\n" +
                     setdb_screen("DUAL(1)") + "\n" + "Selected Decode DB Stream : 1\n" + SEARCH);
}

TEST_P(SearchMenu, SetdbLeftAtOnceChangesNothing) {
    check_search("SETDB\n4\n",
                 setdb_screen("MAIN(0)") + "\nSelected Decode DB Stream : 0\n" + SEARCH);
}

TEST_P(SearchMenu, PbShowsItsHelp) { check_search("PB\n", PB_HELP + SEARCH); }

TEST_P(SearchMenu, PbTakesEveryCommandInSilence) {
    const std::string commands =
        "PB 0\nPB 3\nPB 4\nPB 5\nPB 6\nPB x\nPB SPEED UP\nPB SPEED DN 3\nPB SETCHMASK 0x00ff\n"
        "PB SETCHMASK 00FF\nPB AUDIO 1\nPB AUDIO 0\nPB AUDIOCH 300\nPB FOO 1\n";
    std::string prompts;
    for (int i = 0; i < 14; ++i) prompts += SEARCH;
    check_search(commands, prompts);
}

TEST_P(SearchMenu, PbRefusesWrongWords) {
    const std::string commands =
        "PB SPEED LEFT\nPB AUDIO 1 2\nPB SETCHMASK 1 2\nPB AUDIOCH 1 2\nPB 1 2 3 4\n";
    std::string refusals;
    for (int i = 0; i < 5; ++i) refusals += PB_ERROR + SEARCH;
    check_search(commands, refusals);
}

TEST_P(SearchMenu, PlaysWhatIsBeingRecorded) {
    write_environment("qm7105.ini", "[GENERAL]\n[MAIN STREAM]\nch_01 = 1 0 30 10 0 27 2048000 1\n");
    start();
    console().send("MAIN\nENCODE 0\nSTATUS\nSET\n1 2\n9\nRUN\nq\nSEARCH\nPB 4\n");
    // A silent period may come first: a recording starts with its first key frame.
    size_t figure = 0;
    bool printed = true;
    const auto decoded = [&] {
        printed = console().expect(", BUF Count:");
        if (!printed) return true;
        figure = console().output().find("DEC Frame:", figure) + 10;
        return console().output()[figure] != '0';
    };
    EXPECT_TRUE(comes_true(decoded));
    ASSERT_TRUE(printed);
    console().send("q\nENCODE 1\nq\nq\n");
    EXPECT_TRUE(console().expect(STATUS_STOPPED + MAIN_CLOSING + TOP + FAREWELL));
    EXPECT_EQ(console().wait_exit(), 0);
}

RUN_ON_BOTH_WIRES(SearchMenu);
