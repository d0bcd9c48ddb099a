// Databases on disk as the threads use them: what becomes durable when, clock steps, trouble, and
// recordings played back after their session.
#include "sdk/db/disk_db.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "tests/support/sim_session.h"
#include "tests/support/temp_dir.h"

namespace {

using sim::FrameInfo;
using sim::FrameKind;
using sim::StreamDb;
using Appended = StreamDb::Appended;

qm_dbframe frame_at(int64_t time_us, size_t bytes = 500) {
    qm_dbframe frame;
    frame.info.kind = FrameKind::jpeg;
    frame.info.stream = 2;
    frame.info.time_us = time_us;
    frame.info.bytes = static_cast<uint32_t>(bytes);
    frame.reserve(bytes);
    memset(frame.payload.get(), 5, bytes);
    return frame;
}

class DiskDb : public SimSession {
  protected:
    void SetUp() override {
        SimSession::SetUp();
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        SimSession::TearDown();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), said);
    }

    StreamDb* open(uint32_t mode, uint32_t a = 16, uint32_t b = 100, const char* name = "a.ini") {
        iqm_db* db = nullptr;
        qm_db_create(DB_TYPE_DISK, &db);
        QMDBOpenParam param = {folder.path() + "/new/" + name, mode, a, b};
        if (db->Open(&param) == 0) qm_db_destroy(&db);
        return StreamDb::of(db);
    }
    std::string path(const std::string& name) const { return folder.path() + "/new/" + name; }

    TempDir folder;
    std::string said;  // what the test expects on standard error
};

TEST_F(DiskDb, WritesHalfASecondAfterTheFirstFrame) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    EXPECT_EQ(db->due_us(), sim::NEVER);
    db->append(frame_at(START_US));
    EXPECT_EQ(db->due_us(), START_US + SECOND_US / 2);
    sim::step_clock(SECOND_US / 2 - 1);
    db->tend();
    EXPECT_NE(access(path("a.ini.0000000001.seg").c_str(), F_OK), 0);
    sim::step_clock(1);
    db->tend();
    EXPECT_EQ(access(path("a.ini.0000000001.seg").c_str(), F_OK), 0);
    EXPECT_EQ(db->end(), 1u);
    EXPECT_EQ(db->due_us(), sim::NEVER);
}

TEST_F(DiskDb, KeepsItsFilesPrivateToItsGroup) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    db->append(frame_at(START_US));
    db->Close();
    struct stat status;
    for (const char* name : {"a.ini", "a.ini.lock", "a.ini.0000000001.seg"}) {
        ASSERT_EQ(stat(path(name).c_str(), &status), 0) << name;
        EXPECT_EQ(status.st_mode & 0777, 0640u & status.st_mode) << name;
        EXPECT_NE(status.st_mode & 0600, 0u) << name;
    }
}

TEST_F(DiskDb, BeginsANewRunWhenTheClockIsSet) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    db->append(frame_at(START_US));
    db->append(frame_at(START_US + 1000));
    sim::set_utc_clock(-3600 * SECOND_US);
    db->append(frame_at(START_US + 2000));
    sim::set_utc_clock(3600 * SECOND_US);
    db->commit();
    FrameInfo before, after;
    ASSERT_TRUE(db->info(0, before));
    ASSERT_TRUE(db->info(1, after));
    EXPECT_EQ(before.run, after.run);
    ASSERT_TRUE(db->info(2, after));
    EXPECT_EQ(after.run, before.run + 1);
    EXPECT_EQ(after.time_us, START_US + 2000 - 3600 * SECOND_US);
    // Order is that of recording.
    EXPECT_EQ(db->at_time(START_US + 1000), 1u);
}

TEST_F(DiskDb, IsNotThereBeforeItWasRecorded) {
    EXPECT_EQ(open(0), nullptr);
    said =
        "qm7105 board: database '" + path("a.ini") + "' is not opened: there is no such database\n";
}

TEST_F(DiskDb, NeedsAName) {
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_DISK, &db);
    QMDBOpenParam param = {"", 1, 16, 10};
    EXPECT_EQ(db->Open(&param), 0);
    said = "qm7105 board: database '' is not opened: on disk it needs a name\n";
    qm_db_destroy(&db);
}

