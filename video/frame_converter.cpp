#include "video/frame_converter.h"

#include <utility>

#include "video/range_expand.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace QVMX {

bool isFullRange(const AVFrame* frame) {
    if (frame->color_range == AVCOL_RANGE_JPEG) return true;
    switch (frame->format) {
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ444P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ411P:
            return true;
        default:
            break;
    }
    // RGB is full range by nature.
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    return d != nullptr && (d->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

void markRange(AVFrame* frame, bool fullRange) {
    // Each layout with its full-range name.
    static constexpr std::pair<AVPixelFormat, AVPixelFormat> kNames[] = {
        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P}, {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P},
        {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVJ444P}, {AV_PIX_FMT_YUV440P, AV_PIX_FMT_YUVJ440P},
        {AV_PIX_FMT_YUV411P, AV_PIX_FMT_YUVJ411P}};
    for (const auto& [video, full] : kNames) {
        if (frame->format == video || frame->format == full) frame->format = fullRange ? full : video;
    }
    frame->color_range = fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

FrameConverter::FrameConverter(AVPixelFormat format, int width, int height, AVColorRange range)
    : format_(format), width_(width), height_(height), range_(range) {}

bool FrameConverter::matches(const AVFrame* source) const {
    if (source->format != format_ || source->width != width_ || source->height != height_) return false;
    return isFullRange(source) == (range_ == AVCOL_RANGE_JPEG);
}

ff::FramePtr FrameConverter::convert(const AVFrame* source) {
    if (source == nullptr || width_ < 1 || height_ < 1 || source->width < 1 || source->height < 1) return nullptr;
    if (matches(source)) {
        ff::FramePtr copy = ff::makeFrame();
        if (!copy || av_frame_ref(copy.get(), source) < 0) return nullptr;
        return copy;
    }

    const bool sourceFull = isFullRange(source);
    const bool expandOnly = source->format == AV_PIX_FMT_YUV420P && !sourceFull && format_ == AV_PIX_FMT_NV12 &&
                            range_ == AVCOL_RANGE_JPEG && source->width == width_ && source->height == height_;
    const int space = source->colorspace;
    if (!expandOnly && (!sws_ || swsFormat_ != source->format || swsWidth_ != source->width || swsHeight_ != source->height ||
        swsFull_ != sourceFull || swsSpace_ != space)) {
        const bool scaling = source->width != width_ || source->height != height_;
        // Ranges are set before the context is initialised: the unscaled
        // shortcuts it may pick otherwise copy values without converting them.
        sws_.reset(sws_alloc_context());
        if (!sws_) return nullptr;
        SwsContext* c = sws_.get();
        av_opt_set_int(c, "srcw", source->width, 0);
        av_opt_set_int(c, "srch", source->height, 0);
        av_opt_set_int(c, "src_format", source->format, 0);
        av_opt_set_int(c, "dstw", width_, 0);
        av_opt_set_int(c, "dsth", height_, 0);
        av_opt_set_int(c, "dst_format", format_, 0);
        av_opt_set_int(c, "sws_flags", scaling ? SWS_BICUBIC : SWS_BILINEAR, 0);
        av_opt_set_int(c, "src_range", sourceFull ? 1 : 0, 0);
        av_opt_set_int(c, "dst_range", range_ == AVCOL_RANGE_JPEG ? 1 : 0, 0);
        if (sws_init_context(c, nullptr, nullptr) < 0) {
            sws_.reset();
            return nullptr;
        }
        const int matrix = (space == AVCOL_SPC_BT709) ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
        const int* coefficients = sws_getCoefficients(matrix);
        sws_setColorspaceDetails(c, coefficients, sourceFull ? 1 : 0, coefficients,
                                 range_ == AVCOL_RANGE_JPEG ? 1 : 0, 0, 1 << 16, 1 << 16);
        swsFormat_ = source->format;
        swsWidth_ = source->width;
        swsHeight_ = source->height;
        swsFull_ = sourceFull;
        swsSpace_ = space;
    }

    // The last output goes back into service once the encoder let go of it.
    if (!output_ || !av_frame_is_writable(output_.get())) {
        output_ = ff::makeFrame();
        if (!output_) return nullptr;
        output_->format = format_;
        output_->width = width_;
        output_->height = height_;
        if (av_frame_get_buffer(output_.get(), 0) < 0) {
            output_.reset();
            return nullptr;
        }
    }
    if (expandOnly) {
        expandToFullRangeNV12(source->data, source->linesize, output_->data, output_->linesize, width_, height_);
    } else if (sws_scale(sws_.get(), source->data, source->linesize, 0, source->height, output_->data,
                         output_->linesize) <= 0) {
        return nullptr;
    }
    if (av_frame_copy_props(output_.get(), source) < 0) return nullptr;
    output_->color_range = range_;
    ff::FramePtr result = ff::makeFrame();
    if (!result || av_frame_ref(result.get(), output_.get()) < 0) return nullptr;
    return result;
}

}  // namespace QVMX
