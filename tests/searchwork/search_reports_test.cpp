// The search reports: whole tables from what the playback thread answers.
#include "searchwork/search_reports.h"

#include "tests/support/report_text.h"
#include "tests/support/room_test.h"

namespace {

class SearchReports : public RoomTest {
  protected:
    static qm_thread_decode& start() {
        auto* thread = new qm_thread_decode;
        _l_stDec.thread = thread;
        fake().take_journal();
        return *thread;
    }

    // Reports print nothing, and start from whatever is in the string.
    static std::string report(void (*build)(std::string*)) {
        std::string text = "an older report";
        EXPECT_EQ("", output_of([&] { build(&text); }));
        return escaped(text);
    }

    static void answer(int ch, int total, int frames, int bytes) {
        const std::string channel = "/" + std::to_string(ch);
        fake().calcul["4" + channel] = total;
        fake().calcul["1" + channel] = frames;
        fake().calcul["5" + channel] = bytes;
    }
};

TEST_F(SearchReports, AreEmptyOutsideTheSearchMenu) {
    EXPECT_EQ("", report(app_searchwork_getstatus_string));
    EXPECT_EQ("", report(app_searchwork_get_idr_status_string));
}

TEST_F(SearchReports, DoNothingWithoutAString) {
    start();
    EXPECT_EQ("", output_of([] {
                  app_searchwork_getstatus_string(nullptr);
                  app_searchwork_get_idr_status_string(nullptr);
              }));
    EXPECT_EQ("", journal());
}

TEST_F(SearchReports, ShowTheRatesWholly) {
    qm_thread_decode& thread = start();
    thread.current_time = qm_time(1234567);
    queue_frames(thread.frame_list, 5);
    answer(0, 900, 30, 131072);
    answer(1, 44, 0, 2048);
    answer(7, 1, 1, 200);
    answer(15, 123456, 25, 5000);
    EXPECT_EQ(escaped("\nSearch Status\n"
                      "================================================\n"
                      "CH  tot_count  frame/sec  kbyte/sec kbitrate/sec\n"
                      "------------------------------------------------\n"
                      " 0     900          30      128.0      1024\n"
                      " 1      44           0        2.0         0\n"
                      " 2       0           0        0.0         0\n"
                      " 3       0           0        0.0         0\n"
                      " 4       0           0        0.0         0\n"
                      " 5       0           0        0.0         0\n"
                      " 6       0           0        0.0         0\n"
                      " 7       1           1        0.2         1\n"
                      " 8       0           0        0.0         0\n"
                      " 9       0           0        0.0         0\n"
                      "10       0           0        0.0         0\n"
                      "11       0           0        0.0         0\n"
                      "12       0           0        0.0         0\n"
                      "13       0           0        0.0         0\n"
                      "14       0           0        0.0         0\n"
                      "15   123456          25        4.9        39\n"
                      "------------------------------------------------\n"
                      "TIME:1234, DEC Frame:56, BUF Count:5\n"
                      "================================================\n"),
              report(app_searchwork_getstatus_string));
}

TEST_F(SearchReports, AskForFramesBytesAndTotalOfEveryChannelOnce) {
    start();
    report(app_searchwork_getstatus_string);
    EXPECT_EQ(
        calls({each_channel({"GetCalculData 1 @", "GetCalculData 5 @", "GetCalculData 4 @"})}),
        journal());
}

TEST_F(SearchReports, ShowTheMainSettingsAboveTheFiguresOfThePlaybackThread) {
    qm_thread_decode& thread = start();
    _l_stDec.stream = DEC_STREAM_DUAL;  // its settings are not shown
    g_appenv.venc[0][0].idr = 120;
    for (auto& unit : g_appenv.venc[1]) unit.idr = 3;
    thread.idr_distance[0] = 5;
    thread.idr_distance[15] = 250;
    EXPECT_EQ(escaped("\nSearch IDR Status\n"
                      "===============================================\n"
                      "01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16\n"
                      "-----------------------------------------------\n"
                      "120 07 07 07 07 07 07 07 07 07 07 07 07 07 07 07 \n"
                      "05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 250 \n"
                      "===============================================\n"),
              report(app_searchwork_get_idr_status_string));
    EXPECT_EQ("", journal());
}

TEST_F(SearchReports, TakeNoLock) {
    start();
    fake().journal_locks = true;
    report(app_searchwork_get_idr_status_string);
    EXPECT_EQ("", journal());
    report(app_searchwork_getstatus_string);
    EXPECT_EQ(std::string::npos, journal().find("lock"));
}

TEST_F(SearchReports, LetThePlaybackThreadGoWhenTheyAreDone) {
    start();
    report(app_searchwork_getstatus_string);
    report(app_searchwork_get_idr_status_string);
    EXPECT_EQ(0, _l_stDec.readers);
}

}  // namespace
