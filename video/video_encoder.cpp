#include "video/video_encoder.h"

#include <cmath>
#include <string>

#include "video/frame_converter.h"
#include "video/pixel_format.h"

namespace QVMX {

// Every output timestamp counts in 1/90000 s: the rates in use (24, 25, 30,
// their 1000/1001 forms, 50, 60) all divide it evenly.
constexpr AVRational kVideoTimeBase{1, 90000};

VideoEncoder::VideoEncoder() = default;
VideoEncoder::~VideoEncoder() = default;

uint32_t VideoEncoder::codecTag() const { return hevc_ ? MKTAG('h', 'v', 'c', '1') : 0; }

bool VideoEncoder::open(const VideoEncoderSettings& s, bool globalHeader, std::string& error) {
    hevc_ = s.hevc;
    const PixelLayout input = pixelLayoutFor(s.pixelFormatType);
    if (input.format == AV_PIX_FMT_NONE) {
        error = "unknown pixel format";
        return false;
    }
    if (s.width < 2 || s.height < 2 || s.width % 2 != 0 || s.height % 2 != 0 || s.width > 16384 ||
        s.height > 16384) {
        error = "4:2:0 pictures need an even size of at least 2x2, not " + std::to_string(s.width) + "x" +
                std::to_string(s.height);
        return false;
    }
    // libx265 writes outside its buffers for pictures narrower than one
    // coding tree unit.
    if (s.hevc && s.width < 64) {
        error = "HEVC pictures need a width of at least 64, not " + std::to_string(s.width);
        return false;
    }
    const char* name = s.hevc ? "libx265" : "libx264";
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr) {
        error = std::string("no encoder ") + name;
        return false;
    }
    codec_.reset(avcodec_alloc_context3(codec));
    packet_ = ff::makePacket();
    if (!codec_ || !packet_) {
        error = "out of memory";
        return false;
    }

    AVCodecContext* c = codec_.get();
    c->width = s.width;
    c->height = s.height;
    c->time_base = kVideoTimeBase;
    const double rate = s.frameRate > 0.0 && std::isfinite(s.frameRate) ? s.frameRate : 30.0;
    c->framerate = av_d2q(rate, 100000);
    c->bit_rate = s.averageBitRate > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX
                                                                      : static_cast<int64_t>(s.averageBitRate);
    c->gop_size = s.keyFrameInterval > 0 ? s.keyFrameInterval : 1;
    c->max_b_frames = 0;
    c->thread_count = 0;
    c->sample_aspect_ratio = AVRational{1, 1};
    if (globalHeader) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

    AVDictionary* raw = nullptr;
    AVPixelFormat encoderFormat;
    AVColorRange encoderRange;
    if (s.hevc) {
        // libx265 takes planar 4:2:0 only. Nothing edits its parameter sets
        // later, so the range is signalled here.
        encoderFormat = AV_PIX_FMT_YUV420P;
        encoderRange = input.format == AV_PIX_FMT_NV12 ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
        c->color_range = encoderRange;
        const std::string params = "keyint=" + std::to_string(c->gop_size) + ":log-level=error";
        av_dict_set(&raw, "x265-params", params.c_str(), 0);
    } else {
        // NV12 and planar 4:2:0 go in as they are; the range is left
        // unsignalled and written into the parameter set afterwards.
        encoderFormat = input.format == AV_PIX_FMT_BGRA ? AV_PIX_FMT_YUV420P : input.format;
        encoderRange = input.format == AV_PIX_FMT_BGRA ? AVCOL_RANGE_MPEG : input.range;
        av_dict_set(&raw, "profile", "baseline", 0);
    }
    c->pix_fmt = encoderFormat;
    const int result = avcodec_open2(c, codec, &raw);
    std::unique_ptr<AVDictionary, ff::DictDeleter> options(raw);
    if (result < 0) {
        error = std::string(name) + ": " + ff::errorText(result);
        codec_.reset();
        return false;
    }
    converter_ = std::make_unique<FrameConverter>(encoderFormat, s.width, s.height, encoderRange);
    return true;
}

bool VideoEncoder::drain(const PacketSink& sink, std::string& error) {
    for (;;) {
        const int result = avcodec_receive_packet(codec_.get(), packet_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return true;
        if (result < 0) {
            error = ff::errorText(result);
            return false;
        }
        if (!sink(packet_.get())) {
            av_packet_unref(packet_.get());
            error = "writing a video packet failed";
            return false;
        }
        av_packet_unref(packet_.get());
    }
}

bool VideoEncoder::encode(const AVFrame* picture, int64_t pts, const PacketSink& sink, std::string& error) {
    if (!codec_) {
        error = "not open";
        return false;
    }
    ff::FramePtr input = converter_->convert(picture);
    if (!input) {
        error = "converting the picture failed";
        return false;
    }
    input->pts = pts;
    input->pict_type = AV_PICTURE_TYPE_NONE;
    input->color_range = codec_->color_range;
    const int result = avcodec_send_frame(codec_.get(), input.get());
    if (result < 0) {
        error = ff::errorText(result);
        return false;
    }
    return drain(sink, error);
}

bool VideoEncoder::finish(const PacketSink& sink, std::string& error) {
    if (!codec_) {
        error = "not open";
        return false;
    }
    const int result = avcodec_send_frame(codec_.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF) {
        error = ff::errorText(result);
        return false;
    }
    return drain(sink, error);
}

}  // namespace QVMX
