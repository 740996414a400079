#include "video/ffmpeg.h"

#include <limits>

namespace QVMX::ff {

void OutputDeleter::operator()(AVFormatContext* c) const {
    if (c->oformat != nullptr && (c->oformat->flags & AVFMT_NOFILE) == 0) avio_closep(&c->pb);
    avformat_free_context(c);
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

void quietLibraries() {
    static const bool once = [] {
        av_log_set_level(AV_LOG_ERROR);
        return true;
    }();
    (void)once;
}

MediaTime toMediaTime(int64_t timestamp, AVRational timeBase) {
    if (timestamp == AV_NOPTS_VALUE || timeBase.num <= 0 || timeBase.den <= 0) return MediaTime::invalid();
    int64_t value;
    if (timeBase.num == 1 || __builtin_mul_overflow(timestamp, static_cast<int64_t>(timeBase.num), &value)) {
        if (timeBase.num != 1) return MediaTime::makeWithSeconds(timestamp * av_q2d(timeBase), 90000);
        value = timestamp;
    }
    return MediaTime::make(value, timeBase.den);
}

int64_t fromMediaTime(const MediaTime& time, AVRational timeBase) {
    if (!time.isNumeric() || timeBase.num <= 0 || timeBase.den <= 0) return AV_NOPTS_VALUE;
    return av_rescale_q_rnd(time.value, AVRational{1, time.timescale}, timeBase,
                            static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
}

}  // namespace QVMX::ff
