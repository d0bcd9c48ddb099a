// Making the frames of the database benchmark.
#include "bench/db_workload.h"

#include <cstring>
#include <random>

namespace {

constexpr uint32_t KEY_BYTES = 40'000;
constexpr uint32_t OTHER_BYTES = 7'500;
constexpr uint32_t SPREAD_PERCENT = 20;  // a frame's size is so much above or below
constexpr int64_t START_US = 1'000'000'000;

void fill(uint8_t* out, size_t bytes, std::mt19937_64& random) {
    for (size_t i = 0; i < bytes; i += sizeof(uint64_t)) {
        const uint64_t word = random();
        memcpy(out + i, &word, std::min(sizeof word, bytes - i));
    }
}

}  // namespace

Workload::Workload(Keys keys) : m_frames(GROUP_TICKS * TICK_FRAMES) {
    std::mt19937_64 random(7105);
    for (size_t i = 0; i < m_frames.size(); ++i) {
        const size_t tick = i / TICK_FRAMES, slot = i % TICK_FRAMES;
        const size_t key_tick = keys == Keys::spread ? slot % GROUP_TICKS : 0;
        sim::FrameInfo& info = m_frames[i].info;
        info.kind = tick == key_tick ? sim::FrameKind::idr : sim::FrameKind::p;
        info.stream = static_cast<uint8_t>(slot % STREAMS);
        info.channel = static_cast<uint8_t>(slot / STREAMS);
        const uint32_t usual = sim::is_key(info.kind) ? KEY_BYTES : OTHER_BYTES;
        const uint32_t spread = usual * SPREAD_PERCENT / 100;
        info.bytes = usual - spread + static_cast<uint32_t>(random() % (2 * spread + 1));
        m_frames[i].reserve(info.bytes);
        fill(m_frames[i].payload.get(), info.bytes, random);
        m_plain.insert(m_plain.end(), m_frames[i].payload.get(),
                       m_frames[i].payload.get() + info.bytes);
    }
    m_plain.resize(m_plain.size() / BLOCK * BLOCK);
}

std::span<qm_dbframe> Workload::tick(int64_t tick) {
    const std::span<qm_dbframe> frames(
        &m_frames[static_cast<size_t>(tick % GROUP_TICKS) * TICK_FRAMES], TICK_FRAMES);
    for (qm_dbframe& frame : frames) {
        frame.info.number = static_cast<uint32_t>(tick);
        frame.info.time_us = tick_us(tick);
    }
    return frames;
}

int64_t Workload::tick_us(int64_t tick) { return START_US + tick * 1'000'000 / TICKS_PER_SECOND; }

size_t Workload::tick_bytes(std::span<const qm_dbframe> frames) {
    size_t bytes = 0;
    for (const qm_dbframe& frame : frames) bytes += frame.info.bytes;
    return bytes;
}
