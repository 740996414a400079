#pragma once

// The small boxes inside a movie fragment (moof), read from the bytes of its
// payload: its track fragments, their headers and runs. Both the check that
// a fragment's samples lie in the file and the commit that moves absolute
// base offsets read them here.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "mp4/box.h"

namespace MP4 {

// Track-fragment header flags.
constexpr uint32_t kBaseDataOffsetPresent = 0x000001;
constexpr uint32_t kSampleDescriptionIndexPresent = 0x000002;
constexpr uint32_t kDefaultSampleDurationPresent = 0x000008;
constexpr uint32_t kDefaultSampleSizePresent = 0x000010;
constexpr uint32_t kDefaultBaseIsMoof = 0x020000;
// Track-run flags.
constexpr uint32_t kDataOffsetPresent = 0x000001;
constexpr uint32_t kFirstSampleFlagsPresent = 0x000004;
constexpr uint32_t kSampleDurationPresent = 0x000100;
constexpr uint32_t kSampleSizePresent = 0x000200;
constexpr uint32_t kSampleFlagsPresent = 0x000400;
constexpr uint32_t kSampleCompositionPresent = 0x000800;

// One box among a payload's bytes: its type, where its own payload starts
// and how long it is (32-bit sizes only, as fragments are written).
struct PayloadChild {
    FourCC type;
    size_t at;
    size_t size;
};

// The boxes that fill bytes [from, from + size) of payload; false when they
// do not add up.
bool payloadChildren(const std::vector<uint8_t>& payload, size_t from, size_t size, std::vector<PayloadChild>& out);

// Where, in a moof's payload, each track-fragment header that names an
// absolute base data offset keeps it (eight bytes, big-endian); false when
// the fragment does not add up.
bool explicitBaseOffsets(const std::vector<uint8_t>& moofPayload, std::vector<size_t>& out);

}  // namespace MP4
