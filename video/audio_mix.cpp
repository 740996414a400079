#include "video/audio_mix.h"

#include <algorithm>
#include <cmath>

#include "video/packet_source.h"

namespace QVMX {

struct AudioMix::Track {
    StreamDecoder decoder;
    ff::SwrPtr swr;
    ff::FifoPtr fifo;
    int inFormat = AV_SAMPLE_FMT_NONE;
    int inRate = 0;
    AVChannelLayout inLayout{};
    bool ended = false;
    double nextSeconds = NAN;  // expected time of the next decoded frame

    ~Track() { av_channel_layout_uninit(&inLayout); }
};

AudioMix::AudioMix(int sampleRate, int channels)
    : sampleRate_(sampleRate), channels_(channels), frame_(ff::makeFrame()) {}

AudioMix::~AudioMix() = default;

bool AudioMix::addTrack(const AVStream* stream, std::string& error) {
    if (sampleRate_ < 1 || channels_ < 1 || channels_ > 64 || !frame_) {
        error = "unusable output format";
        return false;
    }
    auto track = std::make_unique<Track>();
    if (!track->decoder.open(stream, true, error)) return false;
    track->fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, channels_, std::max(1, sampleRate_ / 5)));
    if (!track->fifo) {
        error = "out of memory";
        return false;
    }
    tracks_.push_back(std::move(track));
    return true;
}

void AudioMix::setRange(const MediaTime& start, const MediaTime& end) {
    hasStart_ = start.isNumeric();
    hasEnd_ = end.isNumeric();
    startSeconds_ = hasStart_ ? start.seconds() : 0.0;
    endSeconds_ = hasEnd_ ? end.seconds() : 0.0;
}

// Feeds count samples of frame, from sample skip on, through the track's
// resampler into its fifo (frame nullptr drains the resampler).
int AudioMix::resample(Track& track, const AVFrame* frame, int skip, int count) {
    if (frame != nullptr) {
        AVChannelLayout layout{};
        int result = av_channel_layout_copy(&layout, &frame->ch_layout);
        if (result < 0) return result;
        // An unknown channel order is taken as the usual one for the count.
        if (layout.order == AV_CHANNEL_ORDER_UNSPEC) {
            const int n = layout.nb_channels;
            av_channel_layout_uninit(&layout);
            av_channel_layout_default(&layout, n);
        }
        if (layout.nb_channels < 1) {
            av_channel_layout_uninit(&layout);
            return AVERROR_INVALIDDATA;
        }
        const bool changed = !track.swr || track.inFormat != frame->format || track.inRate != frame->sample_rate ||
                             av_channel_layout_compare(&track.inLayout, &layout) != 0;
        if (changed) {
            if (track.swr) {
                // Keep what the old resampler still holds before replacing it.
                result = resample(track, nullptr, 0, 0);
                if (result < 0) {
                    av_channel_layout_uninit(&layout);
                    return result;
                }
            }
            AVChannelLayout outLayout{};
            av_channel_layout_default(&outLayout, channels_);
            SwrContext* swr = nullptr;
            result = swr_alloc_set_opts2(&swr, &outLayout, AV_SAMPLE_FMT_S16, sampleRate_, &layout,
                                         static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0,
                                         nullptr);
            av_channel_layout_uninit(&outLayout);
            track.swr.reset(swr);
            if (result >= 0) result = swr_init(track.swr.get());
            if (result < 0) {
                track.swr.reset();
                av_channel_layout_uninit(&layout);
                return result;
            }
            track.inFormat = frame->format;
            track.inRate = frame->sample_rate;
            av_channel_layout_uninit(&track.inLayout);
            track.inLayout = layout;
        } else {
            av_channel_layout_uninit(&layout);
        }
    } else if (!track.swr) {
        return 0;
    }

    const uint8_t* input[AV_NUM_DATA_POINTERS] = {};
    if (frame != nullptr) {
        const int bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame->format));
        const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame->format)) != 0;
        const int planes = planar ? frame->ch_layout.nb_channels : 1;
        const int step = planar ? bytes : bytes * frame->ch_layout.nb_channels;
        for (int p = 0; p < planes && p < AV_NUM_DATA_POINTERS; ++p) {
            if (frame->extended_data[p] == nullptr) return AVERROR_INVALIDDATA;
            input[p] = frame->extended_data[p] + static_cast<ptrdiff_t>(skip) * step;
        }
        if (planes > AV_NUM_DATA_POINTERS) return AVERROR_PATCHWELCOME;
    }
    const int capacity = swr_get_out_samples(track.swr.get(), frame != nullptr ? count : 0);
    if (capacity < 0) return capacity;
    if (capacity == 0) return 0;
    scratch_.resize(static_cast<size_t>(capacity) * channels_);
    uint8_t* output[1] = {reinterpret_cast<uint8_t*>(scratch_.data())};
    const int got = swr_convert(track.swr.get(), output, capacity, frame != nullptr ? input : nullptr,
                                frame != nullptr ? count : 0);
    if (got < 0) return got;
    if (got > 0 && av_audio_fifo_write(track.fifo.get(), reinterpret_cast<void**>(output), got) < got) {
        return AVERROR(ENOMEM);
    }
    return 0;
}

