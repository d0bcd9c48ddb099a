// The status thread: when it prints, what each selection bit makes it print, RUN and STOP.
// Work is called on the test's own thread, with the clock told what to say.
#include "statuswork/status_thread.h"

#include "tests/support/report_text.h"
#include "tests/support/room_test.h"

namespace {

const std::string HELLO = " !!  Status thread is running  !!\n";
const std::string FAREWELL = " !! Status thread is stopped !!\n";

const std::string MAIN_RATES = idle_rate_table_with_buffer("\nMain Stream Encode Status\n");
const std::string MAIN_IDR = idr_table("\nMain Stream Encode IDR Status\n", CELLS_07, CELLS_00);

class StatusThread : public RoomTest {
  protected:
    // Every encoder and the playback thread, with nothing counted.
    static void start_everything() {
        g_appenv.main_encode_thread = new qm_thread_encode;
        g_appenv.net_encode_thread = new qm_thread_encode_net;
        g_appenv.jpeg_encode_thread = new qm_thread_encode_jpeg;
        _l_stDec.thread = new qm_thread_decode;
    }

    static void select(uint32_t a, uint32_t b) {
        _l_st_stat.mask_a = a;
        _l_st_stat.mask_b = b;
    }

    // What a thread prints that is asked to stop while it reads the clock for the last time. A full
    // stop is printed for each reading, the first of which is the thread's start.
    static std::string run(const std::vector<int64_t>& times_ms,
                           const std::function<void(size_t)>& at_reading = {}) {
        qm_thread_status thread;
        size_t reading = 0;
        fake().times_ms = times_ms;
        fake().on_current_time = [&] {
            putchar('.');
            if (at_reading) at_reading(reading);
            if (++reading == times_ms.size()) thread.DestroyThread();
        };
        return escaped(output_of([&] { thread.Work(nullptr); }));
    }
};

TEST_F(StatusThread, StartsOnceAndPrintsNothingItself) {
    EXPECT_EQ("", typed(app_stat_run, {"RUN"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"CreateThread thread null 0"}}), journal());
    qm_thread_status* const thread = _l_st_stat.thread;
    ASSERT_NE(nullptr, thread);
    EXPECT_EQ("", typed(app_stat_run, {"RUN"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", journal());
    EXPECT_EQ(thread, _l_st_stat.thread);
    EXPECT_EQ(1, fake().objects_alive);
}

TEST_F(StatusThread, IsStoppedAndFreed) {
    typed(app_stat_run, {"RUN"});
    fake().take_journal();
    EXPECT_EQ("", typed(app_stat_stop, {"STOP"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ(calls({{"DestroyThread thread"}}), journal());
    EXPECT_EQ(nullptr, _l_st_stat.thread);
    EXPECT_EQ(0, fake().objects_alive);
}

TEST_F(StatusThread, DoesNothingForAStopWithoutAThread) {
    EXPECT_EQ("", typed(app_stat_stop, {"STOP"}));
    EXPECT_EQ(0, result);
    EXPECT_EQ("", output_of([] { EXPECT_EQ(0, app_status_stop()); }));
    EXPECT_EQ("", journal());
}

TEST_F(StatusThread, CanBeStartedAgainWithItsMasksKept) {
    select(0x11, 0x22);
    typed(app_stat_run, {"RUN"});
    EXPECT_EQ("", output_of([] { EXPECT_EQ(0, app_status_stop()); }));
    typed(app_stat_run, {"RUN"});
    EXPECT_EQ(calls({{"CreateThread thread null 0", "DestroyThread thread",
                      "CreateThread thread null 0"}}),
              journal());
    EXPECT_EQ(0x11u, _l_st_stat.mask_a);
    EXPECT_EQ(0x22u, _l_st_stat.mask_b);
}

TEST_F(StatusThread, SaysFarewellOnceAndAtOnce) {
    EXPECT_EQ(escaped(HELLO + "." + FAREWELL), run({0}));
}

TEST_F(StatusThread, PrintsNothingWithAllBitsClear) {
    start_everything();
    EXPECT_EQ(escaped(HELLO + "...." + FAREWELL), run({0, 1000, 2000, 3000}));
}

TEST_F(StatusThread, PrintsOnceASecond) {
    start_everything();
    select(0x04, 0);
    EXPECT_EQ(escaped(HELLO + "..." + "." + MAIN_IDR + ".." + "." + MAIN_IDR + "." + FAREWELL),
              run({0, 1, 999, 1000, 1001, 1999, 2000, 2500}));
}

TEST_F(StatusThread, MeasuresFromItsStart) {
    start_everything();
    select(0x04, 0);
    EXPECT_EQ(escaped(HELLO + ".." + "." + MAIN_IDR + FAREWELL),
              run({1700000000123, 1700000001122, 1700000001123}));
}

TEST_F(StatusThread, KeepsItsDeadlinesOnTheStartWhenACycleIsLate) {
    start_everything();
    select(0x04, 0);
    EXPECT_EQ(escaped(HELLO + "." + "." + MAIN_IDR + "." + "." + MAIN_IDR + "." + "." + MAIN_IDR +
                      FAREWELL),
              run({0, 1700, 1999, 2000, 2999, 3000}));
}

TEST_F(StatusThread, FollowsACycleOfTwoAndAHalfSecondsWithTwoMoreAtOnce) {
    start_everything();
    select(0x04, 0);
    EXPECT_EQ(escaped(HELLO + "." + "." + MAIN_IDR +  // takes from 1000 to 3500
                      "." + MAIN_IDR + "." + MAIN_IDR + ".." + "." + MAIN_IDR + FAREWELL),
              run({0, 1000, 3500, 3501, 3502, 3999, 4000}));
}

TEST_F(StatusThread, ReadsTheMasksAfreshInEveryCycle) {
    start_everything();
    select(0x04, 0);
    EXPECT_EQ(escaped(HELLO + ".." + MAIN_IDR + "." + MAIN_RATES + "." + "." + FAREWELL),
              run({0, 1000, 2000, 3000, 4000}, [](size_t reading) {
                  if (reading == 2) select(0x01, 0);
                  if (reading == 3) select(0, 0);
              }));
}

TEST_F(StatusThread, PrintsTheMainRatesThenTheMainIdrTable) {
    start_everything();
    select(0x05, 0);
    EXPECT_EQ(
        escaped(HELLO + ".." + MAIN_RATES + MAIN_IDR + "." + MAIN_RATES + MAIN_IDR + FAREWELL),
        run({0, 1000, 2000}));
}

TEST_F(StatusThread, ConsumesThePeriodCountersOnceACycle) {
    start_everything();
    select(0x01, 0);
    qm_encode_stat& stat = g_appenv.main_encode_thread->stat[0];
    stat.total_frames[2] = 30;
    stat.period_frames[2] = 30;
    stat.period_bytes[2] = 131072;
    const auto table = [](const std::string& row) {
        return "\nMain Stream Encode Status\n" + RATE_HEADING + encode_rows({{2, row}}) +
               RATE_RULE + "* Buffer Count : 0\n" + RATE_END;
    };
    EXPECT_EQ(escaped(HELLO + ".." + table("        30         30      128.0      1024") + "." +
                      table("        30          0        0.0         0") + FAREWELL),
              run({0, 1000, 2000}));
}

TEST_F(StatusThread, PrintsNothingForEncodersThatDoNotRun) {
    select(0xffffffff, 0xffffffff);
    EXPECT_EQ(escaped(HELLO + ".." + FAREWELL), run({0, 1000}));
}

// The reports that the bits select, in the order of printing, with nothing counted.
struct Selection {
    int mask;  // 0 A, 1 B
    int bit;
    std::string report;
};

const Selection SELECTIONS[] = {
    {0, 0, MAIN_RATES},
    {0, 1,
     "\nSearch Status\n" + RATE_HEADING + search_rows() + RATE_RULE +
         "TIME:0, DEC Frame:0, BUF Count:0\n" + RATE_END},
    {0, 2, MAIN_IDR},
    {0, 3, idr_table("\nSearch IDR Status\n", CELLS_07, CELLS_00)},
    {0, 8, idle_rate_table_with_buffer("\nDual Stream Encode Status\n")},
    {0, 9, idr_table("\nDual Stream Encode IDR Status\n", CELLS_07, CELLS_00)},
    {0, 24, idle_rate_table_with_buffer("\nJPEG Stream Encode Status\n")},
    {1, 0, idle_rate_table("\nPreview Stream Status\n")},
    {1, 8, idle_rate_table("\n3rd Stream Encode Status\n")},
    {1, 9, idr_table("\n*** Error stream type : 4\n", CELLS_00, CELLS_00)},
    {1, 16, idle_rate_table("\n4th Stream Encode Status\n")},
    {1, 17, idr_table("\n*** Error stream type : 5\n", CELLS_00, CELLS_00)},
};

TEST_F(StatusThread, PrintsExactlyTheReportOfEachBit) {
    start_everything();
    for (int mask : {0, 1}) {
        for (int bit = 0; bit < 32; ++bit) {
            std::string report;
            for (const Selection& row : SELECTIONS)
                if (row.mask == mask && row.bit == bit) report = row.report;
            const uint32_t selected = uint32_t{1} << bit;
            select(mask == 0 ? selected : 0, mask == 1 ? selected : 0);
            EXPECT_EQ(escaped(HELLO + ".." + report + FAREWELL), run({0, 1000}))
                << "mask "
                << "AB"[mask] << " bit " << bit;
        }
    }
}

TEST_F(StatusThread, PrintsNothingForTheAudioByte) {
    start_everything();
    select(0x10000, 0);
    EXPECT_EQ(escaped(HELLO + "..." + FAREWELL), run({0, 1000, 2000}));
    select(0x00ff0000, 0);
    EXPECT_EQ(escaped(HELLO + ".." + FAREWELL), run({0, 1000}));
}

TEST_F(StatusThread, PrintsAllReportsInTheOrderOfTheTable) {
    start_everything();
    select(0xffffffff, 0xffffffff);
    std::string all;
    for (const Selection& row : SELECTIONS) all += row.report;
    EXPECT_EQ(escaped(HELLO + ".." + all + FAREWELL), run({0, 1000}));
}

TEST_F(StatusThread, HoldsNoLockBetweenReports) {
    start_everything();
    fake().take_journal();
    fake().journal_locks = true;
    select(0x05, 0);
    run({0, 1000});
    // The stop is asked for while the clock is read, before the reports of that cycle.
    EXPECT_EQ(calls({{"DestroyThread thread", "lock", "unlock", "lock", "unlock"}}), journal());
}

}  // namespace
