// The STATUS menu: SET with all its dialogues, RUN and STOP, through the whole program.
#include "tests/console/session.h"
#include "tests/console/texts.h"

using namespace texts;

namespace {

class StatusMenu : public WiredSession {
  protected:
    void check_status(const std::string& input, const std::string& expected) {
        check_main("STATUS\n" + input + "EXIT\n", STATUS_HELP + STATUS + expected + MAIN);
    }

    // `input` is typed at the first question of SET; a 9 at the end leaves the dialogue.
    void check_set(const std::string& input, const std::string& expected) {
        check_status("SET\n" + input + "9\n", set_screen() + expected + "\n" + STATUS);
    }
};

}  // namespace

TEST_P(StatusMenu, ShowsItsHelpAndIgnoresUnknownWords) {
    check_status("?\nENCODE 0\nPB\n\n", STATUS_HELP + STATUS + STATUS + STATUS + STATUS);
}

TEST_P(StatusMenu, SetIsLeftByAnythingThatIsNoItem) {
    check_status("SET\n9\nSET\n8\nSET\n0\nSET now\nx\nset\nT 1 2\n",
                 set_screen() + "\n" + STATUS + set_screen() + "\n" + STATUS + set_screen() + "\n" +
                     STATUS + set_screen() + "\n" + STATUS + set_screen() + "\n" + STATUS);
}

TEST_P(StatusMenu, SetAsksAgainAfterAnEmptyLine) {
    check_set("\n \t\n", "\n" + set_screen() + "\n" + set_screen());
}

TEST_P(StatusMenu, SetTakesAByteBehindEachItem) {
    check_set("1 ff\n2 2\n3 1\n4 1\n5 1\n6 3\n7 103\n",
              "\n" + set_screen({"ff", "0", "0", "0", "0", "0", "0"}) + "\n" +
                  set_screen({"ff", "2", "0", "0", "0", "0", "0"}) + "\n" +
                  set_screen({"ff", "2", "1", "0", "0", "0", "0"}) + "\n" +
                  set_screen({"ff", "2", "1", "1", "0", "0", "0"}) + "\n" +
                  set_screen({"ff", "2", "1", "1", "1", "0", "0"}) + "\n" +
                  set_screen({"ff", "2", "1", "1", "1", "3", "0"}) + "\n" +
                  set_screen({"ff", "2", "1", "1", "1", "3", "3"}));
}

TEST_P(StatusMenu, SetTakesBothMasks) {
    check_set("t 1000501 20001\n",
              "\ninfomask 01000501 00020001\n" + set_screen({"1", "5", "0", "1", "1", "0", "2"}));
}

TEST_P(StatusMenu, SetChangesNothingWhenAMaskIsMissing) {
    check_set("t 1\nt\nt 1 2 3\n", "\n" + set_screen() + "\n" + set_screen() + "\n" + set_screen());
}

TEST_P(StatusMenu, SetMainStreamTakesFourOptions) {
    check_set("1\n0 2\n1\n3 1 0\n1\n2 7 0\n",
              "\n" + MAIN_STREAM_MENU + "\n" + set_screen({"5", "0", "0", "0", "0", "0", "0"}) +
                  "\n" + MAIN_STREAM_MENU + "\n" + set_screen({"b", "0", "0", "0", "0", "0", "0"}) +
                  "\n" + MAIN_STREAM_MENU + "\n" + set_screen({"4", "0", "0", "0", "0", "0", "0"}));
}

TEST_P(StatusMenu, SetDualStreamTakesTwoOptionsAndExitClears) {
    check_set("2\n1\n2\n0 1\n2\n4\n",
              "\n" + DUAL_STREAM_MENU + "\n" + set_screen({"0", "2", "0", "0", "0", "0", "0"}) +
                  "\n" + DUAL_STREAM_MENU + "\n" + set_screen({"0", "3", "0", "0", "0", "0", "0"}) +
                  "\n" + DUAL_STREAM_MENU + "\n" + set_screen());
}

TEST_P(StatusMenu, SetAudioTakesOneOption) {
    check_set("3\n0\n3\n1\n", "\n" + AUDIO_STREAM_MENU + "\n" +
                                  set_screen({"0", "0", "1", "0", "0", "0", "0"}) + "\n" +
                                  AUDIO_STREAM_MENU + "\n" + set_screen());
}

