// The MAIN menu and the codec session around it: what is called, in which order, and nothing more.
// The commands of the menu are tested in files of their own.
#include "mainwork/mainwork.h"

#include "mainwork/encode.h"
#include "mainwork/private_zone.h"
#include "searchwork/searchwork.h"
#include "setupwork/setupwork.h"
#include "statuswork/statuswork.h"
#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

const std::string RELEASE_LINES =
    "Release ReleaseAVCodec - Begin\n"
    "Release ReleaseAVCodec - End\n"
    "Destroy QM AV Codec.\n";

const Lines INIT = {
    "InitAVCodec format=0 field=0 param=[,,,] qp=[parameter_files/qpt_table_00000.bin,"
    "parameter_files/qpt_table_00001.bin] fw=parameter_files/qm7105fw.bin"};

const Lines SETUP = {"GetVideoEncoder", "GetAudio"};  // with no channel enabled

class MainMenu : public RoomTest {
  protected:
    // The calls up to the codec types, and the codec types of the streams that every board carries.
    static Lines creation(const std::string& board, const std::string& mask) {
        return {"CreateQMAVCodec", "GetSystem", "SetBoardType " + board,
                "SetChipEnableMask " + mask, "GetVideoEncoder"};
    }

    static Lines codec_types() {
        Lines lines = each_channel({"SetCodecType 0 @ 0"});
        for (const char* pattern : {"SetCodecType 1 @ 1", "SetCodecType 2 @ 2"})
            for (const std::string& line : each_channel({pattern})) lines.push_back(line);
        return lines;
    }

    // The end of a session on a board without preview, with nothing running.
    static Lines idle_end() {
        Lines lines = {"GetVideoEncoder", "GetAudio", "GetVideoEncoder", "GetAudio"};
        for (const std::string& line :
             each_channel({"SetChannelEnable 2 @ 0", "SetChannelEnable 1 @ 0"}))
            lines.push_back(line);
        lines.push_back("ReleaseAVCodec");
        lines.push_back("DestroyQMAVCodec");
        return lines;
    }

    void expect_mask(const std::vector<std::string>& words, const std::string& mask) {
        EXPECT_EQ(escaped(MAIN_HELP + "MAIN>" + RELEASE_LINES),
                  typed(app_mainwork, words, "EXIT\n"));
        EXPECT_EQ(calls({creation("0 0", mask), codec_types(), INIT, SETUP, idle_end()}),
                  journal());
        EXPECT_EQ(mask, std::to_string(g_appenv.chip_mask));
    }
};

TEST_F(MainMenu, PrintsItsHelpScreen) {
    EXPECT_EQ(escaped(MAIN_HELP), escaped(output_of(mainwork_help)));
}

TEST_F(MainMenu, PrintsItsPromptWithoutLineEnd) {
    EXPECT_EQ(escaped("MAIN>"), escaped(output_of(mainwork_prompt)));
}

TEST_F(MainMenu, OffersItsCommandsInOrder) {
    expect_table(mainwork_cmds, {{"ENCODE", app_mainwork_encode},
                                 {"SEARCH", app_searchwork},
                                 {"SETUP", app_setupwork},
                                 {"STATUS", app_statuswork},
                                 {"PRIVATE", app_private_zone}});
}

