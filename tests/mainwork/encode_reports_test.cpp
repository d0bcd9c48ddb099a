// The encode reports: whole tables from counters filled by hand, and what reading them takes.
#include "mainwork/encode_reports.h"

#include <gtest/gtest-spi.h>

#include "mainwork/mainwork.h"
#include "tests/support/report_text.h"
#include "tests/support/room_test.h"

namespace {

const char MAIN_RATE_TITLE[] = "\nMain Stream Encode Status\n";

// Sixteen cells with the number of their channel, times ten for the later ones.
const char CELLS_TENS[] = "00 10 20 30 40 50 60 70 80 90 100 110 120 130 140 150 ";

class EncodeReports : public RoomTest {
  protected:
    // Reports print nothing, and start from whatever is in the string.
    template <class... Args>
    static std::string report(void (*build)(std::string*, Args...), Args... args) {
        std::string text = "an older report";
        EXPECT_EQ("", output_of([&] { build(&text, args...); }));
        return escaped(text);
    }

    static std::string rates_of(int stream) {
        return report(app_get_other_stream_status, static_cast<QMCODEC_STREAM>(stream));
    }
    static std::string idr_of(int stream) {
        return report(app_get_other_stream_idr_status, static_cast<QMCODEC_STREAM>(stream));
    }

    static qm_encode_stat& start_main() {
        g_appenv.main_encode_thread = new qm_thread_encode;
        return g_appenv.main_encode_thread->stat[0];
    }
    static void start_others() {
        g_appenv.net_encode_thread = new qm_thread_encode_net;
        g_appenv.jpeg_encode_thread = new qm_thread_encode_jpeg;
    }

