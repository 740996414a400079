#include "video/pixel_buffer.h"

#include "video/ffmpeg.h"
#include "video/pixel_format.h"

namespace QVMX {

PixelLayout pixelLayoutFor(uint32_t pixelFormatType) {
    switch (pixelFormatType) {
        case kPixelFormat32BGRA:
            return {AV_PIX_FMT_BGRA, AVCOL_RANGE_JPEG};
        case kPixelFormat420YpCbCr8BiPlanarFullRange:
            return {AV_PIX_FMT_NV12, AVCOL_RANGE_JPEG};
        case kPixelFormat420YpCbCr8Planar:
            return {AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG};
        default:
            return {};
    }
}

bool isKnownPixelFormat(uint32_t pixelFormatType) {
    return pixelLayoutFor(pixelFormatType).format != AV_PIX_FMT_NONE;
}

std::unique_ptr<PixelBuffer> PixelBuffer::create(uint32_t pixelFormatType, int width, int height) {
    const PixelLayout layout = pixelLayoutFor(pixelFormatType);
    if (layout.format == AV_PIX_FMT_NONE || width < 1 || height < 1) return nullptr;
    ff::FramePtr frame = ff::makeFrame();
    if (!frame) return nullptr;
    frame->format = layout.format;
    frame->width = width;
    frame->height = height;
    frame->color_range = layout.range;
    if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
    return std::unique_ptr<PixelBuffer>(new PixelBuffer(frame.release(), pixelFormatType));
}

std::unique_ptr<PixelBuffer> PixelBuffer::wrap(const AVFrame* source, uint32_t pixelFormatType) {
    if (source == nullptr) return nullptr;
    ff::FramePtr frame = ff::makeFrame();
    if (!frame || av_frame_ref(frame.get(), source) < 0) return nullptr;
    return std::unique_ptr<PixelBuffer>(new PixelBuffer(frame.release(), pixelFormatType));
}

PixelBuffer::~PixelBuffer() { av_frame_free(&frame_); }

int PixelBuffer::width() const { return frame_->width; }
int PixelBuffer::height() const { return frame_->height; }

int PixelBuffer::planeCount() const {
    switch (frame_->format) {
        case AV_PIX_FMT_NV12:
            return 2;
        case AV_PIX_FMT_YUV420P:
            return 3;
        default:
            return 1;
    }
}

uint8_t* PixelBuffer::baseAddressOfPlane(int plane) const {
    if (plane < 0 || plane >= planeCount()) return nullptr;
    return frame_->data[plane];
}

int PixelBuffer::bytesPerRowOfPlane(int plane) const {
    if (plane < 0 || plane >= planeCount()) return 0;
    return frame_->linesize[plane];
}

int PixelBuffer::heightOfPlane(int plane) const {
    if (plane < 0 || plane >= planeCount()) return 0;
    return plane == 0 || frame_->format == AV_PIX_FMT_BGRA ? frame_->height : (frame_->height + 1) / 2;
}

}  // namespace QVMX

namespace QVMX {

bool copyPixels(const PixelBuffer& from, PixelBuffer& to) {
    if (from.pixelFormatType() != to.pixelFormatType() || from.width() != to.width() ||
        from.height() != to.height()) {
        return false;
    }
    return av_frame_copy(const_cast<AVFrame*>(to.frame()), from.frame()) >= 0;
}

}  // namespace QVMX
