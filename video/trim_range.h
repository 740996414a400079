#pragma once

#include <cstdint>
#include <optional>

#include "video/media_time.h"

namespace QVMX {

// The part of a movie a re-encode keeps, in the movie's own times: the
// seconds asked for count from its first frame, and the end is never past
// the end of its video.
struct TrimRange {
    MediaTime start = MediaTime::zero();
    MediaTime end = MediaTime::invalid();  // invalid: to the end of the movie

    // No frame lies between a start at or past the end and the end.
    bool holdsNoFrame() const { return end.isNumeric() && !(end > start); }
};

// videoDuration: how long the video runs from its first frame (invalid when
// unknown); endSeconds absent: to the end.
TrimRange trimRange(const MediaTime& firstFrame, const MediaTime& videoDuration, uint32_t startSeconds,
                    std::optional<uint32_t> endSeconds);

}  // namespace QVMX
