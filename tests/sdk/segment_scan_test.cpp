// Walking through segments: whole ones, interrupted ones, damaged ones, and forged ones.
#include "sdk/db/segment_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "tests/sdk/made_segment.h"
#include "tests/sdk/read_only_files.h"
#include "tests/support/temp_dir.h"

namespace {

using sim::BLOCK_BYTES;
using sim::SEGMENT_START;

class SegmentScan : public ::testing::Test {
  protected:
    void SetUp() override { folder = files.open_folder(dir.path(), false); }
    void TearDown() override {
        if (file >= 0) files.close(file);
        files.close(folder);
    }

    void open(const MadeSegment& segment, uint64_t file_bytes = 0) {
        open_bytes(segment.header, segment.file(file_bytes));
    }
    void open_bytes(const sim::SegmentHeader& header, const std::vector<uint8_t>& bytes) {
        MadeSegment::save_bytes(dir.file("s"), bytes);
        if (file >= 0) files.close(file);
        file = files.open(folder, "s", sim::FileSystem::Access::read);
        told.clear();
        holes.clear();
        scan = std::make_unique<sim::SegmentScan>(
            files, file, header,
            [this](const sim::RecordHeader& record, uint64_t) {
                if (record.is_frame()) told.push_back(record.sequence);
            },
            [this](uint64_t from, uint64_t end, bool damage) {
                holes.push_back({from, end, damage});
            });
    }

    struct Hole {
        uint64_t from, end;
        bool damage;
        bool operator==(const Hole&) const = default;
    };
    using Numbers = std::vector<uint64_t>;

    TempDir dir;
    ReadOnlyFiles files;
    int folder = -1;
    int file = -1;
    std::unique_ptr<sim::SegmentScan> scan;
    Numbers told;
    std::vector<Hole> holes;
};

TEST_F(SegmentScan, TakesAllRecordsUpToTheZeros) {
    MadeSegment made(1, 100);
    made.header.latest_utc_us = -5;
    made.next.utc_us = 7000;
    made.frames(3);
    made.frames(2);
    open(made, made.header.bytes);
    scan->run();
    EXPECT_EQ(told, (Numbers{100, 101, 102, 103, 104}));
    EXPECT_TRUE(holes.empty());
    EXPECT_EQ(scan->result().end, made.at);
    EXPECT_EQ(scan->result().next_sequence, 105u);
    EXPECT_EQ(scan->result().frames, 5u);
    EXPECT_EQ(scan->result().last.sequence, 104u);
    EXPECT_EQ(scan->result().latest_utc_us, 11000);
    EXPECT_FALSE(scan->result().damaged);
    EXPECT_FALSE(scan->result().finished);
    EXPECT_EQ(scan->error(), 0);
}

TEST_F(SegmentScan, KnowsALaterTimeFromTheHeader) {
    MadeSegment made(1, 0);
    made.header.latest_utc_us = 1'000'000;
    made.frames(2);
    open(made);
    scan->run();
    EXPECT_EQ(scan->result().latest_utc_us, 1'000'000);
}

TEST_F(SegmentScan, IsFinishedBehindADirectoryUntilAnotherRecordFollows) {
    MadeSegment made(1, 0);
    made.frames(3);
    made.directory();
    open(made);
    scan->run();
    EXPECT_TRUE(scan->result().finished);
    EXPECT_EQ(scan->result().end, made.at);

    made.frames(1);
    open(made);
    scan->run();
    EXPECT_FALSE(scan->result().finished);
    EXPECT_EQ(told, (Numbers{0, 1, 2, 3}));
}

TEST_F(SegmentScan, EndsWhereAnotherTurnOfTheRingLeftRecords) {
    MadeSegment old(1, 0);
    old.frames(40);
    MadeSegment made(2, 500);
    made.frames(2);
    std::vector<uint8_t> bytes = old.file();
    const std::vector<uint8_t> fresh = made.file();
    std::copy(fresh.begin(), fresh.end(), bytes.begin());
    open_bytes(made.header, bytes);
    scan->run();
    EXPECT_EQ(told, (Numbers{500, 501}));
    EXPECT_EQ(scan->result().end, made.at);
    EXPECT_FALSE(scan->result().damaged);
}

TEST_F(SegmentScan, GoesOnBehindAnInterruptedWriteThatTheNextRecordTells) {
    MadeSegment made(1, 0);
    made.frames(2);
    made.batch();
    made.frame();
    const uint64_t end = made.at;  // in the middle of a block
    made.go_to(sim::round_up_to_block(end));
    made.batch();
    made.next.hole = static_cast<uint32_t>(made.at - end);
    made.frame();
    made.pad();
    open(made);
    scan->follow();
    EXPECT_EQ(told, (Numbers{0, 1, 2, 3}));
    EXPECT_EQ(holes, (std::vector<Hole>{{end, sim::round_up_to_block(end), false}}));
    EXPECT_FALSE(scan->result().damaged);
}

TEST_F(SegmentScan, TakesNoRecordBehindAHoleThatIsAnother) {
    MadeSegment made(1, 0);
    made.batch();
    made.frame();
    const uint64_t end = made.at;
    made.go_to(sim::round_up_to_block(end));
    made.batch();
    made.next.hole = static_cast<uint32_t>(made.at - end) - 8;
    made.frame();
    open(made);
    scan->follow();
    EXPECT_EQ(told, (Numbers{0}));
    EXPECT_EQ(scan->result().end, end);
}

TEST_F(SegmentScan, SalvagesWhatIsWholeBeforeALaterBatch) {
    MadeSegment made(1, 0);
    made.batch();
    made.frame();
    const uint64_t spoiled = made.frame();
    const uint64_t third = made.frame();
    made.frame();
    made.pad();
    made.frames(2);
    made.spoil(spoiled + sim::RECORD_BYTES + 10);
    open(made);
    scan->follow();
    EXPECT_EQ(told, (Numbers{0}));
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 2, 3, 4, 5}));
    EXPECT_EQ(holes, (std::vector<Hole>{{spoiled, third, true}}));
    EXPECT_TRUE(scan->result().damaged);
    EXPECT_EQ(scan->result().frames, 5u);
    EXPECT_EQ(scan->result().next_sequence, 6u);
    EXPECT_EQ(scan->result().end, made.at);
}

