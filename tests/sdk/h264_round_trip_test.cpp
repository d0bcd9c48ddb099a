// What the H.264 writer makes, through the reader: every picture must be what the writer says that
// a decoder shows, to the byte. Sizes, patterns, quantisers, zones, key intervals. The reader by
// itself is in h264_reader_test and h264_refusals_test.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "sdk/video/bit_reader.h"
#include "sdk/video/h264_nal.h"
#include "sdk/video/h264_reader.h"
#include "sdk/video/h264_writer.h"

namespace {

constexpr sim::PictureSize SIZES[] = {{176, 120}, {176, 144}, {352, 240}, {352, 288}, {352, 480},
                                      {352, 576}, {704, 480}, {704, 576}, {1280, 720}};

sim::PrivateZone zone(int x, int y, int width, int height) {
    sim::PrivateZone out;
    out.enabled = true;
    out.start_x = static_cast<uint16_t>(x);
    out.start_y = static_cast<uint16_t>(y);
    out.width = static_cast<uint16_t>(width);
    out.height = static_cast<uint16_t>(height);
    return out;
}

struct Case {
    sim::Scene scene;
    sim::PrivateZone zone;
    int qp = 26;
    uint32_t first = 0;  // number of the first frame
    uint32_t frames = 40;
    uint32_t key_interval = 15;
    size_t fill = 0;  // bytes added to each access unit
};

// One writer, one reader, frame by frame.
class Trip {
  public:
    void run(const Case& what) {
        m_writer.configure(what.scene, what.zone, what.qp);
        for (uint32_t i = 0; i < what.frames; ++i) {
            ASSERT_NO_FATAL_FAILURE(frame(what.first + i, i % what.key_interval == 0, what.fill))
                << "frame " << i;
            EXPECT_EQ(m_reader.picture().size, what.scene.size);
        }
    }
    const sim::Picture& picture() const { return m_reader.picture(); }

  private:
    void frame(uint32_t number, bool key, size_t fill) {
        std::vector<uint8_t> unit(m_writer.compose(number, key) + fill);
        m_writer.write(unit.size(), unit.data());
        ASSERT_TRUE(m_reader.decode(unit.data(), unit.size())) << m_reader.error();
        ASSERT_EQ(m_reader.was_key(), key);
        m_writer.reconstruct(m_expected);
        ASSERT_EQ(m_reader.picture().y, m_expected.y);
        ASSERT_EQ(m_reader.picture().u, m_expected.u);
        ASSERT_EQ(m_reader.picture().v, m_expected.v);
    }

    sim::H264Writer m_writer;
    sim::H264Reader m_reader;
    sim::Picture m_expected;
};

Case moving(sim::PictureSize size) {
    Case out;
    out.scene.size = size;
    out.scene.pattern = sim::Pattern::moving_bar;
    return out;
}

void expect_block_code(const sim::Picture& picture, const sim::Scene& scene, uint32_t number) {
    sim::BlockCode code;
    ASSERT_EQ(sim::read_block_code(picture, code), sim::CodeFound::valid);
    EXPECT_EQ(code.channel, scene.channel);
    EXPECT_EQ(code.stream, scene.stream);
    EXPECT_EQ(code.number, number);
}

std::vector<uint8_t> key_unit(sim::H264Writer& writer, uint32_t number) {
    std::vector<uint8_t> unit(writer.compose(number, true));
    writer.write(unit.size(), unit.data());
    return unit;
}

// idr_pic_id, the same in all slices. Each has the emulation prevention that its payload needs.
void read_idr_id(const std::vector<uint8_t>& unit, uint32_t& id) {
    sim::NalUnits units(unit.data(), unit.size());
    sim::NalUnit slice;
    std::vector<uint8_t> payload, again;
    size_t slices = 0;
    while (units.next(slice)) {
        if (slice.type() != sim::NalType::idr_slice) continue;
        ASSERT_TRUE(sim::take_payload(slice, payload));
        again.clear();
        sim::append_unit(false, slice.bytes[0], payload, again);
        ASSERT_EQ(again.size(), 3 + slice.size);
        ASSERT_EQ(std::memcmp(again.data() + 3, slice.bytes, slice.size), 0);
        sim::BitReader bits(payload.data(), payload.size());
        bits.ue();  // first_mb_in_slice
        EXPECT_EQ(bits.ue(), 7U);
        EXPECT_EQ(bits.ue(), 0U);  // pic_parameter_set_id
        EXPECT_EQ(bits.bits(8), 0U);
        const uint32_t idr_pic_id = bits.ue();
        if (slices++ == 0) id = idr_pic_id;
        ASSERT_EQ(idr_pic_id, id);
    }
    ASSERT_FALSE(units.failed());
    ASSERT_GT(slices, 0U);
}

}  // namespace

