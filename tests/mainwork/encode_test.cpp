// ENCODE: the calls of each code in order, the refusals, and databases that fail to open.
#include "mainwork/encode.h"

#include "tests/support/room_test.h"
#include "tests/support/screens.h"

namespace {

const char DUAL_AND_JPEG[] =
    "Encode DB Stream(Dual) : dual_stream/qmdatabase.ini, Type : 2\n"
    "Encode DB Stream(Jpeg) : jpeg_stream/qmdatabase.ini, Type : 2\n";

const Lines BEGIN = {"GetVideoEncoder", "GetAudio"};  // of every code

const Lines OPEN_DUAL = {"new encode_net", "qm_db_create 2",
                         "Open dual_stream/qmdatabase.ini 1 128 960"};
const Lines OPEN_JPEG = {"new encode_jpeg", "qm_db_create 2",
                         "Open jpeg_stream/qmdatabase.ini 1 128 960"};

class Encode : public RoomTest {
  protected:
    void SetUp() override {
        RoomTest::SetUp();
        open_codec();
    }

    std::string encode(const std::string& code) {
        const std::string text = typed(app_mainwork_encode, {"ENCODE", code});
        EXPECT_EQ(0, result);
        return text;
    }

    void start_all() {
        encode("0");
        encode("2");
        fake().take_journal();
    }

