// The avcC record and SPS model against real encoder output.
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "h264/parameter_sets.h"
#include "support/test_files.h"

using namespace H264;

namespace {

const std::vector<std::string> kVectors = {
    "baseline_512x256",  "baseline_64x32", "main_crop",        "high_bframes",
    "high_full_range",   "high_colour_component", "high_sar_hrd", "high_interlaced",
    "high444_cqm",       "high444_lossless", "high10"};

ByteArray vector(const std::string& name) {
    const std::string bytes =
        testsupport::readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/" + name + ".bin");
    return ByteArray(bytes.data(), bytes.size());
}

ByteArray bytesOf(std::initializer_list<uint8_t> b) { return ByteArray(std::data(b), b.size()); }

struct Decoded {
    AVCC record;
    SPS sps;
};

void decode(const ByteArray& payload, Decoded& d) {
    GolombBitStream in;
    in.attach(payload);
    d.record.parse(in);
    d.record.sps_parse(d.sps);
}

// Parse, store the SPS back unchanged, write the record.
ByteArray roundTrip(const ByteArray& payload) {
    Decoded d;
    decode(payload, d);
    d.record.sps_store(d.sps);
    GolombBitStream out;
    d.record.to_s(out);
    ByteArray written;
    out.bytes(written);
    return written;
}

// The record as it comes back: reserved bits of bytes 4 and 5 cleared.
ByteArray withReservedCleared(ByteArray b) {
    b.data[4] &= 0x03;
    b.data[5] &= 0x1F;
    return b;
}

std::string hex(const ByteArray& b) {
    std::string s;
    char two[4];
    for (uint64_t i = 0; i < b.size; ++i) {
        std::snprintf(two, sizeof two, "%02x", b.data[i]);
        s += two;
    }
    return s;
}

}  // namespace

TEST(ParameterSets, EveryEncoderRecordComesBackByteForByte) {
    for (const auto& name : kVectors) {
        SCOPED_TRACE(name);
        const ByteArray original = vector(name);
        ASSERT_GT(original.size, 8u);
        EXPECT_EQ(hex(roundTrip(original)), hex(withReservedCleared(original)));
    }
}

TEST(ParameterSets, DecodedFieldsMatchWhatTheEncoderWasAskedFor) {
    // FFmpeg checks every field of the rewritten SPS (integration tests);
    // these are the ones whose position depends on the branches taken.
    Decoded b;
    decode(vector("baseline_512x256"), b);
    EXPECT_EQ(b.sps.pic_width_in_mbs_minus1, 31u);
    EXPECT_EQ(b.sps.pic_height_in_map_units_minus1, 15u);
    // The 32-bit timing fields hold escaped zero bytes in the NAL unit.
    EXPECT_EQ(b.sps.vui.num_units_in_tick, 1u);
    EXPECT_EQ(b.sps.vui.time_scale, 60u);
    EXPECT_EQ(b.sps.rbsp_stop_one_bit, 1u);
    EXPECT_EQ(b.record.pictureParameterSets.front().length, 5u);

    Decoded crop, hrd, interlaced, cube, deep;
    decode(vector("main_crop"), crop);
    EXPECT_EQ(crop.sps.frame_crop_right_offset, 6u);
    EXPECT_EQ(crop.sps.frame_crop_bottom_offset, 2u);
    decode(vector("high_sar_hrd"), hrd);
    EXPECT_EQ(hrd.sps.vui.sar_height, 5u);
    EXPECT_EQ(hrd.sps.vui.nal_hrd.bit_rate_value_minus1.values.size(), 1u);
    EXPECT_EQ(hrd.sps.vui.pic_struct_present_flag, 1u);
    EXPECT_EQ(hrd.sps.vui.nal_hrd.bit_rate_value_minus1.values.front(), 3124u);
    EXPECT_EQ(hrd.sps.vui.max_dec_frame_buffering, 4u);
    decode(vector("high_interlaced"), interlaced);
    EXPECT_EQ(interlaced.sps.mb_adaptive_frame_field_flag, 1u);
    EXPECT_EQ(interlaced.sps.vui.time_scale, 60u);
    decode(vector("high444_lossless"), cube);
    EXPECT_EQ(cube.sps.highProfile.chroma_format_idc, 3u);
    EXPECT_EQ(cube.sps.highProfile.qpprime_y_zero_transform_bypass_flag, 1u);
    decode(vector("high10"), deep);
    EXPECT_EQ(deep.sps.highProfile.bit_depth_minus8, 2u);
    EXPECT_EQ(deep.record.trailing.size, 4u);  // chroma format and bit depths
}