TEST_F(MainMenu, OpensASessionWithAllChipsAndClosesItAgain) {
    EXPECT_EQ(escaped(MAIN_HELP + "MAIN>" + RELEASE_LINES), typed(app_mainwork, {"MAIN"}, "Q\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({creation("0 0", "15"), codec_types(), INIT, SETUP, idle_end()}), journal());
    EXPECT_EQ(nullptr, g_appenv.codec);
    EXPECT_EQ(15u, g_appenv.chip_mask);
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(MainMenu, HandsTheEnvironmentToTheCodec) {
    g_appenv.board_type = 3;
    g_appenv.sub_ev_type = 8;
    g_appenv.video_format = 1;
    g_appenv.field_type = 2;
    const char* const files[] = {"p0", "p1", "p2", "p3"};
    for (int i = 0; i < 4; ++i) g_appenv.parameter_file_name[i] = files[i];
    g_appenv.qp_table[0] = "low.bin";
    g_appenv.qp_table[1] = "high.bin";
    g_appenv.firmware = "fw.bin";
    typed(app_mainwork, {"MAIN"}, "EXIT\n");
    EXPECT_EQ(calls({creation("3 8", "15"),
                     codec_types(),
                     {"InitAVCodec format=1 field=2 param=[p0,p1,p2,p3] qp=[low.bin,high.bin] "
                      "fw=fw.bin"},
                     SETUP,
                     idle_end()}),
              journal());
}

TEST_F(MainMenu, TellsTheCodecTypeOfEveryChannelOfAnAvailableStreamOnly) {
    g_appenv.board_type = 2;
    g_appenv.venc[3][4].codectype = 9;
    g_appenv.venc[4][0].codectype = 9;  // not carried by this board
    typed(app_mainwork, {"MAIN"}, "EXIT\n");
    Lines preview = each_channel({"SetCodecType 3 @ 0"});
    preview[4] = "SetCodecType 3 4 9";
    EXPECT_EQ(calls({creation("2 0", "15"),
                     codec_types(),
                     preview,
                     INIT,
                     SETUP,
                     {"GetVideoEncoder", "GetAudio", "GetVideoEncoder", "GetAudio"},
                     each_channel({"SetChannelEnable 3 @ 0", "SetChannelEnable 2 @ 0",
                                   "SetChannelEnable 1 @ 0"}),
                     {"ReleaseAVCodec", "DestroyQMAVCodec"}}),
              journal());
}

TEST_F(MainMenu, TellsTheCodecTypesOfAllSixStreamsOnTheLargestBoard) {
    g_appenv.board_type = 6;
    for (auto& unit : g_appenv.venc[5]) unit.codectype = 5;
    typed(app_mainwork, {"MAIN"}, "EXIT\n");
    EXPECT_EQ(calls({creation("6 0", "15"),
                     codec_types(),
                     each_channel({"SetCodecType 3 @ 0"}),
                     each_channel({"SetCodecType 4 @ 0"}),
                     each_channel({"SetCodecType 5 @ 5"}),
                     INIT,
                     SETUP,
                     {"GetVideoEncoder", "GetAudio", "GetVideoEncoder", "GetAudio"},
                     each_channel({"SetChannelEnable 3 @ 0", "SetChannelEnable 2 @ 0",
                                   "SetChannelEnable 5 @ 0", "SetChannelEnable 4 @ 0",
                                   "SetChannelEnable 1 @ 0"}),
                     {"ReleaseAVCodec", "DestroyQMAVCodec"}}),
              journal());
}

TEST_F(MainMenu, TakesTheChipMaskFromItsOnlyArgument) {
    expect_mask({"MAIN", "3"}, "3");
    expect_mask({"MAIN", "0XC"}, "12");
    expect_mask({"MAIN", "0xd"}, "13");
}

TEST_F(MainMenu, KeepsTheLowFourBitsOfTheChipMask) {
    expect_mask({"MAIN", "1f"}, "15");
}

TEST_F(MainMenu, UsesAllChipsWhenThereAreSeveralArguments) {
    expect_mask({"MAIN", "3", "1"}, "15");
}

TEST_F(MainMenu, ReadsAMaskThatHoldsASingleSpellingWhole) {
    expect_mask({"MAIN", "120X5"}, "0");  // 120, then a stop
    expect_mask({"MAIN", "120x5"}, "0");
}

TEST_F(MainMenu, SkipsThePrefixOfAMaskThatHoldsBothSpellings) {
    expect_mask({"MAIN", "0X0x5"}, "5");
    expect_mask({"MAIN", "0x0X6"}, "6");
    expect_mask({"MAIN", "920X0x7"}, "0");  // its third character on: 0X0, then a stop
}

TEST_F(MainMenu, PassesAMaskOfZeroOn) {
    expect_mask({"MAIN", "0"}, "0");
    expect_mask({"MAIN", "ZZ"}, "0");
}

TEST_F(MainMenu, ReportsAFailedCreationAndDestroysNothing) {
    fake().create_result = -3;
    EXPECT_EQ(escaped("AV Codec Create Fail.(Main a)\n"), typed(app_mainwork, {"MAIN", "A"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"CreateQMAVCodec"}}), journal());
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(MainMenu, LeavesNoCodecBehindARejectedMaskAndStartsAfreshLater) {
    fake().mask_result = 1;
    EXPECT_EQ(escaped("Chip Enable Mask Fail.(7)\n"), typed(app_mainwork, {"MAIN", "7"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"CreateQMAVCodec", "GetSystem", "SetBoardType 0 0", "SetChipEnableMask 7",
                      "DestroyQMAVCodec"}}),
              journal());
    EXPECT_EQ(nullptr, g_appenv.codec);
    EXPECT_EQ(0, fake().objects_alive);

    fake().mask_result = 0;
    expect_mask({"MAIN"}, "15");
}

TEST_F(MainMenu, DestroysTheCodecUnreleasedAfterAFailedInitialisation) {
    fake().init_result = 1;
    EXPECT_EQ(escaped("AV Codec Init Fail.\n"
                      "Destroy QM AV Codec.\n"),
              typed(app_mainwork, {"MAIN"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({creation("0 0", "15"), codec_types(), INIT, {"DestroyQMAVCodec"}}), journal());
    EXPECT_EQ(nullptr, g_appenv.codec);
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(MainMenu, ClearsTheRecordingGroupsOnlyAfterASuccessfulInitialisation) {
    iqm_db* left_over = nullptr;
    qm_db_create(DB_TYPE_MEMORY, &left_over);
    g_appenv.jpeg_db = left_over;

    fake().init_result = 1;
    typed(app_mainwork, {"MAIN"});
    EXPECT_EQ(left_over, g_appenv.jpeg_db);

    fake().init_result = 0;
    typed(app_mainwork, {"MAIN"});
    EXPECT_EQ(nullptr, g_appenv.jpeg_db);
    qm_db_destroy(&left_over);
}

TEST_F(MainMenu, KeepsAPromptForEveryLineUntilItIsLeft) {
    EXPECT_EQ(escaped(MAIN_HELP + "MAIN>MAIN>MAIN>" + MAIN_HELP + "MAIN>" + RELEASE_LINES),
              typed(app_mainwork, {"MAIN"}, "\nnonsense\nhelp\nquit\n"));
}

TEST_F(MainMenu, IsLeftAtTheEndOfInput) {
    EXPECT_EQ(escaped(MAIN_HELP + "MAIN>" + RELEASE_LINES), typed(app_mainwork, {"MAIN"}));
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(MainMenu, RunsALineThatTheEndOfInputCutsShort) {
    EXPECT_EQ(escaped(MAIN_HELP + "MAIN>[Err] Parameter!\nMAIN>" + RELEASE_LINES),
              typed(app_mainwork, {"MAIN"}, "encode 9"));
}

TEST_F(MainMenu, LeavesEveryOpenMenuAtTheEndOfInput) {
    EXPECT_EQ(escaped(MAIN_HELP + "MAIN>Decode DB Stream : 0, Type : 2\n" + SEARCH_HELP +
                      "SEARCH>" + STATUS_HELP + "STATUS>" + set_screen() + "\n" + MAIN_STREAM_MENU +
                      "\n" + set_screen() + "\nSTATUS>SEARCH>MAIN>" + RELEASE_LINES),
              typed(app_mainwork, {"MAIN"}, "search\nstatus\nset\n1\n"));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({creation("0 0", "15"),
                     codec_types(),
                     INIT,
                     SETUP,
                     {"new decode", "CreateThread decode codec 0", "SetPBChannelEnableMask ffff f",
                      "DestroyThread decode", "delete decode"},
                     idle_end()}),
              journal());
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(MainMenu, StopsStatusThenMainThenOtherStreamsBeforeItReleasesTheCodec) {
    g_appenv.venc[0][3].enable = 1;
    g_appenv.audio_enable[5] = 1;
    EXPECT_EQ(escaped(MAIN_HELP +
                      "MAIN>Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"
                      "MAIN>Encode DB Stream(Dual) : dual_stream/qmdatabase.ini, Type : 2\n"
                      "Encode DB Stream(Jpeg) : jpeg_stream/qmdatabase.ini, Type : 2\n"
                      "MAIN>" +
                      STATUS_HELP + "STATUS>STATUS>MAIN>" + RELEASE_LINES),
              typed(app_mainwork, {"MAIN"}, "encode 0\nencode 2\nstatus\nrun\nexit\nexit\n"));
    EXPECT_EQ(
        calls(
            {creation("0 0", "15"),
             codec_types(),
             INIT,
             SETUP,
             {"SetChannelEnable 0 3 0", "SetResolution 0 3 3", "SetFrameRate 0 3 7",
              "SetIDRInterval 0 3 7", "SetBitrateType 0 3 0", "SetBitrate 0 3 0", "SetQP 0 3 27"},
             {"GetVideoEncoder", "GetAudio", "new encode", "qm_db_create 2",
              "Open qmdatabase/qmdatabase.ini 1 512 1920", "CreateThread encode codec 0",
              "SetChannelEnable 0 3 1", "SetAudioChannelEnable 5 1"},
             {"GetVideoEncoder", "GetAudio", "new encode_net", "qm_db_create 2",
              "Open dual_stream/qmdatabase.ini 1 128 960"},
             each_channel({"SetStreamEnable 1"}),
             {"CreateThread encode_net codec 0", "new encode_jpeg", "qm_db_create 2",
              "Open jpeg_stream/qmdatabase.ini 1 128 960", "CreateThread encode_jpeg codec 0"},
             {"CreateThread thread null 0"},
             {"DestroyThread thread"},
             {"GetVideoEncoder", "GetAudio", "SetChannelEnable 0 3 0", "SetAudioChannelEnable 5 0",
              "DestroyThread encode", "delete encode", "Close", "qm_db_destroy"},
             {"GetVideoEncoder", "GetAudio"},
             each_channel({"SetChannelEnable 2 @ 0", "SetChannelEnable 1 @ 0"}),
             {"DestroyThread encode_jpeg", "delete encode_jpeg", "DestroyThread encode_net",
              "delete encode_net", "Close", "qm_db_destroy"},
             {"ReleaseAVCodec", "DestroyQMAVCodec"}}),
        journal());
    EXPECT_EQ(nullptr, g_appenv.codec);
    EXPECT_EQ(nullptr, _l_st_stat.thread);
}

TEST_F(MainMenu, OffersItsSessionToTheMenusBelow) {
    EXPECT_EQ(
        escaped(MAIN_HELP + "MAIN>" + SETUP_HELP + "SETUP>MAIN>" + STATUS_HELP +
                "STATUS>MAIN>app_private_zone() : 1, 1, (2,3) (4,5)\nMAIN>" + RELEASE_LINES),
        typed(app_mainwork, {"MAIN"}, "setup\nexit\nstatus\nexit\nprivate 1 1 2 3 4 5\nexit\n"));
    EXPECT_EQ(calls({creation("0 0", "15"),
                     codec_types(),
                     INIT,
                     SETUP,
                     {"GetVideoEncoder", "SetPrivateZone 0 1 1 0 2 3 4 5"},
                     idle_end()}),
              journal());
}

class MainSetup : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
        // Channel s of stream s, so that each pass shows itself; its values differ by stream.
        for (uint8_t s = 0; s < QMCODEC_STREAMS; ++s) {
            tagVEncChannelUnit& unit = g_appenv.venc[s][s];
            unit.enable = 1;
            unit.res = s;
            unit.framerate = 10u + s;
            unit.idr = 20u + s;
            unit.bitratetype = s == 1 || s == 5 ? 2 : 0;
            unit.bitrate = 1000u + s;
            unit.qp = static_cast<uint8_t>(30 + s);
        }
        // What lies behind the last row of the record is no setup of a seventh stream.
        for (auto& enable : g_appenv.audio_enable) enable = 1;
    }

    static void setup_board(uint32_t board_type) {
        g_appenv.board_type = board_type;
        EXPECT_EQ("", output_of(mainwork_setup));
    }

    // The passes of streams 0 to 3, which every board goes through.
    const Lines first_four = {
        "GetVideoEncoder",        "GetAudio",
        "SetChannelEnable 0 0 0", "SetResolution 0 0 0",
        "SetFrameRate 0 0 10",    "SetIDRInterval 0 0 20",
        "SetBitrateType 0 0 0",   "SetBitrate 0 0 0",
        "SetQP 0 0 30",           "SetChannelEnable 1 1 0",
        "SetResolution 1 1 1",    "SetFrameRate 1 1 11",
        "SetIDRInterval 1 1 21",  "SetBitrateType 1 1 2",
        "SetBitrate 1 1 1001",    "SetQP 1 1 31",
        "SetChannelEnable 2 2 0", "SetResolution 2 2 2",
        "SetFrameRate 2 2 12",    "SetChannelEnable 3 3 0",
        "SetResolution 3 3 3",    "SetFrameRate 3 3 13",
    };
    const Lines third = {
        "SetChannelEnable 4 4 0", "SetResolution 4 4 4",  "SetFrameRate 4 4 14",
        "SetIDRInterval 4 4 24",  "SetBitrateType 4 4 0", "SetBitrate 4 4 0",
        "SetQP 4 4 34",
    };
    const Lines fourth = {
        "SetChannelEnable 5 5 0", "SetResolution 5 5 5",  "SetFrameRate 5 5 15",
        "SetIDRInterval 5 5 25",  "SetBitrateType 5 5 2", "SetBitrate 5 5 1005",
        "SetQP 5 5 35",
    };
};

TEST_F(MainSetup, GoesThroughThePreviewOnABoardWithoutOne) {
    setup_board(0);
    EXPECT_EQ(calls({first_four}), journal());
}

TEST_F(MainSetup, GoesThroughTheThirdStreamOnABoardThatEndsWithThePreview) {
    setup_board(2);
    EXPECT_EQ(calls({first_four, third}), journal());
}

TEST_F(MainSetup, GoesThroughAllSixStreamsAndNothingBehindThem) {
    setup_board(6);
    EXPECT_EQ(calls({first_four, third, fourth}), journal());
}

TEST_F(MainSetup, CallsNothingForADisabledChannel) {
    for (int s = 0; s < QMCODEC_STREAMS; ++s) g_appenv.venc[s][s].enable = 0;
    setup_board(6);
    EXPECT_EQ(calls({{"GetVideoEncoder", "GetAudio"}}), journal());
}

TEST_F(MainSetup, SwitchesAChannelOffWhateverItsEnableByteSays) {
    for (int s = 0; s < QMCODEC_STREAMS; ++s) g_appenv.venc[s][s].enable = 0;
    g_appenv.venc[2][15].enable = 7;
    setup_board(0);
    EXPECT_EQ(calls({{"GetVideoEncoder", "GetAudio", "SetChannelEnable 2 15 0",
                      "SetResolution 2 15 3", "SetFrameRate 2 15 2"}}),
              journal());
}

TEST_F(MainSetup, SetsUpTheChannelsOfAStreamInOrder) {
    for (int s = 0; s < QMCODEC_STREAMS; ++s) g_appenv.venc[s][s].enable = 0;
    for (auto& unit : g_appenv.venc[3]) unit.enable = 1;
    g_appenv.venc[3][3].res = 1;
    g_appenv.venc[3][3].framerate = 0;
    setup_board(0);
    EXPECT_EQ(calls({{"GetVideoEncoder", "GetAudio"},
                     each_channel(
                         {"SetChannelEnable 3 @ 0", "SetResolution 3 @ 1", "SetFrameRate 3 @ 0"})}),
              journal());
}

TEST_F(MainSetup, DoesNothingWithoutACodec) {
    QMAVCodec* codec = std::exchange(g_appenv.codec, nullptr);
    setup_board(6);
    EXPECT_EQ("", journal());
    g_appenv.codec = codec;
}

}  // namespace