TEST_F(DiskDb, CannotHaveSegmentsOfNoSize) {
    for (const auto& [a, b] : {std::pair{0u, 10u}, {16385u, 10u}, {16u, 0u}}) {
        EXPECT_EQ(open(1, a, b), nullptr);
        said += "qm7105 board: database '" + path("a.ini") +
                "' is not opened: " + std::to_string(b) + " segments of " + std::to_string(a) +
                " x 64 KiB cannot be made\n";
    }
}

std::string cannot_write(const std::string& file, int segment) {
    return "qm7105 board: database '" + file + "': segment " + std::to_string(segment) +
           " cannot be written: Input/output error; the frames wait\n";
}

std::string written_again(const std::string& file) {
    return "qm7105 board: database '" + file + "' is written again\n";
}

TEST_F(DiskDb, SaysWhenWritingFailsAndWhenItWorksAgain) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    sim::control("fail.disk=all");
    db->append(frame_at(START_US));
    db->commit();
    db->commit();
    sim::control("fail.disk=0");
    db->commit();
    EXPECT_EQ(db->end(), 1u);
    said = cannot_write(path("a.ini"), 2) + written_again(path("a.ini"));
}

TEST_F(DiskDb, GoesOnInANewSegmentAfterOneFailureWithoutAWord) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    db->append(frame_at(START_US));
    db->commit();
    sim::control("fail.disk=1");
    db->append(frame_at(START_US + 1));
    db->commit();
    EXPECT_EQ(db->end(), 2u);
    EXPECT_EQ(access(path("a.ini.0000000002.seg").c_str(), F_OK), 0);
}

TEST_F(DiskDb, PassesOverANameThatSomebodyTook) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(mkdir(path("a.ini.0000000001.seg").c_str(), 0700), 0);
    db->begin_writing();
    db->append(frame_at(START_US));
    db->commit();
    EXPECT_EQ(db->end(), 1u);
}

TEST_F(DiskDb, IsNotAtItsEndForAFileWithTheHighestNumber) {
    ASSERT_EQ(mkdir((folder.path() + "/new").c_str(), 0700), 0);
    folder.write("new/a.ini.9999999999.seg", "no segment");
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    db->append(frame_at(START_US));
    db->end_writing();
    EXPECT_EQ(db->end(), 1u);
    EXPECT_EQ(access(path("a.ini.0000000001.seg").c_str(), F_OK), 0);
}

TEST_F(DiskDb, SaysWhatIsLostWhenWritingFailsToTheEnd) {
    StreamDb* db = open(1);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    sim::control("fail.disk=all");
    db->append(frame_at(START_US));
    db->append(frame_at(START_US));
    db->end_writing();
    EXPECT_EQ(db->report().lost, 2u);
    said = "qm7105 board: database '" + path("a.ini") +
           "': 2 records are lost: segment 2 cannot be written: Input/output error\n";
}