    static Lines stop_others_of_board_0() {
        Lines lines = BEGIN;
        for (const std::string& line :
             each_channel({"SetChannelEnable 2 @ 0", "SetChannelEnable 1 @ 0"}))
            lines.push_back(line);
        return lines;
    }
};

TEST_F(Encode, PrintsItsHelpBoxWithoutACode) {
    EXPECT_EQ(escaped(ENCODE_HELP), typed(app_mainwork_encode, {"ENCODE"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
}

TEST_F(Encode, RefusesCodesOutOfRange) {
    for (const char* code : {"4", "7", "-1", "2147483647"}) {
        EXPECT_EQ(escaped("[Err] Parameter!\n"), encode(code)) << code;
        EXPECT_EQ(calls({BEGIN}), journal()) << code;
    }
    EXPECT_EQ(nullptr, g_appenv.main_encode_thread);
}

TEST_F(Encode, StartsTheMainThreadBeforeItSwitchesChannelsOn) {
    g_appenv.venc[0][0].enable = 1;
    g_appenv.venc[0][7].enable = 2;  // the byte goes to the codec as it is
    g_appenv.audio_enable[7] = 3;
    g_appenv.audio_enable[15] = 1;
    g_appenv.venc[1][2].enable = 1;  // of another group
    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"), encode("0"));
    EXPECT_EQ(
        calls({BEGIN,
               {"new encode", "qm_db_create 2", "Open qmdatabase/qmdatabase.ini 1 512 1920",
                "CreateThread encode codec 0", "SetChannelEnable 0 0 1", "SetChannelEnable 0 7 2",
                "SetAudioChannelEnable 7 3", "SetAudioChannelEnable 15 1"}}),
        journal());
    ASSERT_NE(nullptr, g_appenv.main_encode_thread);
    EXPECT_NE(nullptr, g_appenv.main_db);
    EXPECT_EQ(g_appenv.main_db, g_appenv.main_encode_thread->db);
    EXPECT_EQ("qmdatabase/qmdatabase.ini", g_appenv.main_open_path);
    EXPECT_EQ(nullptr, g_appenv.net_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.jpeg_encode_thread);
}

TEST_F(Encode, OpensTheDatabasesThatTheEnvironmentNames) {
    g_appenv.main_stream_db = "m.ini";
    g_appenv.dual_stream_db = "d.ini";
    g_appenv.jpeg_stream_db = "j.ini";
    g_appenv.main_database_type = 0;
    g_appenv.dual_database_type = 1;
    g_appenv.jpeg_database_type = 7;
    EXPECT_EQ(escaped("Encode DB Stream : m.ini, Type : 0\n"), encode("0"));
    EXPECT_EQ(calls({BEGIN,
                     {"new encode", "qm_db_create 0", "Open m.ini 1 512 1920",
                      "CreateThread encode codec 0"}}),
              journal());
    EXPECT_EQ(escaped("Encode DB Stream(Dual) : d.ini, Type : 1\n"
                      "Encode DB Stream(Jpeg) : j.ini, Type : 7\n"),
              encode("2"));
    EXPECT_EQ(calls({BEGIN,
                     {"new encode_net", "qm_db_create 1", "Open d.ini 1 128 960"},
                     each_channel({"SetStreamEnable 1"}),
                     {"CreateThread encode_net codec 0", "new encode_jpeg", "qm_db_create 7",
                      "Open j.ini 1 128 960", "CreateThread encode_jpeg codec 0"}}),
              journal());
    EXPECT_EQ("m.ini", g_appenv.main_open_path);
    EXPECT_EQ("d.ini", g_appenv.dual_open_path);
    EXPECT_EQ("j.ini", g_appenv.jpeg_open_path);
}

TEST_F(Encode, IgnoresFurtherArguments) {
    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"),
              typed(app_mainwork_encode, {"ENCODE", "0", "3"}));
}

TEST_F(Encode, TakesAWordThatIsNoNumberForZero) {
    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"), encode("ON"));
    EXPECT_NE(nullptr, g_appenv.main_encode_thread);
}

TEST_F(Encode, RefusesASecondStartOfTheMainThread) {
    encode("0");
    fake().take_journal();
    qm_thread_encode* const thread = g_appenv.main_encode_thread;
    EXPECT_EQ(escaped("[Err] Stream0 thread is already running!\n"), encode("0"));
    EXPECT_EQ(calls({BEGIN}), journal());
    EXPECT_EQ(thread, g_appenv.main_encode_thread);
}

TEST_F(Encode, LeavesNothingOfAMainDatabaseThatFailsToOpen) {
    fake().open_results = {0};
    g_appenv.venc[0][0].enable = 1;
    g_appenv.audio_enable[0] = 1;
    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"), encode("0"));
    EXPECT_EQ(calls({BEGIN,
                     {"new encode", "qm_db_create 2", "Open qmdatabase/qmdatabase.ini 1 512 1920",
                      "delete encode", "qm_db_destroy"}}),
              journal());
    EXPECT_EQ(nullptr, g_appenv.main_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.main_db);
    EXPECT_EQ(1, fake().objects_alive);  // the codec

    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"), encode("0"));
    EXPECT_NE(nullptr, g_appenv.main_encode_thread);
}

TEST_F(Encode, SwitchesChannelsOffBeforeItStopsTheMainThread) {
    g_appenv.venc[0][2].enable = 1;
    g_appenv.venc[0][9].enable = 5;
    g_appenv.audio_enable[2] = 1;
    g_appenv.audio_enable[4] = 2;
    encode("0");
    fake().take_journal();
    EXPECT_EQ("", encode("1"));
    EXPECT_EQ(calls({BEGIN,
                     {"SetChannelEnable 0 2 0", "SetAudioChannelEnable 2 0",
                      "SetAudioChannelEnable 4 0", "SetChannelEnable 0 9 0", "DestroyThread encode",
                      "delete encode", "Close", "qm_db_destroy"}}),
              journal());
    EXPECT_EQ(nullptr, g_appenv.main_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.main_db);
    EXPECT_EQ(1, fake().objects_alive);  // the codec
}

TEST_F(Encode, StopsAMainThreadThatDoesNotRunInSilence) {
    EXPECT_EQ("", encode("1"));
    EXPECT_EQ(calls({BEGIN}), journal());
    g_appenv.venc[0][2].enable = 1;
    g_appenv.audio_enable[3] = 1;
    EXPECT_EQ("", encode("1"));
    EXPECT_EQ(calls({BEGIN, {"SetChannelEnable 0 2 0", "SetAudioChannelEnable 3 0"}}), journal());
}

TEST_F(Encode, SwitchesChannelsOnBeforeItStartsTheNetThread) {
    g_appenv.venc[1][0].enable = 1;
    g_appenv.venc[1][15].enable = 4;
    g_appenv.venc[2][3].enable = 6;
    g_appenv.venc[3][0].enable = 1;  // preview: not carried by this board
    g_appenv.audio_enable[0] = 1;    // of the main group
    EXPECT_EQ(escaped(DUAL_AND_JPEG), encode("2"));
    Lines streams = {"SetChannelEnable 1 0 1"};
    for (const std::string& line : each_channel({"SetStreamEnable 1"})) streams.push_back(line);
    streams.insert(streams.end() - 1, "SetChannelEnable 1 15 4");
    EXPECT_EQ(calls({BEGIN,
                     OPEN_DUAL,
                     streams,
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"CreateThread encode_jpeg codec 0", "SetChannelEnable 2 3 6"}}),
              journal());
    ASSERT_NE(nullptr, g_appenv.net_encode_thread);
    ASSERT_NE(nullptr, g_appenv.jpeg_encode_thread);
    EXPECT_EQ(g_appenv.dual_db, g_appenv.net_encode_thread->db);
    EXPECT_EQ(g_appenv.jpeg_db, g_appenv.jpeg_encode_thread->db);
    EXPECT_NE(g_appenv.dual_db, g_appenv.jpeg_db);
    EXPECT_EQ("dual_stream/qmdatabase.ini", g_appenv.dual_open_path);
    EXPECT_EQ("jpeg_stream/qmdatabase.ini", g_appenv.jpeg_open_path);
    EXPECT_EQ(nullptr, g_appenv.main_encode_thread);
}

TEST_F(Encode, EnablesTheAvailableOtherStreamsOnceAChannel) {
    g_appenv.board_type = 6;
    for (int s : {1, 3, 4, 5}) g_appenv.venc[s][0].enable = static_cast<uint8_t>(s);
    EXPECT_EQ(escaped(DUAL_AND_JPEG), encode("2"));
    Lines streams = {"SetChannelEnable 1 0 1", "SetStreamEnable 1",      "SetChannelEnable 4 0 4",
                     "SetStreamEnable 4",      "SetChannelEnable 5 0 5", "SetStreamEnable 5",
                     "SetChannelEnable 3 0 3", "SetStreamEnable 3"};
    for (int ch = 1; ch < 16; ++ch)
        for (const char* stream : {"1", "4", "5", "3"})
            streams.push_back(std::string("SetStreamEnable ") + stream);
    EXPECT_EQ(calls({BEGIN,
                     OPEN_DUAL,
                     streams,
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"CreateThread encode_jpeg codec 0"}}),
              journal());
}

TEST_F(Encode, AddsThePreviewOnABoardThatCarriesIt) {
    g_appenv.board_type = 2;
    encode("2");
    EXPECT_EQ(calls({BEGIN,
                     OPEN_DUAL,
                     each_channel({"SetStreamEnable 1", "SetStreamEnable 3"}),
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"CreateThread encode_jpeg codec 0"}}),
              journal());
}

