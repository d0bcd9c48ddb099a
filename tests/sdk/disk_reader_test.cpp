// Reading disk databases: finished, torn, damaged and foreign segments, times, key frames, and
// following a recorder.
#include "sdk/db/disk_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sdk/db/disk_writer.h"
#include "tests/sdk/made_segment.h"
#include "tests/sdk/read_only_files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace {

using sim::FrameInfo;
using sim::FrameKind;
using Numbers = std::vector<uint64_t>;

class DiskReader : public ::testing::Test {
  protected:
    void save(const MadeSegment& segment, uint64_t file_bytes = 0) {
        segment.save(path_of(segment.header.number), file_bytes);
    }
    std::string path_of(uint64_t number) { return dir.file(sim::segment_name("db.ini", number)); }
    void save_ini(uint8_t first_of_identity) {
        sim::DatabaseIni ini;
        ini.identity.bytes[0] = first_of_identity;
        ini.segment_bytes = 128 * 1024;
        ini.ring_segments = 10;
        dir.write("db.ini", sim::ini_text(ini));
    }
    void open() {
        reader = sim::DiskReader::open(files, dir.file("db.ini"), why);
        ASSERT_TRUE(reader) << why;
    }
    // The numbers of all records, found one after the other.
    Numbers all() {
        Numbers numbers;
        for (uint64_t n = reader->next(0); n < reader->end(); n = reader->next(n + 1))
            numbers.push_back(n);
        return numbers;
    }
    void expect_frame(uint64_t n) {
        qm_dbframe frame;
        ASSERT_TRUE(reader->read(n, frame)) << n;
        for (size_t i = 0; i < frame.info.bytes; ++i)
            ASSERT_EQ(frame.payload[i], made_byte(n, i)) << n << " " << i;
    }

    TempDir dir;
    ReadOnlyFiles files;
    std::string why;
    std::unique_ptr<sim::DiskReader> reader;
};

TEST_F(DiskReader, SaysWhyItCannotRead) {
    ASSERT_EQ(mkdir(dir.file("db.ini").c_str(), 0750), 0);
    EXPECT_FALSE(sim::DiskReader::open(files, dir.file("db.ini"), why));
    EXPECT_EQ(why, "cannot be read: Is a directory");
}

// One block of the disk is bad: only the records that lie in it are lost, however far a reader who
// goes from record to record reads ahead.
TEST_F(DiskReader, LosesNoMoreThanLiesInABadBlock) {
    MadeSegment made(1, 0, 1 << 20);
    std::vector<uint64_t> offsets;
    made.batch();
    for (int i = 0; i < 800; ++i) {
        offsets.push_back(made.frame(1000));
        if (i % 50 == 49) made.pad();
    }
    made.directory();
    save(made);
    MadeSegment newest(2, 800);
    newest.frames(1);
    save(newest);
    open();
    ASSERT_EQ(reader->end(), 801U);
    files.bad_start = 400 * 1024;
    files.bad_end = files.bad_start + 4096;
    qm_dbframe frame;
    for (uint64_t n = 0; n < 800; ++n) {
        const bool in_it = offsets[n] < files.bad_end && offsets[n] + 1056 > files.bad_start;
        ASSERT_EQ(reader->read(n, frame), !in_it) << n << " " << offsets[n];
    }
}

TEST_F(DiskReader, SaysWhatIsNotThere) {
    EXPECT_FALSE(sim::DiskReader::open(files, dir.file("db.ini"), why));
    EXPECT_EQ(why, "there is no such database");
    why.clear();
    EXPECT_FALSE(sim::DiskReader::open(files, dir.file("none/db.ini"), why));
    EXPECT_EQ(why, "there is no such database");
    EXPECT_FALSE(std::filesystem::exists(dir.file("none")));
    files.folder_error = -EACCES;
    EXPECT_FALSE(sim::DiskReader::open(files, dir.file("db.ini"), why));
    EXPECT_EQ(why, "cannot open the folder: Permission denied");
}