TEST_F(SegmentScan, SalvagesNothingBehindTheLastBatch) {
    MadeSegment made(1, 0);
    made.frames(2);
    made.batch();
    const uint64_t torn = made.frame();
    made.frame();
    made.pad();
    made.spoil(torn + 60);
    open(made, made.header.bytes);
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 1}));
    EXPECT_EQ(scan->result().end, torn);
    EXPECT_TRUE(holes.empty());
    EXPECT_FALSE(scan->result().damaged);
}

// A write of three frames was interrupted behind the first; the recording went on in the next block
// and was damaged there; a whole batch follows.
TEST_F(SegmentScan, TellsRemainsOfAnInterruptedWriteFromDamage) {
    MadeSegment made(1, 0);
    made.frames(1, 100);
    made.batch();
    made.frame(100);
    const uint64_t end = made.at;
    made.frame(100);  // remains, whole, written again as the next with this number
    made.go_to(sim::round_up_to_block(end));
    made.next.sequence = 2;
    made.next.run = 2;
    const uint64_t went_on = made.at;
    made.next.hole = static_cast<uint32_t>(went_on - end);
    made.batch();
    made.frame(100);
    made.pad();
    // Without the hole's own record the remains end where it began.
    MadeSegment lost = made;
    lost.spoil(end + 60);
    open(lost);
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 1, 2}));
    EXPECT_EQ(holes, (std::vector<Hole>{{end, went_on, false}}));
    // The record before the remains is damaged too.
    lost.spoil(end - 20);
    open(lost);
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 2}));
    EXPECT_EQ(holes,
              (std::vector<Hole>{{SEGMENT_START + BLOCK_BYTES, end, true}, {end, went_on, false}}));
    EXPECT_TRUE(scan->result().damaged);
}

TEST_F(SegmentScan, TakesNoRemainsOfARunThatHasEnded) {
    MadeSegment made(1, 0);
    const uint32_t block = BLOCK_BYTES - sim::RECORD_BYTES;
    made.batch();
    const uint64_t first = made.frame(block);
    made.frame(block);
    made.frame(block);  // these three were one write; the first was torn, nothing of it counts
    made.go_to(first);
    made.next.sequence = 0;
    made.next.run = 2;
    made.batch();
    made.frame(block);
    open(made);
    scan->run();
    EXPECT_EQ(told, (Numbers{0}));
    EXPECT_EQ(scan->result().end, first + BLOCK_BYTES);
}

