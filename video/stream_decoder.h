#pragma once

#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

class PacketSource;

// The decoder of one stream, fed from a PacketSource on demand.
class StreamDecoder {
public:
    // Opens the stream's decoder (with its own threads when threaded);
    // false with a reason in error.
    bool open(const AVStream* stream, bool threaded, std::string& error);

    // 0: a frame is in frame; AVERROR_EOF: the stream is done; other
    // negatives: a demux or decode error.
    int receive(PacketSource& packets, AVFrame* frame);

    AVCodecContext* context() const { return codec_.get(); }
    int streamIndex() const { return streamIndex_; }
    AVRational timeBase() const { return timeBase_; }

private:
    ff::CodecPtr codec_;
    ff::PacketPtr packet_;
    int streamIndex_ = -1;
    AVRational timeBase_{0, 1};
    bool drained_ = false;
};

}  // namespace QVMX