TEST_F(DiskReader, AnIniAloneIsAnEmptyDatabase) {
    save_ini(0xDB);
    open();
    EXPECT_EQ(reader->first(), reader->end());
    FrameInfo info;
    EXPECT_FALSE(reader->info(0, info));
    EXPECT_EQ(reader->next(0), reader->end());
    EXPECT_EQ(reader->at_time(0), reader->end());
    uint64_t key = 0;
    EXPECT_FALSE(reader->key_at_or_before(5, 0, 0, key));
    EXPECT_FALSE(reader->key_after(0, 0, 0, key));
}

TEST_F(DiskReader, ADamagedIniAloneIsNone) {
    dir.write("db.ini", "[DATABASE]\n");
    EXPECT_FALSE(sim::DiskReader::open(files, dir.file("db.ini"), why));
}

TEST_F(DiskReader, ReadsWithAndWithoutDirectory) {
    for (const bool directory : {true, false}) {
        MadeSegment made(1, 100);
        made.next.utc_us = 5'000'000;
        made.next.run = 9;
        made.frames(3);
        made.next.stream = 2;
        made.frame(777, 2, 13);
        made.pad();
        if (directory) made.directory();
        save(made);
        open();
        EXPECT_EQ(reader->first(), 100u);
        EXPECT_EQ(reader->end(), 104u);
        EXPECT_EQ(all(), (Numbers{100, 101, 102, 103}));
        for (uint64_t n = 100; n < 104; ++n) expect_frame(n);
        FrameInfo info;
        ASSERT_TRUE(reader->info(103, info));
        EXPECT_EQ(info.kind, FrameKind::jpeg);
        EXPECT_EQ(info.stream, 2);
        EXPECT_EQ(info.channel, 13);
        EXPECT_EQ(info.number, 3u);
        EXPECT_EQ(info.time_us, 5'003'000);
        EXPECT_EQ(info.run, 9u);
        EXPECT_EQ(info.bytes, 777u);
        EXPECT_FALSE(reader->info(99, info));
        EXPECT_FALSE(reader->info(104, info));
    }
}

