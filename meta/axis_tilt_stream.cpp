#include "meta/axis_tilt_stream.h"

#include <algorithm>
#include <cstring>

#include "foundation/notices.h"
#include "foundation/wide_format.h"
#include "meta/byte_order.h"
#include "meta/truncate.h"

namespace {

constexpr float kPi = 3.1415927f;

int32_t degrees(float radians) { return meta::truncateToInt32(radians * 180.0f / kPi); }

void putBE32(uint8_t* p, uint32_t v) { meta::store32(p, v, true); }

QVMX::Failure wrongLength(const wchar_t* format, uint64_t expected) {
    return {L"AXIS", QVMX::format(format, long(expected))};
}

}  // namespace

void AxisTiltStream::AXIS_HEADER_V2::init(bool flag, unsigned long count, int index, const AxisCompass& compass) {
    std::memset(bytes, 0, sizeof bytes);
    meta::store16(bytes, 2, true);
    meta::store16(bytes + 2, flag ? 1 : 0, true);
    putBE32(bytes + 4, uint32_t(count));
    putBE32(bytes + 8, uint32_t(index));
    if (index < 0) return;
    putBE32(bytes + 12, uint32_t(degrees(compass.a0)));
    putBE32(bytes + 16, uint32_t(degrees(compass.a1)));
    putBE32(bytes + 20, uint32_t(degrees(compass.a2)));
    putBE32(bytes + 24, compass.stamp);
}

unsigned char* AxisTiltStream::toBinary(unsigned long& size) const {
    if (frames.empty()) {
        size = 0;
        return nullptr;
    }
    // An index past the frames is the caller's error and throws here.
    const AxisCompass compass = compassIndex >= 0 ? frames.at(size_t(compassIndex)) : AxisCompass{};
    AXIS_HEADER_V2 header;
    header.init(tiltFlag, frames.size(), compassIndex, compass);

    size = AXIS_HEADER_V2::kSize + kRecordV2 * frames.size();
    unsigned char* out = new unsigned char[size];
    std::memcpy(out, header.bytes, AXIS_HEADER_V2::kSize);
    unsigned char* record = out + AXIS_HEADER_V2::kSize;
    for (const AxisCompass& f : frames) {
        putBE32(record, uint32_t(degrees(f.a0)));
        putBE32(record + 4, uint32_t(degrees(f.a1)));
        putBE32(record + 8, uint32_t(degrees(f.a2)));
        putBE32(record + 12, f.stamp);
        record += kRecordV2;
    }
    return out;
}

QVMX::Result<unsigned char*> AxisTiltStream::convert(const unsigned char* payload, unsigned long& size) {
    const uint64_t count = payload != nullptr && size >= 8 ? meta::load32(payload + 4, true) : 0;
    const uint64_t expected = kHeaderV1 + kRecordV1 * count;
    if (payload == nullptr || size != expected) {
        return wrongLength(L"Not enough length for V1. required %ld.", expected);
    }
    const unsigned long newSize = AXIS_HEADER_V2::kSize + kRecordV2 * count;
    unsigned char* out = new unsigned char[newSize]();
    meta::store16(out, 2, true);
    std::memcpy(out + 2, payload + 2, 10);  // flag, count, index: already big-endian
    for (uint64_t i = 0; i < count; ++i) {
        std::memcpy(out + AXIS_HEADER_V2::kSize + i * kRecordV2, payload + kHeaderV1 + i * kRecordV1, kRecordV1);
    }
    size = newSize;
    return out;
}

unsigned long AxisTiltStream::trim(unsigned char*& data, unsigned long size, unsigned int start, unsigned int count) {
    const QVMX::Result<unsigned long> length = trimRecords(data, size, start, count);
    if (length) return *length;
    QVMX::Notices::postLine(length.failure().cause + L"\n");
    return 0;
}

QVMX::Result<unsigned long> AxisTiltStream::trimRecords(unsigned char*& data, unsigned long size, unsigned int start,
                                                        unsigned int count) {
    if (data == nullptr || size < AXIS_HEADER_V2::kSize) return 0ul;
    static constexpr uint8_t kVersion1Flag0[4] = {0, 1, 0, 0};
    if (std::memcmp(data, kVersion1Flag0, 4) == 0) {
        const QVMX::Result<unsigned char*> converted = convert(data, size);
        if (!converted) return converted.failure();
        delete[] data;
        data = *converted;
    }
    const uint32_t n = meta::load32(data + 4, true);
    const uint64_t expected = AXIS_HEADER_V2::kSize + uint64_t(kRecordV2) * n;
    if (size != expected) return wrongLength(L"Not enough length. required %ld.", expected);
    const uint32_t kept = std::min<uint32_t>(n - start, count);
    if (n < start || kept == 0) return 0ul;
    putBE32(data + 4, kept);
    if (start != 0) {
        std::memmove(data + AXIS_HEADER_V2::kSize, data + AXIS_HEADER_V2::kSize + uint64_t(start) * kRecordV2,
                     uint64_t(kept) * kRecordV2);
    }
    // From the requested count, not from kept: the caller never asks for more
    // than the payload holds.
    return AXIS_HEADER_V2::kSize + uint64_t(kRecordV2) * count;
}
