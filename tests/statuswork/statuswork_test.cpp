// The STATUS menu and the SET dialogues: every screen, and what each answer does to the masks.
#include "statuswork/statuswork.h"

#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

class StatusMenu : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
    }

    // The SET command, with the operator's answers.
    std::string set(const std::string& input) {
        const std::string text = typed(app_stat_set, {"SET"}, input);
        EXPECT_EQ(0, result);
        EXPECT_EQ("", journal());
        return text;
    }

    static void set_masks(uint32_t a, uint32_t b) {
        _l_st_stat.mask_a = a;
        _l_st_stat.mask_b = b;
    }

    static void expect_masks(uint32_t a, uint32_t b) {
        EXPECT_EQ(a, _l_st_stat.mask_a);
        EXPECT_EQ(b, _l_st_stat.mask_b);
    }
};

TEST_F(StatusMenu, PrintsItsHelpScreen) {
    EXPECT_EQ(escaped(STATUS_HELP), escaped(output_of(statuswork_help)));
}

TEST_F(StatusMenu, PrintsItsPromptWithoutLineEnd) {
    EXPECT_EQ(escaped("STATUS>"), escaped(output_of(statuswork_prompt)));
}

TEST_F(StatusMenu, OffersItsCommandsInOrder) {
    expect_table(statuswork_cmds,
                 {{"RUN", app_stat_run}, {"STOP", app_stat_stop}, {"SET", app_stat_set}});
}

TEST_F(StatusMenu, IsRefusedWithoutACodec) {
    QMAVCodec* codec = std::exchange(g_appenv.codec, nullptr);
    EXPECT_EQ(escaped("[Err] AV Codec is not created!!!\n"), typed(app_statuswork, {"STATUS"}));
    EXPECT_EQ(-1, result);
    g_appenv.codec = codec;
}

