// What holds for every kind of stream database, on disk and in memory.
#include "sdk/db/stream_db.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "mainwork/qm_codec.h"
#include "sdk/sim_control.h"
#include "tests/support/temp_dir.h"

namespace {

using sim::FrameInfo;
using sim::FrameKind;
using sim::StreamDb;
using Appended = StreamDb::Appended;

constexpr size_t UNIT = 64 * 1024;
constexpr int64_t TICK_US = 33'333;

// Frame `number` of a recording: 2 streams x 2 channels in turn, a key frame every 5 of a channel.
qm_dbframe frame_of(uint32_t number, size_t bytes) {
    qm_dbframe frame;
    frame.info.stream = static_cast<uint8_t>(number / 2 % 2);
    frame.info.channel = static_cast<uint8_t>(number % 2);
    frame.info.number = number / 4;
    frame.info.kind = number / 4 % 5 == 0 ? FrameKind::idr : FrameKind::p;
    frame.info.time_us = number * TICK_US;
    frame.info.bytes = static_cast<uint32_t>(bytes);
    frame.reserve(bytes + 1);
    memset(frame.payload.get(), static_cast<int>(number & 0xFF), bytes);
    return frame;
}

class AnyStreamDb : public testing::TestWithParam<DB_TYPE> {
  protected:
    void SetUp() override {
        sim::control_reset();
        sim::use_stepped_clock(1'700'000'000'000'000);
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        QMAVCodec* none = nullptr;
        DestroyQMAVCodec(none);  // finishes what is open
        EXPECT_EQ(sim::open_databases(), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), said);
    }

    StreamDb* create() {
        iqm_db* db = nullptr;
        qm_db_create(GetParam(), &db);
        return StreamDb::of(db);
    }
    bool open(StreamDb* db, uint32_t mode, const std::string& name = "a.ini", uint32_t a = 4,
              uint32_t b = 2000) {
        QMDBOpenParam param = {folder.path() + "/" + name, mode, a, b};
        return db->Open(&param) != 0;
    }
    // A recorder with frames 0 .. count - 1 in it, written.
    StreamDb* recorded(uint32_t count, size_t bytes = 100) {
        StreamDb* db = create();
        EXPECT_TRUE(open(db, 1));
        db->begin_writing();
        for (uint32_t n = 0; n < count; ++n)
            EXPECT_EQ(db->append(frame_of(n, bytes)), Appended::stored);
        db->commit();
        return db;
    }
    std::string named(const char* name = "a.ini") const { return folder.path() + "/" + name; }

