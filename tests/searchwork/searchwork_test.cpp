// The SEARCH menu: who may enter it, what entering and leaving it calls, and nothing more.
#include "searchwork/searchwork.h"

#include <chrono>
#include <thread>

#include "mainwork/encode.h"
#include "mainwork/private_zone.h"
#include "searchwork/playback.h"
#include "setupwork/setupwork.h"
#include "statuswork/statuswork.h"
#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

// Around a whole visit with a database of the main stream on disk.
const Lines ENTER_ON_DISK = {"new decode",
                             "qm_db_create 0",
                             "Open qmdatabase/qmdatabase.ini 0 512 1920",
                             "PostOpen 0",
                             "CreateThread decode codec 0",
                             "SetPBChannelEnableMask ffff f"};
const Lines LEAVE_ON_DISK = {"DestroyThread decode", "delete decode", "Close", "qm_db_destroy"};

class SearchMenu : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
    }

    std::string search(const std::string& input = "") {
        return typed(app_searchwork, {"SEARCH"}, input);
    }

    void expect_nothing_left() {
        EXPECT_EQ(nullptr, _l_stDec.thread.load());
        EXPECT_EQ(1, fake().objects_alive);  // the codec
    }
};

TEST_F(SearchMenu, PrintsItsHelpScreen) {
    EXPECT_EQ(escaped(SEARCH_HELP), escaped(output_of(searchwork_help)));
}

TEST_F(SearchMenu, PrintsItsPromptWithoutLineEnd) {
    EXPECT_EQ(escaped("SEARCH>"), escaped(output_of(searchwork_prompt)));
}

TEST_F(SearchMenu, OffersItsCommandsInOrder) {
    expect_table(searchwork_cmds, {{"SETUP", app_setupwork},
                                   {"STATUS", app_statuswork},
                                   {"PRIVATE", app_private_zone},
                                   {"SETDB", searchwork_set_db},
                                   {"INIT", searchwork_init},
                                   {"RELEASE", searchwork_release},
                                   {"PB", searchwork_pb}});
}

TEST_F(SearchMenu, IsRefusedWithoutACodec) {
    QMAVCodec* codec = std::exchange(g_appenv.codec, nullptr);
    EXPECT_EQ(escaped("[Err] AV Codec is not created!!!\n"), search());
    EXPECT_EQ(-1, result);
    EXPECT_EQ("", journal());
    g_appenv.codec = codec;
}

TEST_F(SearchMenu, IsRefusedOnBoardsWithoutADecoder) {
    for (uint32_t board : {2u, 6u, 7u}) {
        g_appenv.board_type = board;
        EXPECT_EQ(escaped("[Err] Board type [" + std::to_string(board) +
                          "] can't support search mode.\n"),
                  search());
        EXPECT_EQ(-1, result);
        EXPECT_EQ("", journal());
    }
}

TEST_F(SearchMenu, IsOpenOnEveryOtherBoard) {
    for (uint32_t board : {0u, 1u, 3u, 4u, 5u, 8u, 4294967295u}) {
        g_appenv.board_type = board;
        EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP + "SEARCH>"),
                  search("EXIT\n"))
            << board;
        EXPECT_EQ(0, result) << board;
    }
}

TEST_F(SearchMenu, SharesTheRecordersDatabaseInMemory) {
    output_of([] { app_encode_command(ENCODE_RUN_MAIN); });
    fake().take_journal();
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP + "SEARCH>"), search("q\n"));
    EXPECT_EQ(calls({{"new decode", "CreateThread decode codec 0", "SetPBChannelEnableMask ffff f",
                      "DestroyThread decode", "delete decode"}}),
              journal());
    EXPECT_EQ(g_appenv.main_db, _l_stDec.db);
    EXPECT_EQ(nullptr, _l_stDec.thread.load());
    EXPECT_EQ(3, fake().objects_alive);  // the codec, the encode thread and its database
}

