// Frames that can be checked wherever they turn up: everything about one follows from who recorded
// it and under which sequence number. What is recorded and checked stands in the proofs.
#ifndef TESTS_PROOF_PROOF_FRAMES_H
#define TESTS_PROOF_PROOF_FRAMES_H

#include <time.h>

#include <cstring>
#include <string>

#include "mainwork/qm_codec.h"
#include "sdk/video/frame.h"
#include "tests/proof/proof.h"

// Between board time and UTC in all proofs.
inline constexpr int64_t PROOF_UTC_STEP_US = 1'700'000'000'000'000;

inline int64_t steady_us() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// One plan a database: all its recorders and readers have the same one. Any thread.
class FramePlan {
  public:
    // Payloads of `least` (at least LEAST_BYTES) to `most` bytes.
    FramePlan(uint64_t seed, uint32_t least, uint32_t most)
        : m_seed(seed), m_least(least), m_most(most) {}

    static constexpr uint32_t LEAST_BYTES = 16;  // recorder and sequence number stand in front

    // The frame, with board time, that `recorder` records as number `sequence`. Times rise with
    // the sequence number whoever recorded.
    void make(uint32_t recorder, uint64_t sequence, qm_dbframe& out) const {
        ProofRandom random = generator(recorder, sequence);
        out.info = info(recorder, sequence, random);
        out.reserve(out.info.bytes);
        fill(recorder, sequence, random, out.payload.get(), out.info.bytes);
    }

    // Empty when `frame` is what somebody recorded as number `sequence`: `recorder` is who then.
    // Else what is wrong, in words.
    std::string wrong(const qm_dbframe& frame, uint64_t sequence, uint32_t& recorder) const {
        if (frame.info.bytes < LEAST_BYTES || !frame.payload) return "too short";
        uint64_t written = 0;
        memcpy(&recorder, frame.payload.get(), sizeof recorder);
        memcpy(&written, frame.payload.get() + 8, sizeof written);
        if (written != sequence) return "it was recorded as number " + std::to_string(written);
        ProofRandom random = generator(recorder, sequence);
        const sim::FrameInfo right = info(recorder, sequence, random);
        if (!same(frame.info, right)) return "not its kind, channel, size or time";
        m_expected.reserve(right.bytes);
        fill(recorder, sequence, random, m_expected.payload.get(), right.bytes);
        if (memcmp(frame.payload.get(), m_expected.payload.get(), right.bytes) != 0)
            return "other bytes";
        return {};
    }

    // The recorded time (UTC) of the frame.
    static int64_t utc_us(uint32_t recorder, uint64_t sequence) {
        return board_us(recorder, sequence) + PROOF_UTC_STEP_US;
    }

  private:
    ProofRandom generator(uint32_t recorder, uint64_t sequence) const {
        return ProofRandom(m_seed ^ (uint64_t{recorder} << 40) ^ (sequence * 0x2545f4914f6cdd1d));
    }
    static int64_t board_us(uint32_t recorder, uint64_t sequence) {
        return static_cast<int64_t>(sequence * 1'000'000 + recorder);
    }
    sim::FrameInfo info(uint32_t recorder, uint64_t sequence, ProofRandom& random) const {
        sim::FrameInfo info;
        const uint64_t draw = random.next();
        const uint64_t kind = draw % 20;
        info.kind = kind < 2   ? sim::FrameKind::idr
                    : kind < 3 ? sim::FrameKind::jpeg
                    : kind < 7 ? sim::FrameKind::audio
                               : sim::FrameKind::p;
        info.stream = info.kind == sim::FrameKind::audio
                          ? uint8_t{0}
                          : static_cast<uint8_t>((draw >> 16) % QMCODEC_STREAMS);
        info.channel = static_cast<uint8_t>((draw >> 24) % QMCODEC_CHANNELS);
        info.number = static_cast<uint32_t>(sequence);
        info.time_us = board_us(recorder, sequence);
        info.bytes = m_least + static_cast<uint32_t>((draw >> 32) % (m_most - m_least + 1));
        return info;
    }
    static void fill(uint32_t recorder, uint64_t sequence, ProofRandom& random, uint8_t* out,
                     uint32_t bytes) {
        const uint32_t zero = 0;
        memcpy(out, &recorder, 4);
        memcpy(out + 4, &zero, 4);
        memcpy(out + 8, &sequence, 8);
        for (uint32_t at = LEAST_BYTES; at < bytes; at += 8) {
            const uint64_t word = random.next();
            memcpy(out + at, &word, bytes - at < 8 ? bytes - at : 8);
        }
    }
    static bool same(const sim::FrameInfo& recorded, const sim::FrameInfo& right) {
        return recorded.kind == right.kind && recorded.stream == right.stream &&
               recorded.channel == right.channel && recorded.number == right.number &&
               recorded.bytes == right.bytes &&
               recorded.time_us == right.time_us + PROOF_UTC_STEP_US;
    }

    const uint64_t m_seed;
    const uint32_t m_least, m_most;
    static inline thread_local qm_dbframe m_expected;
};

#endif  // TESTS_PROOF_PROOF_FRAMES_H
