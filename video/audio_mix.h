#pragma once

#include <memory>
#include <string>
#include <vector>

#include "video/ffmpeg.h"
#include "video/sample_buffer.h"
#include "video/stream_decoder.h"

namespace QVMX {

class PacketSource;

// Decodes every audio stream of a movie, resamples each to 16-bit
// interleaved PCM at one rate and channel count, and sums them into one
// stream of chunks of about a tenth of a second.
class AudioMix {
public:
    AudioMix(int sampleRate, int channels);
    ~AudioMix();

    bool addTrack(const AVStream* stream, std::string& error);
    size_t trackCount() const { return tracks_.size(); }

    // Samples before start are dropped and the mix ends at end (either may
    // be invalid: no limit).
    void setRange(const MediaTime& start, const MediaTime& end);

    // 1: out holds the next chunk; 0: every track is done; negative: an
    // FFmpeg error.
    int next(PacketSource& packets, SampleBuffer& out);

private:
    struct Track;
    int pump(PacketSource& packets, Track& track);
    int resample(Track& track, const AVFrame* frame, int skip, int count);

    int sampleRate_;
    int channels_;
    double startSeconds_ = 0.0;
    double endSeconds_ = 0.0;
    bool hasStart_ = false, hasEnd_ = false;
    std::vector<std::unique_ptr<Track>> tracks_;
    ff::FramePtr frame_;
    std::vector<int16_t> scratch_;
    bool originKnown_ = false;
    int64_t originSample_ = 0;  // time of the first sample, in 1/sampleRate_
    int64_t delivered_ = 0;
};

}  // namespace QVMX
