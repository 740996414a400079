#include "video/trim_range.h"

namespace QVMX {

TrimRange trimRange(const MediaTime& firstFrame, const MediaTime& videoDuration, uint32_t startSeconds,
                    std::optional<uint32_t> endSeconds) {
    const MediaTime first = firstFrame.isNumeric() ? firstFrame : MediaTime::zero();
    // Whole seconds on the first frame's own scale keep its exact value.
    const int32_t timescale = first.timescale > 0 ? first.timescale : 1;
    TrimRange range;
    range.start = first + MediaTime::make(int64_t(startSeconds) * timescale, timescale);
    const MediaTime videoEnd = videoDuration.isNumeric() ? first + videoDuration : MediaTime::invalid();
    if (endSeconds) {
        range.end = first + MediaTime::make(int64_t(*endSeconds) * timescale, timescale);
        if (videoEnd.isNumeric() && range.end > videoEnd) range.end = videoEnd;
    } else {
        range.end = videoEnd;
    }
    return range;
}

}  // namespace QVMX
