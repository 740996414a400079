#pragma once

// The child boxes of a video sample entry, read from its bytes: where the
// codec configuration ends, and the edit that puts boxes right after it.
#include <cstdint>
#include <vector>

#include "foundation/byte_array.h"
#include "mp4/box.h"

namespace MP4 {

// avc1, avc3, hvc1, hev1: the entries whose children this file format
// knows how to find (78 bytes of fields after the header).
bool isVideoSampleEntry(FourCC type);
inline constexpr uint64_t kVisualEntryFields = 78;
// Entries larger than this are not read into memory.
inline constexpr uint64_t kMaxSampleEntry = uint64_t(4) << 20;

// One box inside a byte block: offsets into the block, header included.
struct ChildSpan {
    FourCC type{};
    uint64_t start = 0;
    uint64_t size = 0;
    uint64_t headerSize = 8;
    uint64_t end() const { return start + size; }
};

// The boxes lying one after another in bytes [from, size); the walk stops at
// a header that is cut off or claims more than is left, and stoppedAt says
// where (size when every byte was a box).
std::vector<ChildSpan> childSpans(const uint8_t* bytes, uint64_t size, uint64_t from, uint64_t& stoppedAt);

// The same over a byte block holding only whole boxes; false when any byte
// is not part of one.
bool wholeBoxes(const ByteArray& bytes, std::vector<ChildSpan>& spans);

// The bytes of a video sample entry with boxes put after its configuration
// box (avcC, hvcC), every child of the same type as one of them taken out.
// A trailing child cut off or running past the entry, when of one of the
// types, counts as one of them. The result is the range of entry bytes
// [from, to) that gives way and what replaces it; false when the entry has
// no configuration box or boxes holds anything but whole boxes.
struct EntryRewrite {
    uint64_t from = 0;
    uint64_t to = 0;
    ByteArray bytes;
};
bool placeAfterConfiguration(const uint8_t* entry, uint64_t size, const ByteArray& boxes, EntryRewrite& out);

}  // namespace MP4
