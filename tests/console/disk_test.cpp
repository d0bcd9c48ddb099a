// Recordings on disk through the whole program: what is there after the program has ended, however
// it ended, and what the operator hears when the disk does not work.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <linux/capability.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "mainwork/qm_db.h"
#include "sdk/sim_control.h"
#include "tests/console/disk_program.h"
#include "tests/console/texts.h"

namespace {

using namespace texts;

// Frames that are a second of the recording, and enough for a test.
constexpr int SECOND = 30;
constexpr int SOME = 4 * SECOND;

std::string environment(const std::string& folder, int type = 0) {
    const std::string kind = std::to_string(type);
    return "[GENERAL]\nmain_database_type = " + kind + "\ndual_database_type = " + kind +
           "\njpeg_database_type = " + kind + "\nmain_stream_db = " + folder +
           "/main.ini\ndual_stream_db = " + folder + "/dual.ini\njpeg_stream_db = " + folder +
           "/jpeg.ini\ndecode_stream_db = " + folder +
           "/main.ini\n"
           "[MAIN STREAM]\nch_01 = 1 0 30 10 0 27 2048000 0\n"
           "[DUAL STREAM]\nch_01 = 1 1 15 5 0 27 2048000 0\n"
           "[JPEG STREAM]\nch_01 = 1 2 5 0 0 27 2048000 0\n";
}

class DiskSession : public testing::Test {
  protected:
    DiskSession() { m_folder.write("disk.ini", environment("recordings")); }

    // Records until `frames` have come, switches the camera off, leaves. The frames that came.
    int record(int frames) {
        DiskProgram recorder(m_folder);
        recorder.type("ENCODE 0\n");
        EXPECT_GE(recorder.recorded(frames), frames);
        const int all = recorder.switch_off();
        EXPECT_EQ(recorder.leave(), 0);
        EXPECT_EQ(recorder.said(), "");
        return all;
    }

    // Another program plays all that is there: these are `frames`.
    void check_played(int frames) {
        DiskProgram player(m_folder, "disk.ini", "speed=20");
        EXPECT_TRUE(player.search());
        EXPECT_EQ(player.played_to_the_end(frames), frames);
        EXPECT_EQ(player.leave(), 0);
        EXPECT_EQ(player.said(), "");
    }

    // The frames that are in the database of the main stream, which nobody records into.
    int held() {
        iqm_db* db = nullptr;
        qm_db_create(DB_TYPE_DISK, &db);
        QMDBOpenParam param = {in_recordings("main.ini"), 0, 0, 0};
        EXPECT_NE(db->Open(&param), 0);
        const sim::DatabaseReport report = sim::database_report(db);
        db->Close();
        qm_db_destroy(&db);
        return static_cast<int>(report.end - report.first);
    }

    std::string not_opened(const std::string& path, const std::string& why) {
        return "qm7105 board: database '" + path + "' is not opened: " + why + "\n";
    }

    // The MAIN menu refuses to search, with `line` on standard error.
    void check_no_search(const std::string& line) {
        DiskProgram player(m_folder);
        player.type("SEARCH\n");
        EXPECT_TRUE(player.expect("Decode DB Stream : 0, Type : 0\n" + MAIN));
        EXPECT_EQ(player.leave(), 0);
        EXPECT_EQ(player.said(), line);
    }

    // The main stream cannot be recorded, with `line` on standard error.
    void check_no_recording(const std::string& path, const std::string& line) {
        DiskProgram recorder(m_folder);
        recorder.type("ENCODE 0\nENCODE 1\n");
        EXPECT_TRUE(recorder.expect("Encode DB Stream : " + path + ", Type : 0\n" + MAIN + MAIN));
        EXPECT_EQ(recorder.leave(), 0);
        EXPECT_EQ(recorder.said(), line);
    }

    std::string in_recordings(const std::string& name) {
        return m_folder.file("recordings/" + name);
    }

    TempDir m_folder;
};

// Files of this process, and of the programs that it starts meanwhile, are no larger.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit now = {bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &now);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

