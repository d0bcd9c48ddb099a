// Board time, real or stepped. One mutex guards every alarm: the stepped clock can so see at one
// moment that all threads wait.
#include "sdk/runtime/clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>

#include "sdk/runtime/settings.h"
#include "sdk/runtime/utc_steps.h"
#include "sdk/sim_control.h"

namespace sim {

namespace {

using Steady = std::chrono::steady_clock;

int64_t steady_us() {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    return duration_cast<microseconds>(Steady::now().time_since_epoch()).count();
}

int64_t utc_us() {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    return duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// Who is held up between two readings looks again, but not for ever.
ClockLook look_at_clocks() {
    constexpr int TRIES = 5;
    constexpr int64_t ENOUGH_US = 1000;
    ClockLook best;
    for (int i = 0; i < TRIES && best.apart_us > ENOUGH_US; ++i) {
        const int64_t before_us = steady_us();
        const int64_t now_us = utc_us();
        const int64_t apart_us = steady_us() - before_us;
        if (apart_us < best.apart_us) best = {now_us, before_us + apart_us / 2, apart_us};
    }
    return best;
}

// The real clock is anchored once; its speed is the one set at that time.
struct Anchor {
    Anchor() {
        const ClockLook look = look_at_clocks();
        utc = look.utc_us;
        steady = look.steady_us;
    }

    int64_t utc;
    int64_t steady;
    int64_t speed = settings().speed;
};

const Anchor& anchor() {
    static const Anchor anchor;
    return anchor;
}

// Nobody waits longer in one go: no time, however far, can overflow.
constexpr int64_t MOST_WAIT_US = 3'600'000'000;

// Of a time that is not past, or a wait nearer than it.
Steady::time_point steady_time_of(int64_t board_us) {
    const int64_t ahead = std::min(board_us, now_us() + MOST_WAIT_US) - anchor().utc;
    const int64_t rounded_up = (ahead + anchor().speed - 1) / anchor().speed;
    return Steady::time_point(std::chrono::microseconds(anchor().steady + rounded_up));
}

// Never destroyed: threads may still ask while the process ends.
struct UtcClock {
    std::mutex mutex;
    UtcSteps steps;
};

UtcClock& utc_clock() {
    static UtcClock* clock = new UtcClock;
    return *clock;
}

std::atomic<int64_t> l_set_by_us{0};

std::atomic<bool> l_stepped{false};
std::atomic<int64_t> l_stepped_now_us{0};

// Never destroyed: threads and static objects may still wait while the process ends.
struct Shared {
    std::mutex mutex;
    std::condition_variable settled;  // a live thread began to wait, or ended
    Alarm* alarms = nullptr;
};

Shared& shared() {
    static Shared* shared = new Shared;
    return *shared;
}

}  // namespace

int64_t now_us() {
    if (l_stepped.load(std::memory_order_acquire))
        return l_stepped_now_us.load(std::memory_order_acquire);
    return anchor().utc + (steady_us() - anchor().steady) * anchor().speed;
}

Alarm::Alarm() {
    std::lock_guard lock(shared().mutex);
    m_next = shared().alarms;
    shared().alarms = this;
}

Alarm::~Alarm() {
    std::lock_guard lock(shared().mutex);
    Alarm** link = &shared().alarms;
    while (*link != this) link = &(*link)->m_next;
    *link = m_next;
}

bool Alarm::due() const { return m_rung || (m_deadline_us != NEVER && now_us() >= m_deadline_us); }

void Alarm::ring() {
    std::lock_guard lock(shared().mutex);
    m_rung = true;
    m_condition.notify_one();
}

void Alarm::wait_until(int64_t deadline_us) {
    std::unique_lock lock(shared().mutex);
    m_deadline_us = deadline_us;
    m_waiting = true;
    const bool stepped = l_stepped.load(std::memory_order_relaxed);
    if (stepped) shared().settled.notify_all();
    while (!due()) {
        if (stepped || deadline_us == NEVER)
            m_condition.wait(lock);
        else
            m_condition.wait_until(lock, steady_time_of(deadline_us));
    }
    m_waiting = false;
    m_rung = false;
}

void Alarm::set_live(bool live) {
    std::lock_guard lock(shared().mutex);
    m_live = live;
    shared().settled.notify_all();
}

class SteppedClock {
  public:
    static void step(int64_t us) {
        std::unique_lock lock(shared().mutex);
        const int64_t target = l_stepped_now_us.load() + us;
        for (;;) {
            shared().settled.wait(lock, all_wait);
            const int64_t next = std::min(next_deadline(), target);
            if (next <= l_stepped_now_us.load()) return;  // the target, with nothing left to do
            l_stepped_now_us.store(next, std::memory_order_release);
            wake_due();
        }
    }

  private:
    static bool all_wait() {
        for (const Alarm* a = shared().alarms; a; a = a->m_next)
            if (a->m_live && (!a->m_waiting || a->due())) return false;
        return true;
    }
    static int64_t next_deadline() {
        int64_t next = NEVER;
        for (const Alarm* a = shared().alarms; a; a = a->m_next)
            if (a->m_live) next = std::min(next, a->m_deadline_us);
        return next;
    }
    static void wake_due() {
        for (Alarm* a = shared().alarms; a; a = a->m_next)
            if (a->m_waiting && a->due()) a->m_condition.notify_one();
    }
};

int64_t utc_step_us() {
    if (l_stepped) return l_set_by_us;
    UtcClock& clock = utc_clock();
    std::lock_guard lock(clock.mutex);
    return clock.steps.note(look_at_clocks()) + l_set_by_us;
}

void set_utc_clock(int64_t by_us) { l_set_by_us += by_us; }

void use_stepped_clock(int64_t start_us) {
    l_stepped_now_us = start_us;
    l_stepped = true;
}

void step_clock(int64_t us) { SteppedClock::step(us); }

}  // namespace sim
