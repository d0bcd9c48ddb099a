// How a session ends that nobody ends by typing: the input runs dry, the terminal hangs up, the
// reader of the output goes away.
#include <tuple>

#include "tests/console/session.h"
#include "tests/console/texts.h"

using namespace texts;

namespace {

// Input that stops in the middle, and all that must follow the top-level prompt.
struct Stop {
    const char* name;
    std::string input;
    std::string expected;
};

const std::string MAIN_OPEN = MAIN_HELP + MAIN;
const std::string MAIN_END = MAIN_CLOSING + TOP;
const std::string STATUS_OPEN = MAIN_OPEN + STATUS_HELP + STATUS;
const std::string STATUS_END = STATUS + MAIN + MAIN_END;
const std::string SEARCH_OPEN =
    MAIN_OPEN + "Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP + SEARCH;
const std::string SEARCH_END = MAIN + MAIN_END;
const std::string SET_OPEN = STATUS_OPEN + set_screen();
// The dialogue of one item ends, then the one that asks for items.
const std::string SET_ITEM_END = "\n" + set_screen() + "\n" + STATUS_END;

const Stop STOPS[] = {
    {"TopLevel", "", ""},
    {"TopLevelAfterALine", "HELP\n", TOP_HELP + TOP},
    {"Main", "MAIN\n", MAIN_OPEN + MAIN_END},
    {"Setup", "MAIN\nSETUP\n", MAIN_OPEN + SETUP_HELP + SETUP + MAIN + MAIN_END},
    {"Status", "MAIN\nSTATUS\n", STATUS_OPEN + MAIN + MAIN_END},
    {"Set", "MAIN\nSTATUS\nSET\n", SET_OPEN + "\n" + STATUS_END},
    {"SetMain", "MAIN\nSTATUS\nSET\n1\n", SET_OPEN + "\n" + MAIN_STREAM_MENU + SET_ITEM_END},
    {"SetDual", "MAIN\nSTATUS\nSET\n2\n", SET_OPEN + "\n" + DUAL_STREAM_MENU + SET_ITEM_END},
    {"SetAudio", "MAIN\nSTATUS\nSET\n3\n", SET_OPEN + "\n" + AUDIO_STREAM_MENU + SET_ITEM_END},
    {"SetJpeg", "MAIN\nSTATUS\nSET\n4\n", SET_OPEN + "\n" + JPEG_STREAM_MENU + SET_ITEM_END},
    {"SetPreview", "MAIN\nSTATUS\nSET\n5\n", SET_OPEN + "\n" + PREVIEW_STREAM_MENU + SET_ITEM_END},
    {"SetThird", "MAIN\nSTATUS\nSET\n6\n", SET_OPEN + "\n" + DUAL_STREAM_MENU + SET_ITEM_END},
    {"SetFourth", "MAIN\nSTATUS\nSET\n7\n", SET_OPEN + "\n" + DUAL_STREAM_MENU + SET_ITEM_END},
    {"SetMainAfterAnEmptyLine", "MAIN\nSTATUS\nSET\n1\n\n",
     SET_OPEN + "\n" + MAIN_STREAM_MENU + "\n" + SET_ITEM_END},
    {"Search", "MAIN\nSEARCH\n", SEARCH_OPEN + SEARCH_END},
    {"SearchSetdb", "MAIN\nSEARCH\nSETDB\n",
     SEARCH_OPEN + setdb_screen("MAIN(0)") + "\nSelected Decode DB Stream : 0\n" + SEARCH +
         SEARCH_END},
    {"SearchSetdbAfterAChoice", "MAIN\nSEARCH\nSETDB\n1\n",
     SEARCH_OPEN + setdb_screen("MAIN(0)") + "\n" + setdb_screen("DUAL(1)") +
         "\nSelected Decode DB Stream : 1\nDecode DB Stream : 1, Type : 2\n" + SEARCH + SEARCH_END},
    {"SearchSetdbAfterAnEmptyLine", "MAIN\nSEARCH\nSETDB\n\n",
     SEARCH_OPEN + setdb_screen("MAIN(0)") + "\n" + setdb_screen("MAIN(0)") +
         "\nSelected Decode DB Stream : 0\n" + SEARCH + SEARCH_END},
    {"SearchSetup", "MAIN\nSEARCH\nSETUP\n",
     SEARCH_OPEN + SETUP_HELP + SETUP + SEARCH + SEARCH_END},
    {"SearchStatusSet", "MAIN\nSEARCH\nSTATUS\nSET\n",
     SEARCH_OPEN + STATUS_HELP + STATUS + set_screen() + "\n" + STATUS + SEARCH + SEARCH_END},
    {"SearchStatusSetMain", "MAIN\nSEARCH\nSTATUS\nSET\n1\n",
     SEARCH_OPEN + STATUS_HELP + STATUS + set_screen() + "\n" + MAIN_STREAM_MENU + "\n" +
         set_screen() + "\n" + STATUS + SEARCH + SEARCH_END},
    {"Encoding", "MAIN\nENCODE 0\nENCODE 2\n",
     MAIN_OPEN + "Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n" + MAIN +
         "Encode DB Stream(Dual) : dual_stream/qmdatabase.ini, Type : 2\n"
         "Encode DB Stream(Jpeg) : jpeg_stream/qmdatabase.ini, Type : 2\n" +
         MAIN + MAIN_END},
};

// Prints a case by its name.
void PrintTo(const Stop& stop, std::ostream* out) { *out << stop.name; }

class InputEndsAt : public Session, public testing::WithParamInterface<std::tuple<Wire, Stop>> {
  protected:
    Wire wire() const override { return std::get<Wire>(GetParam()); }
};

std::string name_of(const testing::TestParamInfo<InputEndsAt::ParamType>& test) {
    return std::get<Stop>(test.param).name;
}

class InputEnds : public WiredSession {};

class OutputEnds : public Session {
  protected:
    Wire wire() const override { return Wire::Pipe; }

