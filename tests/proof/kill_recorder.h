// The recorder that is killed: what it does, where it is and what it tells.
#ifndef TESTS_PROOF_KILL_RECORDER_H
#define TESTS_PROOF_KILL_RECORDER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "tests/proof/proof_frames.h"

inline constexpr uint64_t RING_SEGMENTS = 8;
inline constexpr char INI_NAME[] = "kill.ini";

enum Phase : uint32_t { starting, opening, recording, finishing, ended, PHASES };
enum Operation : uint32_t { none, writing, syncing, naming, OPERATIONS };

// Where the recorder is; it is still there when the recorder is not.
struct Whereabouts {
    std::atomic<uint32_t> phase{starting};
    std::atomic<uint32_t> operation{none};
    std::atomic<int64_t> began_us{0};           // the phase
    std::atomic<int64_t> took_us[PHASES] = {};  // those that ended
    void enter(Phase next) {
        const int64_t now = steady_us();
        took_us[phase] = now - began_us;
        began_us = now;
        phase = next;
    }
};

// What the recorder tells, one write each.
struct Message {
    enum What : uint64_t { opened, durable, wrong } what;
    uint64_t sequence;
};

// What one recorder does before it is killed.
struct Session {
    uint32_t recorder = 0;
    uint64_t seed = 0;
    uint64_t frames = 0;         // then it finishes
    uint64_t frames_commit = 1;  // a commit after so many, on average
};

// Records, tells `pipe`, finishes, and then waits to be killed. A process of its own.
[[noreturn]] void record_until_killed(const std::string& path, const FramePlan& plan,
                                      const Session& session, Whereabouts& whereabouts, int pipe);

#endif  // TESTS_PROOF_KILL_RECORDER_H
