// The samples of a movie fragment's runs and the frame rate made of them,
// on arbitrary bytes: the first byte is the track asked for, the rest the
// payload of a moof box (also read as an mvex payload for the track's
// default duration). Besides not crashing: the sums stay within the fields
// the media libraries keep them in, and the rate is a number.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "mp4/frame_rate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint32_t track = data[0];
    const uint8_t* moof = data + 1;
    const size_t length = size - 1;
    const uint32_t defaultDuration = MP4::trexDefaultDuration(moof, length, track);
    MP4::SampleSpan span;
    MP4::addFragmentSamples(moof, length, track, defaultDuration, span);
    MP4::addFragmentSamples(moof, length, track, defaultDuration, span);
    if (span.samples > uint64_t(std::numeric_limits<int32_t>::max()) ||
        span.duration > uint64_t(std::numeric_limits<int64_t>::max())) {
        std::abort();
    }
    const float rate = MP4::nominalFrameRate(length > 0 ? moof[0] : 0, {{uint32_t(span.samples), 1}}, span);
    if (!std::isfinite(rate) || rate < 0) std::abort();
    return 0;
}
