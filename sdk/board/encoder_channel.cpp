// Frame times, key frames, sizes and pictures of one channel.
#include "sdk/board/encoder_channel.h"

#include <algorithm>
#include <iterator>

#include "mainwork/qm_codec.h"

namespace sim {

namespace {

constexpr uint32_t CODEC_JPEG = 2;
constexpr uint8_t MAX_QP = 51;
constexpr uint32_t MAX_BITRATE = 50'000'000;

// What the channels see by default, in turns.
constexpr Pattern MIXED[] = {Pattern::bars, Pattern::moving_bar, Pattern::checkerboard,
                             Pattern::gradient, Pattern::zone_plate};

// Tried at a constant bit rate, from the finest on.
constexpr int QUANTISERS[] = {27, 33, 39, 45, 51};
// Of the bytes of a key picture this part is left for texts that take more: one in so many.
constexpr uint32_t KEY_MARGIN = 16;

}  // namespace

// Due at or after a time exactly when count / rate >= (time - start) - first.count / first.rate,
// not rounded; here in units of 1 / first.rate.
uint32_t Ticker::advance_to(int64_t time_us) {
    if (due_us() >= time_us) return 0;
    const int64_t wanted =
        (time_us - m_first.start_us) * m_rate * m_first.rate - m_first.count * m_rate * US_PER_S;
    const int64_t unit = m_first.rate * US_PER_S;
    const int64_t count = (wanted + unit - 1) / unit;
    const int64_t passed = count - m_count;
    m_count = count;
    return static_cast<uint32_t>(passed);
}

void EncoderChannel::place(uint8_t stream, uint8_t channel) {
    m_stream = stream;
    m_channel = channel;
}

void EncoderChannel::set_format(bool pal, const Tick& next) {
    if (pal != m_pal) m_key_wanted = true;
    m_pal = pal;
    if (m_on) m_ticker.start(next, rate());
    restart_rate_control();
}

uint32_t EncoderChannel::rate() const { return std::min(m_asked_rate, frame_rate_limit(m_pal)); }

void EncoderChannel::switch_on(const Tick& first) {
    if (m_on) return;
    m_on = true;
    m_number = 0;
    m_key_wanted = true;
    m_ticker.start(first, rate());
    m_last_us = m_ticker.due_us();
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
void EncoderChannel::set_frame_rate(uint32_t asked, int64_t now_us, const Tick& next) {
    const uint32_t before = rate();
    const int64_t first_us = m_ticker.due_us();
    m_asked_rate = asked;
    if (rate() == before) return;
    restart_rate_control();
    if (!m_on || before == 0 || rate() == 0) {
        m_ticker.start(next, rate());
    } else if (m_number == 0) {
        m_ticker.start({first_us}, rate());
    } else {
        m_ticker.start({m_last_us}, rate());
        m_ticker.advance();
        if (m_ticker.due_us() <= now_us) m_ticker.start(next, rate());
    }
}

void EncoderChannel::set_idr_interval(uint32_t frames) {
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
    if (type != m_bitrate_type) restart_rate_control();
    m_bitrate_type = type;
}

void EncoderChannel::set_resolution(uint32_t resolution) {
    resolution = held_resolution(resolution);
    if (resolution == m_resolution) return;
    m_resolution = resolution;
    m_key_wanted = true;
    m_owed = 0;
}

void EncoderChannel::set_qp(uint8_t qp) { m_qp = std::min(qp, MAX_QP); }

void EncoderChannel::set_zone(const PrivateZone& zone) {
    if (zone == m_zone) return;
    m_zone = zone;
    m_key_wanted = true;
    m_owed = 0;
}

bool EncoderChannel::is_jpeg() const {
    return m_stream == QMCODEC_STREAM_JPEG || m_codec_type == CODEC_JPEG;
}

// Key frames stand at the multiples of the interval: one out of turn moves none of them, so what a
// frame is depends on its number and the settings.
bool EncoderChannel::key_due() const {
    return m_key_wanted || is_jpeg() || (m_idr_interval != 0 && m_number % m_idr_interval == 0);
}

void EncoderChannel::restart_rate_control() {
    const uint32_t group = is_jpeg() ? 1 : m_idr_interval;
    m_rate_control = ConstantBitRate(m_bitrate, std::max(rate(), 1u), group);
    m_owed = 0;
    m_picked_qp = -1;
}

FrameInfo EncoderChannel::names() const {
    FrameInfo info;
    info.stream = m_stream;
    info.channel = m_channel;
    info.number = m_number;
    return info;
}

Scene EncoderChannel::scene(const Content& content) const {
    Scene scene;
    scene.pattern = content.pattern.value_or(MIXED[m_channel % std::size(MIXED)]);
    scene.text = content.text;
    scene.stream = m_stream;
    scene.channel = m_channel;
    scene.seed = content.seed;
    scene.size = picture_size(m_resolution, m_pal);
    scene.rate = rate();
    return scene;
}

uint32_t EncoderChannel::bytes_wanted(bool key, bool jpeg) const {
    return m_bitrate_type == 0
               ? constant_quantiser_bytes(picture_size(m_resolution, m_pal), m_qp, key, jpeg)
               : m_rate_control.bytes(m_number, key);
}

// The finest quantiser with which a key picture keeps to its share of the rate; else the coarsest.
// `bytes_at` makes the picture at a quantiser.
template <class BytesAt>
int EncoderChannel::pick_qp(const Scene& wanted_scene, uint32_t wanted, BytesAt bytes_at) {
    if (m_picked_qp >= 0 && m_picked_for == wanted_scene && m_picked_zone == m_zone)
        return m_picked_qp;
    for (const int qp : QUANTISERS) {
        m_picked_qp = qp;
        if (bytes_at(qp) <= wanted - wanted / KEY_MARGIN) break;
    }
    m_picked_for = wanted_scene;
    m_picked_zone = m_zone;
    return m_picked_qp;
}

size_t EncoderChannel::compose_jpeg(const Content& content, uint32_t wanted) {
    if (!m_jpeg) m_jpeg.emplace();
    const Scene now = scene(content);
    const auto bytes_at = [&](int qp) {
        m_jpeg->configure(now, m_zone, qp);
        return m_jpeg->compose(m_number);
    };
    return bytes_at(m_bitrate_type == 0 ? m_qp : pick_qp(now, wanted, bytes_at));
}

size_t EncoderChannel::compose_h264(const Content& content, bool key, uint32_t wanted) {
    if (!m_h264) m_h264.emplace();
    if (key) {
        const Scene now = scene(content);
        const auto bytes_at = [&](int qp) {
            m_h264->configure(now, m_zone, qp);
            return m_h264->key_bytes(m_number);
        };
        const int qp = m_bitrate_type == 0 ? m_qp : pick_qp(now, wanted, bytes_at);
        m_h264->configure(now, m_zone, qp);
    }
    return m_h264->compose(m_number, key);
}

// The bytes of a frame: what is wanted, or what its content takes. Where that is more than the rate
// has room for, the frames after it give it back, those of a second at the most.
uint32_t EncoderChannel::hold_rate(uint32_t least, uint32_t wanted) {
    if (m_bitrate_type == 0) return std::max(least, wanted);
    if (least > wanted) {
        m_owed = std::min(m_owed + std::min(least - wanted, m_bitrate), m_bitrate / 8);
        return least;
    }
    const uint32_t given_back = std::min(m_owed, wanted - least);
    m_owed -= given_back;
    return wanted - given_back;
}

FrameInfo EncoderChannel::encode(const Content& content) {
    const bool jpeg = is_jpeg();
    const bool key = key_due();
    const uint32_t wanted = bytes_wanted(key, jpeg);
    const size_t least = jpeg ? compose_jpeg(content, wanted) : compose_h264(content, key, wanted);
    m_bytes = hold_rate(static_cast<uint32_t>(least), wanted);
    m_was_jpeg = jpeg;
    FrameInfo info = names();
    info.kind = jpeg ? FrameKind::jpeg : key ? FrameKind::idr : FrameKind::p;
    info.time_us = m_ticker.due_us();
    info.bytes = m_bytes;
    if (key) m_key_wanted = false;
    advance();
    return info;
}

void EncoderChannel::write(uint8_t* out) const {
    if (m_was_jpeg)
        m_jpeg->write(m_bytes, out);
    else
        m_h264->write(m_bytes, out);
}

void EncoderChannel::advance() {
    m_last_us = m_ticker.due_us();
    m_ticker.advance();
    ++m_number;
}

void EncoderChannel::lose() {
    m_key_wanted = key_due();
    advance();
}

uint32_t EncoderChannel::lose_until(int64_t time_us) {
    const uint32_t lost = m_ticker.advance_to(time_us);
    if (lost == 0) return 0;
    m_number += lost;
    m_last_us = m_ticker.previous_us();
    m_key_wanted = true;
    return lost;
}

}  // namespace sim
