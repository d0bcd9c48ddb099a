// Counting by channel, and in bins of time.
#include "tools/qmtool/report_data.h"

#include <algorithm>

namespace {

// Times beyond it (70,000 years) count as it, so that no difference of two overflows.
constexpr int64_t MOST_TIME_US = int64_t{1} << 61;

// From here on a frame that comes later than twice the usual distance comes after a pause.
constexpr int64_t LEAST_PAUSE_US = 1'000'000;

Bin both(const Bin& a, const Bin& b) {
    return {a.frames + b.frames,
            a.missing + b.missing,
            a.bytes + b.bytes,
            a.covered || b.covered,
            std::min(a.key_least, b.key_least),
            std::max(a.key_most, b.key_most)};
}

}  // namespace

void Range::add(uint32_t value, uint64_t times) {
    if (times == 0) return;
    count += times;
    sum += value * times;
    least = std::min(least, value);
    most = std::max(most, value);
}

// The next key frame, in a bin.
void Lane::take_key(uint32_t number, bool same_run, Bin& bin) {
    if (m_has_key && same_run && number > m_key) {
        const uint32_t distance = number - m_key;
        key_distance.add(distance);
        bin.key_least = std::min(bin.key_least, distance);
        bin.key_most = std::max(bin.key_most, distance);
        if (distance > MOST_DISTANCE) {
            m_longer.add(distance);
        } else {
            if (distance >= m_distances.size()) m_distances.resize(distance + 1);
            ++m_distances[distance];
        }
    }
    m_key = number;
    m_has_key = true;
}

uint32_t Lane::usual_key_distance() const {
    const auto most = std::max_element(m_distances.begin(), m_distances.end());
    if (most == m_distances.end() || *most < m_longer.count) return 0;
    return static_cast<uint32_t>(most - m_distances.begin());
}

Range Lane::other_key_distances(uint32_t usual) const {
    Range out = m_longer;
    for (uint32_t distance = 1; distance < m_distances.size(); ++distance)
        if (distance != usual) out.add(distance, m_distances[distance]);
    return out;
}

double Lane::frame_rate() const {
    return steady_us > 0 ? 1e6 * static_cast<double>(steady_frames) / static_cast<double>(steady_us)
                         : 0;
}

double Lane::bit_rate() const {
    return steady_us > 0 ? 8e6 * static_cast<double>(steady_bytes) / static_cast<double>(steady_us)
                         : 0;
}

double Lane::bin_seconds(size_t bin, int64_t bin_begin_us, int64_t bin_us) const {
    const int64_t begin = std::max(bin_begin_us, first_us);
    const int64_t end = std::min(bin_begin_us + bin_us, last_us + std::max<int64_t>(usual_us, 0));
    // A frame just before the end of a bin stands for its usual time, not for the rest of the bin.
    const double frames_us = static_cast<double>(bins[bin].frames) * static_cast<double>(usual_us);
    const double us = std::max(static_cast<double>(end - begin), frames_us);
    const double whole = static_cast<double>(bin_us);
    return (us > 0 && us < whole ? us : whole) / 1e6;
}

void ReportData::take(const sim::FrameInfo& info) {
    const int row = info.kind == sim::FrameKind::audio ? sim::AUDIO_ROW : info.stream;
    if (row >= sim::SUMMARY_ROWS || info.channel >= QMCODEC_CHANNELS) return;
    const int64_t time_us = std::clamp(info.time_us, -MOST_TIME_US, MOST_TIME_US);
    make_room(time_us);
    m_earliest_us = m_frames == 0 ? time_us : std::min(m_earliest_us, time_us);
    m_latest_us = m_frames == 0 ? time_us : std::max(m_latest_us, time_us);
    ++m_frames;
    m_bytes += info.bytes;

    Lane& lane = m_lanes[row][info.channel];
    if (lane.frames() == 0) {
        lane.bins.resize(MOST_BINS);
        lane.first_us = time_us;
    } else {
        follow(lane, info, time_us);
    }
    lane.sizes.add(info.bytes);
    if (is_key(info.kind)) {
        lane.key_sizes.add(info.bytes);
        lane.take_key(info.number, info.run == lane.m_run, lane.bins[bin_of(time_us)]);
    } else if (info.run != lane.m_run) {
        lane.m_has_key = false;
    }
    Bin& bin = lane.bins[bin_of(time_us)];
    ++bin.frames;
    bin.bytes += info.bytes;
    bin.covered = true;
    lane.first_us = std::min(lane.first_us, time_us);
    lane.last_us = time_us;
    lane.m_number = info.number;
    lane.m_run = info.run;
}