TEST_F(DiskReader, DirectoryIsReadInsteadOfTheRecords) {
    MadeSegment made(1, 0, 1 << 20);
    for (int i = 0; i < 12; ++i) made.frames(10, 8000);
    made.directory();
    save(made);
    MadeSegment newest(2, 120);
    newest.frames(1);
    save(newest);
    open();
    files.bytes = 0;
    FrameInfo info;
    EXPECT_TRUE(reader->info(7, info));
    EXPECT_LT(files.bytes, 200'000u);  // the directory and the batch it stands in
}

TEST_F(DiskReader, ADirectoryThatIsNotRightIsNotBelieved) {
    MadeSegment made(1, 0);
    made.frames(5);
    const uint64_t directory = made.directory();
    const std::vector<uint8_t> whole = made.file();
    for (size_t at = static_cast<size_t>(directory); at < whole.size(); at += 5) {
        std::vector<uint8_t> bytes = whole;
        bytes[at] ^= 4;
        MadeSegment::save_bytes(path_of(1), bytes);
        open();
        ASSERT_EQ(all(), (Numbers{0, 1, 2, 3, 4})) << at;
        bytes.resize(at);
        MadeSegment::save_bytes(path_of(1), bytes);
        open();
        ASSERT_EQ(all(), (Numbers{0, 1, 2, 3, 4})) << at;
    }
}

// Whole by its checksums, but its entries are not possible.
TEST_F(DiskReader, AForgedDirectoryIsNotBelieved) {
    for (int how = 0; how < 4; ++how) {
        MadeSegment made(1, 0);
        made.frames(5);
        const std::vector<sim::DirectoryEntry> right = made.entries;
        if (how == 0) made.entries[2].offset_8 = made.entries[1].offset_8;
        if (how == 1) made.entries[4].offset_8 = UINT32_MAX / 8;
        if (how == 2) made.entries[3].channel = 16;
        if (how == 3) made.entries[0].offset_8 = 0;
        made.directory();
        save(made);
        open();
        EXPECT_EQ(all(), (Numbers{0, 1, 2, 3, 4})) << how;
        for (uint64_t n = 0; n < 5; ++n) expect_frame(n);
    }
}

TEST_F(DiskReader, StepsOverMissingRecordsAndSegments) {
    MadeSegment one(1, 10);
    one.frames(2);
    one.directory();
    save(one);
    MadeSegment three(3, 20);
    three.batch();
    three.frame();
    const uint64_t spoiled = three.frame();
    three.frame();
    three.pad();
    three.frames(1);
    three.spoil(spoiled + 70);
    save(three);
    open();
    EXPECT_EQ(reader->first(), 10u);
    EXPECT_EQ(reader->end(), 24u);
    EXPECT_EQ(all(), (Numbers{10, 11, 20, 22, 23}));
    EXPECT_EQ(reader->next(12), 20u);
    EXPECT_EQ(reader->next(21), 22u);
    EXPECT_EQ(reader->next(24), 24u);
    EXPECT_EQ(reader->next(UINT64_MAX), 24u);
    EXPECT_EQ(reader->previous(24), 23u);
    EXPECT_EQ(reader->previous(22), 20u);
    EXPECT_EQ(reader->previous(20), 11u);
    EXPECT_EQ(reader->previous(10), 10u);
    EXPECT_EQ(reader->previous(3), 3u);
    FrameInfo info;
    EXPECT_FALSE(reader->info(15, info));
    EXPECT_FALSE(reader->info(21, info));
}

TEST_F(DiskReader, OfTwoRecordsWithOneNumberThatOfTheLaterSegmentCounts) {
    MadeSegment given_up(1, 0);
    given_up.next.utc_us = 0;
    given_up.frame(100, 0);
    for (int i = 1; i < 6; ++i) given_up.frame(100, 0);
    save(given_up);
    MadeSegment next(2, 3, 128 * 1024, 2000);
    next.next.utc_us = 3000;
    next.frame(200, 0);
    next.frame(200, 0);
    next.frame(200, 1);
    save(next);
    open();
    EXPECT_EQ(all(), (Numbers{0, 1, 2, 3, 4, 5}));
    FrameInfo info;
    ASSERT_TRUE(reader->info(2, info));
    EXPECT_EQ(info.bytes, 100u);
    ASSERT_TRUE(reader->info(3, info));
    EXPECT_EQ(info.bytes, 200u);
    uint64_t key = 0;
    ASSERT_TRUE(reader->key_at_or_before(5, 0, 0, key));
    EXPECT_EQ(key, 4u);
    EXPECT_FALSE(reader->key_after(4, 0, 0, key));
    EXPECT_EQ(reader->at_time(4000), 4u);
}

TEST_F(DiskReader, PassesOverWhatIsNoSegmentOfTheDatabase) {
    MadeSegment good(5, 50);
    good.frames(2);
    save(good);
    MadeSegment wrong_number(6, 60);
    wrong_number.frames(2);
    wrong_number.save(path_of(4));
    MadeSegment foreign(3, 30);
    foreign.header.database.bytes[0] = 1;
    foreign.frames(2);
    save(foreign);
    dir.write(sim::segment_name("db.ini", 9), "");
    dir.write(sim::segment_name("db.ini", 8), std::string(20'000, 'x'));
    dir.write("db.ini.0000000001.sag", "x");
    dir.write("db.ini.00000000x1.seg", "x");
    std::filesystem::create_directory(path_of(7));
    open();
    EXPECT_EQ(reader->first(), 50u);
    EXPECT_EQ(all(), (Numbers{50, 51}));
}

TEST_F(DiskReader, TheDatabaseIsThatOfTheIniWhenASegmentSaysSo) {
    MadeSegment own(1, 10);
    own.header.database.bytes[0] = 0xAA;
    own.frames(1);
    save(own);
    MadeSegment other(2, 20);
    other.header.database.bytes[0] = 0xBB;
    other.frames(1);
    save(other);
    save_ini(0xAA);
    open();
    EXPECT_EQ(all(), (Numbers{10}));
    save_ini(0xBB);
    open();
    EXPECT_EQ(all(), (Numbers{20}));
    save_ini(0xCC);  // swapped with another database's
    open();
    EXPECT_EQ(all(), (Numbers{20}));
    dir.write("db.ini", "damaged");
    open();
    EXPECT_EQ(all(), (Numbers{20}));
}

TEST_F(DiskReader, FindsTimesByWhatTheRecordingHadReached) {
    MadeSegment one(1, 0);
    one.batch();
    for (const int64_t utc : {100, 200, 150, 300}) {
        one.next.utc_us = utc;
        one.frame();
    }
    one.pad();
    one.directory();
    save(one);
    MadeSegment two(2, 4, 128 * 1024, 300);
    two.batch();
    for (const int64_t utc : {250, 260, 400}) {  // the clock was set back
        two.next.utc_us = utc;
        two.frame();
    }
    two.pad();
    save(two);
    open();
    const std::map<int64_t, uint64_t> expected = {
        {INT64_MIN, 0}, {0, 0},   {100, 0}, {101, 1}, {180, 1}, {200, 1},
        {201, 3},       {300, 3}, {301, 6}, {400, 6}, {401, 7}, {INT64_MAX, 7}};
    for (const auto& [utc, n] : expected) EXPECT_EQ(reader->at_time(utc), n) << utc;
}

TEST_F(DiskReader, FindsKeyFramesOfAChannel) {
    uint64_t sequence = 0;
    std::vector<uint64_t> keys;  // of channel 3, stream 0
    for (uint64_t number = 1; number <= 4; ++number) {
        MadeSegment made(number, sequence);
        made.batch();
        for (int i = 0; i < 7; ++i, ++sequence) {
            const bool key = number != 2 && (i == 2 || i == 5);
            if (key) keys.push_back(sequence);
            made.frame(100, key ? 0 : 1, 3);
        }
        made.pad();
        made.batch();
        made.frame(10, 3, 3);  // sound has no key frames
        ++sequence;
        made.pad();
        if (number % 2 == 1) made.directory();
        save(made);
    }
    open();
    uint64_t key = 0;
    for (uint64_t n = 0; n < sequence + 2; ++n) {
        const auto behind = std::upper_bound(keys.begin(), keys.end(), n);
        ASSERT_EQ(reader->key_at_or_before(n, 0, 3, key), behind != keys.begin()) << n;
        if (behind != keys.begin()) {
            ASSERT_EQ(key, *(behind - 1)) << n;
        }
        ASSERT_EQ(reader->key_after(n, 0, 3, key), behind != keys.end()) << n;
        if (behind != keys.end()) {
            ASSERT_EQ(key, *behind) << n;
        }
    }
    ASSERT_TRUE(reader->key_at_or_before(UINT64_MAX, 0, 3, key));
    EXPECT_EQ(key, keys.back());
    EXPECT_FALSE(reader->key_after(UINT64_MAX, 0, 3, key));
    for (const int stream : {-1, 1, 5, 6}) {
        EXPECT_FALSE(reader->key_at_or_before(20, stream, 3, key));
        EXPECT_FALSE(reader->key_after(0, stream, 3, key));
    }
    EXPECT_FALSE(reader->key_at_or_before(20, 0, 16, key));
    EXPECT_FALSE(reader->key_after(0, 0, -1, key));
}

// More segments than indexes are kept of.
TEST_F(DiskReader, AChannelWithoutKeyFramesIsSearchedForOnce) {
    constexpr uint64_t COUNT = 2100;
    for (uint64_t number = 1; number <= COUNT; ++number) {
        MadeSegment made(number, number, sim::MIN_SEGMENT_BYTES);
        made.frames(1, 10);
        save(made);
    }
    open();
    uint64_t key = 0;
    EXPECT_FALSE(reader->key_at_or_before(COUNT, 1, 7, key));
    files.reads = 0;
    EXPECT_FALSE(reader->key_at_or_before(COUNT, 1, 7, key));
    EXPECT_FALSE(reader->key_after(0, 1, 7, key));
    EXPECT_LT(files.reads, 10);
}

TEST_F(DiskReader, RecordsBehindTheBeginningOfTheLaterSegmentDoNotCount) {
    MadeSegment given_up(1, 0);
    given_up.frames(2);
    given_up.next.sequence = 5;
    given_up.frames(1);
    save(given_up);
    MadeSegment later(2, 3);
    later.frames(1);
    save(later);
    open();
    EXPECT_EQ(reader->next(2), 3u);
    EXPECT_EQ(all(), (Numbers{0, 1, 3}));
}

TEST_F(DiskReader, ReadsFramesOfAllSizes) {
    const std::vector<uint32_t> sizes = {0,    1,       7,       8,       4040,
                                         4041, 100'000, 524'232, 524'233, 900'000};
    MadeSegment made(1, 0, 4 << 20);
    made.batch();
    for (const uint32_t size : sizes) made.frame(size);
    made.pad();
    made.directory();
    save(made);
    open();
    for (int turn = 0; turn < 2; ++turn)
        for (size_t n = 0; n < sizes.size(); ++n) {
            FrameInfo info;
            ASSERT_TRUE(reader->info(n, info));
            EXPECT_EQ(info.bytes, sizes[n]);
            expect_frame(n);
        }
    for (size_t n = sizes.size(); n-- > 0;) expect_frame(n);
}

TEST_F(DiskReader, ReadingOnTakesFewReads) {
    MadeSegment made(1, 0, 2 << 20);
    made.batch();
    for (int i = 0; i < 1000; ++i) made.frame(1000);
    made.pad();
    made.directory();
    save(made);
    open();
    files.reads = 0;
    files.bytes = 0;
    for (uint64_t n = 0; n < 1000; ++n) expect_frame(n);
    EXPECT_LT(files.reads, 20);
    EXPECT_LT(files.bytes, made.file().size() * 11 / 10);
}

TEST_F(DiskReader, GivesNoFrameWhosePayloadIsNotWhole) {
    MadeSegment made(1, 0);
    made.batch();
    made.frame();
    const uint64_t spoiled = made.frame();
    made.frame();
    made.pad();
    made.directory();
    made.spoil(spoiled + 100);
    save(made);
    MadeSegment newest(2, 3);
    newest.frames(1);
    save(newest);
    open();
    qm_dbframe frame;
    EXPECT_FALSE(reader->read(1, frame));
    expect_frame(0);
    expect_frame(2);
    expect_frame(3);
}

TEST_F(DiskReader, FollowsARecorder) {
    MadeSegment made(1, 0);
    made.frames(2);
    save(made, made.header.bytes);
    open();
    EXPECT_EQ(reader->end(), 2u);
    made.frames(3);
    save(made, made.header.bytes);
    EXPECT_EQ(reader->end(), 5u);
    files.reads = 0;
    files.bytes = 0;
    EXPECT_EQ(reader->end(), 5u);
    EXPECT_EQ(files.reads, 1);
    EXPECT_LE(files.bytes, 2 * sim::BLOCK_BYTES);

    made.frames(1);
    made.directory();
    save(made);
    MadeSegment next(2, 6);
    dir.write(sim::segment_name("db.ini", 2), "");  // made, not written yet
    EXPECT_EQ(reader->end(), 6u);
    next.frames(2);
    save(next, next.header.bytes);
    EXPECT_EQ(reader->end(), 8u);
    EXPECT_EQ(all(), (Numbers{0, 1, 2, 3, 4, 5, 6, 7}));
    for (uint64_t n = 0; n < 8; ++n) expect_frame(n);
}

TEST_F(DiskReader, FollowsIntoASegmentThatWasFinished) {
    MadeSegment made(1, 0);
    made.next.kind = 0;
    made.frames(2);
    made.directory();
    save(made);
    open();
    EXPECT_EQ(reader->end(), 2u);
    made.frames(2);
    save(made, made.header.bytes);
    EXPECT_EQ(reader->end(), 4u);
    made.directory();
    save(made);
    EXPECT_EQ(reader->end(), 4u);
    EXPECT_EQ(all(), (Numbers{0, 1, 2, 3}));
    for (uint64_t n = 0; n < 4; ++n) expect_frame(n);
}

// The folder is listed now and then: what is seen only in a listing is waited for.
TEST_F(DiskReader, FindsTheNewestSegmentWhateverItsNumber) {
    MadeSegment made(1, 0);
    made.frames(2);
    save(made);
    open();
    MadeSegment later(5, 2);
    later.frames(2);
    save(later);
    EXPECT_TRUE(comes_true([this] { return reader->end() == 4; }));
    EXPECT_EQ(all(), (Numbers{0, 1, 2, 3}));
}

// Behind damage nothing can be followed, but once the recording has gone on elsewhere it is found.
TEST_F(DiskReader, FindsWhatIsBehindDamageInTheSegmentBefore) {
    MadeSegment made(1, 0);
    made.frames(1);
    save(made, made.header.bytes);
    open();
    const uint64_t spoiled = made.frames(1);
    made.frames(1);
    made.spoil(spoiled + 60);
    save(made, made.header.bytes);
    EXPECT_EQ(reader->end(), 1u);
    MadeSegment next(2, 3);
    next.frames(1);
    save(next, next.header.bytes);
    EXPECT_EQ(reader->end(), 4u);
    EXPECT_EQ(all(), (Numbers{0, 2, 3}));
}

TEST_F(DiskReader, StepsOverSegmentsThatTheRingHasTaken) {
    for (uint64_t number = 1; number <= 4; ++number) {
        MadeSegment made(number, number * 10);
        made.frames(2);
        made.directory();
        save(made);
    }
    open();
    EXPECT_EQ(reader->first(), 10u);
    expect_frame(10);
    expect_frame(20);
    // 1 becomes 5, while the reader has it open; 2 is removed.
    std::filesystem::rename(path_of(1), path_of(5));
    MadeSegment fifth(5, 50);
    fifth.frames(2);
    {
        FILE* file = fopen(path_of(5).c_str(), "r+b");
        ASSERT_TRUE(file);
        fwrite(fifth.file().data(), 1, fifth.file().size(), file);
        fclose(file);
    }
    qm_dbframe frame;
    EXPECT_FALSE(reader->read(11, frame));
    EXPECT_EQ(reader->first(), 20u);
    std::filesystem::remove(path_of(2));
    std::filesystem::remove(path_of(3));
    EXPECT_EQ(reader->end(), 52u);
    EXPECT_TRUE(comes_true([this] { return reader->end() == 52 && reader->first() == 40; }));
    EXPECT_EQ(all(), (Numbers{40, 41, 50, 51}));
    for (const uint64_t n : all()) expect_frame(n);
}

TEST_F(DiskReader, OutlivesAllItsFiles) {
    MadeSegment made(1, 0);
    made.frames(2);
    save(made);
    open();
    EXPECT_EQ(reader->end(), 2u);
    std::filesystem::remove(path_of(1));
    ASSERT_TRUE(comes_true([this] { return reader->end() == reader->first(); }));
    EXPECT_TRUE(all().empty());
    MadeSegment again(7, 30);
    again.frames(2);
    save(again);
    EXPECT_TRUE(comes_true([this] { return reader->end() == 32; }));
    EXPECT_EQ(all(), (Numbers{30, 31}));
}

TEST_F(DiskReader, OpensManySegmentsByReadingFew) {
    constexpr uint64_t COUNT = 1000;
    for (uint64_t number = 1; number <= COUNT; ++number) {
        MadeSegment made(number, number * 4, sim::MIN_SEGMENT_BYTES);
        made.frames(4, 10);
        made.directory();
        save(made);
    }
    open();
    EXPECT_LT(files.opens, 10);
    EXPECT_LT(files.bytes, 100'000u);
    expect_frame(4 * 734 + 1);
    EXPECT_LT(files.opens, 30);
    for (uint64_t number = 1; number <= COUNT; ++number) expect_frame(number * 4 + number % 4);
    EXPECT_LE(files.most_open, 70);
}

TEST_F(DiskReader, KnowsWhetherSomeoneRecords) {
    sim::FileSystem& real = sim::real_file_system();
    MadeSegment made(1, 0);
    made.frames(1);
    save(made);
    open();
    EXPECT_FALSE(reader->recorded());
    EXPECT_FALSE(std::filesystem::exists(dir.file("db.ini.lock")));
    const int folder = real.open_folder(dir.path(), false);
    for (int turn = 0; turn < 2; ++turn) {
        const int lock = real.open(folder, "db.ini.lock", sim::FileSystem::Access::lock);
        EXPECT_FALSE(reader->recorded());
        ASSERT_EQ(real.lock(lock), 0);
        EXPECT_TRUE(reader->recorded());
        EXPECT_TRUE(reader->recorded());
        real.close(lock);
        EXPECT_FALSE(reader->recorded());
        std::filesystem::remove(dir.file("db.ini.lock"));  // and another is made
    }
    real.close(folder);
}

// A recorder and two readers: one that follows, one that comes at the end.
TEST_F(DiskReader, ReadsWhatIsRecorded) {
    sim::WriterOptions options;
    options.segment_bytes = 256 * 1024;
    options.ring_segments = 5;
    options.batch_bytes = 64 * 1024;
    int64_t now = 0;
    std::map<uint64_t, FrameInfo> expected;
    uint32_t random = 1;
    for (int session = 0; session < 6; ++session) {
        auto writer =
            sim::DiskWriter::open(sim::real_file_system(), dir.file("db.ini"), options, why);
        ASSERT_TRUE(writer) << why;
        if (!reader) open();
        EXPECT_TRUE(reader->recorded());
        for (int i = 0; i < 300; ++i) {
            random = random * 1664525 + 1013904223;
            const uint64_t n = writer->next_sequence();
            qm_dbframe frame;
            frame.info.kind = static_cast<FrameKind>((random >> 8) % 4);
            frame.info.channel = static_cast<uint8_t>((random >> 12) % 16);
            frame.info.number = static_cast<uint32_t>(i);
            frame.info.time_us = now += 1000;
            frame.info.bytes = (random >> 16) % 6000;
            frame.reserve(frame.info.bytes);
            for (size_t k = 0; k < frame.info.bytes; ++k) frame.payload[k] = made_byte(n, k);
            ASSERT_EQ(writer->append(frame, 1'000'000, now), sim::DiskWriter::Outcome::stored);
            expected[n] = frame.info;
            if (i % 40 == 7) {
                ASSERT_TRUE(writer->commit(now));
                ASSERT_EQ(reader->end(), writer->durable_sequence());
                expect_frame(reader->end() - 1);
                expect_frame(reader->first());
            }
        }
        if (session % 2 == 0)
            ASSERT_TRUE(writer->finish(now));
        else
            ASSERT_TRUE(writer->commit(now));
    }
    for (const bool anew : {false, true}) {
        if (anew) open();
        const Numbers numbers = all();
        ASSERT_FALSE(numbers.empty());
        EXPECT_EQ(numbers.front(), reader->first());
        EXPECT_EQ(numbers.back() + 1, reader->end());
        EXPECT_EQ(numbers.size(), reader->end() - reader->first());
        EXPECT_EQ(reader->end(), expected.rbegin()->first + 1);
        for (const uint64_t n : numbers) {
            FrameInfo info;
            ASSERT_TRUE(reader->info(n, info));
            EXPECT_EQ(info.kind, expected[n].kind);
            EXPECT_EQ(info.channel, expected[n].channel);
            EXPECT_EQ(info.time_us, expected[n].time_us + 1'000'000);
            EXPECT_EQ(reader->at_time(info.time_us), n);
            expect_frame(n);
        }
    }
    EXPECT_FALSE(reader->recorded());
}

}  // namespace
