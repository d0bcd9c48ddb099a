// Counting by channel, and in bins of time.
#include "tools/qmtool/report_data.h"

#include <algorithm>

namespace {

// Times beyond it (70,000 years) count as it, so that no difference of two overflows.
constexpr int64_t MOST_TIME_US = int64_t{1} << 61;

// From here on a frame that comes later than twice the usual distance comes after a pause.
constexpr int64_t LEAST_PAUSE_US = 1'000'000;

int64_t on_axis(int64_t time_us) { return std::clamp(time_us, -MOST_TIME_US, MOST_TIME_US); }

// The part of a flow over `us` from `begin_us` on that lies in a bin.
Flow part_in(const Flow& flow, int64_t begin_us, int64_t us, int64_t bin_begin_us, int64_t bin_us) {
    const int64_t from = std::max(begin_us, bin_begin_us);
    const int64_t to = std::min(begin_us + us, bin_begin_us + bin_us);
    if (to <= from) return {};
    const double share = static_cast<double>(to - from) / static_cast<double>(us);
    return {static_cast<double>(to - from), share * flow.frames, share * flow.bytes};
}

Bin both(const Bin& a, const Bin& b) {
    Flow flow = a.flow;
    flow.add(b.flow);
    return {a.frames + b.frames,
            a.missing + b.missing,
            a.bytes + b.bytes,
            a.covered || b.covered,
            a.lost || b.lost,
            flow,
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

void Flow::add(const Flow& other) {
    us += other.us;
    frames += other.frames;
    bytes += other.bytes;
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

Flow Lane::bin_flow(size_t bin, int64_t bin_begin_us, int64_t bin_us) const {
    Flow out = bins[bin].flow;
    // No frame follows the last one: it counts for the usual time.
    if (usual_us > 0)
        out.add(
            part_in({0, 1, static_cast<double>(m_bytes)}, last_us, usual_us, bin_begin_us, bin_us));
    return out;
}

void ReportData::begin_at(int64_t time_us) {
    if (m_frames > 0) return;
    m_begin_us = on_axis(time_us);
    m_bins = 1;
}

void ReportData::take(const sim::FrameInfo& info) {
    const int row = info.kind == sim::FrameKind::audio ? sim::AUDIO_ROW : info.stream;
    if (row >= sim::SUMMARY_ROWS || info.channel >= QMCODEC_CHANNELS) return;
    const int64_t time_us = on_axis(info.time_us);
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
    lane.m_bytes = info.bytes;
}

// What lies between a frame and the one before it.
void ReportData::follow(Lane& lane, const sim::FrameInfo& info, int64_t time_us) {
    const Flow last = {0, 1, static_cast<double>(lane.m_bytes)};
    if (info.run != lane.m_run) {
        if (lane.usual_us > 0) spread(lane, lane.last_us, lane.usual_us, last);
        return;
    }
    const int64_t step = time_us - lane.last_us;
    const uint32_t missing = info.number > lane.m_number ? info.number - lane.m_number - 1 : 0;
    const int64_t each = step / (int64_t{missing} + 1);
    const auto late = [&](int64_t us) {
        return us > LEAST_PAUSE_US && lane.usual_us > 0 && us / 2 > lane.usual_us;
    };
    const bool pause = late(each);  // too long for the numbers that are missing
    const bool gap = late(step);
    if (missing > 0) {
        lane.missing += missing;
        lane.bins[bin_of(time_us)].missing += missing;
    }
    if (!pause) lane.usual_us = each;
    spread(lane, lane.last_us, lane.usual_us, last);
    if (!pause && missing > 0) lose(lane, lane.last_us + each, time_us);
    if (gap) return;
    if (step > 0 && __builtin_add_overflow(lane.steady_us, step, &lane.steady_us))
        lane.steady_us = INT64_MAX;
    ++lane.steady_frames;
    lane.steady_bytes += info.bytes;
    for (size_t bin = bin_of(lane.last_us); bin < bin_of(time_us); ++bin)
        lane.bins[bin].covered = true;
}

// Puts a flow into the bins of its time.
void ReportData::spread(Lane& lane, int64_t begin_us, int64_t us, const Flow& flow) {
    if (us <= 0) {  // frames of the same time
        lane.bins[bin_of(begin_us)].flow.add(flow);
        return;
    }
    const size_t end = bin_of(begin_us + us);
    for (size_t bin = bin_of(begin_us); bin <= end; ++bin)
        lane.bins[bin].flow.add(part_in(flow, begin_us, us, bin_begin_us(bin), m_bin_us));
}

// Frames are missing in that time.
void ReportData::lose(Lane& lane, int64_t begin_us, int64_t end_us) {
    if (end_us <= begin_us) return;
    spread(lane, begin_us, end_us - begin_us, {});
    for (size_t bin = bin_of(begin_us); bin <= bin_of(end_us - 1); ++bin)
        lane.bins[bin].lost = true;
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
    time_us = on_axis(time_us);
    if (time_us <= m_begin_us || m_bins == 0) return 0;
    return std::min(static_cast<size_t>((time_us - m_begin_us) / m_bin_us), m_bins - 1);
}

// The axis reaches to a time on either side.
void ReportData::make_room(int64_t time_us) {
    if (m_bins == 0) {
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
