#pragma once

// The cropping both codecs code the same way in their SPS: a flag, then
// left, right, top and bottom offsets in crop units.
#include <cstdint>

#include "h264/picture_size.h"
#include "h264/rbsp_reader.h"

namespace H264 {

struct CropWindow {
    uint64_t left = 0, right = 0, top = 0, bottom = 0;
};

inline CropWindow readCropWindow(RbspReader& r) {
    CropWindow w;
    if (r.flag()) {
        w.left = r.ue();
        w.right = r.ue();
        w.top = r.ue();
        w.bottom = r.ue();
    }
    return w;
}

// The coded size less the window; the whole picture when the window would
// leave nothing, as decoders do.
inline PictureSize croppedSize(uint64_t width, uint64_t height, const CropWindow& w, uint64_t unitX, uint64_t unitY) {
    const uint64_t cropX = (w.left + w.right) * unitX;
    const uint64_t cropY = (w.top + w.bottom) * unitY;
    if (cropX >= width || cropY >= height) return PictureSize{uint32_t(width), uint32_t(height)};
    return PictureSize{uint32_t(width - cropX), uint32_t(height - cropY)};
}

}  // namespace H264
