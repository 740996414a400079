// The avcC record and SPS model against real encoder output.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "h264/parameter_sets.h"
#include "support/test_files.h"

using namespace H264;

namespace {

ByteArray vector(const std::string& name) {
    const std::string b =
        testsupport::readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/" + name + ".bin");
    return ByteArray(b.data(), b.size());
}

ByteArray bytesOf(std::initializer_list<uint8_t> b) { return ByteArray(std::data(b), b.size()); }

struct Decoded {
    AVCC record;
    SPS sps;
    explicit Decoded(const ByteArray& payload) {
        GolombBitStream in;
        in.attach(payload);
        record.parse(in);
        record.sps_parse(sps);
    }
    // The SPS stored back and the record written (which empties its queues).
    ByteArray written() {
        record.sps_store(sps);
        GolombBitStream out;
        record.to_s(out);
        ByteArray b;
        out.bytes(b);
        return b;
    }
};

// The reason fn failed with, or "" when it did not.
std::string failure(const std::function<void()>& fn) {
    try {
        fn();
    } catch (const char* m) {
        return m;
    } catch (const std::out_of_range&) {
        return "out of range";
    }
    return "";
}

}  // namespace

TEST(ParameterSets, EveryEncoderRecordComesBackByteForByte) {
    std::vector<std::pair<std::string, ByteArray>> records;
    for (const char* name : {"baseline_512x256", "baseline_64x32", "main_crop", "high_bframes",
                             "high_full_range", "high_colour_component", "high_sar_hrd", "high_interlaced",
                             "high444_cqm", "high444_lossless", "high10"}) {
        records.emplace_back(name, vector(name));
    }
    // Two PPS announced behind one SPS: the second stays in the opaque tail.
    ByteArray twoPps = vector("baseline_64x32");
    twoPps.data[8 + (twoPps.data[6] << 8 | twoPps.data[7])] = 2;
    twoPps.append(bytesOf({0x00, 0x03, 0x68, 0xCE, 0x3C}).data, 5);
    records.emplace_back("two PPS", twoPps);
    for (auto& [name, original] : records) {
        SCOPED_TRACE(name);
        ASSERT_GT(original.size, 8u);
        Decoded d(original);
        ByteArray expected = original;  // reserved bits of bytes 4 and 5 come back cleared
        expected.data[4] &= 0x03;
        expected.data[5] &= 0x1F;
        EXPECT_EQ(d.written(), expected);
    }
    EXPECT_EQ(Decoded(twoPps).record.trailing, bytesOf({0x00, 0x03, 0x68, 0xCE, 0x3C}));
}

