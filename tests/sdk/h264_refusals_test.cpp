// What the H.264 reader refuses, each with its sentence, and that damage of any kind is survived:
// every bit, every byte, every cut. Run under the sanitizers to mean anything.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "sdk/video/h264_reader.h"
#include "tests/sdk/h264_bits.h"

using namespace h264_bits;

namespace {

const std::string PLAIN = "00100 1 1 1";
const std::string P_PLAIN = "0001001 1 1 1";

std::string refusal(const Bytes& unit) {
    sim::H264Reader reader;
    return reader.decode(unit.data(), unit.size()) ? "decoded" : reader.error();
}
Bytes grey_key() { return key_start() + key_slice().unit(PLAIN + PLAIN); }
// Of a P picture that follows grey_key().
std::string p_refusal(const Bytes& unit) {
    sim::H264Reader reader;
    const Bytes key = grey_key();
    if (!reader.decode(key.data(), key.size())) return "key: " + reader.error();
    return reader.decode(unit.data(), unit.size()) ? "decoded" : reader.error();
}
std::string macroblock_refusal(const std::string& second, int qp = 26) {
    return refusal(key_start() + key_slice(0, qp).unit(PLAIN + second));
}
std::string sps_refusal(const std::function<void(Sps&)>& change) {
    Sps sps;
    change(sps);
    return refusal(key_start(sps) + key_slice().unit(PLAIN + PLAIN));
}
std::string pps_refusal(const std::function<void(Pps&)>& change) {
    Pps pps;
    change(pps);
    return refusal(key_start({}, pps) + key_slice().unit(PLAIN + PLAIN));
}
std::string slice_refusal(const std::function<void(Slice&)>& change) {
    Slice slice = key_slice();
    change(slice);
    return refusal(key_start() + slice.unit(PLAIN + PLAIN));
}
std::string p_slice_refusal(const std::function<void(Slice&)>& change) {
    Slice slice = p_slice(1);
    change(slice);
    return p_refusal(delimiter() + slice.unit("011"));
}

}  // namespace

TEST(H264Refusals, KnowTheUnchangedStreams) {
    EXPECT_EQ(refusal(grey_key()), "decoded");
    EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit("011")), "decoded");
    EXPECT_EQ(sps_refusal([](Sps&) {}), "decoded");
    EXPECT_EQ(pps_refusal([](Pps&) {}), "decoded");
    EXPECT_EQ(slice_refusal([](Slice&) {}), "decoded");
    EXPECT_EQ(p_slice_refusal([](Slice&) {}), "decoded");
    EXPECT_EQ(macroblock_refusal(PLAIN), "decoded");
}

TEST(H264Refusals, OfSequenceParameterSets) {
    const std::string profile = "sps: its profile is not constrained baseline";
    EXPECT_EQ(sps_refusal([](Sps& s) { s.profile = 77; }), profile);
    EXPECT_EQ(sps_refusal([](Sps& s) { s.constraints = 0x80; }), profile);
    EXPECT_EQ(sps_refusal([](Sps& s) { s.constraints = 0xC1; }), profile);
    EXPECT_EQ(sps_refusal([](Sps& s) { s.level = 33; }), "sps: it has no known level");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.id = 1; }), "sps: seq_parameter_set_id is not 0");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.frame_num_bits = 9; }), "sps: frame_num has not 8 bits");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.order_type = 0; }), "sps: pic_order_cnt_type is not 2");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.references = 2; }), "sps: max_num_ref_frames is not 1");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.gaps = true; }), "sps: it allows gaps in frame_num");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.frames = false; }), "sps: frame_mbs_only_flag is not set");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.crop_left = 1; }),
              "sps: it crops pictures at the left or the top");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.crop_top = 1; }),
              "sps: it crops pictures at the left or the top");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.crop_right = 8; }), "sps: it crops whole macroblocks");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.crop_bottom = 8; }), "sps: it crops whole macroblocks");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.full_range = true; }),
              "sps: video_full_range_flag is set");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.primaries = 1; }),
              "sps: its colours are not those of BT.601");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.ticks = 0; }), "sps: its timing is 0");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.reorder = 1; }), "sps: max_num_reorder_frames is not 0");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.buffering = 2; }),
              "sps: max_dec_frame_buffering is not 1");
    EXPECT_EQ(sps_refusal([](Sps& s) { s.behind = "0"; }), "sps: there is data behind its end");
}