    static void count(qm_encode_stat& stat, int ch, int total, int frames, int bytes) {
        stat.total_frames[ch] = total;
        stat.period_frames[ch] = frames;
        stat.period_bytes[ch] = bytes;
    }
};

TEST_F(EncodeReports, AreEmptyWithTheirEncoderStopped) {
    EXPECT_EQ("", report(app_mainwork_getstatus_string));
    EXPECT_EQ("", report(app_mainwork_get_idr_status_string));
    EXPECT_EQ("", report(app_get_audio_frame_count_status));
    for (int stream = -1; stream <= 7; ++stream) {
        EXPECT_EQ("", rates_of(stream)) << stream;
        EXPECT_EQ("", idr_of(stream)) << stream;
    }
}

TEST_F(EncodeReports, DoNothingWithoutAString) {
    start_main();
    start_others();
    count(g_appenv.main_encode_thread->stat[0], 0, 1, 1, 1);
    EXPECT_EQ("", output_of([] {
                  app_mainwork_getstatus_string(nullptr);
                  app_mainwork_get_idr_status_string(nullptr);
                  app_get_audio_frame_count_status(nullptr);
                  app_get_other_stream_status(nullptr, QMCODEC_STREAM_DUAL);
                  app_get_other_stream_idr_status(nullptr, QMCODEC_STREAM_DUAL);
              }));
    EXPECT_EQ(1, g_appenv.main_encode_thread->stat[0].period_frames[0]);
}

TEST_F(EncodeReports, HoldTheLockWhileTheyAreBuilt) {
    start_main();
    start_others();
    fake().take_journal();
    fake().journal_locks = true;
    report(app_mainwork_getstatus_string);
    report(app_mainwork_get_idr_status_string);
    report(app_get_audio_frame_count_status);
    rates_of(1);
    idr_of(1);
    EXPECT_EQ(calls({{"lock", "unlock"},
                     {"lock", "unlock"},
                     {"lock", "unlock"},
                     {"lock", "unlock"},
                     {"lock", "unlock"}}),
              journal());
}

TEST_F(EncodeReports, WaitForTheLock) {
    // The fake's mutex refuses to be locked twice by one thread, and says so.
    EXPECT_NONFATAL_FAILURE(
        {
            qm_lock held(_l_mtx_mainwork);
            std::string text;
            app_get_audio_frame_count_status(&text);
        },
        "locked twice");
}

TEST_F(EncodeReports, ShowTheMainRatesWholly) {
    qm_encode_stat& stat = start_main();
    count(stat, 0, 900, 30, 131072);
    count(stat, 1, 12, 0, 5000);
    count(stat, 2, 1, 1, 200);
    count(stat, 9, 9999999, 25, 1280);
    count(stat, 15, 12345678, 7, 2147483647);
    queue_frames(g_appenv.main_encode_thread->frame_list, 3);
    EXPECT_EQ(escaped("\nMain Stream Encode Status\n"
                      "================================================\n"
                      "CH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n"
                      "------------------------------------------------\n"
                      " 0       900         30      128.0      1024\n"
                      " 1        12          0        4.9         0\n"
                      " 2         1          1        0.2         1\n"
                      " 3         0          0        0.0         0\n"
                      " 4         0          0        0.0         0\n"
                      " 5         0          0        0.0         0\n"
                      " 6         0          0        0.0         0\n"
                      " 7         0          0        0.0         0\n"
                      " 8         0          0        0.0         0\n"
                      " 9   9999999         25        1.2        10\n"
                      "10         0          0        0.0         0\n"
                      "11         0          0        0.0         0\n"
                      "12         0          0        0.0         0\n"
                      "13         0          0        0.0         0\n"
                      "14         0          0        0.0         0\n"
                      "15   12345678          7   2097152.0   16777215\n"
                      "------------------------------------------------\n"
                      "* Buffer Count : 3\n"
                      "================================================\n"),
              report(app_mainwork_getstatus_string));
}

TEST_F(EncodeReports, TakeThePeriodCountersAndKeepTheTotals) {
    qm_encode_stat& stat = start_main();
    count(stat, 4, 60, 30, 131072);
    count(stat, 5, 2, 0, 77);
    report(app_mainwork_getstatus_string);
    for (int ch : {4, 5}) {
        EXPECT_EQ(0, stat.period_frames[ch]) << ch;
        EXPECT_EQ(0, stat.period_bytes[ch]) << ch;
    }
    EXPECT_EQ(60, stat.total_frames[4]);
    EXPECT_EQ(escaped(MAIN_RATE_TITLE + RATE_HEADING +
                      encode_rows({{4, "        60          0        0.0         0"},
                                   {5, "         2          0        0.0         0"}}) +
                      RATE_RULE + "* Buffer Count : 0\n" + RATE_END),
              report(app_mainwork_getstatus_string));
}

TEST_F(EncodeReports, TruncateKilobitsTowardZero) {
    qm_encode_stat& stat = start_main();
    count(stat, 0, 1, 1, 127);
    count(stat, 1, 1, 1, 255);
    count(stat, 2, 1, 1, -200);
    count(stat, 3, 1, -1, 1280);  // no frames: the column is suppressed
    EXPECT_EQ(escaped(MAIN_RATE_TITLE + RATE_HEADING +
                      encode_rows({{0, "         1          1        0.1         0"},
                                   {1, "         1          1        0.2         1"},
                                   {2, "         1          1       -0.2        -1"},
                                   {3, "         1         -1        1.2         0"}}) +
                      RATE_RULE + "* Buffer Count : 0\n" + RATE_END),
              report(app_mainwork_getstatus_string));
}

TEST_F(EncodeReports, ShowTheMainIdrSettingsAboveTheFigures) {
    qm_encode_stat& stat = start_main();
    g_appenv.venc[0][0].idr = 5;
    g_appenv.venc[0][1].idr = 120;
    g_appenv.venc[0][15].idr = 0;
    g_appenv.venc[1][2].idr = 99;  // of another stream
    for (int ch = 0; ch < 16; ++ch) stat.idr_distance[ch] = 10 * ch;
    EXPECT_EQ(escaped(std::string("\nMain Stream Encode IDR Status\n"
                                  "===============================================\n"
                                  "01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16\n"
                                  "-----------------------------------------------\n"
                                  "05 120 07 07 07 07 07 07 07 07 07 07 07 07 07 00 \n") +
                      CELLS_TENS + "\n===============================================\n"),
              report(app_mainwork_get_idr_status_string));
}

TEST_F(EncodeReports, ShowTheAudioFramesAndKeepThem) {
    start_main();
    for (int ch = 0; ch < 16; ++ch) g_appenv.main_encode_thread->audio_frames[ch] = 10 * ch;
    const std::string table =
        std::string("\nAudio Frame Count Status\n") + CELL_HEADING + CELLS_TENS + CELL_END;
    EXPECT_EQ(escaped(table), report(app_get_audio_frame_count_status));
    EXPECT_EQ(escaped(table), report(app_get_audio_frame_count_status));
}

TEST_F(EncodeReports, ShowEachOtherStreamWithItsTitleAndItsOwnCounters) {
    start_others();
    auto& net = g_appenv.net_encode_thread->stat;
    for (int stream = 0; stream < 6; ++stream) count(net[stream], stream, 10 + stream, 2, 256);
    count(g_appenv.jpeg_encode_thread->stat[0], 8, 77, 1, 1024);
    queue_frames(g_appenv.net_encode_thread->frame_list, 4);
    queue_frames(g_appenv.jpeg_encode_thread->frame_list, 12);

    EXPECT_EQ(escaped("\nDual Stream Encode Status\n" + RATE_HEADING +
                      encode_rows({{1, "        11          2        0.2         2"}}) + RATE_RULE +
                      "* Buffer Count : 4\n" + RATE_END),
              rates_of(1));
    EXPECT_EQ(escaped("\nJPEG Stream Encode Status\n" + RATE_HEADING +
                      encode_rows({{8, "        77          1        1.0         8"}}) + RATE_RULE +
                      "* Buffer Count : 12\n" + RATE_END),
              rates_of(2));
    EXPECT_EQ(escaped("\nPreview Stream Status\n" + RATE_HEADING +
                      encode_rows({{3, "        13          2        0.2         2"}}) + RATE_END),
              rates_of(3));
    EXPECT_EQ(escaped("\n3rd Stream Encode Status\n" + RATE_HEADING +
                      encode_rows({{4, "        14          2        0.2         2"}}) + RATE_END),
              rates_of(4));
    EXPECT_EQ(escaped("\n4th Stream Encode Status\n" + RATE_HEADING +
                      encode_rows({{5, "        15          2        0.2         2"}}) + RATE_END),
              rates_of(5));
    for (int stream : {1, 3, 4, 5}) EXPECT_EQ(0, net[stream].period_frames[stream]) << stream;
    EXPECT_EQ(0, g_appenv.jpeg_encode_thread->stat[0].period_bytes[8]);
    EXPECT_EQ(2, net[2].period_frames[2]);  // the JPEG stream is not the net encoder's
}

TEST_F(EncodeReports, ShowAFullTableUnderTheErrorLineOfAnUnknownStream) {
    start_others();
    count(g_appenv.net_encode_thread->stat[0], 6, 5, 1, 128);
    const std::string table = RATE_HEADING + encode_rows() + RATE_END;
    EXPECT_EQ(escaped("\n*** Error stream type : 7\n" + table), rates_of(7));
    EXPECT_EQ(escaped("\n*** Error stream type : -1\n" + table), rates_of(-1));
    EXPECT_EQ(escaped("\n*** Error stream type : 6\n" + table), rates_of(6));
    EXPECT_EQ(escaped("\n*** Error stream type : 0\n" + RATE_HEADING +
                      encode_rows({{6, "         5          1        0.1         1"}}) + RATE_END),
              rates_of(0));
}

TEST_F(EncodeReports, NeedBothOtherEncodersForAnyRateTable) {
    start_others();
    qm_thread_encode_jpeg* jpeg = std::exchange(g_appenv.jpeg_encode_thread, nullptr);
    for (int stream : {1, 2, 3, 4, 5, 7}) EXPECT_EQ("", rates_of(stream)) << stream;
    g_appenv.jpeg_encode_thread = jpeg;
    qm_thread_encode_net* net = std::exchange(g_appenv.net_encode_thread, nullptr);
    for (int stream : {1, 2, 3, 4, 5, 7}) EXPECT_EQ("", rates_of(stream)) << stream;
    g_appenv.net_encode_thread = net;
    EXPECT_NE("", rates_of(1));
}

TEST_F(EncodeReports, NeedOnlyTheNetEncoderForAnIdrTable) {
    g_appenv.net_encode_thread = new qm_thread_encode_net;
    EXPECT_EQ(escaped(idr_table("\nDual Stream Encode IDR Status\n", CELLS_07, CELLS_00)),
              idr_of(1));
}

TEST_F(EncodeReports, ShowTheIdrTableOfTheDualStreamUnderItsTitle) {
    start_others();
    g_appenv.venc[1][3].idr = 30;
    g_appenv.net_encode_thread->stat[1].idr_distance[0] = 29;
    EXPECT_EQ(escaped(idr_table("\nDual Stream Encode IDR Status\n",
                                "07 07 07 30 07 07 07 07 07 07 07 07 07 07 07 07 ",
                                "29 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ")),
              idr_of(1));
}

TEST_F(EncodeReports, ShowTheIdrTableOfAnyOtherStreamUnderTheErrorLine) {
    start_others();
    for (auto& unit : g_appenv.venc[4]) unit.idr = 25;
    g_appenv.net_encode_thread->stat[4].idr_distance[15] = 24;
    EXPECT_EQ(escaped(idr_table("\n*** Error stream type : 4\n",
                                "25 25 25 25 25 25 25 25 25 25 25 25 25 25 25 25 ",
                                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 24 ")),
              idr_of(4));
    EXPECT_EQ(escaped(idr_table("\n*** Error stream type : 5\n", CELLS_00, CELLS_00)), idr_of(5));
    EXPECT_EQ(escaped(idr_table("\n*** Error stream type : 0\n", CELLS_07, CELLS_00)), idr_of(0));
    EXPECT_EQ(escaped(idr_table("\n*** Error stream type : 7\n", CELLS_00, CELLS_00)), idr_of(7));
    EXPECT_EQ(escaped(idr_table("\n*** Error stream type : -1\n", CELLS_00, CELLS_00)), idr_of(-1));
}

}  // namespace
