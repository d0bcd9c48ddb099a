// Frame times, key frames and sizes of one channel.
#include "sdk/board/encoder_channel.h"

#include <algorithm>

#include "mainwork/qm_codec.h"
#include "sdk/video/payload.h"

namespace sim {

namespace {

constexpr uint32_t CODEC_JPEG = 2;
constexpr uint32_t MAX_RESOLUTION = 4;
constexpr uint32_t DEFAULT_RESOLUTION = 3;
constexpr uint8_t MAX_QP = 51;
constexpr uint32_t MAX_BITRATE = 50'000'000;

}  // namespace

// due >= time exactly when count >= (time - start) * rate / second, unrounded.
uint32_t Ticker::advance_to(int64_t time_us) {
    if (m_rate == 0 || due_us() >= time_us) return 0;
    const int64_t count = ((time_us - m_start_us) * m_rate + US_PER_S - 1) / US_PER_S;
    const int64_t passed = count - m_count;
    m_count = count;
    return static_cast<uint32_t>(passed);
}

void EncoderChannel::place(uint8_t stream, uint8_t channel) {
    m_stream = stream;
    m_channel = channel;
}

void EncoderChannel::set_format(bool pal) {
    m_pal = pal;
    m_rate = std::min(m_rate, rate_limit());
}

void EncoderChannel::switch_on(int64_t first_us) {
    if (m_on) return;
    m_on = true;
    m_number = 0;
    m_key_wanted = true;
    m_ticker.start(first_us, m_rate);
    m_last_us = first_us;
    restart_rate_control();
}

void EncoderChannel::set_codec_type(uint32_t type) {
    type = std::min(type, CODEC_JPEG);
    if (type == m_codec_type) return;
    m_codec_type = type;
    m_key_wanted = true;
    restart_rate_control();
}

// The next frame follows the last one at the new rate, but never lies in the past: frames are not
// bunched because the rate went up.
void EncoderChannel::set_frame_rate(uint32_t rate, int64_t now_us, int64_t next_tick_us) {
    rate = std::min(rate, rate_limit());
    if (rate == m_rate) return;
    const bool ran = m_on && m_rate != 0;
    const int64_t first_us = m_ticker.due_us();
    m_rate = rate;
    restart_rate_control();
    if (!ran || rate == 0) {
        m_ticker.start(next_tick_us, rate);
    } else if (m_number == 0) {
        m_ticker.start(first_us, rate);
    } else {
        m_ticker.start(m_last_us, rate);
        m_ticker.advance();
        if (m_ticker.due_us() <= now_us) m_ticker.start(next_tick_us, rate);
    }
}

void EncoderChannel::set_idr_interval(uint32_t frames) {
    if (frames == m_idr_interval) return;
    m_idr_interval = frames;
    restart_rate_control();
}

// 0 is what a channel of constant quantiser is told: the rate for a later change of type stays.
void EncoderChannel::set_bitrate(uint32_t bits_per_second) {
    if (bits_per_second == 0) return;
    m_bitrate = std::min(bits_per_second, MAX_BITRATE);
    restart_rate_control();
}

void EncoderChannel::set_bitrate_type(uint32_t type) {
    m_bitrate_type = type;
    restart_rate_control();
}

void EncoderChannel::set_resolution(uint32_t resolution) {
    if (resolution > MAX_RESOLUTION) resolution = DEFAULT_RESOLUTION;
    if (resolution == m_resolution) return;
    m_resolution = resolution;
    m_key_wanted = true;
}

void EncoderChannel::set_qp(uint8_t qp) { m_qp = std::min(qp, MAX_QP); }

void EncoderChannel::set_zone(const PrivateZone& zone) {
    if (zone == m_zone) return;
    m_zone = zone;
    m_key_wanted = true;
}

bool EncoderChannel::is_jpeg() const {
    return m_stream == QMCODEC_STREAM_JPEG || m_codec_type == CODEC_JPEG;
}

bool EncoderChannel::key_due() const {
    return m_key_wanted || is_jpeg() ||
           (m_idr_interval != 0 && m_number - m_key_number >= m_idr_interval);
}

void EncoderChannel::restart_rate_control() {
    m_rate_control.start(m_bitrate, std::max(m_rate, 1u), is_jpeg() ? 1 : m_idr_interval);
}

FrameInfo EncoderChannel::names() const {
    FrameInfo info;
    info.stream = m_stream;
    info.channel = m_channel;
    info.number = m_number;
    return info;
}

FrameInfo EncoderChannel::encode() {
    const bool jpeg = is_jpeg();
    const bool key = key_due();
    const uint32_t bytes =
        m_bitrate_type == 0
            ? constant_quantiser_bytes(picture_size(m_resolution, m_pal), m_qp, key, jpeg)
            : m_rate_control.next_bytes(key);
    FrameInfo info = names();
    info.kind = jpeg ? FrameKind::jpeg : key ? FrameKind::idr : FrameKind::p;
    info.time_us = m_ticker.due_us();
    info.bytes = std::max(bytes, PAYLOAD_HEADER_BYTES);
    if (key) {
        m_key_number = m_number;
        m_key_wanted = false;
    }
    lose();
    return info;
}

void EncoderChannel::lose() {
    m_last_us = m_ticker.due_us();
    m_ticker.advance();
    ++m_number;
}

uint32_t EncoderChannel::lose_until(int64_t time_us) {
    const uint32_t lost = m_ticker.advance_to(time_us);
    m_number += lost;
    return lost;
}

}  // namespace sim
