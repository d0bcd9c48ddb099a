// The board's settings and its pacing.
#include "sdk/board/board.h"

#include <algorithm>
#include <new>

#include "sdk/db/db_registry.h"
#include "sdk/runtime/settings.h"
#include "sdk/runtime/thread_state.h"
#include "sdk/video/audio_tone.h"
#include "sdk/video/mix.h"

namespace sim {

namespace {

constexpr int64_t MAX_LATENESS_US = US_PER_S;

constexpr int OK = 0;
constexpr int FAILED = -1;

// Whether the `drop` setting loses this frame: the same frames for the same seed.
bool falls_out(const FrameInfo& names, int32_t percent) {
    if (percent <= 0) return false;
    const uint64_t name = uint64_t{names.number} | uint64_t{names.channel} << 32 |
                          uint64_t{names.stream} << 40 | uint64_t{1} << 48;
    return mix(mix(settings().seed) ^ name) % 100 < static_cast<uint64_t>(percent);
}

Content content() {
    const Settings& now = settings();
    Content out;
    const int32_t pattern = now.pattern;
    if (pattern >= 0) out.pattern = static_cast<Pattern>(pattern);
    out.text = static_cast<Text>(now.text.load());
    out.seed = now.seed;
    return out;
}

}  // namespace

Board::Board() : m_start_us(now_us()), m_pacer(*this) {
    for (uint8_t stream = 0; stream < QMCODEC_STREAMS; ++stream)
        for (uint8_t ch = 0; ch < QMCODEC_CHANNELS; ++ch) m_video[stream][ch].place(stream, ch);
}

Board::~Board() { m_pacer.DestroyThread(); }

std::unique_lock<std::mutex> Board::lock_in_turn() {
    std::lock_guard turn(m_turn);
    return std::unique_lock(m_mutex);
}

Board* Board::of(void* codec) { return static_cast<Board*>(static_cast<QMAVCodec*>(codec)); }

void Board::attach(uint32_t stream_mask, FrameSink* sink) {
    const auto lock = lock_in_turn();
    for (int stream = 0; stream < QMCODEC_STREAMS; ++stream) {
        if (!(stream_mask >> stream & 1)) continue;
        m_sinks[stream] = sink;
        for (EncoderChannel& channel : m_video[stream]) channel.force_key();
    }
}

void Board::detach(FrameSink* sink) {
    const auto lock = lock_in_turn();
    for (FrameSink*& attached : m_sinks)
        if (attached == sink) attached = nullptr;
}

BoardReport Board::report() {
    const auto lock = lock_in_turn();
    return m_report;
}

int Board::SetBoardType(uint32_t board_type, uint32_t sub_board_type) {
    const auto lock = lock_in_turn();
    m_report.board_type = board_type;
    m_report.sub_board_type = sub_board_type;
    return OK;
}

int Board::SetChipEnableMask(uint32_t mask) {
    if (settings().fail_mask.strikes()) return FAILED;
    {
        const auto lock = lock_in_turn();
        lose_until(now_us());  // what channels without a chip would have given is no one's loss
        m_chip_mask = mask;
        lose_until(now_us());
    }
    m_pacer.wake();
    return OK;
}

int Board::InitAVCodec(_QM_AVCODEC_INIT_PARAM* param) {
    if (settings().fail_init.strikes()) return FAILED;
    {
        const auto lock = lock_in_turn();
        m_report.video_format = param->video_format;
        m_report.field_type = param->field_type;
        m_pal = param->video_format != 0;
        m_start_us = now_us();
        for (auto& stream : m_video)
            for (EncoderChannel& channel : stream)
                channel.set_format(m_pal, next_tick(frame_rate_limit(m_pal)));
        lose_until(now_us());  // audio channels that were on already begin now
    }
    m_pacer.CreateThread(nullptr, 0);
    return OK;
}

int Board::ReleaseAVCodec() {
    m_pacer.DestroyThread();
    const BoardReport total = report();
    if (total.late > 0)
        complain("%llu frames were dropped because the machine fell behind",
                 static_cast<unsigned long long>(total.late));
    return OK;
}

template <class Change>
int Board::with_channel(int stream, int channel, Change change) {
    if (stream < 0 || stream >= QMCODEC_STREAMS || channel < 0 || channel >= QMCODEC_CHANNELS)
        return FAILED;
    {
        const auto lock = lock_in_turn();
        change(m_video[stream][channel]);
    }
    m_pacer.wake();
    return OK;
}

int Board::SetChannelEnable(int stream, int channel, uint8_t enable) {
    return with_channel(stream, channel, [&](EncoderChannel& encoder) {
        if (enable)
            encoder.switch_on(next_tick(frame_rate_limit(m_pal)));
        else
            encoder.switch_off();
    });
}

int Board::SetCodecType(int stream, int channel, uint32_t codectype) {
    return with_channel(stream, channel, [&](auto& encoder) { encoder.set_codec_type(codectype); });
}

int Board::SetFrameRate(int stream, int channel, uint32_t frames_per_second) {
    return with_channel(stream, channel, [&](EncoderChannel& encoder) {
        encoder.set_frame_rate(frames_per_second, now_us(), next_tick(frame_rate_limit(m_pal)));
    });
}

int Board::SetIDRInterval(int stream, int channel, uint32_t frames) {
    return with_channel(stream, channel, [&](auto& encoder) { encoder.set_idr_interval(frames); });
}

int Board::SetBitrate(int stream, int channel, uint32_t bits_per_second) {
    return with_channel(stream, channel,
                        [&](auto& encoder) { encoder.set_bitrate(bits_per_second); });
}

int Board::SetBitrateType(int stream, int channel, uint32_t type) {
    return with_channel(stream, channel, [&](auto& encoder) { encoder.set_bitrate_type(type); });
}

int Board::SetResolution(int stream, int channel, uint32_t resolution) {
    return with_channel(stream, channel,
                        [&](auto& encoder) { encoder.set_resolution(resolution); });
}

int Board::SetQP(int stream, int channel, uint8_t qp) {
    return with_channel(stream, channel, [&](auto& encoder) { encoder.set_qp(qp); });
}

int Board::SetPrivateZone(int stream, uint8_t channel, uint8_t enable, int zone, uint16_t start_x,
                          uint16_t start_y, uint16_t width, uint16_t height) {
    if (zone != 0) return FAILED;
    return with_channel(stream, channel, [&](EncoderChannel& encoder) {
        encoder.set_zone(enable ? PrivateZone{true, start_x, start_y, width, height}
                                : PrivateZone{});
    });
}

int Board::SetAudioChannelEnable(int channel, uint8_t enable) {
    if (channel < 0 || channel >= QMCODEC_CHANNELS) return FAILED;
    {
        const auto lock = lock_in_turn();
        AudioChannel& audio = m_audio[channel];
        if (enable && !audio.on) {
            audio.number = 0;
            audio.ticker.start(next_tick(AUDIO_FRAMES_PER_SECOND), AUDIO_FRAMES_PER_SECOND);
        }
        audio.on = enable != 0;
    }
    m_pacer.wake();
    return OK;
}

bool Board::has_chip(int channel) const {
    return m_chip_mask >> (channel / QMCODEC_CHANNELS_PER_CHIP) & 1;
}

// The inputs of the board run in step: the channels of one rate have their frames at the same
// moments.
Tick Board::next_tick(uint32_t rate) const {
    const int64_t passed = (now_us() - m_start_us) * rate / US_PER_S;
    Tick tick{m_start_us, passed, rate};
    while (m_start_us + tick.count * US_PER_S / tick.rate <= now_us()) ++tick.count;
    return tick;
}

int64_t Board::next_due_us() const {
    int64_t next = NEVER;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        if (!has_chip(ch)) continue;
        for (const auto& stream : m_video) next = std::min(next, stream[ch].due_us());
        if (m_audio[ch].on) next = std::min(next, m_audio[ch].ticker.due_us());
    }
    return next;
}

