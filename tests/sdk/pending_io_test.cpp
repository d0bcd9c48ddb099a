// Writes and reads that go on beside their owner, on a thread and without one.
#include "sdk/db/pending_io.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/sdk/read_only_files.h"

namespace {

// Notes what is done with which thread, fails as told, and can hold up a write.
class SlowFiles : public ReadOnlyFiles {
  public:
    int write(int, const void*, size_t size, uint64_t offset) override {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_held; });
        writer = std::this_thread::get_id();
        done += "write " + std::to_string(size) + " at " + std::to_string(offset) + ". ";
        return write_result;
    }
    int64_t read(int, void* out, size_t size, uint64_t offset) override {
        done += "read " + std::to_string(size) + " at " + std::to_string(offset) + ". ";
        *static_cast<uint8_t*>(out) = 77;
        return 5;
    }
    int sync(int file) override {
        done += "sync " + std::to_string(file) + ". ";
        return sync_result;
    }
    int sync_folder(int folder) override {
        done += "sync folder " + std::to_string(folder) + ". ";
        return folder_result;
    }

    void hold(bool held) {
        std::lock_guard lock(m_mutex);
        m_held = held;
        m_changed.notify_all();
    }

    int write_result = 0, sync_result = 0, folder_result = 0;
    std::string done;
    std::thread::id writer;

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;
};

const uint8_t DATA[16] = {};

class PendingIo : public testing::TestWithParam<bool> {
  protected:
    SlowFiles files;
    sim::PendingIo io{files, GetParam()};
};

TEST_P(PendingIo, WritesAndSyncs) {
    EXPECT_FALSE(io.pending());
    io.begin_write(7, DATA, 16, 4096);
    EXPECT_TRUE(io.pending());
    EXPECT_EQ(io.finish(), 0);
    EXPECT_FALSE(io.pending());
    io.begin_write(8, DATA, 8, 0);
    EXPECT_EQ(io.finish(), 0);
    EXPECT_EQ(files.done, "write 16 at 4096. sync 7. write 8 at 0. sync 8. ");
}

TEST_P(PendingIo, DoesNotSyncAfterAFailedWrite) {
    files.write_result = -EIO;
    io.begin_write(7, DATA, 16, 0);
    EXPECT_EQ(io.finish(), -EIO);
    EXPECT_EQ(files.done, "write 16 at 0. ");
}

TEST_P(PendingIo, MakesNamesDurableBeforeItWrites) {
    io.begin_write(7, DATA, 16, 0, 3);
    EXPECT_EQ(io.finish(), 0);
    EXPECT_EQ(files.done, "sync folder 3. write 16 at 0. sync 7. ");
    files.done.clear();
    files.folder_result = -EIO;
    io.begin_write(7, DATA, 16, 0, 3);
    EXPECT_EQ(io.finish(), -EIO);
    EXPECT_EQ(files.done, "sync folder 3. ");
}

TEST_P(PendingIo, TellsOfAFailedSyncOnce) {
    files.sync_result = -ENOSPC;
    io.begin_write(7, DATA, 16, 0);
    EXPECT_EQ(io.finish(), -ENOSPC);
    files.sync_result = 0;
    io.begin_write(7, DATA, 16, 0);
    EXPECT_EQ(io.finish(), 0);
}

TEST_P(PendingIo, Reads) {
    uint8_t out[8] = {};
    io.begin_read(9, out, 8, 512);
    EXPECT_EQ(io.finish(), 5);
    EXPECT_EQ(files.done, "read 8 at 512. ");
    EXPECT_EQ(out[0], 77);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutAThread, PendingIo, testing::Bool());

TEST(PendingIoOnAThread, LetsItsOwnerGoOn) {
    SlowFiles files;
    sim::PendingIo io(files, true);
    files.hold(true);
    io.begin_write(7, DATA, 16, 0);  // would never return if it waited
    files.hold(false);
    EXPECT_EQ(io.finish(), 0);
    EXPECT_NE(files.writer, std::this_thread::get_id());
}

TEST(PendingIoOnAThread, IsDoneBeforeItEnds) {
    SlowFiles files;
    {
        sim::PendingIo io(files, true);
        io.begin_write(7, DATA, 16, 0);
    }
    EXPECT_EQ(files.done, "write 16 at 0. sync 7. ");
}

}  // namespace
