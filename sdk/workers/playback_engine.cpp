// Delivering recorded frames in recorded time. What the operator types stands in PB.
#include "sdk/workers/playback_engine.h"

#include <signal.h>

#include <algorithm>
#include <cstdint>
#include <new>

#include "sdk/runtime/settings.h"
#include "sdk/workers/saturating.h"

namespace {

// Speeds in eighths of the recorded one: 1/8 to 16 times.
constexpr int LADDER[] = {1, 2, 4, 8, 16, 32, 64, 128};
constexpr int TOP_RUNG = 7;
constexpr int NORMAL_RUNG = 3;
constexpr int KEYS_ONLY_EIGHTHS = 64;  // from 8 times on
// What nobody wants is passed over no sooner: a request that wants it finds it near.
constexpr int64_t LOOK_AHEAD_US = 1'000'000;
// Recorded times further apart than 9000 years are none: no difference of them may overflow.
constexpr int64_t MOST_AHEAD_US = int64_t{1} << 58;

// Frames delivered, and records passed over, before the thread looks at its requests again.
constexpr int BATCH = 64;
constexpr int MAX_PASSED_OVER = 4096;
// Records that a step looks through for the channels that have no frame yet: one that is not
// recorded any more holds nobody up.
constexpr int MAX_STEP_AHEAD = 16384;

// When a picture that the view could not write at once is offered again, in real time.
constexpr int64_t VIEW_US = 10'000;

bool has_bit(uint32_t mask, int bit) { return mask >> bit & 1; }

}  // namespace

qm_playback_engine::qm_playback_engine(qm_thread_decode& owner, sim::Alarm& alarm)
    : m_owner(owner), m_alarm(alarm) {}

template <class Change>
void qm_playback_engine::ask(Change change) {
    {
        std::lock_guard lock(m_mutex);
        change(m_asked);
    }
    m_alarm.ring();
}

void qm_playback_engine::set_state(int state) {
    ask([state](Request& r) {
        r.control.playing = state == PB_STATE_FORWARD;
        r.forward = r.forward || r.control.playing;
        if (state == PB_STATE_NEXT_FRAME && r.steps < INT32_MAX) ++r.steps;
    });
}

void qm_playback_engine::change_speed(int direction, int step) {
    const int rungs = std::clamp(step, 0, TOP_RUNG);
    ask([&](Request& r) {
        int& rung = r.control.rung;
        rung = std::clamp(rung + (direction == 1 ? rungs : -rungs), 0, TOP_RUNG);
    });
}

void qm_playback_engine::set_channels(unsigned long channels, unsigned long chips) {
    uint32_t mask = 0;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if ((channels >> ch & 1) && (chips >> (ch / QMCODEC_CHANNELS_PER_CHIP) & 1))
            mask |= 1u << ch;
    ask([mask](Request& r) { r.control.channels = mask; });
}

void qm_playback_engine::enable_audio(bool enable) {
    ask([enable](Request& r) { r.control.audio = enable; });
}

void qm_playback_engine::set_audio_channel(int channel) {
    const int held = std::clamp(channel, 0, QMCODEC_CHANNELS - 1);
    ask([held](Request& r) { r.control.audio_channel = held; });
}

int qm_playback_engine::figure(E_CALCUL figure, int channel) {
    if (channel < 0 || channel >= QMCODEC_CHANNELS) return 0;
    switch (figure) {
        case CALCUL_PERIOD_FRAMES:
            return m_period_frames[channel].exchange(0, std::memory_order_relaxed);
        case CALCUL_PERIOD_BYTES:
            return m_period_bytes[channel].exchange(0, std::memory_order_relaxed);
        case CALCUL_TOTAL_FRAMES: return m_total_frames[channel].load(std::memory_order_relaxed);
    }
    return 0;
}

sim::PlaybackReport qm_playback_engine::report() {
    std::lock_guard lock(m_mutex);
    sim::PlaybackReport report;
    report.audio_frames = m_audio_frames;
    report.damaged = m_damaged;
    report.speed_eighths = LADDER[m_asked.control.rung];
    report.state = m_asked.control.playing ? PB_STATE_FORWARD : PB_STATE_PAUSE;
    return report;
}