// What lies between a frame and the one before it.
void ReportData::follow(Lane& lane, const sim::FrameInfo& info, int64_t time_us) {
    if (info.run != lane.m_run) return;
    const int64_t step = time_us - lane.last_us;
    const uint32_t missing = info.number > lane.m_number ? info.number - lane.m_number - 1 : 0;
    const bool late = step > LEAST_PAUSE_US && lane.usual_us > 0 && step / 2 > lane.usual_us;
    if (missing > 0) {
        lane.missing += missing;
        lane.bins[bin_of(time_us)].missing += missing;
    }
    if (missing > 0 || !late) lane.usual_us = step / (int64_t{missing} + 1);
    if (late) return;
    if (step > 0) lane.steady_us += step;
    ++lane.steady_frames;
    lane.steady_bytes += info.bytes;
    for (size_t bin = bin_of(lane.last_us); bin < bin_of(time_us); ++bin)
        lane.bins[bin].covered = true;
}

void ReportData::take_all(sim::DiskReader& reader,
                          const std::function<void(uint64_t done, uint64_t total)>& progress) {
    const uint64_t first = reader.first(), end = reader.end();
    sim::FrameInfo info;
    for (uint64_t n = reader.next(first); n < end; n = reader.next(n + 1)) {
        if (reader.info(n, info)) take(info);
        progress(n - first, end - first);
    }
}

uint64_t ReportData::missing() const {
    uint64_t sum = 0;
    for (const auto& row : m_lanes)
        for (const Lane& lane : row) sum += lane.missing;
    return sum;
}

const Lane* ReportData::lane(int row, int channel) const {
    const Lane& lane = m_lanes[row][channel];
    return lane.frames() > 0 ? &lane : nullptr;
}

size_t ReportData::bin_of(int64_t time_us) const {
    if (time_us <= m_begin_us || m_bins == 0) return 0;
    return std::min(static_cast<size_t>((time_us - m_begin_us) / m_bin_us), m_bins - 1);
}

// The axis reaches to a time on either side.
void ReportData::make_room(int64_t time_us) {
    if (m_frames == 0) {
        m_begin_us = time_us;
        m_bins = 1;
        return;
    }
    for (;;) {
        const int64_t most = static_cast<int64_t>(MOST_BINS) * m_bin_us;
        if (time_us >= m_begin_us && time_us - m_begin_us < most) break;
        if (time_us < m_begin_us) {
            const int64_t by = (m_begin_us - time_us + m_bin_us - 1) / m_bin_us;
            if (by <= static_cast<int64_t>(MOST_BINS - m_bins)) {
                shift_bins(static_cast<size_t>(by));
                break;
            }
        }
        double_bins();
    }
    m_bins = std::max(m_bins, static_cast<size_t>((time_us - m_begin_us) / m_bin_us) + 1);
}

void ReportData::double_bins() {
    for (auto& row : m_lanes) {
        for (Lane& lane : row) {
            if (lane.bins.empty()) continue;
            for (size_t i = 0; i < MOST_BINS / 2; ++i)
                lane.bins[i] = both(lane.bins[2 * i], lane.bins[2 * i + 1]);
            std::fill(lane.bins.begin() + MOST_BINS / 2, lane.bins.end(), Bin{});
        }
    }
    m_bins = (m_bins + 1) / 2;
    m_bin_us *= 2;
}

void ReportData::shift_bins(size_t by) {
    for (auto& row : m_lanes) {
        for (Lane& lane : row) {
            if (lane.bins.empty()) continue;
            std::rotate(lane.bins.begin(), lane.bins.end() - static_cast<ptrdiff_t>(by),
                        lane.bins.end());
        }
    }
    m_bins += by;
    m_begin_us -= static_cast<int64_t>(by) * m_bin_us;
}