TEST_P(StatusMenu, SetJpegAndPreviewTakeOneOptionMoreThanTheyShow) {
    check_set("4\n0 1\n5\n0 1 2 0\n", "\n" + JPEG_STREAM_MENU + "\n" +
                                          set_screen({"0", "0", "0", "3", "0", "0", "0"}) + "\n" +
                                          PREVIEW_STREAM_MENU + "\n" +
                                          set_screen({"0", "0", "0", "3", "3", "0", "0"}));
}

TEST_P(StatusMenu, SetThirdAndFourthStreamUseTheDualDialogue) {
    check_set("6\n0\n7\n1\n",
              "\n" + DUAL_STREAM_MENU + "\n" + set_screen({"0", "0", "0", "0", "0", "1", "0"}) +
                  "\n" + DUAL_STREAM_MENU + "\n" + set_screen({"0", "0", "0", "0", "0", "1", "2"}));
}

TEST_P(StatusMenu, SubMenuAnswersAnEmptyLineWithALineFeed) {
    check_set("1\n\n \n0\n",
              "\n" + MAIN_STREAM_MENU + "\n\n\n" + set_screen({"1", "0", "0", "0", "0", "0", "0"}));
}

TEST_P(StatusMenu, TheSelectionOutlivesTheSession) {
    const std::string chosen = set_screen({"a", "0", "0", "0", "0", "0", "0"});
    const std::string opened = MAIN_HELP + MAIN + STATUS_HELP + STATUS;
    check_top("MAIN\nSTATUS\nSET\n1 a\n9\nq\nq\nMAIN\nSTATUS\nSET\n9\nq\nq\nq\n",
              opened + set_screen() + "\n" + chosen + "\n" + STATUS + MAIN + MAIN_CLOSING + TOP +
                  opened + chosen + "\n" + STATUS + MAIN + MAIN_CLOSING + TOP);
}

TEST_P(StatusMenu, StopWithoutAThreadPrintsNothing) { check_status("STOP\n", STATUS); }

TEST_P(StatusMenu, RunStartsOneThreadAndStopEndsIt) {
    start();
    console().send("MAIN\nSTATUS\nRUN\n");
    ASSERT_TRUE(console().expect(STATUS_RUNS));
    console().send("RUN\nHELP\n");
    ASSERT_TRUE(console().expect(STATUS_HELP));
    console().send("STOP\n");
    ASSERT_TRUE(console().expect(STATUS_STOPPED + STATUS));
    console().send("STOP\nq\nq\nq\n");
    EXPECT_TRUE(console().expect(STATUS + MAIN + MAIN_CLOSING + TOP + FAREWELL));
    EXPECT_EQ(console().wait_exit(), 0);
    EXPECT_EQ(count_of(STATUS_RUNS, console().read_all()), 1);
    EXPECT_EQ(count_of(STATUS_STOPPED, console().output()), 1);
}

TEST_P(StatusMenu, LeavingMainStopsTheThread) {
    start();
    console().send("MAIN\nSTATUS\nRUN\n");
    ASSERT_TRUE(console().expect(STATUS_RUNS));
    console().send("q\nq\n");
    EXPECT_TRUE(console().expect(MAIN + STATUS_STOPPED + MAIN_CLOSING + TOP));
    console().send("q\n");
    EXPECT_EQ(console().wait_exit(), 0);
}

TEST_P(StatusMenu, TheThreadPrintsTheChosenReportEverySecond) {
    start();
    console().send("MAIN\nENCODE 0\nSTATUS\nSET\nt 4 0\n9\nRUN\n");
    ASSERT_TRUE(console().expect(STATUS_RUNS));
    // The built-in key-frame interval is 7; every channel is off.
    const std::string report =
        "\nMain Stream Encode IDR Status\n"
        "===============================================\n"
        "01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16\n"
        "-----------------------------------------------\n"
        "07 07 07 07 07 07 07 07 07 07 07 07 07 07 07 07 \n"
        "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
        "\n===============================================\n";
    EXPECT_TRUE(console().expect(report));
    EXPECT_TRUE(console().expect(report));
    console().send("STOP\nq\nq\nq\n");
    EXPECT_TRUE(console().expect(STATUS_STOPPED));
    EXPECT_EQ(console().wait_exit(), 0);
}

RUN_ON_BOTH_WIRES(StatusMenu);