  private:
    rlimit m_before = {};
};

using DiskSessionLong = DiskSession;

TEST_F(DiskSession, LivesOnWhenItsFilesMayNotBeSoLarge) {
    const FileSizeLimit limit(100'000);
    DiskProgram recorder(m_folder);
    recorder.type("ENCODE 0\n");
    EXPECT_GE(recorder.recorded(SOME), SOME);
    const std::string trouble =
        "qm7105 board: database 'recordings/main.ini': segment 1 cannot be written: File too "
        "large; the frames wait\n";
    EXPECT_TRUE(recorder.expect_said(trouble));
    EXPECT_EQ(recorder.leave(), 0);
    EXPECT_EQ(recorder.said().find(trouble), 0u);
}

}  // namespace

TEST_F(DiskSession, PlaysWhatAnEarlierProgramRecorded) {
    const int recorded = record(SOME);
    EXPECT_GE(recorded, SOME);
    check_played(recorded);
}

TEST_F(DiskSession, KeepsARecordingOverTheNextOne) {
    const int first = record(SOME);
    const int second = record(SOME);
    check_played(first + second);
}

TEST_F(DiskSession, KeepsARecordingOverEncode1AndTheSession) {
    DiskProgram program(m_folder);
    program.type("ENCODE 0\n");
    const int first = program.recorded(SECOND);
    ASSERT_TRUE(program.begin_anew());
    const int second = program.recorded(SECOND);
    program.type("q\nMAIN\nSTATUS\nRUN\nq\n");
    ASSERT_TRUE(program.search());
    EXPECT_GE(program.played(first + second), first + second);
    EXPECT_EQ(program.leave(), 0);
    EXPECT_EQ(program.said(), "");
}

TEST_F(DiskSession, RecordsEveryGroupIntoItsOwnDatabase) {
    DiskProgram recorder(m_folder);
    recorder.type("ENCODE 0\nENCODE 2\nENCODE 3\nENCODE 2\n");
    // What is told behind the next table of the main stream was begun the second time.
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(recorder.expect("Encode DB Stream(Jpeg) : "));
    EXPECT_GE(recorder.recorded(SECOND), SECOND);
    EXPECT_GE(recorder.recorded_dual(1), 1);
    EXPECT_GE(recorder.recorded_jpeg(1), 1);
    EXPECT_EQ(recorder.leave(), 0);
    EXPECT_EQ(recorder.said(), "");
    for (const char* name : {"main.ini", "dual.ini", "jpeg.ini"}) {
        EXPECT_TRUE(std::filesystem::is_regular_file(in_recordings(name))) << name;
        EXPECT_TRUE(
            std::filesystem::is_regular_file(in_recordings(name + std::string(".0000000001.seg"))))
            << name;
    }
    DiskProgram player(m_folder);
    player.type("SEARCH\nSETDB 1\n");
    EXPECT_TRUE(player.expect("Decode DB Stream : 1, Type : 0\n"));
    EXPECT_GT(player.played(1), 0);
    EXPECT_EQ(player.leave(), 0);
}

TEST_F(DiskSession, Type1IsOnDiskAsWell) {
    m_folder.write("one.ini", environment("recordings", 1));
    DiskProgram recorder(m_folder, "one.ini");
    recorder.type("ENCODE 0\n");
    EXPECT_GE(recorder.recorded(SOME), SOME);
    const int recorded = recorder.switch_off();
    EXPECT_EQ(recorder.leave(), 0);
    check_played(recorded);
}

TEST_F(DiskSession, PlaysWhatAnotherProgramIsRecording) {
    DiskProgram recorder(m_folder);
    recorder.type("ENCODE 0\n");
    ASSERT_GE(recorder.recorded(SOME), SOME);
    // Faster than the recorder, so it reaches the end of what is there again and again.
    DiskProgram player(m_folder, "disk.ini", "speed=40");
    ASSERT_TRUE(player.search());
    const int caught_up = player.played(SOME);
    EXPECT_GE(caught_up, SOME);
    // It goes on with what arrives, to the last frame.
    EXPECT_GT(player.played(caught_up + SOME), caught_up);
    const int recorded = recorder.switch_off();
    EXPECT_EQ(recorder.leave(), 0);
    EXPECT_EQ(player.played(recorded), recorded);
    EXPECT_EQ(player.leave(), 0);
    EXPECT_EQ(recorder.said() + player.said(), "");
}

