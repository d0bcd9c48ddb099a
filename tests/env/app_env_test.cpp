// The environment record: its state at program start, its defaults, and the streams of a board.
#include "env/app_env.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "tests/env/env_test.h"
#include "tests/support/fresh_process.h"

namespace {

using AppEnv = EnvTest;

bool all_bytes_are(const tagVEncChannelUnit& unit, uint8_t value) {
    return std::ranges::all_of(unit.extra_data, [value](uint8_t byte) { return byte == value; });
}

constexpr uint8_t OLD = 0xee;
constexpr int OLD_WORD = static_cast<int>(0xeeeeeeee);
constexpr Unit OLD_UNIT = {OLD, OLD_WORD, OLD_WORD, OLD_WORD, OLD_WORD,
                           OLD, OLD_WORD, OLD_WORD, OLD};

// Default on units that hold something already.
void default_over_old_units() {
    memset(g_appenv.venc, OLD, sizeof g_appenv.venc);
    g_appenv.Default();
}

void expect_stream(int stream, const Unit& expected, uint8_t extra) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        EXPECT_EQ(channel(stream, ch), expected) << "stream " << stream << " channel " << ch;
        EXPECT_TRUE(all_bytes_are(g_appenv.venc[stream][ch], extra))
            << "stream " << stream << " channel " << ch;
    }
}

TEST(AppEnvAtStart, IsEmpty) {
    in_fresh_process([] {
        const CAppEnv& env = g_appenv;
        EXPECT_EQ(env.board_type, 0u);
        EXPECT_EQ(env.main_database_type, 0u);
        EXPECT_EQ(env.codec, nullptr);
        EXPECT_EQ(env.main_encode_thread, nullptr);
        EXPECT_EQ(env.net_encode_thread, nullptr);
        EXPECT_EQ(env.jpeg_encode_thread, nullptr);
        EXPECT_EQ(env.firmware, "");
        EXPECT_EQ(env.main_stream_db, "");
        for (int stream = 0; stream < QMCODEC_STREAMS; ++stream) expect_stream(stream, Unit{}, 0);
    });
}

TEST(AppEnvAtStart, HasNoEncodeThreadWhateverTheMemoryHeld) {
    // The record's own place is static; here it is built over memory that is not zero.
    const auto memory = static_cast<char*>(operator new(sizeof(CAppEnv)));
    memset(memory, OLD, sizeof(CAppEnv));
    const auto env = new (memory) CAppEnv;
    EXPECT_EQ(env->main_encode_thread, nullptr);
    EXPECT_EQ(env->net_encode_thread, nullptr);
    EXPECT_EQ(env->jpeg_encode_thread, nullptr);
    EXPECT_EQ(env->decode_stream_db, "");
    EXPECT_EQ(env->main_open_path, "");
    env->~CAppEnv();
    operator delete(memory);
}

TEST_F(AppEnv, IsTheOneRecord) { EXPECT_EQ(GetAppEnv(), &g_appenv); }

TEST_F(AppEnv, KeepsTheAreaOfEveryUnit) {
    EXPECT_EQ(sizeof(tagVEncChannelUnit::extra_data), 8040u);
    EXPECT_EQ(sizeof g_appenv.venc, 96 * sizeof(tagVEncChannelUnit));
}

TEST_F(AppEnv, DefaultSetsTheBoard) {
    CAppEnv& env = g_appenv;
    env.board_type = env.video_format = env.field_type = 9;
    env.main_database_type = env.dual_database_type = env.jpeg_database_type = 9;
    env.Default();
    EXPECT_EQ(env.board_type, 0u);
    EXPECT_EQ(env.video_format, 0u);
    EXPECT_EQ(env.field_type, 0u);
    EXPECT_EQ(env.main_database_type, 2u);
    EXPECT_EQ(env.dual_database_type, 2u);
    EXPECT_EQ(env.jpeg_database_type, 2u);
}

TEST_F(AppEnv, DefaultNamesTheDatabases) {
    g_appenv.decode_db_type = 3;
    g_appenv.Default();
    EXPECT_EQ(g_appenv.main_stream_db, "qmdatabase/qmdatabase.ini");
    EXPECT_EQ(g_appenv.dual_stream_db, "dual_stream/qmdatabase.ini");
    EXPECT_EQ(g_appenv.jpeg_stream_db, "jpeg_stream/qmdatabase.ini");
    EXPECT_EQ(g_appenv.decode_stream_db, g_appenv.main_stream_db);
    EXPECT_EQ(g_appenv.decode_db_type, 0u);
}

TEST_F(AppEnv, DefaultNamesTheCodecFiles) {
    for (std::string& name : g_appenv.parameter_file_name) name = "old";
    g_appenv.Default();
    for (const std::string& name : g_appenv.parameter_file_name) EXPECT_EQ(name, "");
    EXPECT_EQ(g_appenv.qp_table[0], "parameter_files/qpt_table_00000.bin");
    EXPECT_EQ(g_appenv.qp_table[1], "parameter_files/qpt_table_00001.bin");
    EXPECT_EQ(g_appenv.firmware, "parameter_files/qm7105fw.bin");
}

