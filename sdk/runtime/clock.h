// The board's clock, and the one way in which the stand-in's threads wait.
//
// Board time is in microseconds since 1970-01-01 UTC. It starts at the machine's time and then runs
// on the monotonic clock, `speed` times as fast; or, in tests, it stands still until it is stepped,
// with the functions of sim_control.h.
#ifndef SDK_RUNTIME_CLOCK_H
#define SDK_RUNTIME_CLOCK_H

#include <condition_variable>
#include <cstdint>

namespace sim {

inline constexpr int64_t US_PER_S = 1'000'000;
inline constexpr int64_t NEVER = INT64_MAX;

// Any thread.
int64_t now_us();

// How far the machine's UTC clock was set, forward or back, since this was first asked, beside what
// time passed; 0 under the stepped clock. Recorded time is board time and this. Any thread.
int64_t utc_step_us();

// Wakes one thread: it waits, any thread rings. A ring while it works is not lost.
class Alarm {
  public:
    Alarm();
    ~Alarm();
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    void ring();
    // Returns when it was rung since the last return, or board time has reached the deadline.
    void wait_until(int64_t deadline_us);

    // An alarm belongs to a thread that works unless it waits: the stepped clock stands still until
    // every such thread waits. Set around the thread's life.
    void set_live(bool live);

  private:
    friend class SteppedClock;
    bool due() const;

    // All guarded by the clock's mutex.
    std::condition_variable m_condition;
    int64_t m_deadline_us = NEVER;
    bool m_rung = false;
    bool m_waiting = false;
    bool m_live = false;
    Alarm* m_next;  // list of all alarms
};

}  // namespace sim

#endif  // SDK_RUNTIME_CLOCK_H
