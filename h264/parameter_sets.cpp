#include "h264/parameter_sets.h"

#include <stdexcept>
#include <vector>

namespace H264 {

namespace {

void io(GolombStreamEntity& e, GolombBitStream& s, bool write) {
    if (write) {
        e.to_s(s);
    } else {
        e.parse(s);
    }
}

template <typename T>
T takeFront(std::deque<T>& queue, const char* what) {
    if (queue.empty()) throw std::out_of_range(what);
    T v = std::move(queue.front());
    queue.pop_front();
    return v;
}

}  // namespace

template <int N>
void BitDataVector<N>::to_s(GolombBitStream& s) {
    s.write_bits(takeFront(values, "bit queue is empty"), N);
}

template <int N>
uint32_t BitDataVector<N>::process(GolombBitStream& s, bool write) {
    if (write) {
        if (values.empty()) throw std::out_of_range("bit queue is empty");
        const uint32_t v = values.front();
        to_s(s);
        return v;
    }
    parse(s);
    return values.back();
}

template class BitDataVector<1>;

void GolombDataVector::to_s(GolombBitStream& s) {
    s.write_golomb(takeFront(values, "code queue is empty"));
}

void ScalingList::process_stream(GolombBitStream& s, bool write) {
    int lastScale = 8;
    int nextScale = 8;
    size_t used = 0;
    for (int j = 0; j < size; ++j) {
        if (nextScale != 0) {
            int32_t delta;
            if (write) {
                if (used >= deltas.size()) throw std::out_of_range("scaling list delta missing");
                delta = deltas[used++];
                s.write_golombs(delta);
            } else {
                delta = s.read_golombs();
                deltas.push_back(delta);
            }
            nextScale = ((lastScale + delta + 256) % 256 + 256) % 256;
        }
        if (nextScale != 0) lastScale = nextScale;
    }
}

void ScalingMatrix::clear() {
    lists = 8;
    present.clear();
    scalingLists.clear();
}

void ScalingMatrix::process_stream(GolombBitStream& s, bool write) {
    for (int i = 0; i < lists; ++i) {
        const bool listPresent = present.process(s, write) == 1;
        const int size = i < 6 ? 16 : 64;
        if (write) {
            auto list = takeFront(scalingLists, "scaling list missing");
            if (listPresent) {
                if (!list) throw std::out_of_range("scaling list missing");
                list->size = size;
                list->to_s(s);
            }
        } else {
            std::unique_ptr<ScalingList> list;
            if (listPresent) {
                list = std::make_unique<ScalingList>();
                list->size = size;
                list->parse(s);
            }
            scalingLists.push_back(std::move(list));
        }
    }
}

void HighProfileFields::clear() {
    chroma_format_idc.clear();
    separate_colour_plane_flag.clear();
    bit_depth_minus8.clear();
    qpprime_y_zero_transform_bypass_flag.clear();
    seq_scaling_matrix_present_flag.clear();
    scalingMatrix.clear();
}

void HighProfileFields::process_stream(GolombBitStream& s, bool write) {
    io(chroma_format_idc, s, write);
    if (chroma_format_idc == 3) io(separate_colour_plane_flag, s, write);
    io(bit_depth_minus8, s, write);  // luma
    io(bit_depth_minus8, s, write);  // chroma, into the same field
    io(qpprime_y_zero_transform_bypass_flag, s, write);
    io(seq_scaling_matrix_present_flag, s, write);
    if (seq_scaling_matrix_present_flag == 1) {
        scalingMatrix.lists = chroma_format_idc == 3 ? 12 : 8;
        io(scalingMatrix, s, write);
    }
}

void HRD::clear() {
    cpb_cnt_minus1.clear();
    bit_rate_scale.clear();
    cpb_size_scale.clear();
    bit_rate_value_minus1.clear();
    cpb_size_value_minus1.clear();
    cbr_flag.clear();
    initial_cpb_removal_delay_length_minus1.clear();
    cpb_removal_delay_length_minus1.clear();
    dpb_output_delay_length_minus1.clear();
    time_offset_length.clear();
}

void HRD::process_stream(GolombBitStream& s, bool write) {
    io(cpb_cnt_minus1, s, write);
    io(bit_rate_scale, s, write);
    io(cpb_size_scale, s, write);
    // Every entry reads at least three bits, so a short stream ends the loop.
    for (uint64_t i = 0; i <= cpb_cnt_minus1.value; ++i) {
        io(bit_rate_value_minus1, s, write);
        io(cpb_size_value_minus1, s, write);
        io(cbr_flag, s, write);
    }
    io(initial_cpb_removal_delay_length_minus1, s, write);
    io(cpb_removal_delay_length_minus1, s, write);
    io(dpb_output_delay_length_minus1, s, write);
    io(time_offset_length, s, write);
}

void VUI::clear() {
    for (GolombStreamEntity* e : std::initializer_list<GolombStreamEntity*>{
             &aspect_ratio_info_present_flag, &aspect_ratio_idc, &sar_width, &sar_height,
             &overscan_info_present_flag, &overscan_appropriate_flag,
             &video_signal_type_present_flag, &video_format, &video_full_range_flag,
             &colour_description_present_flag, &colour_primaries, &transfer_characteristics,
             &matrix_coefficients, &chroma_loc_info_present_flag,
             &chroma_sample_loc_type_top_field, &chroma_sample_loc_type_bottom_field,
             &timing_info_present_flag, &num_units_in_tick, &time_scale, &fixed_frame_rate_flag,
             &nal_hrd_parameters_present_flag, &nal_hrd, &vcl_hrd_parameters_present_flag,
             &vcl_hrd, &low_delay_hrd_flag, &pic_struct_present_flag, &bitstream_restriction_flag,
             &motion_vectors_over_pic_boundaries_flag, &max_bytes_per_pic_denom,
             &max_bits_per_mb_denom, &log2_max_mv_length_horizontal,
             &log2_max_mv_length_vertical, &max_num_reorder_frames, &max_dec_frame_buffering}) {
        e->clear();
    }
}

void VUI::process_stream(GolombBitStream& s, bool write) {
    io(aspect_ratio_info_present_flag, s, write);
    if (aspect_ratio_info_present_flag == 1) {
        io(aspect_ratio_idc, s, write);
        if (aspect_ratio_idc == 255) {
            io(sar_width, s, write);
            io(sar_height, s, write);
        }
    }
    io(overscan_info_present_flag, s, write);
    if (overscan_info_present_flag == 1) io(overscan_appropriate_flag, s, write);
    io(video_signal_type_present_flag, s, write);
    if (video_signal_type_present_flag == 1) {
        io(video_format, s, write);
        io(video_full_range_flag, s, write);
        io(colour_description_present_flag, s, write);
        if (colour_description_present_flag == 1) {
            io(colour_primaries, s, write);
            io(transfer_characteristics, s, write);
            io(matrix_coefficients, s, write);
        }
    }
    io(chroma_loc_info_present_flag, s, write);
    if (chroma_loc_info_present_flag == 1) {
        io(chroma_sample_loc_type_top_field, s, write);
        io(chroma_sample_loc_type_bottom_field, s, write);
    }
    io(timing_info_present_flag, s, write);
    if (timing_info_present_flag == 1) {
        io(num_units_in_tick, s, write);
        io(time_scale, s, write);
        io(fixed_frame_rate_flag, s, write);
    }
    io(nal_hrd_parameters_present_flag, s, write);
    if (nal_hrd_parameters_present_flag == 1) io(nal_hrd, s, write);
    io(vcl_hrd_parameters_present_flag, s, write);
    if (vcl_hrd_parameters_present_flag == 1) io(vcl_hrd, s, write);
    if (nal_hrd_parameters_present_flag == 1 || vcl_hrd_parameters_present_flag == 1) {
        io(low_delay_hrd_flag, s, write);
    }
    io(pic_struct_present_flag, s, write);
    io(bitstream_restriction_flag, s, write);
    if (bitstream_restriction_flag == 1) {
        io(motion_vectors_over_pic_boundaries_flag, s, write);
        io(max_bytes_per_pic_denom, s, write);
        io(max_bits_per_mb_denom, s, write);
        io(log2_max_mv_length_horizontal, s, write);
        io(log2_max_mv_length_vertical, s, write);
        io(max_num_reorder_frames, s, write);
        io(max_dec_frame_buffering, s, write);
    }
}

bool SPS::hasHighProfileFields() const {
    switch (profile_idc.value) {
    case 44: case 83: case 86: case 100: case 110: case 118: case 122: case 128: case 138: case 244:
        return true;
    default:
        return false;
    }
}

void SPS::clear() {
    for (GolombStreamEntity* e : std::initializer_list<GolombStreamEntity*>{
             &forbidden_zero_bit, &nal_ref_idc, &nal_unit_type, &profile_idc,
             &constraint_set0_flag, &constraint_set1_flag, &constraint_set2_flag,
             &constraint_set3_flag, &constraint_set4_to_reserved, &level_idc,
             &seq_parameter_set_id, &highProfile, &log2_max_frame_num_minus4,
             &pic_order_cnt_type, &log2_max_pic_order_cnt_lsb_minus4,
             &delta_pic_order_always_zero_flag, &offset_for_non_ref_pic,
             &offset_for_top_to_bottom_field, &num_ref_frames_in_pic_order_cnt_cycle,
             &offset_for_ref_frame, &max_num_ref_frames, &gaps_in_frame_num_value_allowed_flag,
             &pic_width_in_mbs_minus1, &pic_height_in_map_units_minus1, &frame_mbs_only_flag,
             &mb_adaptive_frame_field_flag, &direct_8x8_inference_flag, &frame_cropping_flag,
             &frame_crop_left_offset, &frame_crop_right_offset, &frame_crop_top_offset,
             &frame_crop_bottom_offset, &vui_parameters_present_flag, &vui, &rbsp_stop_one_bit}) {
        e->clear();
    }
}

void SPS::process_stream(GolombBitStream& s, bool write) {
    io(forbidden_zero_bit, s, write);
    io(nal_ref_idc, s, write);
    io(nal_unit_type, s, write);
    io(profile_idc, s, write);
    io(constraint_set0_flag, s, write);
    io(constraint_set1_flag, s, write);
    io(constraint_set2_flag, s, write);
    io(constraint_set3_flag, s, write);
    io(constraint_set4_to_reserved, s, write);
    io(level_idc, s, write);
    io(seq_parameter_set_id, s, write);
    if (hasHighProfileFields()) io(highProfile, s, write);
    io(log2_max_frame_num_minus4, s, write);
    io(pic_order_cnt_type, s, write);
    if (pic_order_cnt_type == 0) {
        io(log2_max_pic_order_cnt_lsb_minus4, s, write);
    } else if (pic_order_cnt_type == 1) {
        io(delta_pic_order_always_zero_flag, s, write);
        io(offset_for_non_ref_pic, s, write);
        io(offset_for_top_to_bottom_field, s, write);
        io(num_ref_frames_in_pic_order_cnt_cycle, s, write);
        // Each entry reads at least one bit, so a short stream ends the loop.
        for (uint64_t i = 0; i < num_ref_frames_in_pic_order_cnt_cycle.value; ++i) {
            io(offset_for_ref_frame, s, write);
        }
    }
    io(max_num_ref_frames, s, write);
    io(gaps_in_frame_num_value_allowed_flag, s, write);
    io(pic_width_in_mbs_minus1, s, write);
    io(pic_height_in_map_units_minus1, s, write);
    io(frame_mbs_only_flag, s, write);
    if (frame_mbs_only_flag == 0) io(mb_adaptive_frame_field_flag, s, write);
    io(direct_8x8_inference_flag, s, write);
    io(frame_cropping_flag, s, write);
    if (frame_cropping_flag == 1) {
        io(frame_crop_left_offset, s, write);
        io(frame_crop_right_offset, s, write);
        io(frame_crop_top_offset, s, write);
        io(frame_crop_bottom_offset, s, write);
    }
    io(vui_parameters_present_flag, s, write);
    if (vui_parameters_present_flag == 1) io(vui, s, write);
    io(rbsp_stop_one_bit, s, write);
}

void ParameterSet::clear() {
    length = 0;
    bytes.clear();
}

void ParameterSet::parse(GolombBitStream& s) {
    length = s.read16n();
    s.read_bytes(length, bytes);
}

void ParameterSet::to_s(GolombBitStream& s) {
    s.write16n(length);
    s.write_bytes(bytes);
}

void ParameterSetVector::parse(GolombBitStream& s) {
    auto set = std::make_unique<ParameterSet>();
    set->parse(s);
    sets.push_back(std::move(set));
}

void ParameterSetVector::to_s(GolombBitStream& s) {
    takeFront(sets, "parameter set queue is empty")->to_s(s);
}

ParameterSet& ParameterSetVector::front() {
    if (sets.empty()) throw std::out_of_range("no sequence parameter set");
    return *sets.front();
}

void AVCC::clear() {
    configurationVersion = AVCProfileIndication = profile_compatibility = AVCLevelIndication = 0;
    lengthSizeMinusOne = numOfSequenceParameterSets = numOfPictureParameterSets = 0;
    sequenceParameterSets.clear();
    pictureParameterSets.clear();
    trailing.clear();
}

void AVCC::process_stream(GolombBitStream& s, bool write) {
    const auto byte = [&s, write](uint8_t& v, uint8_t mask) {
        if (write) {
            s.write8(v);
        } else {
            v = s.read8() & mask;
        }
    };
    if (!write) clear();
    byte(configurationVersion, 0xFF);
    byte(AVCProfileIndication, 0xFF);
    byte(profile_compatibility, 0xFF);
    byte(AVCLevelIndication, 0xFF);
    byte(lengthSizeMinusOne, 0x03);
    byte(numOfSequenceParameterSets, 0x1F);
    for (int i = 0; i < numOfSequenceParameterSets; ++i) io(sequenceParameterSets, s, write);
    byte(numOfPictureParameterSets, 0xFF);
    // Counted with the SPS count: for the usual record of one of each the
    // same, and any further PPS stays in the trailing bytes.
    for (int i = 0; i < numOfSequenceParameterSets; ++i) io(pictureParameterSets, s, write);
    if (write) {
        s.write_bytes(trailing);
    } else {
        s.read_bytes(s.available(), trailing);
    }
}

void AVCC::sps_parse(SPS& sps) {
    GolombBitStream stream;
    stream.attach(removeEmulationPrevention(sequenceParameterSets.front().bytes));
    sps.clear();
    sps.parse(stream);
}

void AVCC::sps_store(SPS& sps) {
    ParameterSet& first = sequenceParameterSets.front();
    GolombBitStream stream;
    sps.to_s(stream);
    ByteArray rbsp;
    stream.bytes(rbsp);
    ByteArray escaped = insertEmulationPrevention(rbsp);
    if (escaped.size > 0xFFFF) throw "parameter set too long";
    first.length = static_cast<uint16_t>(escaped.size);
    first.bytes = std::move(escaped);
}

ByteArray removeEmulationPrevention(const ByteArray& nal) {
    ByteArray out;
    std::vector<uint8_t> kept;
    kept.reserve(static_cast<size_t>(nal.size));
    int zeros = 0;
    for (uint64_t i = 0; i < nal.size; ++i) {
        const uint8_t b = nal.data[i];
        if (zeros >= 2 && b == 0x03) {
            zeros = 0;
            continue;
        }
        zeros = b == 0 ? zeros + 1 : 0;
        kept.push_back(b);
    }
    out.append(kept.data(), kept.size());
    return out;
}

ByteArray insertEmulationPrevention(const ByteArray& rbsp) {
    ByteArray out;
    std::vector<uint8_t> escaped;
    escaped.reserve(static_cast<size_t>(rbsp.size + rbsp.size / 2));
    int zeros = 0;
    for (uint64_t i = 0; i < rbsp.size; ++i) {
        const uint8_t b = rbsp.data[i];
        if (zeros >= 2 && b <= 0x03) {
            escaped.push_back(0x03);
            zeros = 0;
        }
        zeros = b == 0 ? zeros + 1 : 0;
        escaped.push_back(b);
    }
    out.append(escaped.data(), escaped.size());
    return out;
}

}  // namespace H264