TEST_F(Encode, StartsNeitherOtherThreadWhenTheDualDatabaseFailsToOpen) {
    fake().open_results = {0};
    g_appenv.venc[1][0].enable = 1;
    g_appenv.venc[2][0].enable = 1;
    EXPECT_EQ(escaped(DUAL_AND_JPEG), encode("2"));
    EXPECT_EQ(calls({BEGIN, OPEN_DUAL, {"delete encode_net", "qm_db_destroy"}}), journal());
    EXPECT_EQ(nullptr, g_appenv.net_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.jpeg_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.dual_db);
    EXPECT_EQ(nullptr, g_appenv.jpeg_db);
    EXPECT_EQ(1, fake().objects_alive);  // the codec
}

TEST_F(Encode, KeepsTheNetThreadWhenTheJpegDatabaseFailsToOpen) {
    fake().open_results = {1, 0};
    g_appenv.venc[2][0].enable = 1;
    EXPECT_EQ(escaped(DUAL_AND_JPEG), encode("2"));
    EXPECT_EQ(calls({BEGIN,
                     OPEN_DUAL,
                     each_channel({"SetStreamEnable 1"}),
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"delete encode_jpeg", "qm_db_destroy"}}),
              journal());
    EXPECT_NE(nullptr, g_appenv.net_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.jpeg_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.jpeg_db);

    EXPECT_EQ("", encode("3"));
    EXPECT_EQ(calls({stop_others_of_board_0(),
                     {"DestroyThread encode_net", "delete encode_net", "Close", "qm_db_destroy"}}),
              journal());
    EXPECT_EQ(1, fake().objects_alive);  // the codec
}

TEST_F(Encode, RefusesASecondStartOfTheOtherThreads) {
    encode("2");
    fake().take_journal();
    EXPECT_EQ(escaped("[Err] the thread for the other stream is already running!\n"), encode("2"));
    EXPECT_EQ(calls({BEGIN}), journal());
}

TEST_F(Encode, RefusesToStartTheOtherThreadsBesideALoneJpegThread) {
    g_appenv.jpeg_encode_thread = new qm_thread_encode_jpeg;
    fake().take_journal();
    EXPECT_EQ(escaped("[Err] the thread for the other stream is already running!\n"), encode("2"));
    EXPECT_EQ(calls({BEGIN}), journal());
    EXPECT_EQ(nullptr, g_appenv.net_encode_thread);
}