TEST(H264Refusals, OfPicturesThatAreTooLarge) {
    const std::string large = "sps: its pictures are larger than 1920 x 1088";
    EXPECT_EQ(sps_refusal([](Sps& s) { s.columns = 121; }), large);
    EXPECT_EQ(sps_refusal([](Sps& s) { s.rows = 69; }), large);
    EXPECT_EQ(sps_refusal([](Sps& s) { s.columns = 0xFFFFFFFF; }), large);
    // The largest is taken, and then has too few macroblocks.
    EXPECT_EQ(sps_refusal([](Sps& s) { s.columns = 120, s.rows = 68; }),
              "macroblock 2: it is missing, and all behind it");
}

TEST(H264Refusals, OfPictureParameterSets) {
    EXPECT_EQ(pps_refusal([](Pps& p) { p.id = 1; }), "pps: pic_parameter_set_id is not 0");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.sps = 1; }), "pps: seq_parameter_set_id is not 0");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.cabac = 1; }), "pps: entropy_coding_mode_flag is set");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.groups = 1; }), "pps: it has slice groups");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.references = 1; }),
              "pps: it has more than one reference picture");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.weighted = 1; }), "pps: it has weighted prediction");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.qp = 52; }), "pps: pic_init_qp_minus26 is out of range");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.chroma_offset = -1; }),
              "pps: chroma_qp_index_offset is not 0");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.deblocking_control = 0; }),
              "pps: deblocking_filter_control_present_flag is not set");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.constrained = 0; }),
              "pps: constrained_intra_pred_flag is not set");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.redundant = 1; }),
              "pps: redundant_pic_cnt_present_flag is set");
    EXPECT_EQ(pps_refusal([](Pps& p) { p.behind = "1"; }), "pps: there is data behind its end");
}

TEST(H264Refusals, OfSliceHeaders) {
    EXPECT_EQ(slice_refusal([](Slice& s) { s.first = 1; }),
              "slice 0: macroblocks before its first one are missing");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.type = 5; }), "slice 0: it is not of type I");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.type = 12; }), "slice 0: it is not of type I");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.pps = 1; }), "slice 0: pic_parameter_set_id is not 0");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.frame_num = 1; }),
              "slice 0: frame_num of a key picture is not 0");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.idr_id = 65535; }), "decoded");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.idr_id = 65536; }),
              "slice 0: idr_pic_id is above 65535");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.no_output = 1; }),
              "slice 0: no_output_of_prior_pics_flag is set");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.long_term = 1; }),
              "slice 0: long_term_reference_flag is set");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.qp_delta = 26; }),
              "slice 0: its quantiser is out of range");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.qp_delta = -27; }),
              "slice 0: its quantiser is out of range");
    EXPECT_EQ(slice_refusal([](Slice& s) { s.deblocking = 2; }),
              "slice 0: disable_deblocking_filter_idc is not 1");
    EXPECT_EQ(p_slice_refusal([](Slice& s) { s.type = 7; }), "slice 0: it is not of type P");
    EXPECT_EQ(p_slice_refusal([](Slice& s) { s.frame_num = 0; }),
              "slice 0: frame_num does not follow that of the picture before");
    EXPECT_EQ(p_slice_refusal([](Slice& s) { s.override_references = 1; }),
              "slice 0: num_ref_idx_active_override_flag is set");
    EXPECT_EQ(p_slice_refusal([](Slice& s) { s.reorder = 1; }),
              "slice 0: ref_pic_list_modification_flag_l0 is set");
    EXPECT_EQ(p_slice_refusal([](Slice& s) { s.adaptive = 1; }),
              "slice 0: adaptive_ref_pic_marking_mode_flag is set");
    EXPECT_EQ(refusal(key_start() + nal(IDR, Bits().ue(0).ue(7))),
              "slice 0: it ends within its header");
}

