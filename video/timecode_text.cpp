#include "video/timecode_text.h"

#include <cmath>

extern "C" {
#include <libavutil/timecode.h>
}

#include "video/ffmpeg.h"

namespace QVMX {

std::string advanceTimecode(const std::string& timecode, double frameRate, double seconds) {
    if (timecode.empty() || !(frameRate > 0.0) || !(seconds > 0.0) || seconds > 1e7) return timecode;
    const AVRational rate = av_d2q(frameRate, 100000);
    AVTimecode tc{};
    if (av_timecode_init_from_string(&tc, rate, timecode.c_str(), nullptr) < 0) return timecode;
    // A day's clock: past midnight starts again at zero.
    tc.flags |= AV_TIMECODE_FLAG_24HOURSMAX;
    const long long frames = std::llround(seconds * av_q2d(rate));
    char text[AV_TIMECODE_STR_SIZE] = {};
    av_timecode_make_string(&tc, text, static_cast<int>(frames));
    return text;
}

}  // namespace QVMX