TEST_F(AppEnv, DefaultSetsTheMainStream) {
    default_over_old_units();
    expect_stream(0, {0, 0, 7, 7, 0, 27, 2048000, 3, 0}, 0);
}

TEST_F(AppEnv, DefaultSetsTheDualStream) {
    default_over_old_units();
    expect_stream(1, {0, 1, 7, 7, 0, 31, 2048000, 3, 0}, 0);
}

TEST_F(AppEnv, DefaultSetsTheJpegStream) {
    default_over_old_units();
    expect_stream(2, {0, 2, 2, 0, 0, 31, 512000, 3, 0}, 0);
}

TEST_F(AppEnv, DefaultSetsThreeFieldsOfThePreviewStream) {
    default_over_old_units();
    Unit expected = OLD_UNIT;
    expected.enable = 0;
    expected.framerate = 0;
    expected.res = 1;
    expect_stream(3, expected, OLD);
}

TEST_F(AppEnv, DefaultLeavesTheThirdAndFourthStreamAlone) {
    default_over_old_units();
    expect_stream(4, OLD_UNIT, OLD);
    expect_stream(5, OLD_UNIT, OLD);
}

TEST_F(AppEnv, DefaultAfterTheStartLeavesTheLastStreamsZero) {
    g_appenv.Default();
    expect_stream(3, {0, 0, 0, 0, 0, 0, 0, 1, 0}, 0);
    expect_stream(4, Unit{}, 0);
    expect_stream(5, Unit{}, 0);
}

TEST_F(AppEnv, DefaultSwitchesTheAudioOff) {
    memset(g_appenv.audio_enable, 1, sizeof g_appenv.audio_enable);
    g_appenv.Default();
    for (const uint8_t enable : g_appenv.audio_enable) EXPECT_EQ(enable, 0);
}

TEST_F(AppEnv, DefaultLeavesTheSessionAlone) {
    CAppEnv& env = g_appenv;
    // Addresses to compare only.
    int somewhere[7];
    const auto address = [&](int i) { return static_cast<void*>(&somewhere[i]); };
    env.sub_ev_type = 5;
    env.chip_mask = 3;
    env.codec = static_cast<QMAVCodec*>(address(0));
    env.main_encode_thread = static_cast<qm_thread_encode*>(address(1));
    env.net_encode_thread = static_cast<qm_thread_encode_net*>(address(2));
    env.jpeg_encode_thread = static_cast<qm_thread_encode_jpeg*>(address(3));
    env.main_db = static_cast<iqm_db*>(address(4));
    env.dual_db = static_cast<iqm_db*>(address(5));
    env.jpeg_db = static_cast<iqm_db*>(address(6));
    env.main_open_path = "main";
    env.dual_open_path = "dual";
    env.jpeg_open_path = "jpeg";
    env.Default();
    EXPECT_EQ(env.sub_ev_type, 5u);
    EXPECT_EQ(env.chip_mask, 3u);
    EXPECT_EQ(static_cast<void*>(env.codec), address(0));
    EXPECT_EQ(static_cast<void*>(env.main_encode_thread), address(1));
    EXPECT_EQ(static_cast<void*>(env.net_encode_thread), address(2));
    EXPECT_EQ(static_cast<void*>(env.jpeg_encode_thread), address(3));
    EXPECT_EQ(static_cast<void*>(env.main_db), address(4));
    EXPECT_EQ(static_cast<void*>(env.dual_db), address(5));
    EXPECT_EQ(static_cast<void*>(env.jpeg_db), address(6));
    EXPECT_EQ(env.main_open_path, "main");
    EXPECT_EQ(env.dual_open_path, "dual");
    EXPECT_EQ(env.jpeg_open_path, "jpeg");
    clear_environment();
}

// The answers for the streams 3, 4 and 5 of one board.
void expect_streams(uint32_t board_type, int preview, int third, int fourth) {
    g_appenv.board_type = board_type;
    EXPECT_EQ(g_appenv.IsAvailableStream(3), preview) << "board " << board_type;
    EXPECT_EQ(g_appenv.IsAvailableStream(4), third) << "board " << board_type;
    EXPECT_EQ(g_appenv.IsAvailableStream(5), fourth) << "board " << board_type;
}

TEST_F(AppEnv, Board2CarriesThePreviewStream) { expect_streams(2, 1, 0, 0); }

TEST_F(AppEnv, Board6CarriesAllStreams) { expect_streams(6, 1, 1, 1); }

TEST_F(AppEnv, OtherBoardsCarryTheRecordedStreamsOnly) {
    for (const uint32_t board_type : {0u, 1u, 3u, 4u, 5u, 7u, 8u, 0xffffffffu})
        expect_streams(board_type, 0, 0, 0);
}

TEST_F(AppEnv, EveryBoardCarriesEveryOtherStreamNumber) {
    for (const uint32_t board_type : {0u, 2u, 6u, 7u}) {
        g_appenv.board_type = board_type;
        for (const int stream : {0, 1, 2, 6, 7, 1000, -1, -1000})
            EXPECT_EQ(g_appenv.IsAvailableStream(stream), 1)
                << "board " << board_type << " stream " << stream;
    }
}

}  // namespace
