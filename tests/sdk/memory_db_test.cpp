// The in-memory database: the ring, and who may open what.
#include "sdk/db/memory_db.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "mainwork/qm_codec.h"
#include "sdk/sim_control.h"

namespace {

using sim::FrameKind;
using Appended = sim::StreamDb::Appended;

constexpr size_t UNIT = 64 * 1024;

qm_dbframe frame_of(size_t bytes, FrameKind kind = FrameKind::p, uint32_t number = 0) {
    qm_dbframe frame;
    frame.info.kind = kind;
    frame.info.number = number;
    frame.info.bytes = static_cast<uint32_t>(bytes);
    frame.reserve(bytes);
    if (bytes > 0) memset(frame.payload.get(), static_cast<int>(number & 0xFF), bytes);
    return frame;
}

sim::StreamDb* create() {
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_MEMORY, &db);
    return sim::StreamDb::of(db);
}

bool open(sim::StreamDb* db, const std::string& path, uint32_t mode = 1, uint32_t a = 1,
          uint32_t b = 100) {
    QMDBOpenParam param = {path, mode, a, b};
    return db->Open(&param) != 0;
}

class MemoryDb : public ::testing::Test {
  protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override {
        sim::control_reset();
        QMAVCodec* none = nullptr;
        DestroyQMAVCodec(none);  // finishes what is open
        EXPECT_EQ(sim::open_databases(), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), said);
    }
    std::string said;  // what the test expects on standard error
};

TEST_F(MemoryDb, GivesBackWhatWasAppended) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a"));
    for (uint32_t n = 0; n < 10; ++n)
        EXPECT_EQ(db->append(frame_of(100 + n, FrameKind::p, n)), Appended::stored);
    EXPECT_EQ(db->first(), 0u);
    EXPECT_EQ(db->end(), 10u);
    qm_dbframe out;
    for (uint32_t n = 0; n < 10; ++n) {
        ASSERT_TRUE(db->read(n, out));
        EXPECT_EQ(out.info.number, n);
        ASSERT_EQ(out.info.bytes, 100 + n);
        for (uint32_t i = 0; i < out.info.bytes; ++i) ASSERT_EQ(out.payload[i], n);
    }
    EXPECT_FALSE(db->read(10, out));
    sim::FrameInfo info;
    EXPECT_FALSE(db->info(10, info));
}

TEST_F(MemoryDb, DropsTheOldestWhenTheRingIsFull) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a", 1, 1, 1'000'000));
    qm_dbframe out;
    for (uint32_t n = 0; n < 5000; ++n) {
        ASSERT_EQ(db->append(frame_of(n * 37 % 3000 + 32, FrameKind::p, n)), Appended::stored);
        const sim::DatabaseReport report = db->report();
        ASSERT_LE(report.bytes, UNIT);
        ASSERT_EQ(report.end, n + 1u);
        // Every record that the ring says it keeps is whole.
        for (uint64_t k = report.first; k < report.end; k += 7) {
            ASSERT_TRUE(db->read(k, out));
            ASSERT_EQ(out.info.number, k);
            ASSERT_EQ(out.payload[0], k & 0xFF);
            ASSERT_EQ(out.payload[out.info.bytes - 1], k & 0xFF);
        }
    }
    EXPECT_GT(db->first(), 4900u);
    EXPECT_FALSE(db->read(db->first() - 1, out));
}

TEST_F(MemoryDb, KeepsMostOfTheRingFull) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a", 1, 1, 1'000'000));
    for (uint32_t n = 0; n < 1000; ++n) db->append(frame_of(1000, FrameKind::p, n));
    EXPECT_GE(db->report().bytes, UNIT - 2000);
}

TEST_F(MemoryDb, KeepsAtMostItsNumberOfVideoFramesAudioNotCounted) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a", 1, 1, 5));
    for (uint32_t n = 0; n < 20; ++n) db->append(frame_of(32, FrameKind::audio, n));
    for (uint32_t n = 0; n < 5; ++n) db->append(frame_of(32, FrameKind::p, n));
    EXPECT_EQ(db->report().video, 5u);
    EXPECT_EQ(db->first(), 0u);
    db->append(frame_of(32, FrameKind::p, 5));
    EXPECT_EQ(db->report().video, 5u);
    EXPECT_EQ(db->first(), 21u);  // the audio before the dropped frame went with it
}

TEST_F(MemoryDb, RefusesAndCountsARecordLargerThanTheRing) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a"));
    db->append(frame_of(100));
    EXPECT_EQ(db->append(frame_of(UNIT + 1)), Appended::refused);
    EXPECT_EQ(db->report().refused, 1u);
    EXPECT_EQ(db->report().end, 1u);
    EXPECT_EQ(db->append(frame_of(UNIT, FrameKind::p, 9)), Appended::stored);
    EXPECT_EQ(db->report().bytes, UNIT);
}

