// The controls of the stand-in, for tests, benchmarks and demonstrations. An operator sets the same
// faults and settings with QM_BOARD.
#ifndef SDK_SIM_CONTROL_H
#define SDK_SIM_CONTROL_H

#include <cstdint>

class iqm_db;
class QMAVCodec;
class qm_thread_decode;

namespace sim {

// Applies "name=value ...", as QM_BOARD does. The speed is taken when the clock is first used.
void control(const char* settings);
// Back to the neutral settings.
void control_reset();

// Makes board time stand still at `start_us` (microseconds since 1970) for the rest of the process;
// before any session is opened.
void use_stepped_clock(int64_t start_us);
// Moves the stepped clock on, from deadline to deadline, letting every board thread finish what is
// due at each. Returns when all of them wait again.
void step_clock(int64_t us);

// As if the machine's UTC clock were set forward by that much (back when negative).
void set_utc_clock(int64_t by_us);

// Frames since the codec was created, and what the board was told.
struct BoardReport {
    uint64_t delivered = 0;    // video and audio frames handed to a recording thread
    uint64_t uncollected = 0;  // let go because no thread collects their stream
    uint64_t lost = 0;         // lost by the `drop` setting
    uint64_t late = 0;         // dropped because the machine fell behind by more than a second
    uint32_t board_type = 0;
    uint32_t sub_board_type = 0;
    uint32_t field_type = 0;
    uint32_t video_format = 0;
};
BoardReport board_report(QMAVCodec* codec);

// What a database holds and refused.
struct DatabaseReport {
    uint64_t first = 0;    // sequence number of the oldest record kept
    uint64_t end = 0;      // one past the newest; records ever written
    uint64_t refused = 0;  // records that did not fit into the ring at all
    uint64_t lost = 0;     // on disk: records taken that could not be written
    uint64_t video = 0;    // in memory: video frames kept
    uint64_t bytes = 0;    // in memory: payload bytes kept
    bool writing = false;  // a recording thread is at work on it
};
DatabaseReport database_report(iqm_db* db);

// Databases that were created and not destroyed.
int open_databases();

// What the playback thread delivered since its start, beside the figures of GetCalculData.
struct PlaybackReport {
    uint64_t audio_frames = 0;
    uint64_t damaged = 0;   // payloads that were not those of their record
    int speed_eighths = 8;  // 8 is normal speed
    int state = 3;          // PB_STATE
};
PlaybackReport playback_report(qm_thread_decode& thread);

}  // namespace sim

#endif  // SDK_SIM_CONTROL_H
