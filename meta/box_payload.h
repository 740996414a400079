#pragma once

#include <cstdint>
#include <string>

namespace MP4 {
class BOX;
class Container;
class TKHD;
}  // namespace MP4

// How much of the camera's small boxes is read at most: a model text longer
// than this names no camera, and the maker record is a few kilobytes.
inline constexpr uint64_t kMaxModelText = 2048;
inline constexpr uint64_t kMaxMakerBlock = uint64_t(16) << 20;
// Sample descriptions are read whole only this far (they are small).
inline constexpr uint64_t kMaxSampleDescriptions = uint64_t(1) << 20;

// The payload of box (the bytes after its header) as far as the file really
// holds them, and at most limit bytes; a size field that claims more than the
// file has never decides how much is allocated.
std::string readBoxPayload(MP4::Container& container, const MP4::BOX& box, uint64_t limit = ~uint64_t(0));

// The text of a payload up to its first NUL.
std::string textOf(const std::string& payload);

// The track header of the movie's video track, or null.
const MP4::TKHD* videoTrackHeader(MP4::Container& container);