TEST(H264Refusals, OfSlicesThatDoNotMakeAPicture) {
    const Bytes start = key_start();
    const Bytes first = key_slice(0).unit(PLAIN), second = key_slice(1).unit(PLAIN);
    EXPECT_EQ(refusal(start + first + second), "decoded");
    EXPECT_EQ(refusal(start + first), "macroblock 1: it is missing, and all behind it");
    EXPECT_EQ(refusal(start + second + first),
              "slice 0: macroblocks before its first one are missing");
    EXPECT_EQ(refusal(start + first + first + second),
              "slice 1: its first macroblock was coded before");
    EXPECT_EQ(refusal(start + first + second + second),
              "slice 2: its first macroblock was coded before");
    EXPECT_EQ(refusal(start + first + second + key_slice(2).unit(PLAIN)),
              "slice 2: its first macroblock is outside the picture");
    Slice other_id = key_slice(1);
    other_id.idr_id = 2;
    EXPECT_EQ(refusal(start + first + other_id.unit(PLAIN)),
              "slice 1: idr_pic_id differs from that of the first slice");
    EXPECT_EQ(refusal(start + first + p_slice(0, 1).unit(P_PLAIN)),
              "slice: only a part of the picture's slices are of a key picture");
    EXPECT_EQ(refusal(start + key_slice().unit(PLAIN + PLAIN + PLAIN)),
              "slice 0: there is data behind the last macroblock");
    EXPECT_EQ(refusal(start + key_slice().unit(PLAIN + PLAIN + "0")),
              "slice 0: there is data behind the last macroblock");
    EXPECT_EQ(refusal(start + key_slice().unit("")),
              "macroblock 0: the slice ends in the middle of it");
}

TEST(H264Refusals, OfMacroblocks) {
    const std::string types = "macroblock 1: it is neither Intra 16x16 with DC alone nor I_PCM";
    const auto with_type = [](uint64_t type) {
        return macroblock_refusal(Bits().ue(type).raw("1 1 1").text());
    };
    for (uint64_t type = 0; type < 40; ++type) {
        if (type == 3 || type == 7 || type == 25) continue;
        EXPECT_EQ(with_type(type), types) << type;
    }
    EXPECT_EQ(macroblock_refusal("00100 010 1 1"),
              "macroblock 1: intra_chroma_pred_mode is not DC");
    EXPECT_EQ(macroblock_refusal("00100 1" + Bits().se(26).text() + "1"),
              "macroblock 1: mb_qp_delta is out of range");
    EXPECT_EQ(macroblock_refusal("00100 1" + Bits().se(-27).text() + "1"),
              "macroblock 1: mb_qp_delta is out of range");
    // coeff_token of 15 zeros; level_prefix of 16 zeros behind the token (1, 0).
    EXPECT_EQ(macroblock_refusal("00100 1 1 000000000000000 1 1111111111111111"),
              "macroblock 1: its luma levels cannot be read");
    EXPECT_EQ(macroblock_refusal("00100 1 1 000101 00000000000000001 000000000000 1"),
              "macroblock 1: its luma levels cannot be read");
    // The largest positive level, 2 * 2064 = 15 + 4095 + 15 + 2 and 1: at qp 51, 2064 * 224 << 2.
    EXPECT_EQ(macroblock_refusal("00100 1 1 000101 0000000000000001 111111111110 1", 51),
              "macroblock 1: its luma coefficients are out of range");
    EXPECT_EQ(macroblock_refusal("00100 1 1 000101 0000000000000001 111111111111 1", 51),
              "macroblock 1: its luma coefficients are out of range");
    // Two trailing ones, 7 zeros "0011", and 8 of them between the two.
    EXPECT_EQ(macroblock_refusal("00100 1 1 001 00 0011 00001"),
              "macroblock 1: its luma levels cannot be read");
    // U: the token (1, 0) "000111" and the same level: 2064 * 208 << 6 >> 5.
    EXPECT_EQ(macroblock_refusal("0001000 1 1 1 000111 0000000000000001 111111111110 1 01", 51),
              "macroblock 1: its chroma coefficients are out of range");
    const std::string samples(384 * 8, '1');
    EXPECT_EQ(macroblock_refusal(Bits().ue(25).text() + "1111111" + samples),
              "macroblock 1: bits before its samples are not 0");
    EXPECT_EQ(macroblock_refusal(Bits().ue(25).text() + "0000000"),
              "macroblock 1: the slice ends in the middle of it");
}

TEST(H264Refusals, OfMacroblocksOfPPictures) {
    for (uint64_t type = 0; type < 5; ++type)
        EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit(Bits().raw("010").ue(type).text() + "1")),
                  "macroblock 1: it is inter coded and not skipped");
    EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit("00100")),
              "macroblock 0: more are skipped than there are left");
    EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit(std::string(31, '0') + std::string(32, '1'))),
              "macroblock 0: more are skipped than there are left");
    // All are skipped, and more follows; a run of 0 with nothing behind it.
    EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit("011" + P_PLAIN)),
              "slice 0: there is data behind the last macroblock");
    EXPECT_EQ(p_refusal(delimiter() + p_slice(1).unit("1" + P_PLAIN + "1")),
              "macroblock 1: the slice ends in the middle of it");
}