TEST_F(SegmentScan, TakesNoFrameOutOfOrder) {
    MadeSegment made(1, 10);
    made.frames(2);
    made.next.sequence = 11;
    made.frames(1);
    open(made);
    scan->run();
    EXPECT_EQ(told, (Numbers{10, 11}));
    EXPECT_EQ(scan->result().next_sequence, 12u);

    MadeSegment higher(1, 10);
    higher.batch();
    higher.frame();
    higher.next.sequence = 13;  // within a batch no number is left out
    higher.frame();
    open(higher);
    scan->run();
    EXPECT_EQ(told, (Numbers{10}));

    MadeSegment later(1, 10);
    later.frames(1);
    later.next.sequence = 20;
    later.frames(2);
    open(later);
    scan->run();
    EXPECT_EQ(told, (Numbers{10, 20, 21}));
}

TEST_F(SegmentScan, FindsADirectoryBehindAnUnreadableBatch) {
    MadeSegment made(1, 0);
    made.frames(1);
    const uint64_t spoiled = made.frames(1);
    made.batch();
    made.directory();
    made.spoil(spoiled);
    open(made);
    scan->run();
    EXPECT_EQ(told, (Numbers{0}));
    EXPECT_TRUE(scan->result().finished);
    EXPECT_TRUE(scan->result().damaged);
    EXPECT_EQ(scan->result().next_sequence, 2u);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_EQ(holes[0].from, spoiled);
}

TEST_F(SegmentScan, TakesWhatIsWholeBeforeEveryCut) {
    MadeSegment made(1, 0);
    made.batch();
    std::vector<uint64_t> ends;
    for (int i = 0; i < 8; ++i) {
        made.frame(300);
        ends.push_back(made.at);
    }
    const std::vector<uint8_t> whole = made.file();
    for (size_t size = SEGMENT_START; size <= whole.size(); size += 3) {
        open_bytes(made.header, {whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)});
        scan->run();
        const auto expected =
            std::count_if(ends.begin(), ends.end(), [&](uint64_t end) { return end <= size; });
        ASSERT_EQ(told.size(), static_cast<size_t>(expected)) << size;
    }
}

TEST_F(SegmentScan, FollowsARecorder) {
    MadeSegment made(1, 0);
    made.frames(2);
    open(made, made.header.bytes);
    scan->follow();
    EXPECT_EQ(told, (Numbers{0, 1}));
    files.reads = 0;
    files.bytes = 0;
    scan->follow();
    EXPECT_EQ(files.reads, 1);  // nothing new costs one small read
    EXPECT_EQ(files.bytes, BLOCK_BYTES);
    made.frames(2);
    made.save(dir.file("s"), made.header.bytes);
    scan->follow();
    EXPECT_EQ(told, (Numbers{0, 1, 2, 3}));
}

// The look at the end comes before the batch there, the look behind it after the batch behind.
TEST_F(SegmentScan, DamageIsNoneWhereARecorderIsAtWork) {
    MadeSegment made(1, 0);
    made.frames(1);
    made.batch();
    made.frame();  // all that an interrupted write left
    MadeSegment later = made;
    later.go_to(sim::round_up_to_block(made.at));
    later.next.hole = static_cast<uint32_t>(later.at - made.at);
    for (int i = 0; i < 4; ++i) later.frames(1);
    open(made, made.header.bytes);
    int looks = 0;
    files.before_read = [&](uint64_t offset) {
        if (offset >= made.at && ++looks == 1) later.save(dir.file("s"), later.header.bytes);
    };
    scan->run();
    EXPECT_GE(looks, 1);
    EXPECT_EQ(told, (Numbers{0, 1, 2, 3, 4, 5}));
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_FALSE(holes[0].damage);
    EXPECT_FALSE(scan->result().damaged);
}

TEST_F(SegmentScan, StepsOverBlocksThatCannotBeRead) {
    MadeSegment made(1, 0);
    made.frames(3);
    const uint64_t bad = made.frames(3);
    const uint64_t behind = made.frames(3);
    open(made, made.header.bytes);
    files.bad_start = bad;
    files.bad_end = behind;
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 1, 2, 6, 7, 8}));
    EXPECT_EQ(holes, (std::vector<Hole>{{bad, behind, true}}));
    EXPECT_EQ(scan->error(), -EIO);
    EXPECT_TRUE(scan->result().damaged);
}

TEST_F(SegmentScan, EndsWhenNothingCanBeRead) {
    MadeSegment made(1, 0);
    made.frames(3);
    open(made, made.header.bytes);
    files.bad_end = UINT64_MAX;
    scan->run();
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(scan->result().end, SEGMENT_START);
    EXPECT_EQ(scan->error(), -EIO);
    EXPECT_LT(files.reads, 200);
}

