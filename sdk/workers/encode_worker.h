// What the three encode threads have in common: frames come in from the board, wait in the frame
// list, and go into the database.
#ifndef SDK_WORKERS_ENCODE_WORKER_H
#define SDK_WORKERS_ENCODE_WORKER_H

#include <mutex>

#include "mainwork/qm_workers.h"
#include "sdk/board/frame_sink.h"
#include "sdk/db/stream_db.h"
#include "sdk/runtime/clock.h"

// Owned by its thread object. The board's pacer delivers, the encode thread writes.
class qm_encode_worker final : public sim::FrameSink {
  public:
    // `name` is the group's in messages. `stat` is a row of records: `first_row` is the stream that
    // element 0 stands for. `audio_frames` is null where no audio is recorded.
    qm_encode_worker(const char* name, qm_list<qm_dbframe>& list, qm_encode_stat* stat,
                     int first_row, std::atomic<int32_t>* audio_frames, sim::Alarm& alarm);
    ~qm_encode_worker();

    // The thread's body: collects `stream_mask` from the board behind `codec` into `db` until
    // `stop` is set, and then writes what still waits. Without a codec or a database it only waits.
    void work(void* codec, uint32_t stream_mask, iqm_db* db, const std::atomic<uint32_t>& stop);

  private:
    qm_dbframe* blank(size_t bytes) override;
    void not_made() override { note_dropped_frame(); }
    bool deliver(qm_dbframe* frame) override;
    void end_of_batch() override;

    void count(const sim::FrameInfo& info);
    bool make_room(const sim::FrameInfo& info);
    void drop_oldest_group();
    enum class Wrote { one, none, busy };
    Wrote write_oldest(sim::StreamDb& db, const std::atomic<uint32_t>& stop);
    void write_what_waits(sim::StreamDb& db, const std::atomic<uint32_t>& stop);
    void pause_for_slow_disk(const std::atomic<uint32_t>& stop);
    void recycle(qm_dbframe* frame);
    void note_dropped_frame();
    void note_drops(bool none_waits, bool ends);
    void note_refusals();

    const char* const m_name;
    qm_list<qm_dbframe>& m_list;
    qm_encode_stat* const m_stat;
    const int m_first_row;
    std::atomic<int32_t>* const m_audio_frames;
    sim::Alarm& m_alarm;

    // Pacer's thread only.
    bool m_batch = false;  // frames were delivered since the worker was last woken
    uint32_t m_key_number[QMCODEC_STREAMS][QMCODEC_CHANNELS];  // of the last key frame
    bool m_key_seen[QMCODEC_STREAMS][QMCODEC_CHANNELS];
    bool m_key_needed[QMCODEC_STREAMS][QMCODEC_CHANNELS];  // the group's start was dropped

    std::atomic<size_t> m_waiting_bytes{0};
    std::atomic<uint64_t> m_dropped{0};
    std::atomic<int64_t> m_last_drop_us{0};
    // Encode thread only.
    uint64_t m_dropped_noted = 0;
    bool m_dropping = false;
    uint64_t m_refused = 0;
    qm_dbframe* m_in_hand = nullptr;  // taken out of the list; the database was busy

    std::mutex m_blanks_mutex;
    qm_dbframe* m_blanks = nullptr;  // empty frames to be filled again; guarded by m_blanks_mutex
    size_t m_blank_bytes = 0;        // their capacity; guarded by m_blanks_mutex
};

#endif  // SDK_WORKERS_ENCODE_WORKER_H
