// Parameter sets (ITU-T H.264, 7.3.2.1 and 7.3.2.2, annex E), checked element by element.
#include "sdk/video/h264_sets.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "sdk/video/h264_nal.h"

namespace sim {

namespace {

constexpr uint8_t BASELINE = 66;
constexpr uint8_t CONSTRAINED = 0xC0;  // constraint_set0_flag, constraint_set1_flag
constexpr uint32_t EXTENDED_SAR = 255;
constexpr uint32_t LAST_SAR = 16;
constexpr size_t MOST_SET_BYTES = 256;

constexpr std::array<uint8_t, 16> LEVELS = {10, 11, 12, 13, 20, 21, 22, 30,
                                            31, 32, 40, 41, 42, 50, 51, 52};

const char* read_profile(BitReader& bits, SequenceInfo& out) {
    out.profile = static_cast<uint8_t>(bits.bits(8));
    out.constraints = static_cast<uint8_t>(bits.bits(8));
    out.level = static_cast<uint8_t>(bits.bits(8));
    if (out.profile != BASELINE || out.constraints != CONSTRAINED)
        return "sps: its profile is not constrained baseline";
    if (std::find(LEVELS.begin(), LEVELS.end(), out.level) == LEVELS.end())
        return "sps: it has no known level";
    if (bits.ue() != 0) return "sps: seq_parameter_set_id is not 0";
    if (bits.ue() != 4) return "sps: frame_num has not 8 bits";
    if (bits.ue() != 2) return "sps: pic_order_cnt_type is not 2";
    if (bits.ue() != 1) return "sps: max_num_ref_frames is not 1";
    if (bits.flag()) return "sps: it allows gaps in frame_num";
    return nullptr;
}

const char* read_size(BitReader& bits, PictureSize& out) {
    const uint32_t columns = bits.ue(), rows = bits.ue();
    if (columns >= LARGEST_PICTURE.width / MACROBLOCK ||
        rows >= LARGEST_PICTURE.height / MACROBLOCK)
        return "sps: its pictures are larger than 1920 x 1088";
    out.width = static_cast<int>(columns + 1) * MACROBLOCK;
    out.height = static_cast<int>(rows + 1) * MACROBLOCK;
    if (!bits.flag()) return "sps: frame_mbs_only_flag is not set";
    bits.flag();        // direct_8x8_inference_flag: without B slices it has no effect
    if (bits.flag()) {  // frame_cropping_flag; in steps of two samples
        const uint32_t left = bits.ue(), right = bits.ue();
        const uint32_t top = bits.ue(), bottom = bits.ue();
        if (left != 0 || top != 0) return "sps: it crops pictures at the left or the top";
        if (right >= MACROBLOCK / 2 || bottom >= MACROBLOCK / 2)
            return "sps: it crops whole macroblocks";
        out.width -= static_cast<int>(2 * right);
        out.height -= static_cast<int>(2 * bottom);
    }
    return nullptr;
}

const char* read_video_signal(BitReader& bits) {
    if (bits.flag()) {  // aspect_ratio_info_present_flag
        const uint32_t shape = bits.bits(8);
        if (shape == EXTENDED_SAR) {
            if (bits.bits(16) == 0 || bits.bits(16) == 0) return "sps: its sample shape is 0";
        } else if (shape > LAST_SAR) {
            return "sps: aspect_ratio_idc is reserved";
        }
    }
    if (bits.flag()) bits.flag();  // overscan_appropriate_flag
    if (bits.flag()) {             // video_signal_type_present_flag
        if (bits.bits(3) > 5) return "sps: video_format is reserved";
        if (bits.flag()) return "sps: video_full_range_flag is set";
        if (bits.flag()) {  // BT.601, in either of its two line counts
            const uint32_t primaries = bits.bits(8), transfer = bits.bits(8);
            const uint32_t matrix = bits.bits(8);
            for (const uint32_t code : {primaries, transfer, matrix})
                if (code != 5 && code != 6) return "sps: its colours are not those of BT.601";
        }
    }
    if (bits.flag()) return "sps: it moves chroma samples";  // chroma_loc_info_present_flag
    return nullptr;
}

const char* read_usability(BitReader& bits, SequenceInfo& out) {
    if (const char* wrong = read_video_signal(bits)) return wrong;
    if (bits.flag()) {  // timing_info_present_flag
        out.ticks = bits.bits(32);
        out.time_scale = bits.bits(32);
        if (out.ticks == 0 || out.time_scale == 0) return "sps: its timing is 0";
        if (bits.flag()) return "sps: fixed_frame_rate_flag is set";
    }
    if (bits.flag() || bits.flag()) return "sps: it has parameters of a reference decoder";
    if (bits.flag()) return "sps: pic_struct_present_flag is set";
    if (!bits.flag()) return "sps: bitstream_restriction_flag is not set";
    bits.flag();  // motion_vectors_over_pic_boundaries_flag: nothing moves
    const uint32_t picture_denominator = bits.ue(), macroblock_denominator = bits.ue();
    if (picture_denominator > 16 || macroblock_denominator > 16)
        return "sps: a denominator is larger than 16";
    const uint32_t across = bits.ue(), down = bits.ue();
    if (across > 16 || down > 16) return "sps: a length of motion vectors is larger than 16";
    if (bits.ue() != 0) return "sps: max_num_reorder_frames is not 0";
    if (bits.ue() != 1) return "sps: max_dec_frame_buffering is not 1";
    return nullptr;
}

const char* read_coding(BitReader& bits, int& qp) {
    if (bits.ue() != 0) return "pps: pic_parameter_set_id is not 0";
    if (bits.ue() != 0) return "pps: seq_parameter_set_id is not 0";
    if (bits.flag()) return "pps: entropy_coding_mode_flag is set";
    if (bits.flag()) return "pps: bottom_field_pic_order_in_frame_present_flag is set";
    if (bits.ue() != 0) return "pps: it has slice groups";
    if (bits.ue() != 0 || bits.ue() != 0) return "pps: it has more than one reference picture";
    if (bits.flag() || bits.bits(2) != 0) return "pps: it has weighted prediction";
    const int32_t qp_delta = bits.se(), qs_delta = bits.se();
    if (qp_delta < -26 || qp_delta > 25) return "pps: pic_init_qp_minus26 is out of range";
    if (qs_delta < -26 || qs_delta > 25) return "pps: pic_init_qs_minus26 is out of range";
    if (bits.se() != 0) return "pps: chroma_qp_index_offset is not 0";
    if (!bits.flag()) return "pps: deblocking_filter_control_present_flag is not set";
    if (!bits.flag()) return "pps: constrained_intra_pred_flag is not set";
    if (bits.flag()) return "pps: redundant_pic_cnt_present_flag is set";
    qp = 26 + qp_delta;
    return nullptr;
}

}  // namespace

const char* read_sequence_set(BitReader& bits, SequenceInfo& out) {
    out = SequenceInfo{};
    const char* wrong = read_profile(bits, out);
    if (wrong == nullptr) wrong = read_size(bits, out.size);
    if (wrong == nullptr && bits.flag()) wrong = read_usability(bits, out);
    if (bits.failed()) return "sps: it ends too early";
    if (wrong == nullptr && bits.more()) return "sps: there is data behind its end";
    return wrong;
}

const char* read_picture_set(BitReader& bits, int& qp) {
    const char* const wrong = read_coding(bits, qp);
    if (bits.failed()) return "pps: it ends too early";
    if (wrong == nullptr && bits.more()) return "pps: there is data behind its end";
    return wrong;
}

bool read_sequence(const NalUnit& sps, SequenceInfo& out) {
    out = SequenceInfo{};
    if (sps.size < 2 || sps.size > MOST_SET_BYTES || sps.type() != NalType::sps) return false;
    if ((sps.bytes[0] & 0x80) != 0 || reference(sps) == 0) return false;
    std::vector<uint8_t> payload;
    if (!take_payload(sps, payload)) return false;
    BitReader bits(payload.data(), payload.size());
    SequenceInfo found;
    if (read_sequence_set(bits, found) != nullptr) return false;
    out = found;
    return true;
}

}  // namespace sim