// Passes over what was due before a time; returns how many frames that were.
uint64_t Board::lose_until(int64_t time_us) {
    uint64_t lost = 0;
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        if (!has_chip(ch)) continue;
        for (auto& stream : m_video)
            if (stream[ch].on()) lost += stream[ch].lose_until(time_us);
        if (!m_audio[ch].on) continue;
        const uint32_t audio_lost = m_audio[ch].ticker.advance_to(time_us);
        m_audio[ch].number += audio_lost;
        lost += audio_lost;
    }
    return lost;
}

int64_t Board::produce(int64_t now) {
    const auto lock = lock_in_turn();
    int64_t due = next_due_us();
    if (due < now - MAX_LATENESS_US) {
        m_report.late += lose_until(now - MAX_LATENESS_US);
        due = next_due_us();
    }
    if (due > now) return due;
    // One moment at a time, in their order, also when there is more than one to make up for: the
    // setters get their turn in between.
    produce_at(due);
    due = next_due_us();
    FrameSink* told = nullptr;
    for (FrameSink* sink : m_sinks) {
        if (sink && sink != told) sink->end_of_batch();
        told = sink;
    }
    return due;
}

void Board::produce_at(int64_t due) {
    for (int ch = 0; ch < QMCODEC_CHANNELS; ++ch) {
        if (!has_chip(ch)) continue;
        for (auto& stream : m_video)
            if (stream[ch].due_us() == due) produce_video(stream[ch]);
        if (m_audio[ch].on && m_audio[ch].ticker.due_us() == due) produce_audio(m_audio[ch], ch);
    }
}

