// Bodies of the point in time, on the board's clock.
#include "shell/qm_time.h"

#include "sdk/runtime/clock.h"

namespace {

constexpr int64_t US_PER_MS = 1000;
constexpr int64_t MS_PER_S = 1000;

}  // namespace

qm_time::qm_time() : m_milliseconds(0) {}

qm_time::qm_time(const qm_time& other)
    : m_milliseconds(other.m_milliseconds.load(std::memory_order_relaxed)) {}

qm_time::qm_time(int64_t milliseconds) : m_milliseconds(milliseconds) {}

qm_time::~qm_time() = default;

qm_time qm_time::operator=(qm_time other) {
    m_milliseconds.store(other.m_milliseconds.load(std::memory_order_relaxed),
                         std::memory_order_relaxed);
    return other;
}

qm_time qm_time::CurrentTime() { return qm_time(sim::now_us() / US_PER_MS); }

int64_t qm_time::Diff(qm_time& earlier) const {
    return m_milliseconds.load(std::memory_order_relaxed) -
           earlier.m_milliseconds.load(std::memory_order_relaxed);
}

int64_t qm_time::Seconds() const {
    return m_milliseconds.load(std::memory_order_relaxed) / MS_PER_S;
}