TEST(ParameterSets, ScalingListsReadAndWriteThroughTheOwnSignedMapping) {
    // A High SPS with a scaling matrix of lists 0 and 1 (the encoder puts
    // its matrices into the PPS, so this one is put together by hand).
    // codes: the code numbers of list 0 and list 1.
    const auto sps = [](const std::vector<std::vector<unsigned>>& codes) {
        GolombBitStream w;
        w.write_bits(0x67, 8);
        w.write_bits(100, 8);
        w.write_bits(0, 8);
        w.write_bits(10, 8);
        for (unsigned ue : {0u, 1u, 0u, 0u}) w.write_golomb(ue);  // id, 4:2:0, depths
        w.write_bits(0b01, 2);  // no bypass, matrix present
        for (int i = 0; i < 8; ++i) {
            w.write_bits(i < 2 ? 1 : 0, 1);
            if (i < 2) {
                for (unsigned c : codes[size_t(i)]) w.write_golomb(c);
            }
        }
        for (unsigned ue : {0u, 2u, 1u}) w.write_golomb(ue);
        w.write_bits(0, 1);
        for (unsigned ue : {3u, 1u}) w.write_golomb(ue);
        w.write_bits(0b11001, 5);  // frame_mbs_only, direct_8x8, no crop, no VUI, stop
        ByteArray out;
        w.bytes(out);
        return out;
    };
    // List 0: code 17 reads as -8, which takes nextScale to 0 and ends the
    // list. List 1: codes 3, 4 read as -1, 2, then fourteen zeros.
    std::vector<unsigned> list1 = {3, 4};
    list1.resize(16, 0);
    // The encoder's record around it.
    const ByteArray record = vector("high_bframes");
    const uint64_t oldLength = uint64_t(record.data[6]) << 8 | record.data[7];
    const ByteArray nal = sps({{17}, list1});
    ByteArray payload(record.data, 6);
    payload.append16be(static_cast<uint16_t>(nal.size));
    payload.append(nal.data, nal.size);
    payload.append(record.data + 8 + oldLength, record.size - 8 - oldLength);

    Decoded d;
    decode(payload, d);
    const auto& matrix = d.sps.highProfile.scalingMatrix;
    EXPECT_EQ(matrix.present.values, std::deque<uint32_t>({1, 1, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(matrix.scalingLists.size(), 8u);
    EXPECT_EQ(matrix.scalingLists[0]->deltas, std::deque<int32_t>({-8}));
    std::deque<int32_t> expected = {-1, 2};
    expected.resize(16, 0);
    EXPECT_EQ(matrix.scalingLists[1]->deltas, expected);
    EXPECT_FALSE(matrix.scalingLists[2]);
    EXPECT_EQ(d.sps.pic_width_in_mbs_minus1, 3u);
    EXPECT_EQ(d.sps.rbsp_stop_one_bit, 1u);

    // Written back, -8 becomes code 15 and -1 code 1; the even codes stay.
    std::vector<unsigned> written1 = {1, 4};
    written1.resize(16, 0);
    d.record.sps_store(d.sps);
    EXPECT_EQ(hex(d.record.sequenceParameterSets.front().bytes), hex(sps({{15}, written1})));
}

TEST(ParameterSets, TheHighProfilePartBelongsToExactlyTheListedProfiles) {
    const std::set<unsigned> listed = {44, 83, 86, 100, 110, 118, 122, 128, 138, 244};
    Decoded original;
    decode(vector("high_bframes"), original);
    for (unsigned profile = 0; profile < 256; ++profile) {
        ByteArray patched = vector("high_bframes");
        patched.data[9] = static_cast<uint8_t>(profile);  // the SPS's profile_idc
        Decoded d;
        GolombBitStream in;
        in.attach(patched);
        d.record.parse(in);
        bool same = false;
        try {
            d.record.sps_parse(d.sps);
            same = d.sps.pic_width_in_mbs_minus1 == original.sps.pic_width_in_mbs_minus1 &&
                   d.sps.vui.time_scale == original.sps.vui.time_scale;
        } catch (const char*) {
        }
        EXPECT_EQ(same, listed.count(profile) == 1) << profile;
    }
}

TEST(ParameterSets, PictureParameterSetsAreCountedWithTheSequenceCount) {
    // Two PPS announced behind one SPS: the second stays in the opaque tail
    // and still comes back in place.
    ByteArray twoPps;
    const ByteArray one = vector("baseline_64x32");
    twoPps.append(one.data, one.size);
    const uint64_t ppsCount = 8 + (uint64_t(one.data[6]) << 8 | one.data[7]);
    twoPps.data[ppsCount] = 2;
    twoPps.append(bytesOf({0x00, 0x03, 0x68, 0xCE, 0x3C}).data, 5);
    Decoded d;
    decode(twoPps, d);
    EXPECT_EQ(d.record.numOfPictureParameterSets, 2u);
    EXPECT_EQ(d.record.pictureParameterSets.sets.size(), 1u);
    EXPECT_EQ(d.record.trailing, bytesOf({0x00, 0x03, 0x68, 0xCE, 0x3C}));
    EXPECT_EQ(hex(roundTrip(twoPps)), hex(withReservedCleared(twoPps)));
}

TEST(ParameterSets, BrokenRecordsAndParameterSetsFailWithTheirReason) {
    const ByteArray good = vector("baseline_64x32");
    const auto failure = [](const ByteArray& payload) -> std::string {
        Decoded d;
        try {
            decode(payload, d);
        } catch (const char* message) {
            return message;
        } catch (const std::out_of_range&) {
            return "out of range";
        }
        return "";
    };
    EXPECT_EQ(failure(good), "");
    EXPECT_EQ(failure(ByteArray(good.data, 5)), "no more data");
    // The SPS cut before its stop bit, its length still true to the bytes.
    ByteArray cut(good.data, 6);
    const uint16_t length = static_cast<uint16_t>(good.data[6] << 8 | good.data[7]);
    cut.append16be(length - 3);
    cut.append(good.data + 8, length - 3);
    cut.append8(0);
    EXPECT_EQ(failure(cut), "no more data");
    // A 64-KiB length with a few bytes behind it.
    ByteArray huge(good.data, 6);
    huge.append16be(0xFFFF);
    huge.append(good.data + 8, good.size - 8);
    EXPECT_EQ(failure(huge), "no more data");
    // No SPS at all.
    ByteArray none(good.data, 6);
    none.data[5] = 0xE0;
    none.append8(0);
    EXPECT_EQ(failure(none), "out of range");
    // ue codes longer than 31 bits where seq_parameter_set_id belongs.
    ByteArray overlong(good.data, 6);
    overlong.append16be(10);
    overlong.append(bytesOf({0x67, 0x42, 0xC0, 0x0A, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xFF}).data, 10);
    overlong.append(bytesOf({0x01, 0x00, 0x01, 0x68}).data, 4);
    EXPECT_EQ(failure(overlong), "too log golomb sream");
}

TEST(EmulationPrevention, EscapesAfterTwoZerosBeforeAnyByteUpToThree) {
    EXPECT_EQ(insertEmulationPrevention(bytesOf({0, 0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4})),
              bytesOf({0, 0, 3, 0, 0, 3, 0, 1, 0, 0, 3, 2, 0, 0, 3, 3, 0, 0, 4}));
    EXPECT_EQ(removeEmulationPrevention(
                  bytesOf({0, 0, 3, 0, 0, 3, 0, 1, 0, 0, 3, 2, 0, 0, 3, 3, 0, 0, 4})),
              bytesOf({0, 0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4}));
    // A 03 that is itself data after an escape stays.
    EXPECT_EQ(removeEmulationPrevention(bytesOf({0, 0, 3, 3, 0, 3})), bytesOf({0, 0, 3, 0, 3}));
}

TEST(ParameterSets, AnSpsThatNoLongerFitsItsLengthFieldIsNotStored) {
    Decoded d;
    decode(vector("baseline_64x32"), d);
    const ByteArray kept = d.record.sequenceParameterSets.front().bytes;
    // 9000 cycle entries of 63 bits each: more than 64 KiB of SPS.
    d.sps.pic_order_cnt_type = 1;
    d.sps.num_ref_frames_in_pic_order_cnt_cycle = 9000;
    d.sps.offset_for_ref_frame.values.assign(9000, 0x7FFFFFFF);
    std::string message;
    try {
        d.record.sps_store(d.sps);
    } catch (const char* m) {
        message = m;
    }
    EXPECT_EQ(message, "parameter set too long");
    EXPECT_EQ(d.record.sequenceParameterSets.front().bytes, kept);
}