void Board::produce_video(EncoderChannel& encoder) {
    const FrameInfo names = encoder.names();
    FrameSink* sink = m_sinks[names.stream];
    if (!sink || falls_out(names, settings().drop_percent)) {
        encoder.lose();
        ++(sink ? m_report.lost : m_report.uncollected);
        return;
    }
    FrameInfo info;
    try {
        info = encoder.encode(content());
    } catch (const std::bad_alloc&) {
        encoder.lose();
        encoder.force_key();
        sink->not_made();
        return;
    }
    qm_dbframe* frame = sink->blank(info.bytes);
    if (!frame) {
        encoder.force_key();
        return;
    }
    frame->info = info;
    encoder.write(frame->payload.get());
    if (!sink->deliver(frame)) encoder.force_key();
    ++m_report.delivered;
}

void Board::produce_audio(AudioChannel& audio, int channel) {
    FrameInfo info;
    info.kind = FrameKind::audio;
    info.stream = QMCODEC_STREAM_MAIN;
    info.channel = static_cast<uint8_t>(channel);
    info.number = audio.number++;
    info.time_us = audio.ticker.due_us();
    info.bytes = AUDIO_FRAME_BYTES;
    audio.ticker.advance();
    FrameSink* sink = m_sinks[info.stream];
    if (!sink) {
        ++m_report.uncollected;
        return;
    }
    qm_dbframe* frame = sink->blank(info.bytes);
    if (!frame) return;
    frame->info = info;
    write_tone(channel, info.number, frame->payload.get());
    sink->deliver(frame);
    ++m_report.delivered;
}

Board::Pacer::Pacer(Board& board) : m_board(board) { m_state->on_board = true; }

void* Board::Pacer::Work(void*) {
    while (m_stop_request.load() == 0) m_state->alarm.wait_until(m_board.produce(now_us()));
    return nullptr;
}

void Board::Pacer::wake() { m_state->alarm.ring(); }

BoardReport board_report(QMAVCodec* codec) { return Board::of(codec)->report(); }

}  // namespace sim

int CreateQMAVCodec(QMAVCodec** out) {
    *out = nullptr;
    if (sim::settings().fail_create.strikes()) return sim::FAILED;
    *out = new sim::Board;
    return sim::OK;
}

void DestroyQMAVCodec(QMAVCodec* codec) {
    sim::finish_open_databases();
    delete static_cast<sim::Board*>(codec);
}
