// What the database benchmark compares: places where frames are stored, one class each.
#ifndef BENCH_DB_STORE_H
#define BENCH_DB_STORE_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bench/db_workload.h"

// Trouble of any kind ends the benchmark.
class Store {
  public:
    virtual ~Store() = default;

    virtual void append(const qm_dbframe& frame, int64_t now_us) = 0;
    // All that was appended is durable.
    virtual void make_durable(int64_t now_us) = 0;
    // Between two ticks: makes durable what is due, once a second.
    virtual void between_ticks(int64_t now_us) {
        if (m_durable_us == 0) m_durable_us = now_us;
        if (now_us - m_durable_us < SECOND_US) return;
        make_durable(now_us);
        m_durable_us = now_us;
    }

  protected:
    static constexpr int64_t SECOND_US = 1'000'000;

  private:
    int64_t m_durable_us = 0;
};

// Makes a store in the empty folder `folder` that will take about `bytes` of payload.
using MakeStore = std::unique_ptr<Store> (*)(const std::string& folder, const Workload& workload,
                                             uint64_t bytes);

struct Peer {
    const char* name;
    MakeStore make;  // null when its library was not there when this was built
};

std::unique_ptr<Store> make_raw_append(const std::string&, const Workload&, uint64_t);
std::unique_ptr<Store> make_file_a_frame(const std::string&, const Workload&, uint64_t);
std::unique_ptr<Store> make_sqlite_wal(const std::string&, const Workload&, uint64_t);
std::unique_ptr<Store> make_sqlite_journal(const std::string&, const Workload&, uint64_t);
std::unique_ptr<Store> make_lmdb(const std::string&, const Workload&, uint64_t);
std::unique_ptr<Store> make_rocksdb(const std::string&, const Workload&, uint64_t);

#endif  // BENCH_DB_STORE_H