TEST(ParameterSets, ScalingListsReadAndWriteThroughTheOwnSignedMapping) {
    // A High SPS whose matrix holds lists 0 and 1, given as code numbers (the
    // encoder puts its matrices into the PPS, so this one is made by hand).
    const auto stream = [](const std::vector<unsigned>& list0, const std::vector<unsigned>& list1) {
        GolombBitStream w;
        w.write_bits(0x6764000A, 32);
        w.write_bits(0b1010110'11, 9);  // id 0, 4:2:0, depths 0, no bypass, matrix and list 0 present
        for (unsigned c : list0) w.write_golomb(c);
        w.write_bits(1, 1);
        for (unsigned c : list1) w.write_golomb(c);
        // Six lists absent; frame_num and poc type 2, one reference, no gaps,
        // 4x2 macroblocks, frame_mbs_only, direct_8x8, no crop, no VUI, stop.
        w.write_bits(0b000000'1'011'010'0'00100'010'11001, 27);
        ByteArray out;
        w.bytes(out);
        return out;
    };
    // Signed codes are not inverse for odd code numbers. List 0: code 17
    // reads as -8, which takes nextScale to 0 and ends the list. List 1:
    // codes 3, 4 read as -1, 2, then fourteen zeros.
    std::vector<unsigned> list1 = {3, 4};
    list1.resize(16, 0);
    const ByteArray nal = stream({17}, list1);
    ByteArray payload = bytesOf({1, 100, 0, 10, 0xFF, 0xE1});
    payload.append16be(uint16_t(nal.size));
    payload.append(nal.data, nal.size);
    payload.append(bytesOf({1, 0, 0}).data, 3);  // one empty PPS
    Decoded d(payload);
    const auto& matrix = d.sps.highProfile.scalingMatrix;
    ASSERT_EQ(matrix.scalingLists.size(), 8u);
    EXPECT_EQ(matrix.scalingLists[0]->deltas, std::deque<int32_t>({-8}));
    std::deque<int32_t> expected = {-1, 2};
    expected.resize(16, 0);
    EXPECT_EQ(matrix.scalingLists[1]->deltas, expected);
    EXPECT_FALSE(matrix.scalingLists[2]);
    // Written back, -8 becomes code 15 and -1 code 1; the even codes stay.
    list1[0] = 1;
    d.record.sps_store(d.sps);
    EXPECT_EQ(d.record.sequenceParameterSets.front().bytes, stream({15}, list1));
}

TEST(ParameterSets, TheHighProfilePartBelongsToTheListedProfilesOnly) {
    // The vectors cover 66, 77, 100, 110 and 244; these are the rest of the
    // list's edges and their neighbours. Read without the part, the fields
    // after it come out wrong.
    const Decoded original(vector("high_bframes"));
    for (const auto& [profile, listed] : {std::pair{44, true}, {83, true}, {138, true}, {43, false}, {139, false}}) {
        ByteArray patched = vector("high_bframes");
        patched.data[9] = uint8_t(profile);  // the SPS's profile_idc
        const bool same = failure([&] {
            if (Decoded(patched).sps.pic_width_in_mbs_minus1 != original.sps.pic_width_in_mbs_minus1) throw "differs";
        }).empty();
        EXPECT_EQ(same, listed) << profile;
    }
}

TEST(ParameterSets, BrokenRecordsFailWithTheirReason) {
    const ByteArray good = vector("baseline_64x32");
    const uint16_t length = uint16_t(good.data[6] << 8 | good.data[7]);
    ByteArray cut(good.data, 6), huge(good.data, 6), none(good.data, 6), overlong(good.data, 6);
    cut.append16be(length - 3);  // the SPS cut before its stop bit, its length true to the bytes
    cut.append(good.data + 8, length - 3);
    cut.append8(0);
    huge.append16be(0xFFFF);  // a 64-KiB length with a few bytes behind it
    huge.append(good.data + 8, good.size - 8);
    none.data[5] = 0xE0;  // no SPS at all
    none.append8(0);
    overlong.append16be(10);  // a ue code longer than 31 bits as seq_parameter_set_id
    overlong.append(
        bytesOf({0x67, 0x42, 0xC0, 0x0A, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x01, 0x68}).data,
        14);
    const std::pair<ByteArray, std::string> cases[] = {{good, ""},
                                                       {ByteArray(good.data, 5), "no more data"},
                                                       {cut, "no more data"},
                                                       {huge, "no more data"},
                                                       {none, "out of range"},
                                                       {overlong, "too log golomb sream"}};
    for (const auto& [payload, reason] : cases) EXPECT_EQ(failure([&] { Decoded d(payload); }), reason);
}

TEST(ParameterSets, AnSpsThatNoLongerFitsItsLengthFieldIsNotStored) {
    Decoded d(vector("baseline_64x32"));
    const ByteArray kept = d.record.sequenceParameterSets.front().bytes;
    // 9000 cycle entries of 63 bits each: more than 64 KiB of SPS.
    d.sps.pic_order_cnt_type = 1;
    d.sps.num_ref_frames_in_pic_order_cnt_cycle = 9000;
    d.sps.offset_for_ref_frame.values.assign(9000, 0x7FFFFFFF);
    EXPECT_EQ(failure([&] { d.record.sps_store(d.sps); }), "parameter set too long");
    EXPECT_EQ(d.record.sequenceParameterSets.front().bytes, kept);
}

TEST(EmulationPrevention, EscapesAfterTwoZerosBeforeAnyByteUpToThree) {
    const ByteArray raw = bytesOf({0, 0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4});
    const ByteArray escaped = bytesOf({0, 0, 3, 0, 0, 3, 0, 1, 0, 0, 3, 2, 0, 0, 3, 3, 0, 0, 4});
    EXPECT_EQ(insertEmulationPrevention(raw), escaped);
    EXPECT_EQ(removeEmulationPrevention(escaped), raw);
    // A 03 that is itself data after an escape stays.
    EXPECT_EQ(removeEmulationPrevention(bytesOf({0, 0, 3, 3, 0, 3})), bytesOf({0, 0, 3, 0, 3}));
}