void qm_playback_engine::work(iqm_db* db, const std::atomic<uint32_t>& stop) {
    // A player that ends while it is written to must not end the program.
    sigset_t broken_pipe;
    sigemptyset(&broken_pipe);
    sigaddset(&broken_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
    m_db = db ? sim::StreamDb::of(db) : nullptr;
    rewind();
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        m_total_frames[ch] = m_period_frames[ch] = m_period_bytes[ch] = 0;
        m_owner.idr_distance[ch] = 0;
        m_key_seen[ch] = false;
    }
    m_audio_frames = 0;
    m_damaged = 0;
    m_owner.current_time = qm_time();
    m_control = Control{};
    m_steps = 0;
    while (stop.load() == 0) {
        int64_t next_us = run_once();
        if (m_view.waits())
            next_us = std::min(next_us, sim::now_us() + VIEW_US * sim::settings().speed);
        m_alarm.wait_until(next_us);
        m_view.tend();
    }
    if (m_damaged > 1)
        sim::complain("playback: %llu damaged frames were delivered",
                      static_cast<unsigned long long>(m_damaged));
    put_back();
    if (m_db) m_db->watch(nullptr);
    m_db = nullptr;
    m_view.close();
    for (auto& stream : m_checks)
        for (auto& check : stream) check.reset();
    // The next start is paused on the first frame again, whatever was going on.
    std::lock_guard lock(m_mutex);
    m_asked = Request{};
}

void qm_playback_engine::rewind() {
    put_back();
    m_scan = m_db ? m_db->first() : 0;
    std::fill(std::begin(m_next), std::end(m_next), m_scan);
    std::fill(std::begin(m_key_needed), std::end(m_key_needed), true);
    m_anchored = false;
    m_at_end = false;
}

// Forward playback asked for at the end starts from the beginning. The moment of the recording that
// playback has reached stays, whatever is changed.
void qm_playback_engine::take_request() {
    Request request;
    {
        std::lock_guard lock(m_mutex);
        request = m_asked;
        m_asked.forward = false;
        m_asked.steps = 0;
    }
    m_steps += request.steps;
    if (request.forward && m_at_end) rewind();
    if (request.control == m_control) return;
    if (!m_db) {
        m_control = request.control;
        return;
    }
    anchor_at(reached_us());
    const uint32_t switched_off = m_control.channels & ~request.control.channels;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (has_bit(switched_off, ch)) m_key_needed[ch] = true;
    m_control = request.control;
    put_back();
    // What was passed over ahead of its time is looked at again: it may be wanted now.
    sim::FrameInfo info;
    while (m_anchored && m_scan > m_db->first() && m_db->info(m_scan - 1, info) &&
           info.run == m_run && info.time_us > m_anchor_record_us)
        --m_scan;
}

int64_t qm_playback_engine::run_once() {
    take_request();
    if (!m_db) return sim::NEVER;
    if (m_steps > 0) {
        --m_steps;
        step();
        return sim::now_us();
    }
    return m_control.playing ? play() : sim::NEVER;
}

// The recorded time that playback has reached; it stands still while paused.
int64_t qm_playback_engine::reached_us() const {
    if (!m_control.playing) return m_anchor_record_us;
    const int64_t passed = sim::now_us() - m_anchor_us;
    int64_t reached;
    return __builtin_add_overflow(m_anchor_record_us,
                                  passed * LADDER[m_control.rung] / LADDER[NORMAL_RUNG], &reached)
               ? INT64_MAX
               : reached;
}

void qm_playback_engine::anchor_at(int64_t recorded_us) {
    m_anchor_record_us = recorded_us;
    m_anchor_us = sim::now_us();
}

int64_t qm_playback_engine::due_us(int64_t recorded_us) const {
    int64_t ahead;
    if (__builtin_sub_overflow(recorded_us, m_anchor_record_us, &ahead))
        ahead = recorded_us < m_anchor_record_us ? -MOST_AHEAD_US : MOST_AHEAD_US;
    ahead = std::clamp(ahead, -MOST_AHEAD_US, MOST_AHEAD_US);
    return m_anchor_us + ahead * LADDER[NORMAL_RUNG] / LADDER[m_control.rung];
}