TEST_F(DiskSession, IsThereAfterAKillAndIsRecordedOn) {
    int kept;
    {
        DiskProgram recorder(m_folder);
        recorder.type("ENCODE 0\n");
        ASSERT_GE(recorder.recorded(SECOND), SECOND);
        // What another program played has reached the disk.
        DiskProgram player(m_folder);
        ASSERT_TRUE(player.search());
        kept = player.played(SOME);
        ASSERT_GE(kept, SOME);
        recorder.kill();
        EXPECT_EQ(player.leave(), 0);
    }
    const int after_kill = held();
    EXPECT_GE(after_kill, kept);
    check_played(after_kill);
    const int recorded = record(SECOND);
    check_played(after_kill + recorded);
}

TEST_F(DiskSession, APathHasOneRecorder) {
    DiskProgram first(m_folder);
    first.type("ENCODE 0\n");
    ASSERT_GE(first.recorded(1), 1);
    check_no_recording("recordings/main.ini",
                       not_opened("recordings/main.ini", "it is being recorded already"));
    const int recorded = first.switch_off();
    EXPECT_EQ(first.leave(), 0);
    EXPECT_EQ(first.said(), "");
    // The place is free, and nothing was disturbed.
    const int both = recorded + record(SECOND);
    check_played(both);
}

TEST_F(DiskSession, TwoGroupsWithOnePathAreRefusedTheSecond) {
    std::string text = environment("recordings");
    text.replace(text.find("recordings/dual.ini"), 19, "recordings/main.ini");
    m_folder.write("disk.ini", text);
    DiskProgram recorder(m_folder);
    recorder.type("ENCODE 0\nENCODE 2\n");
    EXPECT_TRUE(recorder.expect("Encode DB Stream(Jpeg) : recordings/jpeg.ini, Type : 0\n"));
    EXPECT_EQ(recorder.said(), not_opened("recordings/main.ini", "it is being recorded already"));
    EXPECT_EQ(recorder.leave(), 0);
}

TEST_F(DiskSession, CannotSearchWhatWasNeverRecorded) {
    check_no_search(not_opened("recordings/main.ini", "there is no such database"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.file("recordings")));
}

TEST_F(DiskSession, CannotRecordWhereAFileIsInTheWay) {
    m_folder.write("recordings", "not a folder");
    check_no_recording(
        "recordings/main.ini",
        not_opened("recordings/main.ini", "cannot open the folder: Not a directory"));
}

std::string cannot_be_written(int segment) {
    return "qm7105 board: database 'recordings/main.ini': segment " + std::to_string(segment) +
           " cannot be written: Input/output error; the frames wait\n";
}

TEST_F(DiskSession, LosesNothingWhileTheDiskFailsForAMoment) {
    DiskProgram recorder(m_folder, "disk.ini", "speed=4 fail.disk=12");
    recorder.type("ENCODE 0\n");
    ASSERT_TRUE(recorder.expect_said("is written again\n"));
    const int recorded = recorder.switch_off();
    EXPECT_EQ(recorder.leave(), 0);
    EXPECT_EQ(recorder.said(), cannot_be_written(2) +
                                   "qm7105 board: database 'recordings/main.ini' is written "
                                   "again\n");
    check_played(recorded);
}

TEST_F(DiskSession, KeepsWhatItHasAndSaysWhatIsLostWhenTheDiskFailsForGood) {
    const int before = record(SECOND);
    DiskProgram recorder(m_folder, "disk.ini", "speed=4 fail.disk=all");
    recorder.type("ENCODE 0\n");
    ASSERT_GE(recorder.recorded(SECOND), SECOND);
    const int lost = recorder.switch_off();
    EXPECT_EQ(recorder.leave(), 0);
    EXPECT_EQ(recorder.said(),
              cannot_be_written(2) +
                  "qm7105 board: database 'recordings/main.ini': " + std::to_string(lost) +
                  " records are lost: segment 2 cannot be written: Input/output "
                  "error\n");
    check_played(before);
}