TEST(H264RoundTrip, OfEverySizeAndPattern) {
    for (const sim::PictureSize size : SIZES)
        for (int pattern = 0; pattern < sim::PATTERNS; ++pattern) {
            Case one = moving(size);
            one.scene.pattern = static_cast<sim::Pattern>(pattern);
            one.frames = 20;
            Trip trip;
            ASSERT_NO_FATAL_FAILURE(trip.run(one))
                << size.width << " " << size.height << " " << pattern;
            expect_block_code(trip.picture(), one.scene, 19);
        }
}

TEST(H264RoundTrip, OfEveryQuantiser) {
    for (const sim::Pattern pattern : {sim::Pattern::moving_bar, sim::Pattern::noise})
        for (int qp = 0; qp <= 51; ++qp) {
            Case one = moving({352, 240});
            one.scene.pattern = pattern;
            one.qp = qp;
            one.frames = 20;
            Trip trip;
            ASSERT_NO_FATAL_FAILURE(trip.run(one)) << qp;
            expect_block_code(trip.picture(), one.scene, 19);
        }
}

TEST(H264RoundTrip, OfEveryTextAndChannel) {
    for (const sim::Text text : {sim::Text::off, sim::Text::counters, sim::Text::full})
        for (uint8_t channel = 0; channel < 16; ++channel) {
            Case one = moving({176, 120});
            one.scene.text = text;
            one.scene.channel = channel;
            one.scene.stream = channel % 6;
            Trip trip;
            ASSERT_NO_FATAL_FAILURE(trip.run(one)) << static_cast<int>(channel);
            if (text == sim::Text::full) expect_block_code(trip.picture(), one.scene, 39);
        }
}

TEST(H264RoundTrip, OfZonesAnywhere) {
    const std::vector<sim::PrivateZone> zones = {
        zone(0, 0, 704, 480),     zone(0, 0, 0, 0),         zone(100, 50, 1, 1),
        zone(33, 17, 101, 77),    zone(600, 400, 500, 500), zone(5, 5, 100, 60),
        zone(0, 440, 200, 40),    zone(0, 0, 704, 33),      zone(300, 0, 3, 480),
        zone(703, 479, 1, 1),     zone(704, 480, 10, 10),   zone(65535, 65535, 65535, 65535),
        zone(16, 16, 160, 160),   zone(15, 15, 162, 162),   zone(17, 17, 158, 158),
        zone(0, 0, 65535, 65535), zone(104, 56, 400, 296),  zone(8, 8, 8, 8),
        zone(24, 0, 40, 472),     zone(4, 4, 100, 100),
    };
    constexpr int QUANTISERS[] = {4, 26, 51};
    for (size_t i = 0; i < zones.size(); ++i) {
        Case one = moving({704, 480});
        one.zone = zones[i];
        one.qp = QUANTISERS[i % 3];
        one.frames = 65;  // the bar passes every row
        Trip trip;
        ASSERT_NO_FATAL_FAILURE(trip.run(one)) << "zone " << i << " qp " << one.qp;
    }
}

