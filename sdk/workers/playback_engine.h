// The playback of one stream database: what is delivered, and when.
#ifndef SDK_WORKERS_PLAYBACK_ENGINE_H
#define SDK_WORKERS_PLAYBACK_ENGINE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "mainwork/qm_workers.h"
#include "sdk/db/stream_db.h"
#include "sdk/runtime/clock.h"
#include "sdk/sim_control.h"
#include "sdk/video/picture_check.h"
#include "sdk/workers/playback_view.h"

// Owned by its thread object. The console thread asks, the playback thread does.
class qm_playback_engine {
  public:
    qm_playback_engine(qm_thread_decode& owner, sim::Alarm& alarm);

    // The thread's body: plays `db` (null: nothing) from its first frame until `stop` is set.
    void work(iqm_db* db, const std::atomic<uint32_t>& stop);

    // Console thread.
    void set_state(int state);
    void change_speed(int direction, int step);
    void set_channels(unsigned long channels, unsigned long chips);
    void enable_audio(bool enable);
    void set_audio_channel(int channel);

    // Any thread.
    int figure(E_CALCUL figure, int channel);
    sim::PlaybackReport report();

  private:
    // What the console asked for.
    struct Control {
        bool playing = false;
        int rung = 3;           // of the speed ladder; 3 is normal speed
        uint32_t channels = 0;  // bit n delivers channel n
        bool audio = false;
        int audio_channel = 0;
        bool operator==(const Control&) const = default;
    };
    struct Request {
        Control control;
        bool forward = false;  // forward playback was asked for, again perhaps
        int steps = 0;         // next-frame requests
    };

    template <class Change>
    void ask(Change change);

    // Playback thread.
    void rewind();
    void take_request();
    int64_t run_once();  // returns when to go on
    int64_t play();
    void step();
    void skip_what_the_ring_dropped();
    enum class Fetched { frame, end, not_yet, later };
    Fetched fetch_ahead();
    int64_t wait_at_end();
    void put_back();
    bool plays(const sim::FrameInfo& info, uint64_t number) const;
    bool decodable(const sim::FrameInfo& info) const;
    bool wanted(const sim::FrameInfo& info, uint64_t number);
    void deliver(const qm_dbframe& frame, uint64_t number);
    void look_at(const qm_dbframe& frame);
    void note_damaged(const sim::FrameInfo& info, const std::string& why);
    void stop_at_end();
    int64_t reached_us() const;
    void anchor_at(int64_t recorded_us);
    int64_t due_us(int64_t recorded_us) const;
    int64_t end_due_us();

    qm_thread_decode& m_owner;
    sim::Alarm& m_alarm;

    std::mutex m_mutex;
    Request m_asked;  // guarded by m_mutex

    // Playback thread only.
    Control m_control;
    int m_steps = 0;        // next-frame requests not served yet
    bool m_at_end = false;  // stopped at the end of a finished recording
    sim::StreamDb* m_db = nullptr;
    uint64_t m_scan = 0;                     // records before it were considered
    int64_t m_look_again_us = 0;             // when it is time to pass over the one there
    uint64_t m_next[QMCODEC_CHANNELS] = {};  // the channel's records before it were delivered
    bool m_key_needed[QMCODEC_CHANNELS] = {};
    uint32_t m_key_number[QMCODEC_CHANNELS] = {};  // of the last key frame delivered
    bool m_key_seen[QMCODEC_CHANNELS] = {};
    uint32_t m_run = 0;              // of the last frame looked at ahead of its time
    bool m_anchored = false;         // else the next frame plays at once
    int64_t m_anchor_record_us = 0;  // this recorded time plays ...
    int64_t m_anchor_us = 0;         // ... at this board time
    bool m_is_ahead = false;  // m_ahead holds record m_ahead_number, in the owner's frame list
    uint64_t m_ahead_number = 0;
    qm_dbframe m_ahead;
    // Of the streams that are played, one for each channel; made with the first frame.
    std::unique_ptr<sim::PictureCheck> m_checks[2][QMCODEC_CHANNELS];
    sim::PlaybackView m_view;

    // Written by the playback thread, read and the period figures taken by the reports.
    std::atomic<int32_t> m_total_frames[QMCODEC_CHANNELS] = {};
    std::atomic<int32_t> m_period_frames[QMCODEC_CHANNELS] = {};
    std::atomic<int32_t> m_period_bytes[QMCODEC_CHANNELS] = {};
    std::atomic<uint64_t> m_audio_frames{0};
    std::atomic<uint64_t> m_damaged{0};
};

#endif  // SDK_WORKERS_PLAYBACK_ENGINE_H
