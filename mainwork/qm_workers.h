// The SDK's worker threads: they collect a codec's frames into databases and play databases back.
//
// Each is started with CreateThread(codec, 0) after its `db` was set, and reads `db` only while it
// runs. The counters are written by the workers and read, and the period figures taken, by the
// report builders on another thread without a lock: every one is an atomic word.
#ifndef MAINWORK_QM_WORKERS_H
#define MAINWORK_QM_WORKERS_H

#include <atomic>
#include <cstdint>

#include "mainwork/qm_codec.h"
#include "mainwork/qm_db.h"
#include "shell/qm_mutex.h"
#include "shell/qm_thread.h"
#include "shell/qm_time.h"

// Stream chosen for playback.
enum DEC_STREAM_TYPE : int32_t {
    DEC_STREAM_MAIN = 0,
    DEC_STREAM_DUAL = 1,
};

// Playback states that the library acts on; any other number pauses.
enum PB_STATE : int32_t {
    PB_STATE_PAUSE = 3,
    PB_STATE_FORWARD = 4,
    PB_STATE_NEXT_FRAME = 5,
};

// Statistics of GetCalculData.
enum E_CALCUL : int32_t {
    CALCUL_PERIOD_FRAMES = 1,  // frames decoded in the current period
    CALCUL_TOTAL_FRAMES = 4,   // frames decoded since the thread was started
    CALCUL_PERIOD_BYTES = 5,   // bytes decoded in the current period
};

struct qm_dbframe;  // a frame record; the library's own

// A first-in first-out list of records that carry a `next` pointer. Safe to use from any thread:
// each operation takes the list's own mutex. Does not own its records.
template <class T>
class qm_list {
  public:
    int count();
    void push(T* record);
    T* pop();  // null when empty
    // Takes out the oldest record and those of its stream and channel that follow it up to the next
    // key frame. Returns them as a chain, null when the list is empty. *more tells whether records
    // of that channel are left.
    T* take_group(bool* more);

  private:
    qm_mutex m_mutex;
    T* m_first = nullptr;  // guarded by m_mutex, as is the rest
    T* m_last = nullptr;
    int m_count = 0;
};

// Counters of one stream, one entry per channel 0..15.
struct qm_encode_stat {
    std::atomic<int32_t> total_frames[QMCODEC_CHANNELS];   // since the encoder started
    std::atomic<int32_t> total_bytes[QMCODEC_CHANNELS];    // not read by the reports
    std::atomic<int32_t> idr_distance[QMCODEC_CHANNELS];   // frames between the last two key frames
    std::atomic<int32_t> last_frame[QMCODEC_CHANNELS];     // number of the last frame; not read
    std::atomic<int32_t> period_frames[QMCODEC_CHANNELS];  // zeroed by the report that reads it
    std::atomic<int32_t> period_bytes[QMCODEC_CHANNELS];   // zeroed by the report that reads it
};

class qm_encode_worker;    // the library's own
class qm_playback_engine;  // the library's own

// Records the main stream and the audio.
class qm_thread_encode : public qm_thread {
  public:
    qm_thread_encode();
    ~qm_thread_encode() override;
    void* Work(void* codec) override;

    iqm_db* db;              // not owned
    qm_encode_stat stat[1];  // element 0 is the main stream
    std::atomic<int32_t> audio_frames[QMCODEC_CHANNELS];
    qm_list<qm_dbframe> frame_list;  // frames waiting to be written

  private:
    qm_encode_worker* m_worker;  // owned
};

// Records the dual, preview, third and fourth streams into one database.
class qm_thread_encode_net : public qm_thread {
  public:
    qm_thread_encode_net();
    ~qm_thread_encode_net() override;
    void* Work(void* codec) override;
    // Adds a stream to the set that the thread collects. Before CreateThread.
    void SetStreamEnable(QMCODEC_STREAM stream);

    iqm_db* db;                            // not owned
    qm_encode_stat stat[QMCODEC_STREAMS];  // element s is stream s
    qm_list<qm_dbframe> frame_list;        // frames waiting to be written

  private:
    uint32_t m_streams;          // bit n: stream n is collected
    qm_encode_worker* m_worker;  // owned
};

// Records the JPEG stream.
class qm_thread_encode_jpeg : public qm_thread {
  public:
    qm_thread_encode_jpeg();
    ~qm_thread_encode_jpeg() override;
    void* Work(void* codec) override;

    iqm_db* db;                      // not owned
    qm_encode_stat stat[1];          // element 0 is the JPEG stream
    qm_list<qm_dbframe> frame_list;  // frames waiting to be written

  private:
    qm_encode_worker* m_worker;  // owned
};

// Plays a database back. The operations are called from the console thread, GetCalculData and the
// figures from the report builders.
class qm_thread_decode : public qm_thread {
  public:
    qm_thread_decode();
    ~qm_thread_decode() override;
    void* Work(void* codec) override;

    void SetPBState(PB_STATE state);
    // Direction 1 speeds up, 0 slows down, by `step` rungs.
    void SpeedControl(int direction, int step);
    // Bit n of `channels` delivers channel n; bit n of `chips` the channels of chip n.
    void SetPBChannelEnableMask(unsigned long channels, unsigned long chips);
    void EnablePBAudio(int enable);
    void SetPBAudioChannel(int channel);
    // Channel 0..15. Reading a period figure starts it again at 0.
    int GetCalculData(E_CALCUL figure, int channel);

    iqm_db* db;                      // not owned; null plays nothing
    qm_time current_time;            // recorded time of the last delivered frame
    qm_list<qm_dbframe> frame_list;  // frames read ahead of their time
    std::atomic<int32_t> idr_distance[QMCODEC_CHANNELS];  // frames between the last two key frames

    // For the library's own controls.
    qm_playback_engine& engine() { return *m_engine; }

  private:
    qm_playback_engine* m_engine;  // owned
};

#endif  // MAINWORK_QM_WORKERS_H
