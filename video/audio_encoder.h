#pragma once

#include <functional>
#include <string>
#include <vector>

#include "video/ffmpeg.h"
#include "video/sample_buffer.h"

namespace QVMX {

// AAC through FFmpeg's own encoder. Incoming PCM is resampled to the
// encoder's rate and layout, collected in a fifo, and encoded in frames of
// exactly the encoder's frame size, stamped from a running sample count.
class AudioEncoder {
public:
    using PacketSink = std::function<bool(AVPacket*)>;

    bool open(int sampleRate, int channels, uint64_t bitRate, bool globalHeader, std::string& error);
    const AVCodecContext* context() const { return codec_.get(); }

    // firstOffset: where the first sample lies after the session start, in
    // seconds (negative values count as 0).
    bool append(const SampleBuffer& sample, double firstOffset, const PacketSink& sink, std::string& error);
    // Resamples and encodes what is left, then drains the encoder.
    bool finish(const PacketSink& sink, std::string& error);

private:
    bool configureInput(const SampleBuffer& sample, std::string& error);
    bool convert(const uint8_t** input, int count, std::string& error);
    bool encodeFrames(bool all, const PacketSink& sink, std::string& error);
    bool drain(const PacketSink& sink, std::string& error);

    ff::CodecPtr codec_;
    ff::SwrPtr swr_;
    ff::FifoPtr fifo_;
    ff::FramePtr frame_;
    ff::PacketPtr packet_;
    int inChannels_ = 0;
    int inRate_ = 0;
    bool started_ = false;
    int64_t nextPts_ = 0;
    std::vector<float> converted_;     // planar float, one plane per channel
    std::vector<uint8_t*> planes_;
};

}  // namespace QVMX
