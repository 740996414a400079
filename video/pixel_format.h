#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace QVMX {

// How a pixel format code is held in FFmpeg's terms. "420f" is NV12 whose
// values span the full range; "y420" is planar 4:2:0 in video range.
struct PixelLayout {
    AVPixelFormat format = AV_PIX_FMT_NONE;
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
};

PixelLayout pixelLayoutFor(uint32_t pixelFormatType);

}  // namespace QVMX