TEST(H264Refusals, OfNalUnitsInAnotherOrder) {
    const Bytes sps = Sps().unit(), pps = Pps().unit(), end = delimiter();
    const Bytes slices = key_slice().unit(PLAIN + PLAIN);
    const Bytes skip = p_slice(1).unit("011");
    EXPECT_EQ(refusal({}), "access unit: it has no slice");
    EXPECT_EQ(refusal(end), "access unit: it has no slice");
    EXPECT_EQ(refusal(sps + pps + slices), "access unit: it does not begin with a delimiter");
    EXPECT_EQ(refusal(end + end + sps + pps + slices), "delimiter: it is not the first NAL unit");
    EXPECT_EQ(refusal(end + pps + sps + slices), "pps: it does not follow an sps");
    EXPECT_EQ(refusal(end + sps + sps + pps + slices), "sps: it does not follow the delimiter");
    EXPECT_EQ(refusal(end + sps + pps + pps + slices), "pps: it does not follow an sps");
    EXPECT_EQ(refusal(end + sps + slices), "slice 0: a key picture without sps and pps");
    EXPECT_EQ(refusal(end + slices), "slice 0: a key picture without sps and pps");
    EXPECT_EQ(refusal(end + sps + pps), "access unit: it has no slice");
    EXPECT_EQ(refusal(grey_key() + filler(3) + slices), "slice: it comes after the filler");
    EXPECT_EQ(refusal(grey_key() + filler(3) + filler(3)), "filler: it does not follow the slices");
    EXPECT_EQ(refusal(end + filler(3)), "filler: it does not follow the slices");
    EXPECT_EQ(refusal(grey_key() + end), "delimiter: it is not the first NAL unit");
    EXPECT_EQ(refusal(grey_key() + sps), "sps: it does not follow the delimiter");
    EXPECT_EQ(p_refusal(end + sps + pps + skip),
              "slice 0: sps and pps before a picture that is no key");
    EXPECT_EQ(p_refusal(end + sps + skip), "slice 0: it does not follow a pps");
    EXPECT_EQ(refusal(grey_key() + nal(SEI, Bits().u(8, 5).u(8, 0))),
              "NAL unit: its type is never written");
}