    // Types `input`, waits for `shown`, stops reading; the next line must end the program although
    // its input goes on.
    void stop_reading_after(const std::string& input, const std::string& shown) {
        start();
        console().send(input);
        ASSERT_TRUE(console().expect(shown));
        console().stop_reading();
        console().send("HELP\nHELP\n");
        EXPECT_EQ(console().wait_exit(), 0);
    }
};

class TerminalHangsUp : public Session {
  protected:
    Wire wire() const override { return Wire::Terminal; }

    // Types `input`, waits for `shown`, hangs up; the program must close in order.
    void hang_up_after(const std::string& input, const std::string& shown) {
        start();
        console().send(input);
        ASSERT_TRUE(console().expect(shown));
        console().hang_up();
        EXPECT_EQ(console().wait_exit(), 0);
    }
};

}  // namespace

TEST_P(InputEndsAt, EveryPromptAndQuestion) {
    const Stop& stop = std::get<Stop>(GetParam());
    check_top(stop.input, stop.expected);
}

TEST_P(InputEnds, ALineInProgressIsRun) {
    start();
    console().send("HELP");
    // A terminal's first Ctrl-D hands over the line so far, the second one ends the input.
    if (wire() == Wire::Terminal) console().end_input();
    check_top("", TOP_HELP + TOP);
}

TEST_P(InputEnds, StopsTheStatusThread) {
    start();
    console().send("MAIN\nSTATUS\nRUN\n");
    ASSERT_TRUE(console().expect(STATUS_RUNS));
    console().end_input();
    EXPECT_TRUE(console().expect(MAIN + STATUS_STOPPED + MAIN_END + FAREWELL));
    EXPECT_EQ(console().wait_exit(), 0);
}

TEST_F(OutputEnds, ThePipeClosesAtTheTopLevel) { stop_reading_after("", TOP); }

TEST_F(OutputEnds, ThePipeClosesWhileEncoding) {
    stop_reading_after("MAIN\nENCODE 0\nENCODE 2\n", "Encode DB Stream(Jpeg)");
}

TEST_F(OutputEnds, ThePipeClosesInsideADialogue) {
    stop_reading_after("MAIN\nSTATUS\nSET\n1\n", MAIN_STREAM_MENU);
}

TEST_F(TerminalHangsUp, AtTheTopLevel) { hang_up_after("", TOP); }

TEST_F(TerminalHangsUp, WhileEncodingAndPrintingReports) {
    hang_up_after("MAIN\nENCODE 0\nENCODE 2\nSTATUS\nSET\nt 5 0\n9\nRUN\n", "Buffer Count");
}

TEST_F(TerminalHangsUp, InsideADialogueOfSearch) {
    hang_up_after("MAIN\nSEARCH\nSETDB\n", setdb_screen("MAIN(0)"));
}

RUN_ON_BOTH_WIRES(InputEnds);

INSTANTIATE_TEST_SUITE_P(Pipe, InputEndsAt,
                         testing::Combine(testing::Values(Wire::Pipe), testing::ValuesIn(STOPS)),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Terminal, InputEndsAt,
                         testing::Combine(testing::Values(Wire::Terminal),
                                          testing::ValuesIn(STOPS)),
                         name_of);
