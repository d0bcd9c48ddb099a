// Tests on the machine's own clock. Under ctest each has a process of its own; in one for many an
// earlier test may have stopped the clock for good.
#ifndef TESTS_SUPPORT_REAL_CLOCK_H
#define TESTS_SUPPORT_REAL_CLOCK_H

#include <gtest/gtest.h>

#include <ctime>

#include "shell/qm_time.h"

class RealClock : public ::testing::Test {
  protected:
    void SetUp() override {
        // A stopped clock shows a time years ago.
        const int64_t behind =
            static_cast<int64_t>(time(nullptr)) - qm_time::CurrentTime().Seconds();
        if (behind > 24 * 3600) GTEST_SKIP() << "a test before has stopped the clock";
    }
};

#endif  // TESTS_SUPPORT_REAL_CLOCK_H
