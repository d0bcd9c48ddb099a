// Collecting, counting and writing.
#include "sdk/workers/encode_worker.h"

#include <cstring>
#include <new>

#include "sdk/board/board.h"
#include "sdk/runtime/settings.h"
#include "sdk/workers/saturating.h"

namespace {

// What may wait in a frame list when the database is slow.
constexpr int MAX_WAITING_FRAMES = 2048;
constexpr size_t MAX_WAITING_BYTES = size_t{32} << 20;
// What empty frames may hold on to.
constexpr size_t MAX_BLANK_BYTES = size_t{1} << 20;

void set(std::atomic<int32_t>& figure, uint32_t value) {
    figure.store(static_cast<int32_t>(value), std::memory_order_relaxed);
}

}  // namespace

qm_encode_worker::qm_encode_worker(const char* name, qm_list<qm_dbframe>& list,
                                   qm_encode_stat* stat, int first_row,
                                   std::atomic<int32_t>* audio_frames, sim::Alarm& alarm)
    : m_name(name),
      m_list(list),
      m_stat(stat),
      m_first_row(first_row),
      m_audio_frames(audio_frames),
      m_alarm(alarm) {}

qm_encode_worker::~qm_encode_worker() {
    while (qm_dbframe* frame = m_list.pop()) delete frame;
    while (qm_dbframe* frame = m_blanks) {
        m_blanks = frame->next;
        delete frame;
    }
}

void qm_encode_worker::work(void* codec, uint32_t stream_mask, iqm_db* db,
                            const std::atomic<uint32_t>& stop) {
    if (!codec || !db) {
        while (stop.load() == 0) m_alarm.wait_until(sim::NEVER);
        return;
    }
    memset(m_key_seen, 0, sizeof m_key_seen);
    memset(m_key_needed, 0, sizeof m_key_needed);
    sim::Board* board = sim::Board::of(codec);
    sim::StreamDb& store = *sim::StreamDb::of(db);
    store.begin_writing();
    board->attach(stream_mask, this);
    while (stop.load() == 0) {
        if (write_oldest(store, stop) != Wrote::one) m_alarm.wait_until(store.due_us());
        store.tend();
    }
    board->detach(this);
    write_what_waits(store, stop);
    note_drops(true, true);
    note_refusals();
    store.end_writing();
}

qm_dbframe* qm_encode_worker::blank(size_t bytes) {
    qm_dbframe* frame = nullptr;
    {
        std::lock_guard lock(m_blanks_mutex);
        frame = m_blanks;
        if (frame) {
            m_blanks = frame->next;
            m_blank_bytes -= frame->capacity;
        }
    }
    try {
        if (!frame) frame = new qm_dbframe;
        frame->reserve(bytes);
        return frame;
    } catch (const std::bad_alloc&) {
        delete frame;
        note_dropped_frame();
        return nullptr;
    }
}

void qm_encode_worker::recycle(qm_dbframe* frame) {
    std::lock_guard lock(m_blanks_mutex);
    if (m_blank_bytes + frame->capacity > MAX_BLANK_BYTES) {
        delete frame;
        return;
    }
    m_blank_bytes += frame->capacity;
    frame->next = m_blanks;
    m_blanks = frame;
}

void qm_encode_worker::count(const sim::FrameInfo& info) {
    const int ch = info.channel;
    if (info.kind == sim::FrameKind::audio) {
        if (m_audio_frames) sim::add_saturating(m_audio_frames[ch], 1);
        return;
    }
    qm_encode_stat& stat = m_stat[info.stream - m_first_row];
    sim::add_saturating(stat.total_frames[ch], 1);
    sim::add_saturating(stat.total_bytes[ch], info.bytes);
    sim::add_saturating(stat.period_frames[ch], 1);
    sim::add_saturating(stat.period_bytes[ch], info.bytes);
    set(stat.last_frame[ch], info.number);
    if (!is_key(info.kind)) return;
    // The numbers of a channel that was switched on again start at 0.
    uint32_t& last = m_key_number[info.stream][ch];
    bool& seen = m_key_seen[info.stream][ch];
    set(stat.idr_distance[ch], seen && info.number > last ? info.number - last : 0);
    last = info.number;
    seen = true;
}

// A group whose key frame is gone cannot be decoded: when no other of its channel waits, the
// channel has to go on with a key frame.
void qm_encode_worker::drop_oldest_group() {
    bool more = false;
    qm_dbframe* group = m_list.take_group(&more);
    if (group && group->info.kind != sim::FrameKind::audio)
        m_key_needed[group->info.stream][group->info.channel] = !more;
    while (group) {
        qm_dbframe* next = group->next;
        m_waiting_bytes -= group->info.bytes;
        note_dropped_frame();
        recycle(group);
        group = next;
    }
}