// Every block holds a header that claims all the rest of the segment.
TEST_F(SegmentScan, ReadsAForgedSegmentAFewTimesOnly) {
    constexpr uint64_t SIZE = 4 << 20;
    MadeSegment made(1, 0, SIZE);
    made.frames(1);
    std::vector<uint8_t> bytes = made.file(SIZE);
    for (uint64_t at = made.at; at < SIZE; at += BLOCK_BYTES) {
        sim::RecordHeader claim;
        claim.sequence = 5;
        claim.flags = sim::FLAG_FIRST_OF_BATCH;
        std::vector<uint8_t> record(static_cast<size_t>(SIZE - at));
        claim.bytes = static_cast<uint32_t>(SIZE - at - sim::RECORD_BYTES);
        // The payload that the checksum is for is not the one that will be there.
        if (at % (64 * BLOCK_BYTES) == 0) {
            sim::seal_record(claim, made.header.seed(), record.data());
            std::copy(record.begin(), record.begin() + sim::RECORD_BYTES,
                      bytes.begin() + static_cast<ptrdiff_t>(at));
        }
    }
    std::fill(bytes.end() - 8, bytes.end(), uint8_t{9});
    open_bytes(made.header, bytes);
    scan->run();
    EXPECT_EQ(told, (Numbers{0}));
    EXPECT_LT(files.bytes, 8 * SIZE);
}

TEST_F(SegmentScan, TakesNoRecordThatReachesBehindTheSegment) {
    MadeSegment made(1, 0, sim::MIN_SEGMENT_BYTES);
    made.frames(2);
    made.batch();
    made.frame(static_cast<uint32_t>(sim::MIN_SEGMENT_BYTES - made.at - sim::RECORD_BYTES + 8));
    open(made);
    scan->run();
    EXPECT_EQ(told, (Numbers{0, 1}));
}

TEST_F(SegmentScan, ResumesBehindWhatIsKnown) {
    MadeSegment made(1, 0);
    made.frames(2);
    sim::ScanResult known;
    known.end = made.at;
    known.next_sequence = 2;
    made.frames(2);
    open(made);
    scan->resume(known);
    scan->follow();
    EXPECT_EQ(told, (Numbers{2, 3}));
}

TEST_F(SegmentScan, HeaderIsReadFromEitherCopy) {
    MadeSegment made(7, 70);
    sim::SegmentHeader header;
    int copies = 0;
    open(made);
    EXPECT_TRUE(sim::load_segment_header(files, file, 7, header, &copies));
    EXPECT_EQ(copies, 2);
    EXPECT_EQ(header.first_sequence, 70u);
    EXPECT_FALSE(sim::load_segment_header(files, file, 8, header));
    for (const size_t spoiled : {size_t{20}, BLOCK_BYTES + 20}) {
        std::vector<uint8_t> bytes = made.file();
        bytes[spoiled] ^= 0x10;
        open_bytes(made.header, bytes);
        header = {};
        EXPECT_TRUE(sim::load_segment_header(files, file, 7, header, &copies));
        EXPECT_EQ(copies, 1);
        EXPECT_EQ(header.first_sequence, 70u);
        bytes[BLOCK_BYTES + 20 - spoiled + 20] ^= 0x10;
        open_bytes(made.header, bytes);
        EXPECT_FALSE(sim::load_segment_header(files, file, 7, header, &copies));
        EXPECT_EQ(copies, 0);
    }
    open_bytes(made.header, std::vector<uint8_t>(100));
    EXPECT_FALSE(sim::load_segment_header(files, file, 7, header));
}

TEST_F(SegmentScan, WindowGivesBytesAndZeros) {
    std::vector<uint8_t> bytes(600'000);
    bytes[300'000] = 1;
    open_bytes({}, bytes);
    sim::FileWindow window(files, file);
    EXPECT_TRUE(window.zero(0, 300'000));
    EXPECT_FALSE(window.zero(0, 300'001));
    EXPECT_TRUE(window.zero(300'001, 600'000));
    EXPECT_FALSE(window.zero(300'001, 600'001));
    ASSERT_NE(window.at(300'000, 10), nullptr);
    EXPECT_EQ(*window.at(300'000, 10), 1);
    EXPECT_NE(window.at(599'990, 10), nullptr);
    EXPECT_EQ(window.at(599'991, 10), nullptr);
    EXPECT_EQ(window.error(), 0);
    bytes[300'000] = 2;
    MadeSegment::save_bytes(dir.file("s"), bytes);
    ASSERT_NE(window.at(300'000, 1), nullptr);
    window.forget();
    EXPECT_EQ(*window.at(300'000, 1), 2);
}

}  // namespace
