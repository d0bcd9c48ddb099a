// An environment file as an engineer writes one, read through the stand-in into the record.
#include <string>

#include <gtest/gtest.h>

#include "env/app_env.h"
#include "tests/support/temp_dir.h"

namespace {

const char BOARD_INI[] =
    "; a board with preview, third and fourth streams\r\n"
    "[general]\r\n"
    "Board_Type = 0x6\r\n"
    "video_format = 1\r\n"
    "jpeg_database_type = 010\r\n"
    "main_stream_db = \"disk one/main;1.ini\"\r\n"
    "dual_stream_db = disk2/dual.ini\r\n"
    "decode_stream_db = disk2/dual.ini\r\n"
    "qp_table_1 = tables/1.bin\r\n"
    "\r\n"
    "[Main Stream]\r\n"
    "ch_01 = 1 0 25 25 0 60 2048000 2\r\n"
    "CH_16 = \"1 0 12\"\r\n"
    "[4TH STREAM]\r\n"
    "ch_02 = 1,0 3\r\n"
    "[AUDIO]\r\n"
    "ch_16 = 1";

TEST(LoadEnvFile, ReadsAWholeEnvironment) {
    const TempDir dir;
    g_appenv.firmware = "old.bin";
    ASSERT_EQ(g_appenv.LoadEnv(dir.write("board.ini", BOARD_INI)), 1u);
    EXPECT_EQ(g_appenv.board_type, 6u);
    EXPECT_EQ(g_appenv.video_format, 1u);
    EXPECT_EQ(g_appenv.main_database_type, 2u);
    EXPECT_EQ(g_appenv.jpeg_database_type, 10u);
    EXPECT_EQ(g_appenv.main_stream_db, "disk one/main;1.ini");
    EXPECT_EQ(g_appenv.dual_stream_db, "disk2/dual.ini");
    EXPECT_EQ(g_appenv.jpeg_stream_db, "");
    EXPECT_EQ(g_appenv.decode_db_type, 1u);
    EXPECT_EQ(g_appenv.qp_table[0], "");
    EXPECT_EQ(g_appenv.qp_table[1], "tables/1.bin");
    EXPECT_EQ(g_appenv.firmware, "old.bin");

    const tagVEncChannelUnit& first = g_appenv.venc[0][0];
    EXPECT_EQ(first.enable, 1);
    EXPECT_EQ(first.framerate, 25u);
    EXPECT_EQ(first.qp, 8);
    EXPECT_EQ(first.bitrate, 2048000u);
    EXPECT_EQ(first.res, 2u);
    EXPECT_EQ(g_appenv.venc[0][1].enable, 0);
    EXPECT_EQ(g_appenv.venc[0][15].framerate, 12u);
    EXPECT_EQ(g_appenv.venc[5][1].enable, 10);
    EXPECT_EQ(g_appenv.venc[5][1].codectype, 3u);
    EXPECT_EQ(g_appenv.audio_enable[0], 0);
    EXPECT_EQ(g_appenv.audio_enable[15], 1);
}

TEST(LoadEnvFile, AMissingFileChangesNothing) {
    const TempDir dir;
    g_appenv.board_type = 2;
    EXPECT_EQ(g_appenv.LoadEnv(dir.file("missing.ini")), 0u);
    EXPECT_EQ(g_appenv.board_type, 2u);
}

}  // namespace