// The oldest groups make room. False when the frame itself has to go.
bool qm_encode_worker::make_room(const sim::FrameInfo& info) {
    while (m_list.count() > 0 && (m_list.count() >= MAX_WAITING_FRAMES ||
                                  m_waiting_bytes + info.bytes > MAX_WAITING_BYTES))
        drop_oldest_group();
    if (info.kind == sim::FrameKind::audio) return true;
    bool& key_needed = m_key_needed[info.stream][info.channel];
    if (is_key(info.kind)) key_needed = false;
    return !key_needed;
}

bool qm_encode_worker::deliver(qm_dbframe* frame) {
    count(frame->info);
    if (!make_room(frame->info)) {
        note_dropped_frame();
        recycle(frame);
        return false;
    }
    m_waiting_bytes += frame->info.bytes;
    m_list.push(frame);
    m_batch = true;
    return true;
}

void qm_encode_worker::end_of_batch() {
    if (!m_batch) return;
    m_batch = false;
    m_alarm.ring();
}

// Offers the oldest frame to the database; one that it cannot take now is kept in hand.
qm_encode_worker::Wrote qm_encode_worker::write_oldest(sim::StreamDb& db,
                                                       const std::atomic<uint32_t>& stop) {
    const bool again = m_in_hand;
    if (!again) m_in_hand = m_list.pop();
    note_drops(!m_in_hand, false);
    if (!m_in_hand) return Wrote::none;
    if (!again) pause_for_slow_disk(stop);
    const sim::StreamDb::Appended appended = db.append(*m_in_hand);
    if (appended == sim::StreamDb::Appended::busy) return Wrote::busy;
    if (appended == sim::StreamDb::Appended::refused) ++m_refused;
    m_waiting_bytes -= m_in_hand->info.bytes;
    recycle(m_in_hand);
    m_in_hand = nullptr;
    return Wrote::one;
}

// The thread ends. What the database does not take even now is lost with what was dropped before,
// and said so.
void qm_encode_worker::write_what_waits(sim::StreamDb& db, const std::atomic<uint32_t>& stop) {
    Wrote wrote = Wrote::one;
    while (wrote == Wrote::one) {
        wrote = write_oldest(db, stop);
        if (wrote != Wrote::busy) continue;
        db.commit();
        wrote = write_oldest(db, stop);
    }
    if (wrote == Wrote::none) return;
    uint64_t frames = m_dropped - m_dropped_noted;
    m_dropped_noted += frames;
    m_dropping = false;
    for (qm_dbframe* frame = m_in_hand; frame; frame = m_list.pop()) {
        m_waiting_bytes -= frame->info.bytes;
        recycle(frame);
        ++frames;
    }
    m_in_hand = nullptr;
    sim::complain("%s: %llu frames are lost, the database cannot be written", m_name,
                  static_cast<unsigned long long>(frames));
}

// Rings meanwhile are no loss: the list is emptied and the stop looked for before the worker waits
// again. A thread that is to end writes what still waits without a pause.
void qm_encode_worker::pause_for_slow_disk(const std::atomic<uint32_t>& stop) {
    const int64_t pause_us = int64_t{sim::settings().slow_disk_ms} * 1000;
    if (pause_us == 0) return;
    const int64_t end_us = sim::now_us() + pause_us;
    while (stop.load() == 0 && sim::now_us() < end_us) m_alarm.wait_until(end_us);
}

void qm_encode_worker::note_dropped_frame() {
    m_last_drop_us = sim::now_us();
    ++m_dropped;
}

// One line when frames begin to be dropped, one when none waits and none was dropped for a second,
// or when the thread ends.
void qm_encode_worker::note_drops(bool none_waits, bool ends) {
    const uint64_t dropped = m_dropped;  // before the time: the drop that is counted has set it
    if (dropped != m_dropped_noted && !m_dropping) {
        sim::complain("%s: the database is too slow, waiting frames are being dropped", m_name);
        m_dropping = true;
    }
    const bool over = ends || (none_waits && sim::now_us() - m_last_drop_us >= sim::US_PER_S);
    if (!m_dropping || !over) return;
    sim::complain("%s: the database has caught up, %llu frames were dropped", m_name,
                  static_cast<unsigned long long>(dropped - m_dropped_noted));
    m_dropped_noted = dropped;
    m_dropping = false;
}

void qm_encode_worker::note_refusals() {
    if (m_refused > 0)
        sim::complain("%s: %llu records were refused, larger than the database can hold", m_name,
                      static_cast<unsigned long long>(m_refused));
    m_refused = 0;
}
