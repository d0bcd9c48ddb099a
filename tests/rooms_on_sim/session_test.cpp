// The rooms on the stand-in: sessions with real threads, the flows that reach for objects which are
// not there, and what is left behind.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "env/app_env.h"
#include "mainwork/encode.h"
#include "mainwork/encode_reports.h"
#include "mainwork/mainwork.h"
#include "mainwork/qm_workers.h"
#include "sdk/sim_control.h"
#include "searchwork/search_db.h"
#include "searchwork/search_reports.h"
#include "statuswork/status_thread.h"
#include "tests/support/console.h"
#include "tests/support/report_text.h"
#include "tests/support/wait.h"

namespace {

constexpr uint32_t UNSUPPORTED = 3;  // a database type that cannot be opened

// A thread that was joined may be listed a moment longer; its flags then say that it exits.
bool is_exiting(const std::filesystem::path& thread) {
    constexpr unsigned PF_EXITING = 4;
    std::ifstream file(thread / "stat");
    std::string line;
    if (!std::getline(file, line)) return true;
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    unsigned flags = 0;
    for (int i = 0; i < 6; ++i) fields >> skipped;
    fields >> flags;
    EXPECT_TRUE(fields);
    return flags & PF_EXITING;
}

int threads_of_process() {
    int count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
        count += is_exiting(thread.path()) ? 0 : 1;
    return count;
}

// What is on the wire so far, within run_console.
std::string printed() {
    struct stat status = {};
    fstat(STDOUT_FILENO, &status);
    std::string text(static_cast<size_t>(status.st_size), '\0');
    EXPECT_EQ(pread(STDOUT_FILENO, text.data(), text.size(), 0), status.st_size);
    return text;
}

int descriptors_of_process() {
    const auto end = std::filesystem::directory_iterator();
    return static_cast<int>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), end));
}

// Every test runs in a session of the MAIN menu: `script` is what the operator types in it.
class Session : public ::testing::Test {
  protected:
    void SetUp() override {
        sim::control_reset();
        env.Default();
        for (int stream = 0; stream < 3; ++stream)
            for (int ch = 0; ch < 4; ++ch) {
                env.venc[stream][ch].enable = 1;
                env.venc[stream][ch].framerate = 30;
                env.venc[stream][ch].res = 0;
            }
        env.audio_enable[0] = 1;
        std::thread([] {}).join();  // a sanitizer's own thread starts with the first one
        threads_before = threads_of_process();
    }
    void TearDown() override {
        EXPECT_EQ(env.codec, nullptr);
        EXPECT_EQ(_l_stDec.thread.load(), nullptr);
        EXPECT_EQ(_l_st_stat.thread, nullptr);
        EXPECT_EQ(sim::open_databases(), 0);
        EXPECT_EQ(threads_of_process(), threads_before);
        _l_st_stat.mask_a = 0;
        _l_st_stat.mask_b = 0;
        sim::control_reset();
    }

    std::string run(const std::string& script) {
        return run_console(script, [] {
            char word[] = "MAIN";
            char* argv[] = {word};
            EXPECT_EQ(app_mainwork(1, argv), 0);
        });
    }

    // A session without its menu.
    void open_codec() {
        ASSERT_EQ(CreateQMAVCodec(&env.codec), 0);
        env.codec->GetSystem()->SetChipEnableMask(15);
        _QM_AVCODEC_INIT_PARAM param = {};
        env.codec->GetSystem()->InitAVCodec(&param);
        mainwork_setup();
    }
    void close_codec() {
        env.codec->GetSystem()->ReleaseAVCodec();
        DestroyQMAVCodec(env.codec);
        env.codec = nullptr;
    }

    CAppEnv& env = *GetAppEnv();
    int threads_before = 0;
};

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

