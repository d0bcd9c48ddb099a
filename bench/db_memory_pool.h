// Memory that the machine really has, for the pages of files that are written during a measurement.
// A virtual machine may give free memory back to its host and get it again page by page, which
// takes longer than the writing itself; whoever writes through the page cache would be measured by
// that.
#ifndef BENCH_DB_MEMORY_POOL_H
#define BENCH_DB_MEMORY_POOL_H

#include <cstddef>
#include <cstdint>
#include <string>

class MemoryPool {
  public:
    // Takes `bytes` from the system and touches all of them. A file in `folder` takes up the free
    // memory in small pieces, which would be used first.
    MemoryPool(const std::string& folder, uint64_t bytes);
    ~MemoryPool();
    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;

    // Said before and during the measurement: `bytes` were written so far. Gives back what will be
    // used next, little enough that the host does not get it.
    void written(uint64_t bytes);

  private:
    void give_back(uint64_t bytes);

    static constexpr uint64_t STEP = uint64_t{64} << 20;
    static constexpr uint64_t AHEAD = 4 * STEP;
    const std::string m_small_pieces;
    uint8_t* m_memory = nullptr;
    uint64_t m_bytes;
    uint64_t m_given = 0;
};

#endif  // BENCH_DB_MEMORY_POOL_H
