// The SDK's point in time.
#ifndef SHELL_QM_TIME_H
#define SHELL_QM_TIME_H

#include <atomic>
#include <cstdint>

// Milliseconds since 1970-01-01 UTC, counted steadily: setting the machine's clock while the
// program runs moves no qm_time. One word, so a time that one thread sets and another copies is
// always whole.
class qm_time {
  public:
    qm_time();
    qm_time(const qm_time& other);
    explicit qm_time(int64_t milliseconds);
    ~qm_time();

    qm_time operator=(qm_time other);

    static qm_time CurrentTime();

    // Milliseconds from `earlier` to this time; negative when `earlier` is the later one.
    int64_t Diff(qm_time& earlier) const;

    // Whole seconds since 1970-01-01 UTC.
    int64_t Seconds() const;

  private:
    std::atomic<int64_t> m_milliseconds;
};

#endif  // SHELL_QM_TIME_H