int count_of(const std::string& text, const std::string& part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST_F(Session, LeavesMainWithEverythingRunning) {
    const std::string out = run(
        "encode 0\nencode 2\nstatus\nset\nt f00030f 0\n9\nrun\nexit\nsearch\npb 4\nexit\nexit\n");
    EXPECT_EQ(count_of(out, " !! Status thread is stopped !!\n"), 1);
    const std::string tail =
        " !! Status thread is stopped !!\nRelease ReleaseAVCodec - Begin\n"
        "Release ReleaseAVCodec - End\nDestroy QM AV Codec.\n";
    ASSERT_GE(out.size(), tail.size());
    EXPECT_EQ(escaped(out.substr(out.size() - tail.size())), escaped(tail));
}

TEST_F(Session, EndsWithTheInputInTheMiddleOfPlayback) {
    const std::string out = run("encode 0\nsearch\npb 4\nstatus\nrun\nset\n1");
    EXPECT_TRUE(contains(out, "Destroy QM AV Codec.\n"));
}

TEST_F(Session, SearchesBeforeAnythingWasEncoded) {
    const std::string out = run("search\npb 4\npb 5\npb\nexit\nexit\n");
    EXPECT_TRUE(contains(out, "Decode DB Stream : 0, Type : 2\n"));
    EXPECT_TRUE(contains(out, "SEARCH>"));
}

TEST_F(Session, ReportsNothingPlayedBeforeAnythingWasEncoded) {
    const std::string idle = "\nSearch Status\n" + RATE_HEADING + search_rows() + RATE_RULE +
                             "TIME:0, DEC Frame:0, BUF Count:0\n" + RATE_END +
                             idr_table("\nSearch IDR Status\n", CELLS_07, CELLS_00);
    const auto reports = [] {
        std::string rate = "old", idr = "old";
        app_searchwork_getstatus_string(&rate);
        app_searchwork_get_idr_status_string(&idr);
        return rate + idr;
    };
    output_of([&] {
        open_codec();
        _l_stDec.thread = new qm_thread_decode;
        EXPECT_EQ(app_searchwork_open_search_db(DEC_STREAM_MAIN), 1);
        EXPECT_EQ(_l_stDec.db, nullptr);
        qm_thread_decode& thread = *_l_stDec.thread.load();
        start_playback(thread);
        thread.SetPBState(PB_STATE_FORWARD);
        EXPECT_EQ(escaped(reports()), escaped(idle));
        // A number that is no stream leaves a stopped object in the record.
        char setdb[] = "SETDB", five[] = "5";
        char* words[] = {setdb, five};
        searchwork_set_db(2, words);
        EXPECT_EQ(escaped(reports()), escaped(idle));
        thread.DestroyThread();
        delete _l_stDec.thread.exchange(nullptr);
        EXPECT_EQ(reports(), "");
        close_codec();
    });
}

TEST_F(Session, SurvivesARefusedSearchWhenNoDatabaseWasEverOpened) {
    env.decode_db_type = 3;
    EXPECT_TRUE(contains(run("search\nexit\n"),
                         "##### Decode DB Type Error.\n"
                         "Decode DB Stream : 0, Type : 0\n"));
    env.board_type = 7;
    EXPECT_TRUE(
        contains(run("search\nexit\n"), "[Err] Board type [7] can't support search mode.\n"));
}

TEST_F(Session, SurvivesAFailedSearchOpenAgainAndAgain) {
    env.main_database_type = UNSUPPORTED;
    const std::string out = run("search\nsearch\nencode 0\nsearch\nexit\n");
    EXPECT_EQ(count_of(out, "Decode DB Stream : 0, Type : 3\n"), 3);
    EXPECT_FALSE(contains(out, "SEARCH>"));
}

TEST_F(Session, SurvivesSetdbWithANumberThatIsNoStream) {
    const std::string out =
        run("encode 0\nsearch\nsetdb 5\npb 4\npb 5\nsetdb 5\nsetdb 1\nexit\n"
            "search\nsetdb -1\nexit\nsearch\npb 4\nexit\nexit\n");
    EXPECT_EQ(count_of(out, "##### Decode DB Type Error.\n"), 3);
}

TEST_F(Session, SurvivesSetdbWhoseOpenFails) {
    env.dual_database_type = UNSUPPORTED;
    const std::string out =
        run("encode 0\nsearch\nsetdb 1\npb 4\npb setchmask ff\nsetdb 1\nsetdb 0\npb 4\nsetdb 1\n"
            "pb 3\nexit\nsearch\nsetdb 7\nexit\nexit\n");
    EXPECT_EQ(count_of(out, "Decode DB Stream : 1, Type : 3\n"), 2);
    EXPECT_TRUE(contains(out, "Destroy QM AV Codec.\n"));
}

TEST_F(Session, StartsThePlaybackThreadAgainAfterEachSetdb) {
    std::string script = "encode 0\nencode 2\nsearch\npb 4\n";
    for (int i = 0; i < 50; ++i) script += "setdb 1\npb 4\nsetdb 0\npb 5\n";
    const std::string out = run(script + "exit\nexit\n");
    EXPECT_EQ(count_of(out, "Decode DB Stream : 1, Type : 2\n"), 50);
    EXPECT_EQ(count_of(out, "Decode DB Stream : 0, Type : 2\n"), 51);
}

TEST_F(Session, SurvivesEncodersWhoseDatabaseFails) {
    env.main_database_type = env.dual_database_type = UNSUPPORTED;
    const std::string out =
        run("encode 0\nencode 0\nencode 1\nencode 2\nencode 2\nencode 3\nexit\n");
    EXPECT_EQ(count_of(out, "Encode DB Stream :"), 2);
    EXPECT_FALSE(contains(out, "already running"));
    env.dual_database_type = 2;
    env.jpeg_database_type = UNSUPPORTED;
    EXPECT_TRUE(contains(run("encode 2\nencode 2\nencode 3\nexit\n"), "already running"));
}

TEST_F(Session, OpensAgainAfterEachFault) {
    for (const char* fault : {"fail.create=1", "fail.mask=1", "fail.init=1"}) {
        sim::control(fault);
        EXPECT_FALSE(contains(run("exit\n"), "MAIN>")) << fault;
        EXPECT_TRUE(contains(run("exit\n"), "MAIN>")) << fault;
    }
}

// Counts what piles up, if anything does.
TEST_F(Session, RecordsTheOtherStreamsAThousandTimesWithTheJpegDatabaseLeftOpen) {
    sim::use_stepped_clock(1'700'000'000'000'000);
    int descriptors = 0;
    uint64_t encoded = 0;
    const std::string out = run_console("", [&] {
        open_codec();
        for (int i = 0; i < 1000; ++i) {
            app_encode_command(ENCODE_RUN_OTHERS);
            sim::step_clock(40'000);  // one or two frames of each channel
            encoded += static_cast<uint64_t>(env.jpeg_encode_thread->stat[0].total_frames[0]);
            app_encode_command(ENCODE_STOP_OTHERS);
            if (i == 0) descriptors = descriptors_of_process();
            ASSERT_EQ(sim::open_databases(), 1);  // the JPEG database
        }
        EXPECT_EQ(descriptors_of_process(), descriptors);
        EXPECT_EQ(threads_of_process(), threads_before + 1);  // the board's pacer
        const sim::DatabaseReport kept = sim::database_report(env.jpeg_db);
        EXPECT_GE(encoded, 1000u);
        EXPECT_EQ(kept.end, 4 * encoded);  // four channels
        EXPECT_EQ(kept.video, 960u);       // the ring's limit
        EXPECT_EQ(kept.refused, 0u);
        close_codec();
    });
    EXPECT_FALSE(contains(out, "[Err]"));
}

// The builders run on a thread of their own while the console thread takes the playback object
// away.
TEST_F(Session, BuildsSearchReportsWhileSearchIsEnteredAndLeft) {
    std::atomic<bool> stop{false};
    std::atomic<int> built{0};
    std::thread reports([&] {
        std::string rate, idr;
        while (!stop) {
            app_searchwork_getstatus_string(&rate);
            app_searchwork_get_idr_status_string(&idr);
            if (!rate.empty() && !idr.empty()) ++built;
        }
    });
    std::string script = "encode 0\n";
    for (int i = 0; i < 30; ++i) script += "search\npb 4\nsetdb 1\nsetdb 0\nexit\n";
    run(script + "exit\n");
    EXPECT_TRUE(comes_true([&] {
        run("search\nsetdb 1\nsetdb 0\nexit\nexit\n");
        return built > 0;
    }));
    stop = true;
    reports.join();
}

// The clock runs as fast as the board can follow, so that the status thread is never at rest.
TEST_F(Session, PrintsWholeReportsWhileSearchIsEnteredAndLeft) {
    sim::use_stepped_clock(1'700'000'000'000'000);
    for (auto& stream : env.venc)
        for (auto& unit : stream) unit.framerate = 1;
    std::atomic<bool> stop{false};
    std::thread clock([&stop] {
        for (; !stop; usleep(500)) sim::step_clock(1'000'000);
    });
    std::string script = "encode 0\nencode 2\nstatus\nset\nt f00030f 0\n9\nrun\nexit\n";
    for (int i = 0; i < 100; ++i) script += "search\npb 4\nsetdb 1\nsetdb 0\nsetdb 5\nexit\n";
    const auto a_session_prints_reports = [&] {
        const std::string out = run(script + "exit\n");
        const int reports = count_of(out, "\nSearch Status\n");
        EXPECT_EQ(count_of(out, "\nSearch Status\n" + RATE_HEADING + " 0 "), reports);
        EXPECT_EQ(count_of(out, ", BUF Count:"), reports);
        EXPECT_EQ(count_of(out, " !!  Status thread is running  !!\n"), 1);
        EXPECT_EQ(count_of(out, " !! Status thread is stopped !!\n"), 1);
        const size_t farewell = out.find(" !! Status thread is stopped !!\n");
        EXPECT_EQ(escaped(out.substr(std::min(farewell, out.size()))),
                  escaped(" !! Status thread is stopped !!\nRelease ReleaseAVCodec - Begin\n"
                          "Release ReleaseAVCodec - End\nDestroy QM AV Codec.\n"));
        return reports > 0 || HasFailure();
    };
    EXPECT_TRUE(comes_true(a_session_prints_reports));
    stop = true;
    clock.join();
}

TEST_F(Session, BuildsEncodeReportsWhileEncodersStartAndStop) {
    open_codec();
    std::atomic<bool> stop{false};
    std::atomic<int> built{0};
    std::thread reports([&] {
        std::string text;
        while (!stop) {
            app_mainwork_getstatus_string(&text);
            app_mainwork_get_idr_status_string(&text);
            app_get_audio_frame_count_status(&text);
            app_get_other_stream_status(&text, QMCODEC_STREAM_DUAL);
            app_get_other_stream_status(&text, QMCODEC_STREAM_JPEG);
            app_get_other_stream_idr_status(&text, QMCODEC_STREAM_DUAL);
            if (!text.empty()) ++built;
            std::this_thread::yield();
        }
    });
    output_of([&] {
        for (int i = 0; i < 30 || built == 0; ++i) {
            app_encode_command(ENCODE_RUN_MAIN);
            app_encode_command(ENCODE_RUN_OTHERS);
            for (auto& unit : env.venc[0]) store_idr(unit, static_cast<uint32_t>(i));
            app_encode_command(ENCODE_STOP_MAIN);
            app_encode_command(ENCODE_STOP_OTHERS);
        }
    });
    stop = true;
    reports.join();
    close_codec();
}

// The status thread itself, faster than a watch. It takes its start a moment after it said that it
// runs: when the clock was stepped in between no table comes, and another session is begun.
TEST_F(Session, PrintsEachTableEverySecondOfBoardTime) {
    sim::use_stepped_clock(1'700'000'000'000'000);
    const auto tables = [] { return count_of(printed(), "\nMain Stream Encode Status\n"); };
    std::string out;
    const auto session = [&] {
        bool in_step = false;
        out = run_console("", [&] {
            open_codec();
            app_encode_command(ENCODE_RUN_MAIN);
            sim::step_clock(10'000);  // a second of the tables then ends between two frames
            _l_st_stat.mask_a = 1;
            app_stat_run(0, nullptr);
            EXPECT_TRUE(comes_true([] { return contains(printed(), "Status thread is running"); }));
            sim::step_clock(1'000'000);
            in_step = comes_true([&] { return tables() == 1; }, std::chrono::seconds(2));
            for (int second = 2; in_step && !HasFailure() && second <= 3; ++second) {
                sim::step_clock(1'000'000);
                EXPECT_TRUE(comes_true([&] { return tables() == second; }));
            }
            app_status_stop();
            app_encode_command(ENCODE_STOP_MAIN);
            close_codec();
        });
        return in_step || HasFailure();
    };
    ASSERT_TRUE(comes_true(session));
    EXPECT_EQ(count_of(out, "\nMain Stream Encode Status\n"), 3);
    // QCIF at QP 27, IDR every 7: frames 0, 7, 14, 21, 28 of the first 30 are key frames, 220 bytes
    // for the others and 1320 for those: 12100 bytes, 11.8 KiB, 94 Kibit.
    EXPECT_TRUE(contains(out, " 0        30         30       11.8        94\n"));
    EXPECT_TRUE(contains(out, " 0        60         30"));
    EXPECT_TRUE(contains(out, " 0        90         30"));
    EXPECT_TRUE(contains(out, "15         0          0        0.0         0\n"));
}

TEST_F(Session, CarriesAPrivateZoneAndLiveChangesToTheBoard) {
    const std::string out =
        run("encode 0\nprivate 0 1 0 0 256 256\nprivate 200 1 0 0 1 1\nprivate 272 0 0 0 0 0\n"
            "setup\nenvchange -ve 0 16 3 7\nenvchange -ve 0 16 7 77\nenvchange -ve 5 3 6 -1\n"
            "envchange -ve 0 1 3 -5\nexit\nencode 1\nexit\n");
    EXPECT_TRUE(contains(out, "app_private_zone() : 0, 1, (0,0) (256,256)\n"));
    EXPECT_EQ(count_of(out, "app_private_zone() : "), 18);
    EXPECT_EQ(env.venc[0][0].qp, 77 % 52);
}

}  // namespace