// As records of damaged recordings are when they are copied.
TEST_F(MemoryDb, KeepsEmptyPayloadsLikeAllOthers) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a", 1, 1, 1'000'000));
    for (uint32_t n = 0; n < 9; ++n)
        ASSERT_EQ(db->append(frame_of(n % 3 == 2 ? 40 : 0, FrameKind::p, n)), Appended::stored);
    EXPECT_EQ(db->first(), 0u);
    EXPECT_EQ(db->end(), 9u);
    qm_dbframe out;
    for (uint32_t n = 0; n < 9; ++n) {
        ASSERT_TRUE(db->read(n, out));
        EXPECT_EQ(out.info.number, n);
        ASSERT_EQ(out.info.bytes, n % 3 == 2 ? 40u : 0u);
        if (n % 3 == 2) {
            EXPECT_EQ(out.payload[39], n);
        }
    }
}

TEST_F(MemoryDb, IsSharedByItsPath) {
    sim::StreamDb *recorder = create(), *reader = create();
    ASSERT_TRUE(open(recorder, "a"));
    recorder->append(frame_of(50, FrameKind::p, 3));
    ASSERT_TRUE(open(reader, "a", 0));
    qm_dbframe out;
    ASSERT_TRUE(reader->read(0, out));
    EXPECT_EQ(out.info.number, 3u);
}

TEST_F(MemoryDb, CannotBePlayedBackWhenNothingIsRecorded) {
    EXPECT_FALSE(open(create(), "a", 0));
    said =
        "qm7105 board: database 'a' is not opened: nothing is recorded in memory under that name\n";
}

TEST_F(MemoryDb, HasOneRecorderAPath) {
    sim::StreamDb *first = create(), *second = create();
    ASSERT_TRUE(open(first, "a"));
    EXPECT_FALSE(open(second, "a"));  // its thread may be about to start
    first->begin_writing();
    EXPECT_FALSE(open(second, "a"));
    EXPECT_TRUE(open(second, "b"));
    EXPECT_EQ(first->append(frame_of(32)), Appended::stored);
    said =
        "qm7105 board: database 'a' is not opened: it is being recorded already\n"
        "qm7105 board: database 'a' is not opened: it is being recorded already\n";
}

TEST_F(MemoryDb, FreesTheRecordersPlaceWhenItsThreadEndsOrItIsClosed) {
    sim::StreamDb *first = create(), *second = create(), *third = create();
    ASSERT_TRUE(open(first, "a"));
    first->begin_writing();
    first->append(frame_of(32));
    first->end_writing();
    EXPECT_EQ(first->append(frame_of(32)), Appended::refused);
    sim::StreamDb* reader = create();
    ASSERT_TRUE(open(reader, "a", 0));
    ASSERT_TRUE(open(second, "a"));
    EXPECT_EQ(second->end(), 1u);
    second->Close();
    EXPECT_TRUE(open(third, "a"));
}

TEST_F(MemoryDb, TakesOverARecorderWhoseThreadNeverStarted) {
    iqm_db* db = nullptr;
    for (int i = 0; i < 3; ++i) {
        qm_db_create(DB_TYPE_MEMORY, &db);
        ASSERT_TRUE(open(sim::StreamDb::of(db), "jpeg"));
    }
    EXPECT_EQ(sim::open_databases(), 1);
}

TEST_F(MemoryDb, MayHaveManyRecordersWithoutAPath) {
    sim::StreamDb *first = create(), *second = create();
    ASSERT_TRUE(open(first, ""));
    first->begin_writing();
    ASSERT_TRUE(open(second, ""));
    second->begin_writing();
    first->append(frame_of(10));
    EXPECT_EQ(second->end(), 0u);
}

TEST_F(MemoryDb, IsTakenOverWithAllItHoldsWhenItWasLeftOpen) {
    iqm_db* db = nullptr;
    uint32_t number = 0;
    for (int i = 0; i < 1000; ++i) {
        qm_db_create(DB_TYPE_MEMORY, &db);  // over the one before, as ENCODE does
        sim::StreamDb* store = sim::StreamDb::of(db);
        ASSERT_TRUE(open(store, "jpeg", 1, 1, 1'000'000));
        store->begin_writing();
        ASSERT_EQ(store->end(), number);
        store->append(frame_of(32, FrameKind::jpeg, number++));
        store->end_writing();
        ASSERT_EQ(sim::open_databases(), 1);
    }
    EXPECT_EQ(sim::StreamDb::of(db)->first(), 0u);
    EXPECT_EQ(sim::StreamDb::of(db)->end(), 1000u);
}

