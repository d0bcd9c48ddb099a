// Tests on the machine's own clock. Under ctest each has a process of its own; in one for many an
// earlier test may have stopped the clock for good.
#ifndef TESTS_SUPPORT_REAL_CLOCK_H
#define TESTS_SUPPORT_REAL_CLOCK_H

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "shell/qm_time.h"

class RealClock : public ::testing::Test {
  protected:
    void SetUp() override {
        qm_time before = qm_time::CurrentTime();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (qm_time::CurrentTime().Diff(before) == 0)
            GTEST_SKIP() << "a test before has stopped the clock";
    }
};

#endif  // TESTS_SUPPORT_REAL_CLOCK_H