// The number in front of `words`; -1 when they are not there.
int count_before(const std::string& words, const std::string& text) {
    const size_t end = text.find(words);
    if (end == std::string::npos) return -1;
    const size_t begin = text.find_last_not_of("0123456789", end - 1) + 1;
    return begin < end ? std::stoi(text.substr(begin, end - begin)) : -1;
}

// The buffer is full, the frame list keeps 2048 frames, and what came before them goes group by
// group. All that is lost is counted. On a slow disk the list is perhaps full before the first
// write has failed, and on a busy machine before the buffer is.
TEST_F(DiskSession, DropsWholeGroupsWhileTheDiskFails) {
    DiskProgram recorder(m_folder, "disk.ini", "speed=200 fail.disk=all");
    recorder.type("ENCODE 0\n");
    ASSERT_TRUE(recorder.expect_said(
        "qm7105 board: main stream: the database is too slow, waiting frames are being dropped\n"));
    ASSERT_TRUE(recorder.expect_said(cannot_be_written(2)));
    EXPECT_EQ(recorder.leave(), 0);
    const std::string said = recorder.said();
    const int dropped = count_before(" frames were dropped\n", said);
    const int frames = count_before(" frames are lost, the database cannot be written\n", said);
    const int records =
        count_before(" records are lost: segment 2 cannot be written: Input/output error\n", said);
    EXPECT_GE(std::max(dropped, frames), 1) << said;
    EXPECT_GE(records, 1) << said;
    EXPECT_GE(std::max(dropped, 0) + std::max(frames, 0) + records, 2048) << said;
}

// A program started from here on keeps to the modes of files, whoever starts it.
class ReadOnlyFolder : public DiskSession {
  protected:
    ReadOnlyFolder() { prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); }
    ~ReadOnlyFolder() override { chmod(in_recordings("").c_str(), 0755); }
};

TEST_F(ReadOnlyFolder, CannotBeRecordedInto) {
    mkdir(in_recordings("").c_str(), 0555);
    check_no_recording(
        "recordings/main.ini",
        not_opened("recordings/main.ini", "cannot lock main.ini.lock: Permission denied"));
}

TEST_F(ReadOnlyFolder, CannotBeMadeABetterOne) {
    mkdir(in_recordings("").c_str(), 0555);
    m_folder.write("disk.ini", environment("recordings/new/folder"));
    check_no_recording(
        "recordings/new/folder/main.ini",
        not_opened("recordings/new/folder/main.ini", "cannot open the folder: Permission denied"));
}

TEST_F(ReadOnlyFolder, CanBePlayed) {
    const int recorded = record(SECOND);
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.file("recordings")))
        chmod(entry.path().c_str(), 0444);
    chmod(in_recordings("").c_str(), 0555);
    check_played(recorded);
}

// Every kill leaves an open segment behind, and the next program goes on in it.
TEST_F(DiskSessionLong, OutlivesOneKillAfterTheOther) {
    int kept = 0;
    for (int round = 0; round < 4; ++round) {
        DiskProgram recorder(m_folder);
        recorder.type("ENCODE 0\nENCODE 2\n");
        ASSERT_GE(recorder.recorded(1), 1);
        DiskProgram player(m_folder, "disk.ini", "speed=20");
        ASSERT_TRUE(player.search());
        const int seen = player.played(kept + SECOND);
        ASSERT_GE(seen, kept + SECOND);
        recorder.kill();
        EXPECT_EQ(player.leave(), 0);
        EXPECT_EQ(recorder.said() + player.said(), "");
        kept = held();
        EXPECT_GE(kept, seen);
        check_played(kept);
    }
    const int recorded = record(SECOND);
    check_played(kept + recorded);
}
