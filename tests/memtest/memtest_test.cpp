// MEMTEST: the command that does nothing, and the menu parts and the thread that stand ready.
#include "memtest/memtest.h"

#include "shell/app.h"
#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

const std::string MEMTEST_HELP = MENU_RULE +
                                 "\r\n   HELP/H/?     \t: Help [cmd]"
                                 "\r\n   EXIT/Q/QUIT  \t: Exit Memory Test" +
                                 MENU_RULE + "\r\n             Halvik/Corvane Inc," + MENU_RULE +
                                 "\r\n\r\n";

class MemTest : public RoomTest {};

TEST_F(MemTest, ReturnsAtOnceAndPrintsNothing) {
    EXPECT_EQ("", typed(app_test_mem, {"MEMTEST"}, "exit\n"));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", journal());
}

TEST_F(MemTest, GoesStraightBackToTheTopLevelPrompt) {
    tagMonitor menu = {app_prompt, app_help, app_cmds};
    EXPECT_EQ(escaped("QM7105>QM7105>"),
              escaped(run_console("memtest\nexit\n", [&] { monitor(&menu); })));
    EXPECT_EQ("", journal());
}

TEST_F(MemTest, PrintsItsHelpScreen) {
    EXPECT_EQ(escaped(MEMTEST_HELP), escaped(output_of(memtest_help)));
}

TEST_F(MemTest, PrintsItsPromptWithoutLineEnd) {
    EXPECT_EQ(escaped("MEMTEST>"), escaped(output_of(memtest_prompt)));
}

TEST_F(MemTest, OffersNoCommand) {
    expect_table(memtest_cmds, {});
}

TEST_F(MemTest, HasTheBuiltInWordsInItsMenu) {
    tagMonitor menu = {memtest_prompt, memtest_help, memtest_cmds};
    EXPECT_EQ(escaped("MEMTEST>MEMTEST>" + MEMTEST_HELP + "MEMTEST>"),
              escaped(run_console("main\nh\nq\n", [&] { monitor(&menu); })));
}

TEST_F(MemTest, HasAThreadThatEndsAtOnce) {
    CThreadMemTest thread;
    EXPECT_EQ("", output_of([&] { EXPECT_EQ(nullptr, thread.Work(nullptr)); }));
    EXPECT_EQ("", journal());
}

}  // namespace