TEST_F(DiskDb, TakesFramesAgainFromAFullBufferWhenTheTroubleIsOver) {
    StreamDb* db = open(1, 64);
    ASSERT_NE(db, nullptr);
    db->begin_writing();
    sim::control("fail.disk=all");
    uint64_t stored = 0;
    for (int busy = 0; busy < 5;) {
        const Appended appended = db->append(frame_at(START_US, 50'000));
        ASSERT_NE(appended, Appended::refused);
        if (appended == Appended::stored)
            ASSERT_LT(++stored, 100u);
        else
            ++busy;
    }
    EXPECT_GT(stored, 10u);
    EXPECT_LE(db->due_us(), START_US + SECOND_US);
    sim::control("fail.disk=0");
    sim::step_clock(SECOND_US);
    EXPECT_EQ(db->append(frame_at(START_US, 50'000)), Appended::stored);
    db->end_writing();
    EXPECT_EQ(db->end(), stored + 1);
    said = cannot_write(path("a.ini"), 2) + written_again(path("a.ini"));
}

// The process ends with a database open, in a child of its own: its frames are there afterwards.
TEST(DiskDbAtTheEnd, IsFinishedWhenTheProgramEnds) {
    const TempDir folder;
    QMDBOpenParam param = {folder.path() + "/a.ini", 1, 16, 10};
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        iqm_db* db = nullptr;
        qm_db_create(DB_TYPE_DISK, &db);
        if (db->Open(&param) == 0) _exit(1);
        StreamDb::of(db)->append(frame_at(START_US));
        exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_DISK, &db);
    param.mode = 0;
    ASSERT_NE(db->Open(&param), 0);
    EXPECT_EQ(StreamDb::of(db)->end(), 1u);
    qm_db_destroy(&db);
}

// A recording thread, its database, and a playback of the same path.
class DiskRecording : public DiskDb {
  protected:
    void record(int64_t seconds) {
        StreamDb* db = open(1, 64);
        ASSERT_NE(db, nullptr);
        qm_thread_encode recorder;
        start(recorder, db);
        switch_on(0, 0, 10, 10);
        switch_on(0, 1, 10, 10);
        step_seconds(seconds);
        encoder->SetChannelEnable(0, 0, 0);
        encoder->SetChannelEnable(0, 1, 0);
        recorder.DestroyThread();
        iqm_db* closed = db;
        closed->Close();
        qm_db_destroy(&closed);
    }
    int frames(qm_thread_decode& player, int ch) {
        return player.GetCalculData(CALCUL_TOTAL_FRAMES, ch);
    }
};

TEST_F(DiskRecording, IsPlayedBackAfterItsSessionInRecordedTime) {
    record(3);
    close_codec();
    open_codec(15, 0);
    StreamDb* db = open(0);
    ASSERT_NE(db, nullptr);
    qm_thread_decode player;
    start(player, db);
    player.SetPBChannelEnableMask(0xFFFF, 15);
    player.SetPBState(PB_STATE_FORWARD);
    step_seconds(1);
    EXPECT_NEAR(frames(player, 0), 10, 1);
    step_seconds(3);
    const uint64_t recorded = db->end();
    EXPECT_EQ(static_cast<uint64_t>(frames(player, 0) + frames(player, 1)), recorded);
    EXPECT_GE(recorded, 60u);
    EXPECT_EQ(sim::playback_report(player).damaged, 0u);
    player.DestroyThread();
}

TEST_F(DiskRecording, TakesNoTimeBetweenTwoRecordings) {
    record(2);
    step_seconds(3600);
    record(2);
    StreamDb* db = open(0);
    ASSERT_NE(db, nullptr);
    qm_thread_decode player;
    start(player, db);
    player.SetPBChannelEnableMask(1, 15);
    player.SetPBState(PB_STATE_FORWARD);
    step_seconds(5);
    EXPECT_GE(frames(player, 0), 40);
    player.DestroyThread();
}

TEST_F(DiskRecording, IsFollowedWhileItIsRecorded) {
    StreamDb* db = open(1, 64);
    ASSERT_NE(db, nullptr);
    qm_thread_encode recorder;
    start(recorder, db);
    switch_on(0, 0, 10, 10);
    step_seconds(2);
    StreamDb* reader = open(0);
    ASSERT_NE(reader, nullptr);
    qm_thread_decode player;
    start(player, reader);
    player.SetPBChannelEnableMask(1, 15);
    player.SetPBState(PB_STATE_FORWARD);
    step_seconds(10);
    const int after_ten = frames(player, 0);
    EXPECT_GE(after_ten, 90);
    step_seconds(10);
    EXPECT_NEAR(frames(player, 0) - after_ten, 100, 10);
    player.DestroyThread();
    recorder.DestroyThread();
}

TEST_F(DiskRecording, LetsTimePassWhenEveryChannelIsMaskedOff) {
    record(5);
    StreamDb* db = open(0);
    ASSERT_NE(db, nullptr);
    qm_thread_decode player;
    start(player, db);
    player.SetPBChannelEnableMask(0, 15);
    player.SetPBState(PB_STATE_FORWARD);
    step_seconds(2);
    EXPECT_EQ(sim::playback_report(player).state, PB_STATE_FORWARD);
    player.SetPBChannelEnableMask(1, 15);
    step_seconds(1);
    EXPECT_NEAR(frames(player, 0), 10, 10);
    step_seconds(5);
    EXPECT_LE(frames(player, 0), 31);
    EXPECT_GE(frames(player, 0), 20);
    player.DestroyThread();
}

}  // namespace
