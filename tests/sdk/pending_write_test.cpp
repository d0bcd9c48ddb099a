// A write that goes on beside its owner, on a thread and without one.
#include "sdk/db/pending_write.h"

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
    int sync(int file) override {
        done += "sync " + std::to_string(file) + ". ";
        return sync_result;
    }

    void hold(bool held) {
        std::lock_guard lock(m_mutex);
        m_held = held;
        m_changed.notify_all();
    }

    int write_result = 0, sync_result = 0;
    std::string done;
    std::thread::id writer;

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_held = false;
};

const uint8_t DATA[16] = {};

class PendingWrite : public testing::TestWithParam<bool> {
  protected:
    SlowFiles files;
    sim::PendingWrite write{files, GetParam()};
};

TEST_P(PendingWrite, WritesAndSyncs) {
    EXPECT_FALSE(write.pending());
    write.begin(7, DATA, 16, 4096);
    EXPECT_TRUE(write.pending());
    EXPECT_EQ(write.finish(), 0);
    EXPECT_FALSE(write.pending());
    write.begin(8, DATA, 8, 0);
    EXPECT_EQ(write.finish(), 0);
    EXPECT_EQ(files.done, "write 16 at 4096. sync 7. write 8 at 0. sync 8. ");
}

TEST_P(PendingWrite, DoesNotSyncAfterAFailedWrite) {
    files.write_result = -EIO;
    write.begin(7, DATA, 16, 0);
    EXPECT_EQ(write.finish(), -EIO);
    EXPECT_EQ(files.done, "write 16 at 0. ");
}

TEST_P(PendingWrite, TellsOfAFailedSyncOnce) {
    files.sync_result = -ENOSPC;
    write.begin(7, DATA, 16, 0);
    EXPECT_EQ(write.finish(), -ENOSPC);
    files.sync_result = 0;
    write.begin(7, DATA, 16, 0);
    EXPECT_EQ(write.finish(), 0);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutAThread, PendingWrite, testing::Bool());

TEST(PendingWriteOnAThread, LetsItsOwnerGoOn) {
    SlowFiles files;
    sim::PendingWrite write(files, true);
    files.hold(true);
    write.begin(7, DATA, 16, 0);  // would never return if it waited
    files.hold(false);
    EXPECT_EQ(write.finish(), 0);
    EXPECT_NE(files.writer, std::this_thread::get_id());
}

TEST(PendingWriteOnAThread, IsDoneBeforeItEnds) {
    SlowFiles files;
    {
        sim::PendingWrite write(files, true);
        write.begin(7, DATA, 16, 0);
    }
    EXPECT_EQ(files.done, "write 16 at 0. sync 7. ");
}

}  // namespace