    TempDir folder;
    std::string said;  // what the test expects on standard error
};

TEST_P(AnyStreamDb, GivesBackWhatWasAppended) {
    StreamDb* db = create();
    ASSERT_TRUE(open(db, 1));
    db->begin_writing();
    for (uint32_t n = 0; n < 40; ++n)
        ASSERT_EQ(db->append(frame_of(n, 10 * n + 1)), Appended::stored);
    db->commit();
    EXPECT_EQ(db->first(), 0u);
    EXPECT_EQ(db->end(), 40u);
    qm_dbframe out;
    FrameInfo info;
    for (uint32_t n = 0; n < 40; ++n) {
        const qm_dbframe in = frame_of(n, 10 * n + 1);
        ASSERT_TRUE(db->read(n, out)) << n;
        ASSERT_TRUE(db->info(n, info));
        for (const FrameInfo& got : {out.info, info}) {
            EXPECT_EQ(got.kind, in.info.kind);
            EXPECT_EQ(got.stream, in.info.stream);
            EXPECT_EQ(got.channel, in.info.channel);
            EXPECT_EQ(got.number, in.info.number);
            EXPECT_EQ(got.time_us, in.info.time_us);
            ASSERT_EQ(got.bytes, in.info.bytes);
        }
        EXPECT_EQ(memcmp(out.payload.get(), in.payload.get(), in.info.bytes), 0);
    }
    EXPECT_FALSE(db->read(40, out));
    EXPECT_FALSE(db->info(40, info));
}

TEST_P(AnyStreamDb, RefusesAndCountsWhatCanNeverFit) {
    StreamDb* db = create();
    ASSERT_TRUE(open(db, 1, "a.ini", 1));
    db->begin_writing();
    EXPECT_EQ(db->append(frame_of(0, UNIT + 1)), Appended::refused);
    EXPECT_EQ(db->append(frame_of(1, 1000)), Appended::stored);
    db->commit();
    EXPECT_EQ(db->report().refused, 1u);
    EXPECT_EQ(db->end(), 1u);
}

TEST_P(AnyStreamDb, IsReadByAnotherObjectWhileItIsRecorded) {
    StreamDb* recorder = recorded(10);
    StreamDb* reader = create();
    ASSERT_TRUE(open(reader, 0));
    EXPECT_TRUE(reader->writing());
    EXPECT_EQ(reader->end(), 10u);
    recorder->append(frame_of(10, 100));
    recorder->commit();
    EXPECT_EQ(reader->end(), 11u);
    qm_dbframe out;
    ASSERT_TRUE(reader->read(10, out));
    EXPECT_EQ(out.payload[99], 10);
    recorder->end_writing();
    EXPECT_FALSE(reader->writing());
    EXPECT_EQ(reader->end(), 11u);
}

TEST_P(AnyStreamDb, FindsARecordByItsTime) {
    StreamDb* db = recorded(60);
    EXPECT_EQ(db->at_time(-1), 0u);
    EXPECT_EQ(db->at_time(17 * TICK_US), 17u);
    EXPECT_EQ(db->at_time(17 * TICK_US + 1), 18u);
    EXPECT_EQ(db->at_time(59 * TICK_US + 1), db->end());
}

TEST_P(AnyStreamDb, GoesFromKeyFrameToKeyFrame) {
    StreamDb* db = recorded(60);
    uint64_t key = 99;
    // Stream 1, channel 0: records 2, 6, 10, ...; key frames 2, 22, 42.
    EXPECT_FALSE(db->key_at_or_before(1, 1, 0, key));
    EXPECT_TRUE(db->key_at_or_before(2, 1, 0, key));
    EXPECT_EQ(key, 2u);
    EXPECT_TRUE(db->key_at_or_before(21, 1, 0, key));
    EXPECT_EQ(key, 2u);
    EXPECT_TRUE(db->key_at_or_before(1000, 1, 0, key));
    EXPECT_EQ(key, 42u);
    EXPECT_TRUE(db->key_after(0, 1, 0, key));
    EXPECT_EQ(key, 2u);
    EXPECT_TRUE(db->key_after(2, 1, 0, key));
    EXPECT_EQ(key, 22u);
    EXPECT_FALSE(db->key_after(42, 1, 0, key));
    EXPECT_FALSE(db->key_after(0, 1, 7, key));
    EXPECT_FALSE(db->key_at_or_before(59, 1, 7, key));
}

TEST_P(AnyStreamDb, PassesTheRangeOnToTheNextThatIsThere) {
    StreamDb* db = recorded(8);
    EXPECT_EQ(db->next(0), 0u);
    EXPECT_EQ(db->next(5), 5u);
    EXPECT_EQ(db->next(8), 8u);
    EXPECT_EQ(db->next(1000), 8u);
}

TEST_P(AnyStreamDb, DropsTheOldestWhenItIsFull) {
    StreamDb* db = create();
    ASSERT_TRUE(open(db, 1, "a.ini", 2, 3));
    db->begin_writing();
    for (uint32_t n = 0; n < 400; ++n) db->append(frame_of(n, 5000));
    db->commit();
    EXPECT_EQ(db->end(), 400u);
    EXPECT_GT(db->first(), 300u);
    EXPECT_LT(db->first(), 400u);
    qm_dbframe out;
    EXPECT_FALSE(db->read(db->first() - 1, out));
    EXPECT_EQ(db->next(0), db->first());
    for (uint64_t n = db->first(); n < db->end(); ++n) {
        ASSERT_TRUE(db->read(n, out));
        EXPECT_EQ(out.payload[4999], n & 0xFF);
    }
}

TEST_P(AnyStreamDb, HasOneRecorderAPath) {
    StreamDb *first = create(), *second = create(), *other = create();
    ASSERT_TRUE(open(first, 1));
    EXPECT_FALSE(open(second, 1));
    EXPECT_TRUE(open(other, 1, "b.ini"));
    first->Close();
    EXPECT_TRUE(open(second, 1));
    said = "qm7105 board: database '" + named() + "' is not opened: it is being recorded already\n";
}

TEST_P(AnyStreamDb, IsTakenOverWhenItWasLeftOpen) {
    StreamDb* recorder = recorded(10);
    recorder->end_writing();
    EXPECT_TRUE(recorder->left_open());
    StreamDb* next = create();
    ASSERT_TRUE(open(next, 1));
    next->begin_writing();
    next->append(frame_of(10, 100));
    next->commit();
    EXPECT_EQ(next->first(), 0u);
    EXPECT_EQ(next->end(), 11u);
    FrameInfo before, after;
    ASSERT_TRUE(next->info(9, before));
    ASSERT_TRUE(next->info(10, after));
    EXPECT_NE(before.run, after.run);  // no time passes between two recordings
}

TEST_P(AnyStreamDb, IsTakenOverWhenAnotherIsCreatedOverIt) {
    iqm_db* db = recorded(10);
    StreamDb::of(db)->end_writing();
    qm_db_create(GetParam(), &db);
    EXPECT_EQ(sim::open_databases(), 1);
    ASSERT_TRUE(open(StreamDb::of(db), 1));
    EXPECT_EQ(StreamDb::of(db)->end(), 10u);
}

TEST_P(AnyStreamDb, IsOpenedOnce) {
    StreamDb* db = create();
    ASSERT_TRUE(open(db, 1));
    EXPECT_FALSE(open(db, 1));
    said =
        "qm7105 board: database '" + named() + "' is not opened: this database is open already\n";
}

TEST_P(AnyStreamDb, TakesNothingAfterItsRecordingHasEnded) {
    StreamDb* db = recorded(3);
    db->end_writing();
    EXPECT_NE(db->append(frame_of(3, 100)), Appended::stored);
    EXPECT_EQ(db->end(), 3u);
}

TEST_P(AnyStreamDb, IsHarmlessWhenItIsNotOpen) {
    StreamDb* db = create();
    qm_dbframe out;
    uint64_t key;
    EXPECT_EQ(db->append(frame_of(0, 10)), Appended::refused);
    EXPECT_EQ(db->first(), 0u);
    EXPECT_EQ(db->end(), 0u);
    EXPECT_EQ(db->next(0), 0u);
    EXPECT_EQ(db->at_time(0), 0u);
    EXPECT_FALSE(db->read(0, out));
    EXPECT_FALSE(db->info(0, out.info));
    EXPECT_FALSE(db->key_after(0, 0, 0, key));
    EXPECT_FALSE(db->writing());
    EXPECT_FALSE(db->left_open());
    db->tend();
    db->commit();
    db->end_writing();
    EXPECT_EQ(db->Close(), 0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyStreamDb,
                         testing::Values(DB_TYPE_DISK, DB_TYPE_DISK_SHARED, DB_TYPE_MEMORY),
                         [](const auto& kind) {
                             return std::string(kind.param == DB_TYPE_MEMORY ? "Memory"
                                                : kind.param == DB_TYPE_DISK ? "Disk"
                                                                             : "DiskShared");
                         });

}  // namespace