// Where the edges of a zone are multiples of 8 no samples are written one by one.
TEST(H264RoundTrip, AZoneOnTheGridOfTheColoursCostsLittle) {
    const auto key_bytes = [](const sim::PrivateZone& zone) {
        sim::H264Writer writer;
        writer.configure(moving({704, 480}).scene, zone, 51);
        return writer.key_bytes(0);
    };
    constexpr size_t TOUCHED = 2 * 26 + 2 * 18;  // macroblocks with an edge in them
    constexpr size_t ALL_SAMPLES = 384;          // of one
    EXPECT_LT(key_bytes(zone(104, 56, 400, 296)), TOUCHED * ALL_SAMPLES / 3);
    EXPECT_GT(key_bytes(zone(104, 56, 399, 296)), 18 * ALL_SAMPLES);
}

TEST(H264RoundTrip, OfKeyIntervalsAndAFrameNumberThatWraps) {
    for (const uint32_t interval : {1U, 2U, 7U, 300U}) {
        Case one = moving({176, 144});
        one.key_interval = interval;
        one.frames = 600;
        one.first = 0xFFFFFFFF - 300;  // the number of the frame wraps as well
        Trip trip;
        ASSERT_NO_FATAL_FAILURE(trip.run(one)) << interval;
    }
}

// Decoders tell two key pictures in a row apart by idr_pic_id; frames may have been lost between.
TEST(H264RoundTrip, TheIdsOf256KeyPicturesDiffer) {
    for (const sim::PictureSize size : SIZES)
        for (const int qp : {0, 26, 51}) {
            sim::H264Writer writer;
            Case one = moving(size);
            writer.configure(one.scene, {}, qp);
            std::set<uint32_t> ids;
            for (uint32_t number = 0; number < 256; ++number) {
                uint32_t id = 0;
                ASSERT_NO_FATAL_FAILURE(read_idr_id(key_unit(writer, number), id));
                EXPECT_TRUE(ids.insert(id).second) << id;
                writer.compose(number, false);
            }
        }
}

TEST(H264RoundTrip, OfFillerOfEverySmallSize) {
    for (size_t fill = 0; fill <= 70; ++fill) {
        Case one = moving({176, 120});
        one.fill = fill;
        one.frames = 4;
        one.key_interval = 2;
        Trip trip;
        ASSERT_NO_FATAL_FAILURE(trip.run(one)) << fill;
    }
    Case large = moving({704, 480});
    large.fill = 8000;
    Trip trip;
    ASSERT_NO_FATAL_FAILURE(trip.run(large));
}

TEST(H264RoundTrip, AcrossChangesOfTheScene) {
    Trip trip;
    for (const sim::PictureSize size : SIZES)
        for (const int qp : {10, 40}) {
            Case one = moving(size);
            one.qp = qp;
            one.frames = 5;
            ASSERT_NO_FATAL_FAILURE(trip.run(one)) << size.width << " " << size.height;
            one.zone = zone(40, 40, 33, 33);
            ASSERT_NO_FATAL_FAILURE(trip.run(one)) << size.width << " " << size.height;
        }
}

TEST(H264RoundTrip, TellsTheSequenceToContainers) {
    for (const sim::PictureSize size : SIZES) {
        sim::Scene scene;
        scene.size = size;
        scene.rate = 25;
        sim::H264Writer writer;
        writer.configure(scene, {}, 26);
        std::vector<uint8_t> unit(writer.compose(0, true));
        writer.write(unit.size(), unit.data());
        sim::NalUnits units(unit.data(), unit.size());
        sim::NalUnit nal;
        sim::SequenceInfo info;
        while (units.next(nal) && nal.type() != sim::NalType::sps) {
        }
        ASSERT_TRUE(sim::read_sequence(nal, info));
        EXPECT_EQ(info.size, size);
        EXPECT_EQ(info.profile, 66);
        EXPECT_EQ(info.constraints, 0xC0);
        EXPECT_EQ(info.ticks, 1U);
        EXPECT_EQ(info.time_scale, 50U);
    }
}
