// Segments of another database that lie among a recorder's own: never replaced, never counted,
// never a reason to hide what the .ini names.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>

#include "sdk/db/disk_reader.h"
#include "sdk/db/disk_writer.h"
#include "tests/proof/pass_files.h"
#include "tests/support/temp_dir.h"

namespace {

constexpr uint64_t SEGMENT_BYTES = 64 * 1024;
constexpr uint32_t FRAME_BYTES = 10'000;  // five of them fill a segment

class ForeignSegments : public ::testing::Test {
  protected:
    std::unique_ptr<sim::DiskWriter> recorder(const std::string& path, uint64_t ring) {
        sim::WriterOptions options;
        options.segment_bytes = SEGMENT_BYTES;
        options.ring_segments = ring;
        std::string why;
        auto writer = sim::DiskWriter::open(sim::real_file_system(), path, options, why);
        EXPECT_TRUE(writer) << why;
        return writer;
    }
    void append(sim::DiskWriter& writer, int frames) {
        for (int i = 0; i < frames; ++i) {
            m_now_us += 10'000;
            m_frame.reserve(FRAME_BYTES);
            m_frame.info.bytes = FRAME_BYTES;
            m_frame.info.time_us = m_now_us;
            ASSERT_EQ(writer.append(m_frame, 0, m_now_us), sim::DiskWriter::Outcome::stored);
        }
    }
    void record(const std::string& path, uint64_t ring, int frames) {
        const auto writer = recorder(path, ring);
        append(*writer, frames);
        EXPECT_TRUE(writer->finish(m_now_us));
    }
    // A segment of a database that has nothing to do with ours.
    void copy_foreign(uint64_t number) {
        if (!std::filesystem::exists(dir.file("other"))) record(dir.file("other/db.ini"), 100, 100);
        std::filesystem::copy(dir.file("other/" + sim::segment_name("db.ini", number)),
                              dir.file(sim::segment_name("db.ini", number)));
    }
    std::string bytes_of(uint64_t number, const std::string& folder = "") {
        return dir.read(folder + sim::segment_name("db.ini", number));
    }
    uint64_t frames() {
        std::string why;
        const auto reader = sim::DiskReader::open(sim::real_file_system(), own, why);
        EXPECT_TRUE(reader) << why;
        uint64_t count = 0;
        for (uint64_t n = reader->next(0); n < reader->end(); n = reader->next(n + 1)) ++count;
        return count;
    }

    TempDir dir;
    const std::string own = dir.file("db.ini");
    qm_dbframe m_frame;
    int64_t m_now_us = 1'000'000;
};

TEST_F(ForeignSegments, AreNotReplacedByARingThatTurns) {
    const auto writer = recorder(own, 4);
    while (writer->segment() < 8) append(*writer, 1);
    ASSERT_TRUE(writer->commit(m_now_us));
    copy_foreign(9);
    append(*writer, 20);
    EXPECT_TRUE(writer->finish(m_now_us));
    EXPECT_EQ(bytes_of(9), bytes_of(9, "other/"));
    EXPECT_FALSE(bytes_of(10).empty());
}

TEST_F(ForeignSegments, BehindOurOwnAreNotPartOfTheRing) {
    record(own, 4, 15);  // segments 1 to 3
    for (const uint64_t number : {6U, 7U, 8U}) copy_foreign(number);
    record(own, 4, 2);
    EXPECT_EQ(frames(), 17U);
    for (const uint64_t number : {6U, 7U, 8U})
        EXPECT_EQ(bytes_of(number), bytes_of(number, "other/"));
}

TEST_F(ForeignSegments, AroundOurOwnHideNothingThatTheIniNames) {
    dir.write(sim::segment_name("db.ini", 3), "");  // so that ours begin with number 4
    record(own, 100, 15);
    std::filesystem::remove(dir.file(sim::segment_name("db.ini", 3)));
    copy_foreign(1);
    copy_foreign(12);
    const std::string ini = dir.read("db.ini");
    EXPECT_EQ(frames(), 15U);
    record(own, 100, 5);
    EXPECT_EQ(frames(), 20U);
    EXPECT_EQ(dir.read("db.ini"), ini);
}

// A file cannot be opened for writing once.
class OnceUnopenable : public PassFiles {
  public:
    explicit OnceUnopenable(const std::string& name)
        : PassFiles(sim::real_file_system()), m_name(name) {}
    int open(int folder, const std::string& name, Access access) override {
        if (name != m_name || access != Access::write) return PassFiles::open(folder, name, access);
        m_name.clear();
        return -ENFILE;
    }

  private:
    std::string m_name;
};

// Not foreign, but not known to the recorder: what it records comes behind it all the same.
TEST_F(ForeignSegments, AreNotWhatASegmentIsThatCannotBeOpened) {
    record(own, 10, 7);  // two segments
    OnceUnopenable files(sim::segment_name("db.ini", 2));
    sim::WriterOptions options;
    options.segment_bytes = SEGMENT_BYTES;
    options.ring_segments = 10;
    std::string why;
    {
        const auto writer = sim::DiskWriter::open(files, own, options, why);
        ASSERT_TRUE(writer) << why;
        append(*writer, 3);
        EXPECT_TRUE(writer->finish(m_now_us));
    }
    EXPECT_EQ(frames(), 10U);
}

// Not foreign, only cut: whatever of its headers is left counts for the recorder as for readers.
TEST_F(ForeignSegments, AreNotWhatASegmentIsOfWhichOneHeaderIsLeft) {
    record(own, 10, 7);  // two segments
    std::filesystem::resize_file(dir.file(sim::segment_name("db.ini", 2)), 5000);
    const uint64_t left = frames();
    record(own, 10, 3);
    EXPECT_EQ(frames(), left + 3);
}

}  // namespace
