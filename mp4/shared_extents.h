#pragma once

#include <cstdint>

// Bytes of one file made to appear in another by sharing the source's blocks
// (a clone of the range) on file systems that can, instead of copying them.
// Nothing is ever written to the source.
namespace MP4 {

// The part of a copy of size bytes from inAt to outAt that can be shared:
// head bytes to copy first, then body bytes to clone. The body starts on a
// block boundary of the destination's file system and is a whole number of
// blocks, or runs to the source's end of file (and past the destination's).
struct ClonePlan {
    uint64_t head = 0;
    uint64_t body = 0;
};

// False when the offsets are not congruent modulo the block size, the body
// would be too small to be worth sharing, the two are one file, or cloning
// between these two file systems has been refused before in this process.
bool planClone(int from, int to, uint64_t inAt, uint64_t outAt, uint64_t size, ClonePlan& plan);

// Clones size bytes at inAt of from to outAt of to, as planClone laid out.
// False when the file system will not: the caller then copies the range
// over whatever the attempt left. The refusal is remembered, so that later
// copies between the same two file systems go straight to copying.
bool cloneRange(int from, int to, uint64_t inAt, uint64_t outAt, uint64_t size);

}  // namespace MP4
