#pragma once

// The decoder configuration record and its first sequence parameter set as
// a tree of stream entities. Each composite walks its syntax once in
// process_stream: reading into the model (write false) or writing the
// model out (write true), so both directions take the same path.
#include <cstdint>
#include <deque>
#include <memory>

#include "foundation/byte_array.h"
#include "h264/bit_stream.h"

namespace H264 {

class GolombStreamEntity {
public:
    virtual void clear() = 0;
    virtual void parse(GolombBitStream& stream) = 0;
    virtual void to_s(GolombBitStream& stream) = 0;
    virtual ~GolombStreamEntity() = default;
};

template <int N>
class BitData : public GolombStreamEntity {
public:
    void clear() override { value = 0; }
    void parse(GolombBitStream& s) override { value = s.read_bits(N).value; }
    void to_s(GolombBitStream& s) override { s.write_bits(value, N); }
    operator uint32_t() const { return value; }
    BitData& operator=(uint32_t v) {
        value = v;
        return *this;
    }
    uint32_t value = 0;
};

class GolombData : public GolombStreamEntity {
public:
    void clear() override { value = 0; }
    void parse(GolombBitStream& s) override { value = s.read_golomb(); }
    void to_s(GolombBitStream& s) override { s.write_golomb(value); }
    operator uint32_t() const { return value; }
    GolombData& operator=(uint32_t v) {
        value = v;
        return *this;
    }
    uint32_t value = 0;
};

// Queues: parse appends one element at the back; to_s writes the front one
// and removes it, so a model is written once. process returns the element
// just read or about to be written.
template <int N>
class BitDataVector : public GolombStreamEntity {
public:
    void clear() override { values.clear(); }
    void parse(GolombBitStream& s) override { values.push_back(s.read_bits(N).value); }
    void to_s(GolombBitStream& s) override;
    uint32_t process(GolombBitStream& s, bool write);
    std::deque<uint32_t> values;
};

class GolombDataVector : public GolombStreamEntity {
public:
    void clear() override { values.clear(); }
    void parse(GolombBitStream& s) override { values.push_back(s.read_golomb()); }
    void to_s(GolombBitStream& s) override;
    std::deque<uint32_t> values;
};

// delta_scale values of one scaling list of `size` entries.
class ScalingList : public GolombStreamEntity {
public:
    void clear() override { deltas.clear(); }
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);
    int size = 0;
    std::deque<int32_t> deltas;
};

class ScalingMatrix : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);
    int lists = 8;  // 12 for 4:4:4
    BitDataVector<1> present;
    // Absent lists are kept as empty slots.
    std::deque<std::unique_ptr<ScalingList>> scalingLists;
};

class HighProfileFields : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);

    GolombData chroma_format_idc;
    BitData<1> separate_colour_plane_flag;
    // Both bit depths go through this one field: the chroma depth read
    // second overwrites the luma depth, and both are written from it.
    GolombData bit_depth_minus8;
    BitData<1> qpprime_y_zero_transform_bypass_flag;
    BitData<1> seq_scaling_matrix_present_flag;
    ScalingMatrix scalingMatrix;
};

class HRD : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);

    GolombData cpb_cnt_minus1;
    BitData<4> bit_rate_scale;
    BitData<4> cpb_size_scale;
    GolombDataVector bit_rate_value_minus1;
    GolombDataVector cpb_size_value_minus1;
    BitDataVector<1> cbr_flag;
    BitData<5> initial_cpb_removal_delay_length_minus1;
    BitData<5> cpb_removal_delay_length_minus1;
    BitData<5> dpb_output_delay_length_minus1;
    BitData<5> time_offset_length;
};

class VUI : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);

    BitData<1> aspect_ratio_info_present_flag;
    BitData<8> aspect_ratio_idc;
    BitData<16> sar_width;
    BitData<16> sar_height;
    BitData<1> overscan_info_present_flag;
    BitData<1> overscan_appropriate_flag;
    BitData<1> video_signal_type_present_flag;
    BitData<3> video_format;
    BitData<1> video_full_range_flag;
    BitData<1> colour_description_present_flag;
    BitData<8> colour_primaries;
    BitData<8> transfer_characteristics;
    BitData<8> matrix_coefficients;
    BitData<1> chroma_loc_info_present_flag;
    GolombData chroma_sample_loc_type_top_field;
    GolombData chroma_sample_loc_type_bottom_field;
    BitData<1> timing_info_present_flag;
    BitData<32> num_units_in_tick;
    BitData<32> time_scale;
    BitData<1> fixed_frame_rate_flag;
    BitData<1> nal_hrd_parameters_present_flag;
    HRD nal_hrd;
    BitData<1> vcl_hrd_parameters_present_flag;
    HRD vcl_hrd;
    BitData<1> low_delay_hrd_flag;
    BitData<1> pic_struct_present_flag;
    BitData<1> bitstream_restriction_flag;
    BitData<1> motion_vectors_over_pic_boundaries_flag;
    GolombData max_bytes_per_pic_denom;
    GolombData max_bits_per_mb_denom;
    GolombData log2_max_mv_length_horizontal;
    GolombData log2_max_mv_length_vertical;
    GolombData max_num_reorder_frames;
    GolombData max_dec_frame_buffering;
};