TEST(H264Refusals, OfNalUnitsThatAreWrongInThemselves) {
    const Bytes slices = key_slice().unit(PLAIN + PLAIN), skip = p_slice(1).unit("011");
    const auto filled = [](const Bytes& payload) {
        return refusal(grey_key() + nal(FILLER, payload));
    };
    EXPECT_EQ(filled({0xFF, 0xFE, 0x80}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(filled({0xFE, 0xFF, 0x80}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(filled({0xFE, 0xFE, 0x80}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(filled({0xFF, 0xFF}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(filled({0xFF, 0xC0}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(filled({}), "filler: it holds other bytes than 0xFF");
    EXPECT_EQ(p_refusal(delimiter(0) + skip),
              "delimiter: primary_pic_type does not fit the slices");
    EXPECT_EQ(refusal(delimiter(3) + Sps().unit() + Pps().unit() + slices),
              "delimiter: primary_pic_type does not fit the slices");
    EXPECT_EQ(refusal(nal(DELIMITER, Bits().u(4, 14), 3)),
              "delimiter: there is data behind its end");
    EXPECT_EQ(refusal(nal(DELIMITER, Bits().u(2, 3), 3)), "delimiter: it ends too early");
    EXPECT_EQ(refusal(delimiter(7, 2)), "NAL unit: no zero byte before its start code");
    EXPECT_EQ(refusal(delimiter() + Sps().unit(2)), "NAL unit: no zero byte before its start code");
    EXPECT_EQ(refusal(delimiter() + Sps().unit() + Pps().unit(2)),
              "NAL unit: no zero byte before its start code");
    EXPECT_EQ(refusal(nal(DELIMITER | 0x60, Bits().u(3, 7), 3)), "delimiter: nal_ref_idc is not 0");
    EXPECT_EQ(refusal(grey_key() + nal(FILLER | 0x20, Bytes{0xFF, 0x80})),
              "filler: nal_ref_idc is not 0");
    EXPECT_EQ(refusal(key_start() + nal(IDR & 0x1F, key_slice().bits().raw(PLAIN + PLAIN))),
              "slice: nal_ref_idc is 0");
    // nal_ref_idc is in the byte behind the start code of 4 bytes.
    Bytes sps = Sps().unit(), pps = Pps().unit();
    sps[4] &= 0x1F;
    pps[4] &= 0x1F;
    EXPECT_EQ(refusal(delimiter() + sps + Pps().unit() + slices), "sps: nal_ref_idc is 0");
    EXPECT_EQ(refusal(delimiter() + Sps().unit() + pps + slices), "pps: nal_ref_idc is 0");
    EXPECT_EQ(refusal(grey_key() + Bytes{0, 0, 0, 7}),
              "access unit: it has bytes that are no NAL unit");
    const std::string prevention = "NAL unit: its bytes are not what emulation prevention makes";
    const Bytes code = {0, 0, 1, IDR};
    EXPECT_EQ(refusal(key_start() + code + Bytes{0x88, 0, 0, 2, 0x80}), prevention);
    EXPECT_EQ(refusal(key_start() + code + Bytes{0x88, 0, 0, 3, 4}), prevention);
    EXPECT_EQ(refusal(key_start() + code + Bytes{0x88, 0, 0, 3}), prevention);
}

namespace {

// A key picture and a P picture with all that there is: levels of luma and chroma, samples with
// zeros in a row, runs, two slices, filler. 48 x 32.
std::vector<Bytes> rich_stream() {
    Sps sps;
    sps.columns = 3;
    sps.rows = 2;
    const auto pcm = [](Bits bits, uint64_t type) {
        bits.ue(type).align('0');
        for (unsigned i = 0; i < 384; ++i) bits.u(8, i % 7 == 0 ? i : 0);
        return bits;
    };
    const std::string coloured = "0001000 1 1 001 00 110 1 111 001 01 1";
    const std::string long_level = "00100 1 011 000101 0000000000000001 000000000000 1";
    Bits first = key_slice(0, 16).bits().raw(coloured + long_level);
    first = pcm(first, 25).raw("00100 1 1 1");
    const Bytes key = key_start(sps) + nal(IDR, first) +
                      key_slice(4, 40).unit(coloured + "00100 1 1 01 0 1") + filler(20);
    // Below the samples: the token of 6 bits.
    Bits p = pcm(p_slice(1).bits().raw("010"), 30).raw("011 0001101 1 1 000110 00 110 1 111 01");
    const Bytes next = delimiter(1) + nal(SLICE, p) + p_slice(1, 5).unit("010") + filler(3);
    return {key, next};
}

// Decodes the stream with unit `at` replaced; whatever comes of it, the reader goes on afterwards.
void survives(const std::vector<Bytes>& stream, size_t at, const Bytes& replaced) {
    sim::H264Reader reader;
    for (size_t i = 0; i < at; ++i) ASSERT_TRUE(reader.decode(stream[i].data(), stream[i].size()));
    // In a block of its own, so that a byte read behind the end is found.
    const Bytes exact(replaced.begin(), replaced.end());
    const std::vector<uint8_t> before = reader.picture().y;
    if (!reader.decode(exact.data(), exact.size())) {
        EXPECT_FALSE(reader.error().empty());
        EXPECT_EQ(reader.picture().y, before);
        EXPECT_FALSE(reader.decode(stream[1].data(), stream[1].size()));
    }
    for (const Bytes& unit : stream)
        ASSERT_TRUE(reader.decode(unit.data(), unit.size())) << reader.error();
}

}  // namespace

TEST(H264Damage, OfAnyBitOrByteIsSurvived) {
    const std::vector<Bytes> stream = rich_stream();
    for (size_t at = 0; at < stream.size(); ++at)
        for (size_t i = 0; i < stream[at].size(); ++i)
            for (const unsigned flip : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U, 255U}) {
                Bytes damaged = stream[at];
                damaged[i] = static_cast<uint8_t>(damaged[i] ^ flip);
                ASSERT_NO_FATAL_FAILURE(survives(stream, at, damaged)) << at << " " << i;
            }
}

TEST(H264Damage, OfAnyCutIsRefused) {
    const std::vector<Bytes> stream = rich_stream();
    for (size_t at = 0; at < stream.size(); ++at)
        for (size_t size = 0; size < stream[at].size(); ++size) {
            Bytes cut = stream[at];
            cut.resize(size);
            cut.shrink_to_fit();
            ASSERT_NO_FATAL_FAILURE(survives(stream, at, cut)) << at << " " << size;
        }
}
