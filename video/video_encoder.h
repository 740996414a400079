#pragma once

#include <functional>
#include <memory>
#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

class FrameConverter;

struct VideoEncoderSettings {
    int width = 0;
    int height = 0;
    bool hevc = false;
    uint32_t pixelFormatType = 0;  // what the frames arrive in
    uint64_t averageBitRate = 0;
    int keyFrameInterval = 0;
    double frameRate = 30.0;       // informs rate control only
};

// H.264 Baseline through libx264 or HEVC through libx265, fed with pictures
// in the writer's pixel format (converted when the encoder wants another).
class VideoEncoder {
public:
    using PacketSink = std::function<bool(AVPacket*)>;

    VideoEncoder();
    ~VideoEncoder();

    bool open(const VideoEncoderSettings& settings, bool globalHeader, std::string& error);
    const AVCodecContext* context() const { return codec_.get(); }
    // The sample-description tag the stream is to carry (0: the muxer's own).
    uint32_t codecTag() const;

    // pts is in the encoder's time base; packets go to sink.
    bool encode(const AVFrame* picture, int64_t pts, const PacketSink& sink, std::string& error);
    // Drains the encoder.
    bool finish(const PacketSink& sink, std::string& error);

private:
    bool drain(const PacketSink& sink, std::string& error);

    ff::CodecPtr codec_;
    ff::PacketPtr packet_;
    std::unique_ptr<FrameConverter> converter_;
    bool hevc_ = false;
};

}  // namespace QVMX
