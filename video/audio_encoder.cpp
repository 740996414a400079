#include "video/audio_encoder.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace QVMX {

bool AudioEncoder::open(int sampleRate, int channels, uint64_t bitRate, bool globalHeader, std::string& error) {
    if (sampleRate < 1 || channels < 1 || channels > 8) {
        error = "unusable audio format " + std::to_string(sampleRate) + " Hz, " + std::to_string(channels) +
                " channels";
        return false;
    }
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (codec == nullptr) {
        error = "no encoder aac";
        return false;
    }
    codec_.reset(avcodec_alloc_context3(codec));
    frame_ = ff::makeFrame();
    packet_ = ff::makePacket();
    if (!codec_ || !frame_ || !packet_) {
        error = "out of memory";
        return false;
    }
    AVCodecContext* c = codec_.get();
    c->sample_fmt = AV_SAMPLE_FMT_FLTP;
    c->sample_rate = sampleRate;
    av_channel_layout_default(&c->ch_layout, channels);
    c->bit_rate = bitRate > static_cast<uint64_t>(INT64_MAX) ? INT64_MAX : static_cast<int64_t>(bitRate);
    c->time_base = AVRational{1, sampleRate};
    if (globalHeader) c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int result = avcodec_open2(c, codec, nullptr);
    if (result < 0) {
        error = "aac: " + ff::errorText(result);
        codec_.reset();
        return false;
    }
    fifo_.reset(av_audio_fifo_alloc(c->sample_fmt, channels, c->frame_size > 0 ? c->frame_size : 1024));
    if (!fifo_) {
        error = "out of memory";
        return false;
    }
    return true;
}

bool AudioEncoder::configureInput(const SampleBuffer& sample, std::string& error) {
    if (swr_ && sample.channels == inChannels_ && sample.sampleRate == inRate_) return true;
    if (sample.channels < 1 || sample.channels > 64 || sample.sampleRate < 1) {
        error = "unusable input audio format";
        return false;
    }
    if (swr_ && !convert(nullptr, 0, error)) return false;  // keep what the old one holds
    AVChannelLayout inLayout{};
    av_channel_layout_default(&inLayout, sample.channels);
    SwrContext* raw = nullptr;
    int result = swr_alloc_set_opts2(&raw, &codec_->ch_layout, codec_->sample_fmt, codec_->sample_rate, &inLayout,
                                     AV_SAMPLE_FMT_S16, sample.sampleRate, 0, nullptr);
    av_channel_layout_uninit(&inLayout);
    swr_.reset(raw);
    if (result >= 0) result = swr_init(swr_.get());
    if (result < 0) {
        swr_.reset();
        error = ff::errorText(result);
        return false;
    }
    inChannels_ = sample.channels;
    inRate_ = sample.sampleRate;
    return true;
}

bool AudioEncoder::convert(const uint8_t** input, int count, std::string& error) {
    const int capacity = swr_get_out_samples(swr_.get(), count);
    if (capacity < 0) {
        error = ff::errorText(capacity);
        return false;
    }
    if (capacity == 0) return true;
    const size_t channels = static_cast<size_t>(codec_->ch_layout.nb_channels);
    converted_.resize(channels * static_cast<size_t>(capacity));
    planes_.resize(channels);
    for (size_t i = 0; i < channels; ++i) {
        planes_[i] = reinterpret_cast<uint8_t*>(converted_.data() + i * static_cast<size_t>(capacity));
    }
    const int got = swr_convert(swr_.get(), planes_.data(), capacity, input, count);
    if (got < 0) {
        error = ff::errorText(got);
        return false;
    }
    if (got > 0 && av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(planes_.data()), got) < got) {
        error = "out of memory";
        return false;
    }
    return true;
}

bool AudioEncoder::append(const SampleBuffer& sample, double firstOffset, const PacketSink& sink,
                          std::string& error) {
    if (!codec_) {
        error = "not open";
        return false;
    }
    const size_t frames = sample.frameCount();
    if (frames == 0) return true;
    if (frames > static_cast<size_t>(INT32_MAX / 2)) {
        error = "sample too large";
        return false;
    }
    if (!configureInput(sample, error)) return false;
    if (!started_) {
        started_ = true;
        if (firstOffset > 0.0 && std::isfinite(firstOffset)) {
            nextPts_ = std::llround(firstOffset * codec_->sample_rate);
        }
    }
    const uint8_t* input[1] = {reinterpret_cast<const uint8_t*>(sample.samples.data())};
    if (!convert(input, static_cast<int>(frames), error)) return false;
    return encodeFrames(false, sink, error);
}

bool AudioEncoder::encodeFrames(bool all, const PacketSink& sink, std::string& error) {
    const int frameSize = codec_->frame_size > 0 ? codec_->frame_size : 1024;
    while (av_audio_fifo_size(fifo_.get()) >= frameSize || (all && av_audio_fifo_size(fifo_.get()) > 0)) {
        const int count = std::min(av_audio_fifo_size(fifo_.get()), frameSize);
        av_frame_unref(frame_.get());
        frame_->nb_samples = count;
        frame_->format = codec_->sample_fmt;
        frame_->sample_rate = codec_->sample_rate;
        int result = av_channel_layout_copy(&frame_->ch_layout, &codec_->ch_layout);
        if (result >= 0) result = av_frame_get_buffer(frame_.get(), 0);
        if (result < 0) {
            error = ff::errorText(result);
            return false;
        }
        if (av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(frame_->data), count) < count) {
            error = "audio fifo underrun";
            return false;
        }
        frame_->pts = nextPts_;
        nextPts_ += count;
        result = avcodec_send_frame(codec_.get(), frame_.get());
        av_frame_unref(frame_.get());
        if (result < 0) {
            error = ff::errorText(result);
            return false;
        }
        if (!drain(sink, error)) return false;
    }
    return true;
}

bool AudioEncoder::drain(const PacketSink& sink, std::string& error) {
    for (;;) {
        const int result = avcodec_receive_packet(codec_.get(), packet_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return true;
        if (result < 0) {
            error = ff::errorText(result);
            return false;
        }
        const bool written = sink(packet_.get());
        av_packet_unref(packet_.get());
        if (!written) {
            error = "writing an audio packet failed";
            return false;
        }
    }
}

bool AudioEncoder::finish(const PacketSink& sink, std::string& error) {
    if (!codec_) {
        error = "not open";
        return false;
    }
    if (swr_ && !convert(nullptr, 0, error)) return false;
    if (!encodeFrames(true, sink, error)) return false;
    const int result = avcodec_send_frame(codec_.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF) {
        error = ff::errorText(result);
        return false;
    }
    return drain(sink, error);
}

}  // namespace QVMX
