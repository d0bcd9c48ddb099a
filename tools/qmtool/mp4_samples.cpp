// Gathers the tables of a track, and writes them as ISO/IEC 14496-12, chapter 8.6 and 8.7, have
// them.
#include "tools/qmtool/mp4_samples.h"

#include <algorithm>

namespace {

// A chunk is read as a whole by some players.
constexpr uint32_t MOST_CHUNK_SAMPLES = 1 << 20;

}  // namespace

void SampleTable::place(uint32_t samples, uint64_t bytes, uint64_t offset, uint32_t description) {
    const bool goes_on = !m_chunks.empty() && offset == m_reach &&
                         m_chunks.back().description == description &&
                         m_chunks.back().samples < MOST_CHUNK_SAMPLES;
    if (!goes_on) m_chunks.push_back({offset, 0, description});
    m_chunks.back().samples += samples;
    m_reach = offset + bytes;
    m_count += samples;
}

void SampleTable::add_time(uint64_t ticks) {
    if (m_times.empty() || m_times.back().ticks != ticks) m_times.push_back({0, ticks});
    ++m_times.back().samples;
    m_duration += ticks;
    m_longest = std::max(m_longest, ticks);
}

void SampleTable::add(int64_t ticks, uint32_t bytes, uint64_t offset, uint32_t description,
                      bool key) {
    if (m_count > 0) add_time(static_cast<uint64_t>(ticks - m_last_ticks));
    m_last_ticks = ticks;
    place(1, bytes, offset, description);
    m_sizes.push_back(bytes);
    m_all_keys = m_all_keys && key;
    if (key) m_keys.push_back(static_cast<uint32_t>(m_count));
}

void SampleTable::add_run(uint32_t count, uint64_t offset) {
    if (count == 0) return;
    place(count, uint64_t{count} * m_size_of_all, offset, 1);
    if (m_times.empty() || m_times.back().samples > UINT32_MAX - count) m_times.push_back({0, 1});
    m_times.back().samples += count;
    m_duration += count;
}

void SampleTable::end(uint32_t ticks) {
    if (m_count > 0) add_time(ticks);
}

uint32_t SampleTable::divisor(uint32_t ticks_per_second) const {
    uint32_t divisor = 1;
    while (divisor < ticks_per_second &&
           (m_longest / divisor >= INT32_MAX || ticks_per_second % divisor != 0))
        ++divisor;
    return divisor;
}

// Each time is rounded for itself, so that no error adds up.
void SampleTable::write_times(Boxes& boxes, uint32_t divisor) const {
    Boxes runs;
    uint64_t count = 0, time = 0, written = 0;
    for (const Times& times : m_times) {
        for (uint32_t left = times.samples; left > 0;) {
            // All of a run have one step where nothing is to be rounded.
            const uint32_t samples = times.ticks % divisor == 0 && time % divisor == 0 ? left : 1;
            time += samples * times.ticks;
            const uint64_t steps = time / divisor - written;
            runs.u32(samples).u32(std::min<uint64_t>(steps / samples, UINT32_MAX));
            written += steps;
            left -= samples;
            ++count;
        }
    }
    boxes.begin_full("stts", 0, 0).u32(count).bytes(runs.out().data(), runs.out().size()).end();
}

void SampleTable::write_keys(Boxes& boxes) const {
    boxes.begin_full("stss", 0, 0).u32(m_keys.size());
    for (const uint32_t key : m_keys) boxes.u32(key);
    boxes.end();
}

void SampleTable::write_chunks(Boxes& boxes) const {
    Boxes runs;
    uint64_t count = 0;
    for (size_t i = 0; i < m_chunks.size(); ++i) {
        const Chunk& chunk = m_chunks[i];
        if (i > 0 && chunk.samples == m_chunks[i - 1].samples &&
            chunk.description == m_chunks[i - 1].description)
            continue;
        runs.u32(i + 1).u32(chunk.samples).u32(chunk.description);
        ++count;
    }
    boxes.begin_full("stsc", 0, 0).u32(count).bytes(runs.out().data(), runs.out().size()).end();

    const bool large = std::any_of(m_chunks.begin(), m_chunks.end(),
                                   [](const Chunk& chunk) { return chunk.offset > UINT32_MAX; });
    boxes.begin_full(large ? "co64" : "stco", 0, 0).u32(m_chunks.size());
    for (const Chunk& chunk : m_chunks) boxes.wide(large, chunk.offset);
    boxes.end();
}

void SampleTable::write_sizes(Boxes& boxes) const {
    boxes.begin_full("stsz", 0, 0).u32(m_size_of_all).u32(m_count);
    for (const uint32_t size : m_sizes) boxes.u32(size);
    boxes.end();
}

void SampleTable::write(Boxes& boxes, uint32_t divisor) const {
    write_times(boxes, divisor);
    if (!m_all_keys) write_keys(boxes);
    write_chunks(boxes);
    write_sizes(boxes);
}
