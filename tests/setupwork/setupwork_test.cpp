// The SETUP menu: who may enter it and which commands it knows.
#include "setupwork/setupwork.h"

#include "env/env_commands.h"
#include "mainwork/mainwork.h"
#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

class SetupMenu : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
    }
};

TEST_F(SetupMenu, PrintsItsHelpScreenWithoutTheDatabaseCommand) {
    EXPECT_EQ(escaped(SETUP_HELP), escaped(output_of(setupwork_help)));
}

TEST_F(SetupMenu, PrintsItsPromptWithoutLineEnd) {
    EXPECT_EQ(escaped("SETUP>"), escaped(output_of(setupwork_prompt)));
}

TEST_F(SetupMenu, OffersTheEnvironmentCommandsInOrder) {
    expect_table(setupwork_cmds, {{"ENVPRINT", app_env_printenv},
                                  {"ENVCHANGE", app_env_change},
                                  {"ENVSETDB", app_env_change_dbpath}});
}

TEST_F(SetupMenu, IsRefusedWithoutACodec) {
    QMAVCodec* codec = std::exchange(g_appenv.codec, nullptr);
    EXPECT_EQ(escaped("[Err] AV Codec is not created!!!\n"),
              typed(app_setupwork, {"SETUP"}, "exit\n"));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", journal());
    g_appenv.codec = codec;
}

TEST_F(SetupMenu, StaysAtTheMainPromptWhenItIsRefused) {
    QMAVCodec* codec = std::exchange(g_appenv.codec, nullptr);
    tagMonitor menu = {mainwork_prompt, mainwork_help, mainwork_cmds};
    EXPECT_EQ(escaped("MAIN>[Err] AV Codec is not created!!!\nMAIN>"),
              escaped(run_console("setup\nexit\n", [&] { monitor(&menu); })));
    g_appenv.codec = codec;
}

TEST_F(SetupMenu, ShowsItsHelpOnceAndRunsUntilItIsLeft) {
    EXPECT_EQ(escaped(SETUP_HELP + "SETUP>SETUP>" + SETUP_HELP + "SETUP>"),
              typed(app_setupwork, {"SETUP", "ignored"}, "\n?\nquit\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
}

TEST_F(SetupMenu, IsLeftAtTheEndOfInput) {
    EXPECT_EQ(escaped(SETUP_HELP + "SETUP>"), typed(app_setupwork, {"SETUP"}));
    EXPECT_EQ(0, result);
    EXPECT_NE(nullptr, g_appenv.codec);
}

TEST_F(SetupMenu, SetsADatabasePathAlthoughItsHelpOmitsIt) {
    EXPECT_EQ(escaped(SETUP_HELP + "SETUP>SETUP>"),
              typed(app_setupwork, {"SETUP"}, "envsetdb 1 /mnt/dual.ini\nexit\n"));
    EXPECT_EQ("/MNT/DUAL.INI", g_appenv.dual_stream_db);
}

TEST_F(SetupMenu, PassesAChangedSettingToTheCodec) {
    EXPECT_EQ(escaped(SETUP_HELP + "SETUP>SETUP>"),
              typed(app_setupwork, {"SETUP"}, "envchange -ve 0 3 8 40\nexit\n"));
    EXPECT_EQ(calls({{"GetVideoEncoder", "SetQP 0 3 40"}}), journal());
    EXPECT_EQ(40, g_appenv.venc[0][3].qp);
}

TEST_F(SetupMenu, IgnoresTheCommandsOfOtherMenus) {
    EXPECT_EQ(escaped(SETUP_HELP + "SETUP>SETUP>SETUP>SETUP>SETUP>SETUP>"),
              typed(app_setupwork, {"SETUP"}, "main\nencode 0\nsearch\nstatus\nsetup\nexit\n"));
    EXPECT_EQ("", journal());
}

}  // namespace
