#include "video/still_image.h"

#include <algorithm>
#include <cmath>

#include "foundation/wchar.h"
#include "video/ffmpeg.h"
#include "video/first_frame.h"
#include "video/frame_converter.h"
#include "video/movie_file.h"

namespace {

// The largest size of the picture's shape that fits the box, never larger
// than the picture itself.
void fitInside(int width, int height, QVMX::FrameSize box, int& outWidth, int& outHeight) {
    outWidth = width;
    outHeight = height;
    if (!(box.width > 0.0) || !(box.height > 0.0)) return;
    const double scale = std::min({box.width / width, box.height / height, 1.0});
    if (scale >= 1.0) return;
    outWidth = std::max(1, static_cast<int>(std::lround(width * scale)));
    outHeight = std::max(1, static_cast<int>(std::lround(height * scale)));
}

}  // namespace

std::unique_ptr<QVMX::StillImage> buildFrame(const std::wstring& moviePath, QVMX::FrameSize maximumSize,
                                             std::optional<bool> fullRange) {
    namespace ff = QVMX::ff;
    const std::string path = QVMX::wchar::wcs2mbs(moviePath);
    // The probe has usually decoded this frame already: then the movie need
    // not be opened again.
    ff::FramePtr frame = QVMX::keptFirstVideoFrame(path);
    if (!frame) {
        std::string error;
        ff::InputPtr format = QVMX::openMovieHeaders(path.c_str(), error);
        if (!format) return nullptr;
        const int index = QVMX::firstStreamOf(format.get(), AVMEDIA_TYPE_VIDEO);
        if (index < 0) return nullptr;
        frame = QVMX::firstVideoFrame(path, format.get(), index);
    }
    if (!frame || frame->width < 1 || frame->height < 1) return nullptr;
    // The frame is our own reference: only its description changes.
    if (fullRange) QVMX::markRange(frame.get(), *fullRange);

    int width, height;
    fitInside(frame->width, frame->height, maximumSize, width, height);
    QVMX::FrameConverter converter(AV_PIX_FMT_RGB24, width, height, AVCOL_RANGE_JPEG);
    ff::FramePtr rgb = converter.convert(frame.get());
    if (!rgb) return nullptr;

    auto image = std::make_unique<QVMX::StillImage>();
    image->width = width;
    image->height = height;
    const size_t row = static_cast<size_t>(width) * 3;
    image->rgb.resize(row * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) {
        std::copy_n(rgb->data[0] + static_cast<ptrdiff_t>(y) * rgb->linesize[0], row, image->rgb.data() + row * y);
    }
    return image;
}
