// The AXIS payload: building, trimming (version 1 converted first), and payloads
// whose counts do not match their length.
#include <gtest/gtest.h>

#include "foundation/notices.h"
#include "meta/axis_tilt_stream.h"
#include "tools/builders/camera_builders.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;

namespace {

Bytes take(unsigned char* data, unsigned long size) {
    const Bytes out(reinterpret_cast<const char*>(data), size);
    delete[] data;
    return out;
}

Bytes binary(const AxisTiltStream& s) {
    unsigned long size = 12345;
    unsigned char* data = s.toBinary(size);
    if (data == nullptr) {
        EXPECT_EQ(size, 0u);
        return "(null)";
    }
    return take(data, size);
}

// trim on an exact new[] copy: its result and the payload afterwards, of
// sizeAfter bytes (a version-1 payload is replaced by its version-2 form).
struct Trimmed {
    unsigned long result;
    Bytes payload;
};
Trimmed trimmed(const Bytes& in, unsigned start, unsigned count, size_t sizeAfter = 0) {
    unsigned char* data = new unsigned char[in.size()];
    std::copy(in.begin(), in.end(), data);
    const unsigned long result = AxisTiltStream::trim(data, in.size(), start, count);
    return {result, take(data, sizeAfter != 0 ? sizeAfter : in.size())};
}

std::vector<AxisRecord> records(int n) {
    std::vector<AxisRecord> out;
    for (int i = 0; i < n; ++i) out.push_back({i, -i, 10 * i, uint32_t(1000 + i)});
    return out;
}

TEST(AxisToBinary, DegreesTruncatedTowardZeroAndTheCompassIndexChecked) {
    EXPECT_EQ(binary(AxisTiltStream{}), "(null)");
    AxisTiltStream s;
    s.tiltFlag = true;
    s.compassIndex = 1;
    // -0.5 rad = -28.65 deg, 1 rad = 57.30, pi/2 = 90.00 (just), -3 rad = -171.89
    s.frames = {{0.1f, 0.2f, 0.3f, 0, 77}, {-0.5f, 1.0f, 3.1415927f / 2, 0, 88}, {-3.0f, 0, -0.01f, 0, 99}};
    EXPECT_EQ(binary(s), axisPayloadV2({true, 1, {{5, 11, 17, 77}, {-28, 57, 90, 88}, {-171, 0, 0, 99}}}));
    s.compassIndex = 3;
    unsigned long size = 0;
    EXPECT_THROW(s.toBinary(size), std::out_of_range);
}

TEST(AxisTrim, MovesTheKeptRecordsToTheFrontAfterConvertingVersionOne) {
    const Bytes in = axisPayloadV2({false, 0, records(5)});
    const Trimmed t = trimmed(in, 2, 3);
    EXPECT_EQ(t.result, 80u);
    // The count set, the header's compass untouched, records 2..4 at the front.
    EXPECT_EQ(t.payload.substr(0, 80), in.substr(0, 4) + be32(3) + in.substr(8, 24) + in.substr(64));

    const Trimmed v1 = trimmed(axisPayloadV1({false, 1, records(4)}), 1, 2, 32 + 4 * 16);
    // Converted first: version 2, three words and a zero stamp per record.
    EXPECT_EQ(v1.result, 64u);
    EXPECT_EQ(v1.payload.substr(0, 12), be16(2) + be16(0) + be32(2) + be32(1));
    EXPECT_EQ(v1.payload.substr(32, 16), be32(1) + be32(uint32_t(-1)) + be32(10) + be32(0));
}

// Nothing to keep, too short, counts naming more (or fewer) records than the
// payload holds, and version 1 with flag 1 (not recognised, so it fails the
// version-2 length).
TEST(AxisTrim, NothingToKeepAndLyingCountsReturnZero) {
    const Bytes in = axisPayloadV2({false, -1, records(5)});
    QVMX::Notices::Capture notices;
    const std::tuple<Bytes, unsigned, unsigned> cases[] = {
        {in, 5, 3}, {in, 0, 0}, {in.substr(0, 31), 0, 1},
        {axisPayloadV2({false, -1, records(5), 0xFFFFFFFF}), 0, 1}, {axisPayloadV2({false, -1, records(5), 4}), 0, 1},
        {axisPayloadV1({true, -1, records(5)}), 0, 1}, {axisPayloadV1({false, -1, records(5), 9}), 0, 1}};
    for (const auto& [payload, start, count] : cases) EXPECT_EQ(trimmed(payload, start, count).result, 0u);
    EXPECT_EQ(notices.text(),
              L"Not enough length. required 68719476752.\n"
              L"Not enough length. required 96.\n"
              L"Not enough length. required 112.\n"
              L"Not enough length for V1. required 124.\n");

    // Nothing to keep is no failure; a wrong length is, naming the payload.
    unsigned char* copy = new unsigned char[in.size()];
    std::copy(in.begin(), in.end(), copy);
    const QVMX::Result<unsigned long> none = AxisTiltStream::trimRecords(copy, in.size(), 5, 3);
    EXPECT_TRUE(none && *none == 0u);
    const QVMX::Result<unsigned long> wrong = AxisTiltStream::trimRecords(copy, in.size() - 1, 0, 1);
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.failure().text(), L"AXIS: Not enough length. required 112.");
    delete[] copy;
}

}  // namespace
