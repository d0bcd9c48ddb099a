// Parameter sets, element by element.
#include "sdk/video/h264_sets_writer.h"

#include <iterator>

namespace sim {

namespace {

constexpr uint32_t BASELINE = 66;
constexpr uint32_t CONSTRAINED = 0xC0;  // constraint_set0_flag, constraint_set1_flag

struct Level {
    uint8_t idc;
    uint32_t macroblocks_a_second;
    uint32_t macroblocks;  // of a picture
};
constexpr Level LEVELS[] = {{10, 1485, 99},      {11, 3000, 396},     {12, 6000, 396},
                            {13, 11880, 396},    {21, 19800, 792},    {22, 20250, 1620},
                            {30, 40500, 1620},   {31, 108000, 3600},  {32, 216000, 5120},
                            {40, 245760, 8192},  {42, 522240, 8704},  {50, 589824, 22080},
                            {51, 983040, 36864}, {52, 2073600, 36864}};

// aspect_ratio_idc (table E-1): all sizes but that of 1280 x 720 fill a 4:3 screen when they are
// 704 samples wide, or 352, or 176.
constexpr uint32_t SQUARE = 1, PAL = 2, NTSC = 3, PAL_HALF_WIDTH = 6, NTSC_HALF_WIDTH = 7;

uint32_t sample_shape(PictureSize size) {
    if (size.width > 704) return SQUARE;
    const bool pal = size.height % 144 == 0;
    const bool half_width = size.width == 352 && size.height >= 480;
    if (half_width) return pal ? PAL_HALF_WIDTH : NTSC_HALF_WIDTH;
    return pal ? PAL : NTSC;
}

void write_usability(PictureSize size, uint32_t rate, BitWriter& out) {
    constexpr uint32_t UNSPECIFIED_FORMAT = 5;
    constexpr uint32_t BT601_625 = 5, BT601_525 = 6;
    const bool lines_625 = size.height % 144 == 0 && size.width <= 704;
    const uint32_t colours = lines_625 ? BT601_625 : BT601_525;
    out.flag(true);  // aspect_ratio_info_present_flag
    out.bits(sample_shape(size), 8);
    out.flag(false);  // overscan_info_present_flag
    out.flag(true);   // video_signal_type_present_flag
    out.bits(UNSPECIFIED_FORMAT, 3);
    out.flag(false);  // video_full_range_flag
    out.flag(true);   // colour_description_present_flag
    out.bits(colours, 8);
    out.bits(BT601_525, 8);  // the transfer of both
    out.bits(colours, 8);
    out.flag(false);  // chroma_loc_info_present_flag
    out.flag(true);   // timing_info_present_flag
    out.bits(1, 32);  // num_units_in_tick
    out.bits(2 * rate, 32);
    out.flag(false);  // fixed_frame_rate_flag: frames may be lost
    out.bits(0, 2);   // no parameters of a reference decoder
    out.flag(false);  // pic_struct_present_flag
    out.flag(true);   // bitstream_restriction_flag
    out.flag(false);  // motion_vectors_over_pic_boundaries_flag
    out.ue(0);        // max_bytes_per_pic_denom: no limit
    out.ue(0);        // max_bits_per_mb_denom: no limit
    out.ue(0);        // log2_max_mv_length_horizontal
    out.ue(0);        // log2_max_mv_length_vertical
    out.ue(0);        // max_num_reorder_frames
    out.ue(1);        // max_dec_frame_buffering
}

}  // namespace

uint8_t level_for(PictureSize size, uint32_t rate) {
    const auto picture = static_cast<uint32_t>(macroblocks(size.width) * macroblocks(size.height));
    for (const Level& level : LEVELS)
        if (picture <= level.macroblocks && uint64_t{picture} * rate <= level.macroblocks_a_second)
            return level.idc;
    return std::end(LEVELS)[-1].idc;
}

void write_sequence_set(PictureSize size, uint32_t rate, BitWriter& out) {
    const int columns = macroblocks(size.width), rows = macroblocks(size.height);
    out.bits(BASELINE, 8);
    out.bits(CONSTRAINED, 8);
    out.bits(level_for(size, rate), 8);
    out.ue(0);        // seq_parameter_set_id
    out.ue(4);        // log2_max_frame_num_minus4
    out.ue(2);        // pic_order_cnt_type: in the order of decoding
    out.ue(1);        // max_num_ref_frames
    out.flag(false);  // gaps_in_frame_num_value_allowed_flag
    out.ue(static_cast<uint32_t>(columns - 1));
    out.ue(static_cast<uint32_t>(rows - 1));
    out.flag(true);  // frame_mbs_only_flag
    out.flag(true);  // direct_8x8_inference_flag
    const auto right = static_cast<uint32_t>(columns * MACROBLOCK - size.width) / 2;
    const auto bottom = static_cast<uint32_t>(rows * MACROBLOCK - size.height) / 2;
    out.flag(right > 0 || bottom > 0);  // frame_cropping_flag
    if (right > 0 || bottom > 0)
        for (const uint32_t edge : {uint32_t{0}, right, uint32_t{0}, bottom}) out.ue(edge);
    out.flag(true);  // vui_parameters_present_flag
    write_usability(size, rate, out);
    out.stop();
}

void write_picture_set(BitWriter& out) {
    out.ue(0);        // pic_parameter_set_id
    out.ue(0);        // seq_parameter_set_id
    out.flag(false);  // entropy_coding_mode_flag: CAVLC
    out.flag(false);  // bottom_field_pic_order_in_frame_present_flag
    out.ue(0);        // num_slice_groups_minus1
    out.ue(0);        // num_ref_idx_l0_default_active_minus1
    out.ue(0);        // num_ref_idx_l1_default_active_minus1
    out.bits(0, 3);   // weighted_pred_flag, weighted_bipred_idc
    out.se(0);        // pic_init_qp_minus26
    out.se(0);        // pic_init_qs_minus26
    out.se(0);        // chroma_qp_index_offset
    out.flag(true);   // deblocking_filter_control_present_flag
    out.flag(true);   // constrained_intra_pred_flag
    out.flag(false);  // redundant_pic_cnt_present_flag
    out.stop();
}

}  // namespace sim