// Frames that are passed over take their time as well: the end of what is recorded is reached when
// its last record is due.
int64_t qm_playback_engine::end_due_us() {
    sim::FrameInfo last;
    const bool timed =
        m_anchored && m_scan > 0 && m_db->info(m_scan - 1, last) && last.run == m_run;
    return timed ? due_us(last.time_us) : 0;
}

int64_t qm_playback_engine::play() {
    for (int delivered = 0; delivered < BATCH; ++delivered) {
        const Fetched fetched = fetch_ahead();
        if (fetched == Fetched::end) return wait_at_end();
        if (fetched == Fetched::not_yet) return sim::now_us();
        if (fetched == Fetched::later) return m_look_again_us;
        m_db->watch(nullptr);
        // Between two runs no time passes.
        if (m_ahead.info.run != m_run) m_anchored = false;
        m_run = m_ahead.info.run;
        if (!m_anchored) anchor_at(m_ahead.info.time_us);
        m_anchored = true;
        const int64_t due = due_us(m_ahead.info.time_us);
        if (due > sim::now_us()) return due;
        m_owner.frame_list.pop();
        m_is_ahead = false;
        deliver(m_ahead, m_ahead_number);
    }
    return sim::now_us();
}

// Everything recorded so far was looked at. Returns when to look again.
int64_t qm_playback_engine::wait_at_end() {
    // The recorder rings from here on; what it wrote in between is looked for once more.
    m_db->watch(&m_alarm);
    const bool live = m_db->writing();
    if (fetch_ahead() != Fetched::end) return sim::now_us();
    if (end_due_us() > sim::now_us()) return end_due_us();
    m_anchored = false;  // what arrives is played when it arrives
    if (!live) stop_at_end();
    const int64_t poll_us = m_db->poll_us();
    return live && poll_us != sim::NEVER ? sim::now_us() + poll_us : sim::NEVER;
}

void qm_playback_engine::stop_at_end() {
    m_at_end = true;
    m_control.playing = false;
    std::lock_guard lock(m_mutex);
    if (!m_asked.forward) m_asked.control.playing = false;
}

// Channels whose next frame the ring may have dropped go on with a key frame.
void qm_playback_engine::skip_what_the_ring_dropped() {
    const uint64_t first = m_db->first();
    if (m_scan >= first) return;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (m_next[ch] < first) m_key_needed[ch] = true;
    m_scan = first;
    m_anchored = false;
}

// Reads the next frame to deliver into m_ahead.
qm_playback_engine::Fetched qm_playback_engine::fetch_ahead() {
    if (m_is_ahead) return Fetched::frame;
    sim::FrameInfo info;
    for (int passed_over = 0;; ++m_scan, ++passed_over) {
        skip_what_the_ring_dropped();
        m_scan = m_db->next(m_scan);
        if (m_scan >= m_db->end()) return Fetched::end;
        if (passed_over == MAX_PASSED_OVER) return Fetched::not_yet;
        if (!m_db->info(m_scan, info)) continue;
        if (m_control.channels == 0 && !m_anchored) {  // time passes all the same
            anchor_at(info.time_us);
            m_anchored = true;
            m_run = info.run;
        }
        if (!wanted(info, m_scan)) {
            if (!m_anchored || info.run != m_run) continue;
            m_look_again_us = due_us(info.time_us) - LOOK_AHEAD_US;
            if (m_look_again_us > sim::now_us()) return Fetched::later;
            continue;
        }
        if (m_db->read(m_scan, m_ahead)) break;
    }
    m_ahead_number = m_scan++;
    m_is_ahead = true;
    m_owner.frame_list.push(&m_ahead);
    return Fetched::frame;
}

void qm_playback_engine::put_back() {
    if (!m_is_ahead) return;
    m_owner.frame_list.pop();
    m_is_ahead = false;
    m_scan = m_ahead_number;
}

// A frame of the streams that are played, not delivered yet.
bool qm_playback_engine::plays(const sim::FrameInfo& info, uint64_t number) const {
    return info.stream <= DEC_STREAM_DUAL && number >= m_next[info.channel];
}

bool qm_playback_engine::decodable(const sim::FrameInfo& info) const {
    const bool keys_only = LADDER[m_control.rung] >= KEYS_ONLY_EIGHTHS;
    return is_key(info.kind) || (!m_key_needed[info.channel] && !keys_only);
}

