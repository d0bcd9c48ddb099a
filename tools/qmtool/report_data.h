// The figures of a report: what is counted of each channel of each stream, also over time. How it
// is shown stands in report_page.
#ifndef TOOLS_QMTOOL_REPORT_DATA_H
#define TOOLS_QMTOOL_REPORT_DATA_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "sdk/db/check.h"
#include "sdk/db/disk_reader.h"

// The least, the most and the mean of values.
struct Range {
    uint64_t count = 0, sum = 0;
    uint32_t least = UINT32_MAX, most = 0;
    void add(uint32_t value, uint64_t times = 1);
    double mean() const {
        return count > 0 ? static_cast<double>(sum) / static_cast<double>(count) : 0;
    }
};

// What went on while a channel was recorded. A frame counts for the time up to the next one, so
// that a part of a second tells the same rate as a whole one.
struct Flow {
    double us = 0;
    double frames = 0, bytes = 0;
    void add(const Flow& other);
    double frame_rate() const { return us > 0 ? 1e6 * frames / us : 0; }
    double bit_rate() const { return us > 0 ? 8e6 * bytes / us : 0; }
};

// What falls into one stretch of time.
struct Bin {
    uint32_t frames = 0;
    uint32_t missing = 0;  // numbers, before one of its frames
    uint64_t bytes = 0;
    bool covered = false;  // recording went on in it, perhaps with no frame
    bool lost = false;     // frames are missing in it
    Flow flow;             // but what its lane's last frame counts for
    // Of its key frames, from the one before: numbers, the least and the most.
    uint32_t key_least = UINT32_MAX, key_most = 0;

    // One of them is not `distance`.
    bool has_other_key(uint32_t distance) const {
        return key_most > 0 && (key_least != distance || key_most != distance);
    }
};

// One channel of one stream, or its sound.
struct Lane {
    Range sizes, key_sizes;  // bytes of payload: all, and key frames
    Range key_distance;      // numbers from a key frame to the next one of its run
    uint64_t missing = 0;    // numbers that no frame has
    int64_t first_us = 0, last_us = 0;
    int64_t usual_us = 0;  // from a frame to the next, lately
    // Without pauses: the time, and what came in it.
    int64_t steady_us = 0;
    uint64_t steady_frames = 0, steady_bytes = 0;
    std::vector<Bin> bins;  // as many as the axis has

    uint64_t frames() const { return sizes.count; }
    // The most common distance of key frames, the least of several such: what was set. 0 when there
    // is none, or it is above MOST_DISTANCE.
    uint32_t usual_key_distance() const;
    // Those that are not `usual`.
    Range other_key_distances(uint32_t usual) const;
    double frame_rate() const;  // a second, 0 when it is not known
    double bit_rate() const;
    // Of one bin; where the recording begins or ends in it only that part of it counts.
    Flow bin_flow(size_t bin, int64_t bin_begin_us, int64_t bin_us) const;

  private:
    friend class ReportData;
    static constexpr uint32_t MOST_DISTANCE = 4095;  // up to it each one is counted

    void take_key(uint32_t number, bool same_run, Bin& bin);

    std::vector<uint32_t> m_distances;            // how often each came, as long as it has to be
    Range m_longer;                               // above MOST_DISTANCE
    uint32_t m_number = 0, m_run = 0, m_key = 0;  // of the last frame; number of the last key frame
    uint32_t m_bytes = 0;                         // of the last frame
    bool m_has_key = false;                       // there was one in that run
};

// Memory does not grow with the recording: the bins become longer instead, always twice as long.
class ReportData {
  public:
    static constexpr size_t MOST_BINS = 600;
    static constexpr int64_t LEAST_BIN_US = 1'000'000;
    static constexpr int64_t SHORT_BIN_US = 250'000;

    explicit ReportData(int64_t least_bin_us = LEAST_BIN_US) : m_bin_us(least_bin_us) {}
    // The axis begins there, and not at the first frame: frames of several channels are not in the
    // order of their times. Before the first frame.
    void begin_at(int64_t time_us);
    // The next frame in the order of recording.
    void take(const sim::FrameInfo& info);
    // All that a reader has now.
    void take_all(sim::DiskReader& reader,
                  const std::function<void(uint64_t done, uint64_t total)>& progress);

    uint64_t frames() const { return m_frames; }
    uint64_t bytes() const { return m_bytes; }
    uint64_t missing() const;
    // Rows as in a summary; null when nothing is recorded of it.
    const Lane* lane(int row, int channel) const;

    // The axis of time: bins() stretches of bin_us().
    int64_t begin_us() const { return m_begin_us; }
    int64_t bin_us() const { return m_bin_us; }
    size_t bins() const { return m_bins; }
    int64_t end_us() const { return bin_begin_us(m_bins); }
    int64_t bin_begin_us(size_t bin) const {
        return m_begin_us + static_cast<int64_t>(bin) * m_bin_us;
    }
    // Of a time on the axis; times beyond it are those of its ends.
    size_t bin_of(int64_t time_us) const;
    // Of all frames.
    int64_t earliest_us() const { return m_earliest_us; }
    int64_t latest_us() const { return m_latest_us; }

  private:
    void make_room(int64_t time_us);
    void double_bins();
    void shift_bins(size_t by);
    void follow(Lane& lane, const sim::FrameInfo& info, int64_t time_us);
    void spread(Lane& lane, int64_t begin_us, int64_t us, const Flow& flow);
    void lose(Lane& lane, int64_t begin_us, int64_t end_us);

    Lane m_lanes[sim::SUMMARY_ROWS][QMCODEC_CHANNELS];
    uint64_t m_frames = 0, m_bytes = 0;
    int64_t m_begin_us = 0, m_bin_us;
    size_t m_bins = 0;
    int64_t m_earliest_us = 0, m_latest_us = 0;
};

#endif  // TOOLS_QMTOOL_REPORT_DATA_H
