#include "video/stream_decoder.h"

#include "video/packet_source.h"

namespace QVMX {

bool StreamDecoder::open(const AVStream* stream, bool threaded, std::string& error) {
    const AVCodec* codec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (codec == nullptr) {
        error = std::string("no decoder for ") + avcodec_get_name(stream->codecpar->codec_id);
        return false;
    }
    codec_.reset(avcodec_alloc_context3(codec));
    packet_ = ff::makePacket();
    if (!codec_ || !packet_) {
        error = "out of memory";
        return false;
    }
    int result = avcodec_parameters_to_context(codec_.get(), stream->codecpar);
    if (result >= 0) {
        codec_->pkt_timebase = stream->time_base;
        codec_->thread_count = threaded ? 0 : 1;
        result = avcodec_open2(codec_.get(), codec, nullptr);
    }
    if (result < 0) {
        error = ff::errorText(result);
        codec_.reset();
        return false;
    }
    streamIndex_ = stream->index;
    timeBase_ = stream->time_base;
    drained_ = false;
    return true;
}

int StreamDecoder::receive(PacketSource& packets, AVFrame* frame) {
    if (!codec_) return AVERROR_EOF;
    for (;;) {
        int result = avcodec_receive_frame(codec_.get(), frame);
        if (result != AVERROR(EAGAIN)) return result;
        if (drained_) return AVERROR_EOF;
        result = packets.next(streamIndex_, packet_.get());
        if (result < 0) return result;
        if (result == 0) {
            drained_ = true;
            result = avcodec_send_packet(codec_.get(), nullptr);
        } else {
            result = avcodec_send_packet(codec_.get(), packet_.get());
            av_packet_unref(packet_.get());
        }
        if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF) return result;
    }
}

}  // namespace QVMX