// The SPS NAL unit, header included, up to its stop bit.
class SPS : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);
    bool hasHighProfileFields() const;

    BitData<1> forbidden_zero_bit;
    BitData<2> nal_ref_idc;
    BitData<5> nal_unit_type;
    BitData<8> profile_idc;
    BitData<1> constraint_set0_flag;
    BitData<1> constraint_set1_flag;
    BitData<1> constraint_set2_flag;
    BitData<1> constraint_set3_flag;
    // constraint_set4_flag, constraint_set5_flag and reserved_zero_2bits.
    BitData<4> constraint_set4_to_reserved;
    BitData<8> level_idc;
    GolombData seq_parameter_set_id;
    HighProfileFields highProfile;
    GolombData log2_max_frame_num_minus4;
    GolombData pic_order_cnt_type;
    GolombData log2_max_pic_order_cnt_lsb_minus4;
    BitData<1> delta_pic_order_always_zero_flag;
    // The three signed fields keep their code numbers: read and written as
    // unsigned codes.
    GolombData offset_for_non_ref_pic;
    GolombData offset_for_top_to_bottom_field;
    GolombData num_ref_frames_in_pic_order_cnt_cycle;
    GolombDataVector offset_for_ref_frame;
    GolombData max_num_ref_frames;
    BitData<1> gaps_in_frame_num_value_allowed_flag;
    GolombData pic_width_in_mbs_minus1;
    GolombData pic_height_in_map_units_minus1;
    BitData<1> frame_mbs_only_flag;
    BitData<1> mb_adaptive_frame_field_flag;
    BitData<1> direct_8x8_inference_flag;
    BitData<1> frame_cropping_flag;
    GolombData frame_crop_left_offset;
    GolombData frame_crop_right_offset;
    GolombData frame_crop_top_offset;
    GolombData frame_crop_bottom_offset;
    BitData<1> vui_parameters_present_flag;
    VUI vui;
    BitData<1> rbsp_stop_one_bit;
};

class ParameterSet : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override;
    void to_s(GolombBitStream& s) override;
    uint16_t length = 0;  // as read; whoever changes bytes sets it
    ByteArray bytes;
};

class ParameterSetVector : public GolombStreamEntity {
public:
    void clear() override { sets.clear(); }
    void parse(GolombBitStream& s) override;
    void to_s(GolombBitStream& s) override;
    ParameterSet& front();
    std::deque<std::unique_ptr<ParameterSet>> sets;
};

// The AVCDecoderConfigurationRecord. Reserved bits are written back as
// zeros; the PPS entries are counted with the SPS count; whatever follows
// them is kept opaque.
class AVCC : public GolombStreamEntity {
public:
    void clear() override;
    void parse(GolombBitStream& s) override { process_stream(s, false); }
    void to_s(GolombBitStream& s) override { process_stream(s, true); }
    void process_stream(GolombBitStream& s, bool write);

    // Decodes the first SPS, emulation-prevention bytes removed.
    void sps_parse(SPS& sps);
    // Writes the SPS back as the first entry, escaped, with its length.
    void sps_store(SPS& sps);

    uint8_t configurationVersion = 0;
    uint8_t AVCProfileIndication = 0;
    uint8_t profile_compatibility = 0;
    uint8_t AVCLevelIndication = 0;
    uint8_t lengthSizeMinusOne = 0;
    uint8_t numOfSequenceParameterSets = 0;
    ParameterSetVector sequenceParameterSets;
    uint8_t numOfPictureParameterSets = 0;
    ParameterSetVector pictureParameterSets;
    ByteArray trailing;
};

// A NAL unit's payload without its emulation-prevention bytes, and back.
ByteArray removeEmulationPrevention(const ByteArray& nal);
ByteArray insertEmulationPrevention(const ByteArray& rbsp);

}  // namespace H264