TEST_F(StatusMenu, ShowsItsHelpOnceAndRunsUntilItIsLeft) {
    EXPECT_EQ(escaped(STATUS_HELP + "STATUS>STATUS>STATUS>"),
              typed(app_statuswork, {"STATUS"}, "\nnonsense\nexit\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
}

TEST_F(StatusMenu, IsLeftAtTheEndOfInput) {
    EXPECT_EQ(escaped(STATUS_HELP + "STATUS>"), typed(app_statuswork, {"STATUS"}));
    EXPECT_EQ(0, result);
}

TEST_F(StatusMenu, LeavesTheThreadRunningWhenItIsLeft) {
    EXPECT_EQ(escaped(STATUS_HELP + "STATUS>STATUS>"),
              typed(app_statuswork, {"STATUS"}, "run\nquit\n"));
    EXPECT_EQ(calls({{"CreateThread thread null 0"}}), journal());
    EXPECT_NE(nullptr, _l_st_stat.thread);
}

TEST_F(StatusMenu, KeepsTheMasksThroughRunStopAndLeaving) {
    set_masks(0x01020304, 0x05060708);
    typed(app_statuswork, {"STATUS"}, "run\nstop\nexit\n");
    expect_masks(0x01020304, 0x05060708);
}

TEST_F(StatusMenu, PassesDialogueAnswersInTheirOwnCase) {
    EXPECT_EQ(escaped(STATUS_HELP + "STATUS>" + set_screen() + "\ninfomask 00000001 00000002\n" +
                      set_screen({"1", "0", "0", "0", "2", "0", "0"}) + "\nSTATUS>"),
              typed(app_statuswork, {"STATUS"}, "set ignored words\nt 1 2\n9\nexit\n"));
}

TEST_F(StatusMenu, ShowsEveryByteInTheSetScreen) {
    set_masks(0x44332211, 0x88776655);
    EXPECT_EQ(escaped(set_screen({"11", "22", "33", "44", "55", "66", "77"}) + "\n"), set("9\n"));
    expect_masks(0x44332211, 0x88776655);
}

TEST_F(StatusMenu, LeavesSetWithAnyOtherWord) {
    for (const char* word : {"9", "8", "0", "x", "T 1 2", "10", "-1", "01", "exit"}) {
        EXPECT_EQ(escaped(set_screen() + "\n"), set(std::string(word) + "\n1 5\n")) << word;
        expect_masks(0, 0);
    }
}

TEST_F(StatusMenu, RepeatsTheSetScreenForAnEmptyLine) {
    EXPECT_EQ(escaped(set_screen() + "\n" + set_screen() + "\n" + set_screen() + "\n"),
              set("\n \t\r\n9\n"));
}

TEST_F(StatusMenu, LeavesSetAtTheEndOfInput) {
    EXPECT_EQ(escaped(set_screen() + "\n"), set(""));
    EXPECT_EQ(escaped(set_screen() + "\n" + set_screen({"5", "0", "0", "0", "0", "0", "0"}) + "\n"),
              set("1 5"));
    expect_masks(5, 0);
}

TEST_F(StatusMenu, ReplacesOneByteByTheHexadecimalWordAfterItsItem) {
    const struct {
        const char* answer;
        uint32_t a, b;
    } ROWS[] = {
        {"1 ff", 0x443322ff, 0x88776655}, {"2 0", 0x44330011, 0x88776655},
        {"3 1", 0x44012211, 0x88776655},  {"4 0xA5", 0xa5332211, 0x88776655},
        {"5 7e", 0x44332211, 0x8877667e}, {"6 1FF", 0x44332211, 0x8877ff55},
        {"7 x", 0x44332211, 0x88006655},  {"1 100", 0x44332200, 0x88776655},
    };
    for (const auto& row : ROWS) {
        set_masks(0x44332211, 0x88776655);
        set(std::string(row.answer) + "\n9\n");
        expect_masks(row.a, row.b);
        if (HasFailure()) FAIL() << "after " << row.answer;
    }
}

TEST_F(StatusMenu, ShowsTheNewByteAfterAWordGivenOnTheSameLine) {
    EXPECT_EQ(
        escaped(set_screen() + "\n" + set_screen({"ff", "0", "0", "0", "0", "0", "0"}) + "\n"),
        set("1 ff\n9\n"));
}

TEST_F(StatusMenu, RunsTheSubMenuOfEachItem) {
    const struct {
        const char* item;
        const std::string& sub_menu;
        uint32_t a, b;
        SetBytes shown;
    } ROWS[] = {
        {"1", MAIN_STREAM_MENU, 0x44332201, 0x88776655, {"1", "22", "33", "44", "55", "66", "77"}},
        {"2", DUAL_STREAM_MENU, 0x44330111, 0x88776655, {"11", "1", "33", "44", "55", "66", "77"}},
        {"3", AUDIO_STREAM_MENU, 0x44012211, 0x88776655, {"11", "22", "1", "44", "55", "66", "77"}},
        {"4", JPEG_STREAM_MENU, 0x01332211, 0x88776655, {"11", "22", "33", "1", "55", "66", "77"}},
        {"5",
         PREVIEW_STREAM_MENU,
         0x44332211,
         0x88776601,
         {"11", "22", "33", "44", "1", "66", "77"}},
        {"6", DUAL_STREAM_MENU, 0x44332211, 0x88770155, {"11", "22", "33", "44", "55", "1", "77"}},
        {"7", DUAL_STREAM_MENU, 0x44332211, 0x88016655, {"11", "22", "33", "44", "55", "66", "1"}},
    };
    const std::string before = set_screen({"11", "22", "33", "44", "55", "66", "77"});
    for (const auto& row : ROWS) {
        set_masks(0x44332211, 0x88776655);
        EXPECT_EQ(escaped(before + "\n" + row.sub_menu + "\n" + set_screen(row.shown) + "\n"),
                  set(std::string(row.item) + "\n0\n9\n"))
            << row.item;
        expect_masks(row.a, row.b);
    }
}

TEST_F(StatusMenu, RunsTheSubMenuForThreeOrMoreWords) {
    EXPECT_EQ(escaped(set_screen() + "\n" + MAIN_STREAM_MENU + "\n" +
                      set_screen({"2", "0", "0", "0", "0", "0", "0"}) + "\n"),
              set("1 5 5\n1\n9\n"));
    expect_masks(2, 0);
    EXPECT_EQ(escaped(set_screen({"2", "0", "0", "0", "0", "0", "0"}) + "\n" + DUAL_STREAM_MENU +
                      "\n" + set_screen({"2", "3", "0", "0", "0", "0", "0"}) + "\n"),
              set("2 1 2 3\n0 1\n9\n"));
    expect_masks(0x302, 0);
}

TEST_F(StatusMenu, SelectsRatesAndIdrOfTheMainStream) {
    EXPECT_EQ(escaped(set_screen() + "\n" + MAIN_STREAM_MENU + "\n" +
                      set_screen({"5", "0", "0", "0", "0", "0", "0"}) + "\n"),
              set("1\n0 2\n9\n"));
    expect_masks(0x05, 0);
}

TEST_F(StatusMenu, ClearsTheByteWhenASubMenuIsLeftWithFour) {
    set_masks(0x0303, 0x0101);
    EXPECT_EQ(escaped(set_screen({"3", "3", "0", "0", "1", "1", "0"}) + "\n" + DUAL_STREAM_MENU +
                      "\n" + set_screen({"3", "0", "0", "0", "1", "1", "0"}) + "\n"),
              set("2\n4\n9\n"));
    expect_masks(0x0003, 0x0101);
}

TEST_F(StatusMenu, ReplacesTheOldByteAndNeverMergesIt) {
    set_masks(0x0f, 0);
    set("1\n1\n9\n");
    expect_masks(0x02, 0);
}

TEST_F(StatusMenu, AcceptsNumbersUpToTheHighestOfEachSubMenu) {
    const struct {
        unsigned int (*sub_menu)();
        const char* answer;
        unsigned int byte;
    } ROWS[] = {
        {statuswork_main_stream, "0", 0x1},       {statuswork_main_stream, "3", 0x8},
        {statuswork_main_stream, "0 1 2 3", 0xf}, {statuswork_main_stream, "0 1 2 3 4 0", 0xf},
        {statuswork_main_stream, "2 7 0", 0x4},   {statuswork_main_stream, "4 0", 0},
        {statuswork_main_stream, "-1 0", 0},      {statuswork_main_stream, "1 1 1", 0x2},
        {statuswork_main_stream, "x", 0x1},       {statuswork_dual_stream, "0 1", 0x3},
        {statuswork_dual_stream, "1 2 0", 0x2},   {statuswork_dual_stream, "2", 0},
        {statuswork_dual_stream, "4", 0},         {statuswork_audio_stream, "0", 1},
        {statuswork_audio_stream, "0 0 0 9", 1},  {statuswork_audio_stream, "1 0", 0},
        {statuswork_audio_stream, "4", 0},        {statuswork_jpeg_stream, "0", 0x1},
        {statuswork_jpeg_stream, "0 1 2", 0x3},   {statuswork_jpeg_stream, "2 0", 0},
        {statuswork_preview_stream, "1", 0x2},    {statuswork_preview_stream, "1 0 2", 0x3},
        {statuswork_preview_stream, "2 0", 0},
    };
    for (const auto& row : ROWS) {
        unsigned int byte = 99;
        run_console(std::string(row.answer) + "\n", [&] { byte = row.sub_menu(); });
        EXPECT_EQ(row.byte, byte) << "row " << &row - ROWS << ": " << row.answer;
    }
}

TEST_F(StatusMenu, AnswersAnEmptyLineInASubMenuWithALineFeedAlone) {
    const struct {
        unsigned int (*sub_menu)();
        const std::string& screen;
    } ROWS[] = {
        {statuswork_main_stream, MAIN_STREAM_MENU},
        {statuswork_dual_stream, DUAL_STREAM_MENU},
        {statuswork_audio_stream, AUDIO_STREAM_MENU},
        {statuswork_jpeg_stream, JPEG_STREAM_MENU},
        {statuswork_preview_stream, PREVIEW_STREAM_MENU},
    };
    for (const auto& row : ROWS) {
        unsigned int byte = 99;
        EXPECT_EQ(escaped(row.screen + "\n\n\n"),
                  escaped(run_console("\n  \n0\n", [&] { byte = row.sub_menu(); })));
        EXPECT_EQ(1u, byte);
    }
}

TEST_F(StatusMenu, LeavesASubMenuAtTheEndOfInputAsWithExit) {
    for (auto* sub_menu : {statuswork_main_stream, statuswork_dual_stream, statuswork_audio_stream,
                           statuswork_jpeg_stream, statuswork_preview_stream}) {
        unsigned int byte = 99;
        run_console("", [&] { byte = sub_menu(); });
        EXPECT_EQ(0u, byte);
        run_console("0", [&] { byte = sub_menu(); });
        EXPECT_EQ(1u, byte);
    }
    set_masks(0x0303, 0);
    EXPECT_EQ(escaped(set_screen({"3", "3", "0", "0", "0", "0", "0"}) + "\n" + MAIN_STREAM_MENU +
                      "\n" + set_screen({"0", "3", "0", "0", "0", "0", "0"}) + "\n"),
              set("1\n"));
}

TEST_F(StatusMenu, SetsBothMasksWithTheLetterT) {
    EXPECT_EQ(escaped(set_screen() + "\ninfomask 00000001 00010000\n" +
                      set_screen({"1", "0", "0", "0", "0", "0", "1"}) + "\n"),
              set("t 1 10000\n9\n"));
    expect_masks(1, 0x10000);
}

TEST_F(StatusMenu, ReachesTheByteWithoutAnItemWithTheLetterT) {
    EXPECT_EQ(escaped(set_screen() + "\ninfomask ffffffff ab000000\n" +
                      set_screen({"ff", "ff", "ff", "ff", "0", "0", "0"}) + "\n"),
              set("t 0xFFFFFFFF AB000000\n9\n"));
    expect_masks(0xffffffff, 0xab000000);
}

TEST_F(StatusMenu, ChangesNothingForTheLetterTWithOtherThanTwoWords) {
    set_masks(2, 3);
    const std::string screen = set_screen({"2", "0", "0", "0", "3", "0", "0"});
    EXPECT_EQ(escaped(screen + "\n" + screen + "\n" + screen + "\n" + screen + "\n"),
              set("t\nt 1\nt 1 2 3\n9\n"));
    expect_masks(2, 3);
}

}  // namespace
