#pragma once

#include "video/ffmpeg.h"

namespace QVMX {

// Scales and converts decoded pictures to one target format, size and
// colour range. A picture already in the target form is passed on without
// a copy.
class FrameConverter {
public:
    FrameConverter(AVPixelFormat format, int width, int height, AVColorRange range);

    // A frame holding the converted picture (a new reference the caller
    // owns), with source's timestamps; nullptr on failure.
    ff::FramePtr convert(const AVFrame* source);

private:
    bool matches(const AVFrame* source) const;

    AVPixelFormat format_;
    int width_, height_;
    AVColorRange range_;
    ff::SwsPtr sws_;
    int swsFormat_ = AV_PIX_FMT_NONE, swsWidth_ = 0, swsHeight_ = 0;
    bool swsFull_ = false;
    int swsSpace_ = AVCOL_SPC_UNSPECIFIED;
    ff::FramePtr output_;  // reused when nobody else holds its buffers
};

// True when the frame's values span the full range.
bool isFullRange(const AVFrame* frame);

// Marks a decoded frame as the H.264 decoder marks it once its
// stream declares the range: the range, and for 8-bit YUV the pixel format
// that names it (yuvj for full range). Pixels are not touched.
void markRange(AVFrame* frame, bool fullRange);

}  // namespace QVMX