// Decodes one frame of the track into its fifo, or marks it ended.
int AudioMix::pump(PacketSource& packets, Track& track) {
    AVFrame* frame = frame_.get();
    int result = track.decoder.receive(packets, frame);
    if (result == AVERROR_EOF) {
        track.ended = true;
        packets.disable(track.decoder.streamIndex());
        return resample(track, nullptr, 0, 0);
    }
    if (result < 0) return result;

    const int rate = frame->sample_rate;
    const int count = frame->nb_samples;
    if (rate < 1 || count < 0) {
        av_frame_unref(frame);
        return AVERROR_INVALIDDATA;
    }
    const int64_t pts = frame->best_effort_timestamp != AV_NOPTS_VALUE ? frame->best_effort_timestamp : frame->pts;
    double t0 = pts != AV_NOPTS_VALUE ? pts * av_q2d(track.decoder.timeBase()) : track.nextSeconds;
    if (std::isnan(t0)) t0 = hasStart_ ? startSeconds_ : 0.0;
    track.nextSeconds = t0 + static_cast<double>(count) / rate;

    int skip = 0;
    int keep = count;
    if (hasEnd_ && t0 >= endSeconds_) {
        av_frame_unref(frame);
        track.ended = true;
        packets.disable(track.decoder.streamIndex());
        return resample(track, nullptr, 0, 0);
    }
    if (hasStart_ && t0 < startSeconds_) {
        const double before = std::ceil((startSeconds_ - t0) * rate - 1e-6);
        skip = before >= count ? count : static_cast<int>(before);
        keep = count - skip;
    }
    if (hasEnd_) {
        const double until = std::floor((endSeconds_ - t0) * rate + 1e-6) - skip;
        if (until < keep) keep = until <= 0 ? 0 : static_cast<int>(until);
    }
    result = 0;
    if (keep > 0) {
        if (!originKnown_) {
            originKnown_ = true;
            originSample_ = std::llround((t0 + static_cast<double>(skip) / rate) * sampleRate_);
        }
        result = resample(track, frame, skip, keep);
    }
    av_frame_unref(frame);
    return result;
}

int AudioMix::next(PacketSource& packets, SampleBuffer& out) {
    const int chunk = std::max(1, sampleRate_ / 10);
    for (auto& track : tracks_) {
        while (!track->ended && av_audio_fifo_size(track->fifo.get()) < chunk) {
            const int result = pump(packets, *track);
            if (result < 0) return result;
        }
    }
    int count = 0;
    for (auto& track : tracks_) count = std::max(count, std::min(av_audio_fifo_size(track->fifo.get()), chunk));
    if (count == 0) return 0;

    out.channels = channels_;
    out.sampleRate = sampleRate_;
    out.samples.assign(static_cast<size_t>(count) * channels_, 0);
    if (tracks_.size() == 1) {
        void* data[1] = {out.samples.data()};
        if (av_audio_fifo_read(tracks_[0]->fifo.get(), data, count) < count) return AVERROR_BUG;
    } else {
        std::vector<int32_t> sum(out.samples.size(), 0);
        for (auto& track : tracks_) {
            const int have = std::min(av_audio_fifo_size(track->fifo.get()), count);
            if (have <= 0) continue;
            scratch_.resize(static_cast<size_t>(have) * channels_);
            void* data[1] = {scratch_.data()};
            if (av_audio_fifo_read(track->fifo.get(), data, have) < have) return AVERROR_BUG;
            for (size_t i = 0; i < scratch_.size(); ++i) sum[i] += scratch_[i];
        }
        for (size_t i = 0; i < sum.size(); ++i) {
            out.samples[i] = static_cast<int16_t>(std::clamp<int32_t>(sum[i], INT16_MIN, INT16_MAX));
        }
    }
    out.presentationTime = MediaTime::make(originSample_ + delivered_, sampleRate_);
    delivered_ += count;
    return 1;
}

}  // namespace QVMX
