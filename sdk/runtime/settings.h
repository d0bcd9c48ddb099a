// The settings that an engineer gives the virtual board: QM_BOARD="name=value ...".
#ifndef SDK_RUNTIME_SETTINGS_H
#define SDK_RUNTIME_SETTINGS_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace sim {

// A fault counter that never runs out.
inline constexpr int32_t FAULT_ALL = -1;

// How many of the next calls of one kind fail.
class Fault {
  public:
    void set(int32_t calls) { m_calls = calls; }
    // True when this call is to fail; counts it.
    bool strikes();

  private:
    std::atomic<int32_t> m_calls{0};
};

// All neutral by default. Written before the board is used (or by a test between two steps), read
// by any thread.
struct Settings {
    std::atomic<uint64_t> seed{1};         // of the content
    std::atomic<int32_t> pattern{-1};      // sim::Pattern for all channels; -1: each has its own
    std::atomic<int32_t> text{2};          // sim::Text
    std::atomic<int64_t> speed{1};         // board time runs that many times faster, 1..1000
    std::atomic<int32_t> drop_percent{0};  // frames lost between camera and encoder, 0..100
    std::atomic<int32_t> slow_disk_ms{0};  // board milliseconds added to each write, 0..60000
    std::atomic<bool> view_wanted{false};  // view() is not empty
    std::atomic<int32_t> view_channel{0};  // 1..16; 0: the first that is played
    Fault fail_create;                     // CreateQMAVCodec
    Fault fail_mask;                       // SetChipEnableMask
    Fault fail_init;                       // InitAVCodec
    Fault fail_open;                       // iqm_db::Open
    Fault fail_disk;                       // a write to a database on disk

    // Where playback writes its pictures to; empty: nowhere. Any thread.
    std::string view() const;
    void set_view(const std::string& path);

  private:
    mutable std::mutex m_mutex;
    std::string m_view;  // guarded by m_mutex
};

// The settings of this process; QM_BOARD is read at the first call.
Settings& settings();

// Applies "name=value ..." on top of what is set. An unknown name or a bad value is one line on
// standard error and is ignored.
void apply_settings(Settings& to, const char* text);

// Back to the neutral settings.
void reset_settings();

// One line on standard error, "qm7105 board: ...": what an engineer must hear of the stand-in.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);

}  // namespace sim

#endif  // SDK_RUNTIME_SETTINGS_H
