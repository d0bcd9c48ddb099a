// The board's clock, its alarms, and the point in time on it.
#include "sdk/runtime/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "sdk/runtime/thread_state.h"
#include "sdk/runtime/utc_steps.h"
#include "sdk/sim_control.h"
#include "shell/qm_thread.h"
#include "shell/qm_time.h"
#include "tests/support/real_clock.h"

namespace {

constexpr int64_t SECOND_US = 1'000'000;
constexpr int64_t START_US = 1'700'000'000'000'000;

// Counts how often its deadline came, every `period_us` from the start.
class Counter : public qm_thread {
  public:
    explicit Counter(int64_t period_us) : m_period_us(period_us) { m_state->on_board = true; }
    void* Work(void*) override {
        int64_t deadline = sim::now_us() + m_period_us;
        while (m_stop_request.load() == 0) {
            m_state->alarm.wait_until(deadline);
            if (sim::now_us() < deadline) continue;
            ++count;
            deadline += m_period_us;
        }
        return nullptr;
    }
    std::atomic<int> count{0};

  private:
    int64_t m_period_us;
};

TEST(SteppedClock, StandsStillUntilItIsStepped) {
    sim::use_stepped_clock(START_US);
    EXPECT_EQ(sim::now_us(), START_US);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(sim::now_us(), START_US);
    sim::step_clock(1500);
    EXPECT_EQ(sim::now_us(), START_US + 1500);
}

TEST(SteppedClock, MeetsEveryDeadlineOfOneLargeStep) {
    sim::use_stepped_clock(START_US);
    Counter fast(1000), slow(7000);
    fast.CreateThread(nullptr, 0);
    slow.CreateThread(nullptr, 0);
    sim::step_clock(0);
    sim::step_clock(70'000);
    EXPECT_EQ(fast.count, 70);
    EXPECT_EQ(slow.count, 10);
    fast.DestroyThread();
    slow.DestroyThread();
}

TEST(SteppedClock, ReturnsWhenTheWorkThatWasRungForIsDone) {
    sim::use_stepped_clock(START_US);
    Counter a(1000);
    a.CreateThread(nullptr, 0);
    sim::step_clock(999);
    EXPECT_EQ(a.count, 0);
    sim::step_clock(1);
    EXPECT_EQ(a.count, 1);
    a.DestroyThread();
}

TEST(Alarm, KeepsARingThatCameBeforeTheWait) {
    sim::Alarm alarm;
    alarm.ring();
    alarm.wait_until(sim::NEVER);  // would wait for ever if the ring were lost
    SUCCEED();
}

// A look at the clocks `at_us` after the first, UTC set forward by `set_us`. It was held up for
// `apart_us`, so its UTC is off by anything up to half of that: `off_us`.
sim::ClockLook look(int64_t at_us, int64_t set_us, int64_t apart_us = 0, int64_t off_us = 0) {
    return {START_US + at_us + set_us + off_us, at_us, apart_us};
}

TEST(UtcSteps, SumsWhatTheClockWasSetBy) {
    sim::UtcSteps steps;
    EXPECT_EQ(steps.note(look(0, 0)), 0);
    EXPECT_EQ(steps.note(look(SECOND_US, 0)), 0);
    EXPECT_EQ(steps.note(look(2 * SECOND_US, 3600 * SECOND_US)), 3600 * SECOND_US);
    EXPECT_EQ(steps.note(look(3 * SECOND_US, 3600 * SECOND_US)), 3600 * SECOND_US);
    EXPECT_EQ(steps.note(look(4 * SECOND_US, -SECOND_US)), -SECOND_US);
    EXPECT_EQ(steps.note(look(5 * SECOND_US, -SECOND_US + 250'000)), -SECOND_US + 250'000);
}

TEST(UtcSteps, FollowsAClockThatIsOnlyLed) {
    sim::UtcSteps steps;
    for (int64_t i = 0; i < 100; ++i) EXPECT_EQ(steps.note(look(i * SECOND_US, i * 249'999)), 0);
    for (int64_t i = 0; i < 100; ++i)
        EXPECT_EQ(steps.note(look((100 + i) * SECOND_US, (99 - i) * 249'999)), 0);
}

TEST(UtcSteps, TakesALookThatWasHeldUpForNoStep) {
    for (const int64_t apart_us : {20'000, 499'998, 3'000'000, 60'000'000})
        for (const int64_t off_us : {-apart_us / 2, apart_us / 2})
            for (const bool first : {false, true}) {
                sim::UtcSteps steps;
                if (!first) {
                    EXPECT_EQ(steps.note(look(0, 0)), 0);
                }
                EXPECT_EQ(steps.note(look(SECOND_US, 0, apart_us, off_us)), 0);
                EXPECT_EQ(steps.note(look(2 * SECOND_US, 0)), 0) << apart_us << " " << off_us;
                EXPECT_EQ(steps.note(look(3 * SECOND_US, SECOND_US)), SECOND_US);
            }
}

TEST(UtcSteps, SeesAStepAlsoWhereEveryLookIsHeldUp) {
    sim::UtcSteps steps;
    EXPECT_EQ(steps.note(look(0, 0, 400'000, 200'000)), 0);
    EXPECT_EQ(steps.note(look(SECOND_US, 0, 400'000, -200'000)), 0);
    const int64_t seen = steps.note(look(2 * SECOND_US, 3600 * SECOND_US, 400'000, -200'000));
    EXPECT_NEAR(static_cast<double>(seen), 3600e6, 400e3);
    EXPECT_EQ(steps.note(look(3 * SECOND_US, 3600 * SECOND_US, 400'000, 200'000)), seen);
}

TEST(UtcSteps, LosesNoStepDuringALookThatWasHeldUp) {
    sim::UtcSteps steps;
    EXPECT_EQ(steps.note(look(0, 0)), 0);
    EXPECT_EQ(steps.note(look(SECOND_US, SECOND_US, 3'000'000, -1'000'000)), 0);
    EXPECT_EQ(steps.note(look(2 * SECOND_US, SECOND_US)), SECOND_US);
}

using AlarmInRealTime = RealClock;

TEST_F(AlarmInRealTime, ReturnsAtItsDeadline) {
    sim::Alarm alarm;
    const int64_t deadline = sim::now_us() + 2000;
    alarm.wait_until(deadline);
    EXPECT_GE(sim::now_us(), deadline);
}

TEST(Alarm, WaitsForAnyTimeHoweverFar) {
    for (const int64_t deadline : {sim::NEVER - 1, int64_t{1} << 61}) {
        sim::Alarm alarm;
        std::thread ringer([&alarm] { alarm.ring(); });
        alarm.wait_until(deadline);
        ringer.join();
    }
}

TEST(Alarm, IsRungFromAnotherThread) {
    sim::Alarm alarm;
    std::thread ringer([&] { alarm.ring(); });
    alarm.wait_until(sim::NEVER);
    ringer.join();
}

TEST(Time, CountsMillisecondsOfBoardTime) {
    sim::use_stepped_clock(START_US);
    qm_time earlier = qm_time::CurrentTime();
    sim::step_clock(2'500'000);
    qm_time later;
    later = qm_time::CurrentTime();
    EXPECT_EQ(later.Diff(earlier), 2500);
    EXPECT_EQ(earlier.Diff(later), -2500);
    EXPECT_EQ(earlier.Seconds(), 1'700'000'000);
    EXPECT_EQ(later.Seconds(), 1'700'000'002);
}

TEST(Time, StartsAtZeroAndCopiesByAssignment) {
    qm_time zero;
    EXPECT_EQ(zero.Seconds(), 0);
    const qm_time given(61'000);
    qm_time copy;
    copy = given;
    EXPECT_EQ(copy.Seconds(), 61);
}

}  // namespace