TEST_F(SearchMenu, OpensAndClosesADatabaseOfItsOwnOnDisk) {
    g_appenv.main_database_type = 0;
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>"),
              search("EXIT\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({ENTER_ON_DISK, LEAVE_ON_DISK}), journal());
    EXPECT_EQ("qmdatabase/qmdatabase.ini", _l_stDec.path);
    expect_nothing_left();
}

TEST_F(SearchMenu, LeavesTheRecordersDatabaseAloneOnDisk) {
    g_appenv.main_database_type = 0;
    output_of([] { app_encode_command(ENCODE_RUN_MAIN); });
    fake().take_journal();
    iqm_db* const recorded = g_appenv.main_db;
    search("EXIT\n");
    EXPECT_EQ(calls({ENTER_ON_DISK, LEAVE_ON_DISK}), journal());
    EXPECT_EQ(recorded, g_appenv.main_db);
    EXPECT_EQ(3, fake().objects_alive);  // the codec, the encode thread and its database
}

TEST_F(SearchMenu, OpensTheDualDatabaseWhenTheEnvironmentSaysSo) {
    g_appenv.decode_db_type = 1;
    g_appenv.dual_database_type = 1;
    g_appenv.chip_mask = 3;
    EXPECT_EQ(escaped("Decode DB Stream : 1, Type : 1\n" + SEARCH_HELP + "SEARCH>"),
              search("EXIT\n"));
    EXPECT_EQ(calls({{"new decode", "qm_db_create 1", "Open dual_stream/qmdatabase.ini 0 512 1920",
                      "PostOpen 0", "CreateThread decode codec 0", "SetPBChannelEnableMask ffff 3"},
                     LEAVE_ON_DISK}),
              journal());
    expect_nothing_left();
}

TEST_F(SearchMenu, NamesStreamZeroWhenTheFirstDatabaseCannotBeSearched) {
    for (uint32_t type : {2u, 3u}) {
        g_appenv.decode_db_type = type;
        EXPECT_EQ(escaped("##### Decode DB Type Error.\n"
                          "Decode DB Stream : 0, Type : 0\n"),
                  search())
            << type;
        EXPECT_EQ(0, result);
        EXPECT_EQ(calls({{"new decode", "delete decode"}}), journal());
        expect_nothing_left();
    }
}

TEST_F(SearchMenu, NamesTheStreamOfTheLastSearchWhenALaterOneCannotBeSearched) {
    g_appenv.decode_db_type = 1;
    g_appenv.dual_database_type = 1;
    search("EXIT\n");
    fake().take_journal();
    g_appenv.decode_db_type = 2;
    EXPECT_EQ(escaped("##### Decode DB Type Error.\n"
                      "Decode DB Stream : 1, Type : 1\n"),
              search());
    EXPECT_EQ(calls({{"new decode", "delete decode"}}), journal());
    expect_nothing_left();
}

TEST_F(SearchMenu, DestroysTheDatabaseThatFailedToOpenAndEntersNoMenu) {
    g_appenv.main_database_type = 0;
    fake().open_results = {0};
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n"), search("EXIT\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"new decode", "qm_db_create 0", "Open qmdatabase/qmdatabase.ini 0 512 1920",
                      "PostOpen 0", "delete decode", "Close", "qm_db_destroy"}}),
              journal());
    expect_nothing_left();
}

TEST_F(SearchMenu, DeletesThePlaybackThreadAfterTheLastReportOnIt) {
    qm_thread_decode placeholder;  // the record is empty again only when the menu is left
    _l_stDec.thread = &placeholder;
    std::atomic<bool> begun{false};
    std::thread report([&] {
        PlaybackReader reader;
        begun = true;
        while (_l_stDec.thread) std::this_thread::yield();
        // Time for a menu that does not wait.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(3, fake().objects_alive);  // the codec, the placeholder, the playback thread
    });
    while (!begun) std::this_thread::yield();
    search("EXIT\n");
    report.join();
    EXPECT_EQ(2, fake().objects_alive);
}

TEST_F(SearchMenu, CanBeEnteredAgain) {
    g_appenv.main_database_type = 0;
    search("EXIT\n");
    fake().take_journal();
    search("EXIT\n");
    EXPECT_EQ(calls({ENTER_ON_DISK, LEAVE_ON_DISK}), journal());
    expect_nothing_left();
}

TEST_F(SearchMenu, DoesNothingForInitAndRelease) {
    EXPECT_EQ("", typed(searchwork_init, {"INIT"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", typed(searchwork_release, {"RELEASE"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP + "SEARCH>SEARCH>SEARCH>"),
              search("init\nrelease 1\nexit\n"));
    EXPECT_EQ(calls({{"new decode", "CreateThread decode codec 0", "SetPBChannelEnableMask ffff f",
                      "DestroyThread decode", "delete decode"}}),
              journal());
}

TEST_F(SearchMenu, PassesPlaybackCommandsOn) {
    g_appenv.main_database_type = 0;
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP +
                      "SEARCH>SEARCH>SEARCH>SEARCH>[PB] Err! Parameter.\nSEARCH>"),
              search("pb 4\npb speed up\npb setchmask 0x00ff\npb speed left\nexit\n"));
    EXPECT_EQ(calls({ENTER_ON_DISK,
                     {"SetPBState 4", "SpeedControl 1 1", "SetPBChannelEnableMask ff f"},
                     LEAVE_ON_DISK}),
              journal());
}

TEST_F(SearchMenu, OffersSetupStatusAndPrivateAgain) {
    g_appenv.main_database_type = 0;
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>" + SETUP_HELP +
                      "SETUP>SEARCH>" + STATUS_HELP +
                      "STATUS>SEARCH>app_private_zone() : 2, 1, (0,0) (8,8)\nSEARCH>"),
              search("setup\nq\nstatus\nq\nprivate 2 1 0 0 8 8\nq\n"));
    EXPECT_EQ(
        calls(
            {ENTER_ON_DISK, {"GetVideoEncoder", "SetPrivateZone 0 2 1 0 0 0 8 8"}, LEAVE_ON_DISK}),
        journal());
}

TEST_F(SearchMenu, IsLeftAtTheEndOfInput) {
    g_appenv.main_database_type = 0;
    EXPECT_EQ(escaped("Decode DB Stream : 0, Type : 0\n" + SEARCH_HELP + "SEARCH>"), search());
    EXPECT_EQ(calls({ENTER_ON_DISK, LEAVE_ON_DISK}), journal());
    expect_nothing_left();
}

}  // namespace