TEST_F(Encode, StopsTheJpegThreadThenTheNetThreadAndKeepsTheJpegDatabase) {
    encode("2");
    fake().take_journal();
    iqm_db* const jpeg_db = g_appenv.jpeg_db;
    EXPECT_EQ("", encode("3"));
    EXPECT_EQ(calls({stop_others_of_board_0(),
                     {"DestroyThread encode_jpeg", "delete encode_jpeg", "DestroyThread encode_net",
                      "delete encode_net", "Close", "qm_db_destroy"}}),
              journal());
    EXPECT_EQ(nullptr, g_appenv.net_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.jpeg_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.dual_db);
    EXPECT_EQ(jpeg_db, g_appenv.jpeg_db);
    EXPECT_EQ(2, fake().objects_alive);  // the codec and the JPEG database
}

TEST_F(Encode, CreatesANewJpegDatabaseOverTheOldOne) {
    encode("2");
    iqm_db* first = g_appenv.jpeg_db;
    encode("3");
    fake().take_journal();
    EXPECT_EQ(escaped(DUAL_AND_JPEG), encode("2"));
    EXPECT_EQ(calls({BEGIN,
                     OPEN_DUAL,
                     each_channel({"SetStreamEnable 1"}),
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"CreateThread encode_jpeg codec 0"}}),
              journal());
    EXPECT_NE(first, g_appenv.jpeg_db);
    qm_db_destroy(&first);
}

TEST_F(Encode, SwitchesEveryChannelOfAnAvailableOtherStreamOff) {
    g_appenv.board_type = 6;
    EXPECT_EQ("", encode("3"));
    EXPECT_EQ(calls({BEGIN, each_channel({"SetChannelEnable 3 @ 0", "SetChannelEnable 2 @ 0",
                                          "SetChannelEnable 5 @ 0", "SetChannelEnable 4 @ 0",
                                          "SetChannelEnable 1 @ 0"})}),
              journal());
    g_appenv.board_type = 2;
    encode("3");
    EXPECT_EQ(calls({BEGIN, each_channel({"SetChannelEnable 3 @ 0", "SetChannelEnable 2 @ 0",
                                          "SetChannelEnable 1 @ 0"})}),
              journal());
}

TEST_F(Encode, KeepsTheGroupsIndependent) {
    start_all();
    encode("1");
    EXPECT_EQ(nullptr, g_appenv.main_encode_thread);
    EXPECT_NE(nullptr, g_appenv.net_encode_thread);
    EXPECT_NE(nullptr, g_appenv.jpeg_encode_thread);
    EXPECT_EQ(escaped("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n"), encode("0"));
    encode("3");
    EXPECT_NE(nullptr, g_appenv.main_encode_thread);
    EXPECT_EQ(nullptr, g_appenv.net_encode_thread);
}

TEST_F(Encode, HoldsTheLockForTheWholeOfEveryCode) {
    fake().journal_locks = true;
    encode("0");
    EXPECT_EQ(calls({{"lock"},
                     BEGIN,
                     {"new encode", "qm_db_create 2", "Open qmdatabase/qmdatabase.ini 1 512 1920",
                      "CreateThread encode codec 0"},
                     {"unlock"}}),
              journal());
    encode("1");
    EXPECT_EQ(calls({{"lock"},
                     BEGIN,
                     {"DestroyThread encode", "delete encode", "Close", "qm_db_destroy"},
                     {"unlock"}}),
              journal());
    encode("2");
    EXPECT_EQ(calls({{"lock"},
                     BEGIN,
                     OPEN_DUAL,
                     each_channel({"SetStreamEnable 1"}),
                     {"CreateThread encode_net codec 0"},
                     OPEN_JPEG,
                     {"CreateThread encode_jpeg codec 0"},
                     {"unlock"}}),
              journal());
    encode("2");
    EXPECT_EQ(calls({{"lock"}, BEGIN, {"unlock"}}), journal());
    encode("3");
    EXPECT_EQ(calls({{"lock"},
                     stop_others_of_board_0(),
                     {"DestroyThread encode_jpeg", "delete encode_jpeg", "DestroyThread encode_net",
                      "delete encode_net", "Close", "qm_db_destroy"},
                     {"unlock"}}),
              journal());
    encode("9");
    EXPECT_EQ(calls({{"lock"}, BEGIN, {"unlock"}}), journal());
}

TEST_F(Encode, ReturnsZeroForEveryCode) {
    const std::string text = output_of([] {
        for (const int code : {0, 1, 2, 3, 4, -5}) EXPECT_EQ(0, app_encode_command(code)) << code;
    });
    EXPECT_EQ(escaped(std::string("Encode DB Stream : qmdatabase/qmdatabase.ini, Type : 2\n") +
                      DUAL_AND_JPEG + "[Err] Parameter!\n[Err] Parameter!\n"),
              escaped(text));
}

}  // namespace