TEST_F(MemoryDb, KeepsWhatWasLeftOpenThroughAFailedOpen) {
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_MEMORY, &db);
    ASSERT_TRUE(open(sim::StreamDb::of(db), "jpeg"));
    sim::StreamDb::of(db)->begin_writing();
    sim::StreamDb::of(db)->append(frame_of(32));
    sim::StreamDb::of(db)->end_writing();

    sim::control("fail.open=1");
    qm_db_create(DB_TYPE_MEMORY, &db);
    EXPECT_FALSE(open(sim::StreamDb::of(db), "jpeg"));
    qm_db_destroy(&db);
    EXPECT_EQ(db, nullptr);
    EXPECT_EQ(sim::open_databases(), 0);

    qm_db_create(DB_TYPE_MEMORY, &db);
    ASSERT_TRUE(open(sim::StreamDb::of(db), "jpeg"));
    EXPECT_EQ(sim::StreamDb::of(db)->end(), 1u);
    said = "qm7105 board: database 'jpeg' is not opened: it was told to fail\n";
}

TEST_F(MemoryDb, GivesUpTheOldestOfManyThatWereLeftOpenAndSaysSo) {
    iqm_db* db = nullptr;
    for (const char* path : {"1", "2", "3", "4", "5", "6"}) {
        qm_db_create(DB_TYPE_MEMORY, &db);
        ASSERT_TRUE(open(sim::StreamDb::of(db), path));
        sim::StreamDb::of(db)->begin_writing();
        sim::StreamDb::of(db)->append(frame_of(32));
        sim::StreamDb::of(db)->end_writing();
    }
    EXPECT_EQ(sim::open_databases(), 1);
    said =
        "qm7105 board: database '1': 1 records in memory are given up, nobody asked for them again\n";
}

TEST_F(MemoryDb, LeavesARunningRecorderAloneWhenAnotherIsCreatedOverItsPointer) {
    iqm_db* db = nullptr;
    qm_db_create(DB_TYPE_MEMORY, &db);
    sim::StreamDb* running = sim::StreamDb::of(db);
    ASSERT_TRUE(open(running, "a"));
    running->begin_writing();
    qm_db_create(DB_TYPE_MEMORY, &db);
    EXPECT_NE(db, running);
    EXPECT_EQ(running->append(frame_of(32)), Appended::stored);
    EXPECT_EQ(sim::open_databases(), 2);
    running->end_writing();
}

TEST_F(MemoryDb, IsEmptyAfterAnOrdinaryCloseAndANewOpen) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a"));
    db->append(frame_of(32));
    db->Close();
    db->Close();  // harmless
    EXPECT_EQ(db->end(), 0u);
    EXPECT_EQ(db->append(frame_of(32)), Appended::refused);
    ASSERT_TRUE(open(db, "a"));
    EXPECT_EQ(db->end(), 0u);
}

TEST_F(MemoryDb, CannotBeOpenedTwice) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "a"));
    EXPECT_FALSE(open(db, "b"));
    said = "qm7105 board: database 'b' is not opened: this database is open already\n";
}

TEST_F(MemoryDb, CannotHaveARingOfNothingOrOfTooMuch) {
    EXPECT_FALSE(open(create(), "a", 1, 0));
    EXPECT_FALSE(open(create(), "a", 1, 0xFFFFFFFF));
    said =
        "qm7105 board: database 'a' is not opened: a ring of 0 x 64 KiB cannot be made\n"
        "qm7105 board: database 'a' is not opened: a ring of 4294967295 x 64 KiB cannot be made\n";
}

// Run under the address sanitizer: the process ends with a database open.
TEST(MemoryDbAtTheEnd, IsFinishedWhenTheProgramEnds) {
    sim::StreamDb* db = create();
    ASSERT_TRUE(open(db, "left open"));
    EXPECT_EQ(db->append(frame_of(32)), Appended::stored);
    EXPECT_EQ(sim::open_databases(), 1);
}

TEST_F(MemoryDb, OfAnotherTypeIsCreatedAndFailsToOpen) {
    for (const uint32_t type : {3u, 255u}) {
        iqm_db* db = nullptr;
        qm_db_create(static_cast<DB_TYPE>(type), &db);
        ASSERT_NE(db, nullptr);
        EXPECT_FALSE(open(sim::StreamDb::of(db), "d/x.ini"));
        said += "qm7105 board: database 'd/x.ini' is not opened: type " + std::to_string(type) +
                " is not supported, only 0 and 1 (on disk) and 2 (in memory) are\n";
        db->PostOpen(0);
        db->Close();
        qm_db_destroy(&db);
        EXPECT_EQ(db, nullptr);
    }
}

}  // namespace
