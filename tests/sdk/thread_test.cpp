// The stand-in's threads and clock: what a recording implementation cannot be held to.
#include <unistd.h>

#include <atomic>

#include <gtest/gtest.h>

#include "shell/qm_thread.h"
#include "shell/qm_time.h"
#include "tests/support/fresh_process.h"

namespace {

// Notes its argument, then works until it is stopped.
class Worker : public qm_thread {
  public:
    void* Work(void* argument) override {
        given = argument;
        ++runs;
        while (m_stop_request.load() == 0) usleep(100);
        usleep(1000);  // there is something left to do
        ++endings;
        return nullptr;
    }

    std::atomic<void*> given = nullptr;
    std::atomic<int> runs = 0;
    std::atomic<int> endings = 0;
};

void wait_for(const std::atomic<int>& count, int value) {
    while (count != value) usleep(100);
}

TEST(SimThread, RunsWorkWithItsArgument) {
    Worker worker;
    unsigned char argument = 0;
    worker.CreateThread(&argument, 0);
    wait_for(worker.runs, 1);
    EXPECT_EQ(worker.given, &argument);
    worker.DestroyThread();
}

TEST(SimThread, DestroyThreadReturnsAfterWork) {
    Worker worker;
    worker.CreateThread(nullptr, 0);
    wait_for(worker.runs, 1);
    EXPECT_EQ(worker.endings, 0);
    worker.DestroyThread();
    EXPECT_EQ(worker.endings, 1);
}

TEST(SimThread, RunsOnceHoweverOftenItIsCreated) {
    Worker worker;
    worker.CreateThread(nullptr, 0);
    worker.CreateThread(nullptr, 0);
    wait_for(worker.runs, 1);
    worker.DestroyThread();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_EQ(worker.endings, 1);
}

TEST(SimThread, RunsAgainAfterAStop) {
    Worker worker;
    for (int run = 1; run <= 3; ++run) {
        worker.CreateThread(nullptr, 0);
        wait_for(worker.runs, run);
        worker.DestroyThread();
        EXPECT_EQ(worker.endings, run);
    }
}

// Other tests of this program stop the clock for the rest of their process.
TEST(SimTime, NeverGoesBack) {
    in_fresh_process([] {
        qm_time last = qm_time::CurrentTime();
        for (int i = 0; i < 1000; ++i) {
            qm_time now = qm_time::CurrentTime();
            ASSERT_GE(now.Diff(last), 0);
            last = now;
        }
    });
}

TEST(SimTime, GoesOnWhileTheProgramWaits) {
    in_fresh_process([] {
        qm_time start = qm_time::CurrentTime();
        usleep(20'000);
        EXPECT_GE(qm_time::CurrentTime().Diff(start), 19);
    });
}

}  // namespace
