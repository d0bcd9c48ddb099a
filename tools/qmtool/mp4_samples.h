// What a film's tables tell of the samples of one track: when, how large, where, which are key
// frames. About 16 bytes of memory a frame.
#ifndef TOOLS_QMTOOL_MP4_SAMPLES_H
#define TOOLS_QMTOOL_MP4_SAMPLES_H

#include <cstdint>
#include <vector>

#include "tools/qmtool/mp4_boxes.h"

class SampleTable {
  public:
    // All samples have this size, and each lasts one tick.
    explicit SampleTable(uint32_t size_of_all = 0) : m_size_of_all(size_of_all) {}

    // One sample of `bytes` at `offset` in the file, that looks like description 1, 2, ... Its time
    // is behind that of the sample before it; the first may have any.
    void add(int64_t ticks, uint32_t bytes, uint64_t offset, uint32_t description, bool key);
    // So many samples of that size at `offset`.
    void add_run(uint32_t count, uint64_t offset);
    // How long the last one lasts.
    void end(uint32_t ticks);

    uint64_t count() const { return m_count; }
    // From the first sample to the end of the last.
    uint64_t duration() const { return m_duration; }

    // A step has 31 bits in the tables: where one is longer they count ticks that are so many times
    // as long, a divisor of the ticks of a second.
    uint32_t divisor(uint32_t ticks_per_second) const;
    // The boxes below stbl, but for stsd.
    void write(Boxes& boxes, uint32_t divisor = 1) const;

  private:
    struct Chunk {
        uint64_t offset;
        uint32_t samples;
        uint32_t description;
    };
    struct Times {
        uint32_t samples;
        uint64_t ticks;
    };

    void place(uint32_t samples, uint64_t bytes, uint64_t offset, uint32_t description);
    void add_time(uint64_t ticks);
    void write_times(Boxes& boxes, uint32_t divisor) const;
    void write_keys(Boxes& boxes) const;
    void write_chunks(Boxes& boxes) const;
    void write_sizes(Boxes& boxes) const;

    const uint32_t m_size_of_all;
    uint64_t m_count = 0;
    uint64_t m_duration = 0;
    uint64_t m_longest = 0;  // step
    int64_t m_last_ticks = 0;
    uint64_t m_reach = 0;  // behind the last sample in the file
    bool m_all_keys = true;
    std::vector<uint32_t> m_sizes;
    std::vector<uint32_t> m_keys;  // sample numbers, from 1 on
    std::vector<Times> m_times;
    std::vector<Chunk> m_chunks;
};

#endif  // TOOLS_QMTOOL_MP4_SAMPLES_H