bool qm_playback_engine::wanted(const sim::FrameInfo& info, uint64_t number) {
    const int ch = info.channel;
    if (info.kind == sim::FrameKind::audio)
        return m_control.audio && m_control.rung == NORMAL_RUNG && ch == m_control.audio_channel;
    if (!plays(info, number)) return false;
    if (has_bit(m_control.channels, ch) && decodable(info)) return true;
    m_key_needed[ch] = true;  // a frame is passed over
    return false;
}

// The next frame of every channel that is on, each from where that channel stands. Playback goes on
// behind the one that is furthest back.
void qm_playback_engine::step() {
    put_back();
    skip_what_the_ring_dropped();
    uint32_t missing = m_control.channels;
    uint64_t furthest_back = m_db->end();
    int64_t earliest_us = sim::NEVER;
    uint32_t passed_over = 0;
    sim::FrameInfo info;
    int looked_at = 0;
    uint64_t n = m_db->next(m_scan);
    for (; missing != 0 && n < m_db->end(); n = m_db->next(n + 1)) {
        if (++looked_at > MAX_STEP_AHEAD) break;
        if (!m_db->info(n, info) || info.kind == sim::FrameKind::audio) continue;
        const int ch = info.channel;
        if (!has_bit(missing, ch) || !plays(info, n)) continue;
        if (!decodable(info)) {
            passed_over |= 1u << ch;
            continue;
        }
        if (!m_db->read(n, m_ahead)) continue;
        deliver(m_ahead, n);
        m_run = info.run;
        missing &= ~(1u << ch);
        furthest_back = std::min(furthest_back, n + 1);
        earliest_us = std::min(earliest_us, info.time_us);
    }
    if (missing == m_control.channels) {
        if (looked_at <= MAX_STEP_AHEAD) return;  // nothing is left to give
        m_scan = n;                               // the step goes on from there
        ++m_steps;
        return;
    }
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch)
        if (!has_bit(m_control.channels, ch) || has_bit(passed_over & missing, ch))
            m_key_needed[ch] = true;
    m_scan = std::max(m_scan, furthest_back);
    anchor_at(earliest_us);
    m_anchored = true;
}

// The first one is told of at once, how many there were when the thread ends.
void qm_playback_engine::note_damaged(const sim::FrameInfo& info, const std::string& why) {
    if (m_damaged++ > 0) return;
    sim::complain("playback: frame %u of stream %d, channel %d is damaged: %s", info.number,
                  int{info.stream}, int{info.channel}, why.c_str());
}

// Decodes what is delivered. Without memory for that it is delivered all the same.
void qm_playback_engine::look_at(const qm_dbframe& frame) try {
    using Found = sim::PictureCheck::Found;
    const sim::FrameInfo& info = frame.info;
    auto& check = m_checks[info.stream][info.channel];
    if (!check) check = std::make_unique<sim::PictureCheck>();
    const Found found = check->check(info, frame.payload.get(), info.bytes);
    if (found == Found::wrong) note_damaged(info, check->error());
    if (sim::PlaybackView::wanted()) m_view.show(frame, check->picture());
} catch (const std::bad_alloc&) {
}

void qm_playback_engine::deliver(const qm_dbframe& frame, uint64_t number) {
    const sim::FrameInfo& info = frame.info;
    const int ch = info.channel;
    if (info.kind == sim::FrameKind::audio) {
        ++m_audio_frames;
        return;
    }
    look_at(frame);
    m_next[ch] = number + 1;
    sim::add_saturating(m_total_frames[ch], 1);
    sim::add_saturating(m_period_frames[ch], 1);
    sim::add_saturating(m_period_bytes[ch], info.bytes);
    m_owner.current_time = qm_time(info.time_us / 1000);
    if (!is_key(info.kind)) return;
    // The numbers of a channel that was switched on again start at 0.
    const bool follows = m_key_seen[ch] && info.number > m_key_number[ch];
    m_owner.idr_distance[ch] = follows ? static_cast<int32_t>(info.number - m_key_number[ch]) : 0;
    m_key_number[ch] = info.number;
    m_key_seen[ch] = true;
    m_key_needed[ch] = false;
}
