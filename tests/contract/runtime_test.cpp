// What every implementation of the mutex, the point in time and the thread base class does.
#include <unistd.h>

#include <cstdint>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "shell/qm_mutex.h"
#include "shell/qm_thread.h"
#include "shell/qm_time.h"

namespace {

TEST(Mutex, IsFreeAgainAfterALock) {
    qm_mutex mutex;
    for (int i = 0; i < 3; ++i) const qm_lock lock(mutex);
}

TEST(Mutex, IsHeldBesideAnother) {
    qm_mutex a;
    qm_mutex b;
    const qm_lock hold_a(a);
    const qm_lock hold_b(b);
}

TEST(Mutex, LetsOneThreadInAtATime) {
    qm_mutex mutex;
    int passes = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int pass = 0; pass < 500; ++pass) {
                const qm_lock lock(mutex);
                const int seen = passes;
                std::this_thread::yield();  // another thread would be let in here
                passes = seen + 1;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(passes, 2000);
}

TEST(Time, DiffCountsMillisecondsFromTheEarlierTime) {
    qm_time earlier(1'000);
    qm_time later(3'500);
    EXPECT_EQ(later.Diff(earlier), 2'500);
    EXPECT_EQ(earlier.Diff(later), -2'500);
    EXPECT_EQ(later.Diff(later), 0);
}

TEST(Time, DiffHoldsMoreThan32Bits) {
    qm_time earlier(1);
    EXPECT_EQ(qm_time(1'700'000'000'001).Diff(earlier), 1'700'000'000'000);
}

TEST(Time, SecondsAreWholeOnes) {
    EXPECT_EQ(qm_time(1'700'000'000'999).Seconds(), 1'700'000'000);
    EXPECT_EQ(qm_time(999).Seconds(), 0);
}

TEST(Time, IsCopied) {
    qm_time start(5);
    qm_time copy(start);
    qm_time assigned;
    const qm_time result(assigned = start);
    start = qm_time(9);
    qm_time zero(0);
    EXPECT_EQ(copy.Diff(zero), 5);
    EXPECT_EQ(assigned.Diff(zero), 5);
    EXPECT_EQ(result.Diff(zero), 5);
    EXPECT_EQ(start.Diff(zero), 9);
}

// Works until it is stopped.
class Worker : public qm_thread {
  public:
    void* Work(void*) override {
        while (!stop_is_requested()) usleep(100);
        return nullptr;
    }
    bool stop_is_requested() const { return m_stop_request.load() != 0; }
};

TEST(Thread, StartsWithoutAStopRequest) {
    Worker worker;
    EXPECT_FALSE(worker.stop_is_requested());
}

TEST(Thread, DestroyThreadRequestsTheStop) {
    Worker worker;
    worker.CreateThread(nullptr, 0);
    EXPECT_FALSE(worker.stop_is_requested());
    worker.DestroyThread();
    EXPECT_TRUE(worker.stop_is_requested());
}

TEST(Thread, IsStartedAgainAfterAStop) {
    Worker worker;
    for (int i = 0; i < 3; ++i) {
        worker.CreateThread(nullptr, 0);
        EXPECT_FALSE(worker.stop_is_requested());
        worker.DestroyThread();
        EXPECT_TRUE(worker.stop_is_requested());
    }
}

TEST(Thread, IsStoppedTwiceOrNeverStartedWithoutHarm) {
    Worker worker;
    worker.DestroyThread();
    worker.CreateThread(nullptr, 0);
    worker.DestroyThread();
    worker.DestroyThread();
    EXPECT_TRUE(worker.stop_is_requested());
}

}  // namespace
