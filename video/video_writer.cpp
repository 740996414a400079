#include "video/video_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "video/audio_encoder.h"
#include "video/ffmpeg.h"
#include "video/movie_muxer.h"
#include "video/platform_log.h"
#include "video/video_encoder.h"

namespace ff = QVMX::ff;
using QVMX::MediaTime;
using QVMX::PlatformLog::write;

struct QVMXVideoWriter::Session {
    QVMX::MovieMuxer muxer;
    QVMX::VideoEncoder video;                   // the video input
    std::unique_ptr<QVMX::AudioEncoder> audio;  // the audio input, when there is audio
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
    int width = 0;
    int height = 0;
    MediaTime startTime = MediaTime::zero();
    int64_t lastPts = INT64_MIN;
    int64_t frameDuration = 0;  // in the encoder's time base, for the last frame's length
    bool writing = false;
    std::string error;

    QVMX::VideoEncoder::PacketSink videoSink() {
        return [this](AVPacket* p) {
            if (p->duration <= 0) p->duration = frameDuration;
            return muxer.write(p, videoStream, video.context()->time_base, error);
        };
    }
    QVMX::AudioEncoder::PacketSink audioSink() {
        return [this](AVPacket* p) { return muxer.write(p, audioStream, audio->context()->time_base, error); };
    }
};

QVMXVideoWriter::QVMXVideoWriter() { ff::quietLibraries(); }
QVMXVideoWriter::~QVMXVideoWriter() = default;

bool QVMXVideoWriter::hasAudioInput() const { return assetWriter_ && assetWriter_->audio; }

QVMX::MovieMuxer* QVMXVideoWriter::muxer() const {
    return assetWriter_ && assetWriter_->writing ? &assetWriter_->muxer : nullptr;
}

void QVMXVideoWriter::fail(const char* function, const std::string& reason) {
    write("%s: %s", function, reason.c_str());
    if (failure_.empty()) failure_ = reason;
    status_ = kFailed;
    if (assetWriter_) assetWriter_->writing = false;
}

bool QVMXVideoWriter::start(const std::string& url, const MediaTime& startTime, QVMX::FrameSize outputSize,
                            bool hasAudio, bool encodeHEVC) {
    assetWriter_.reset();
    status_ = kUnknown;
    failure_.clear();
    if (!setupWriter(url, outputSize, hasAudio, encodeHEVC)) return false;
    Session& s = *assetWriter_;
    std::string error;
    if (prepareStreams && !prepareStreams(s.muxer, s.videoStream, error)) {
        write("%s: Error: %s", __PRETTY_FUNCTION__, error.c_str());
        failure_ = error;
        status_ = kFailed;
        return false;
    }
    if (!s.muxer.begin(moovFirst, error)) {
        write("%s: Error: %s", __PRETTY_FUNCTION__, error.c_str());
        status_ = kFailed;
        return false;
    }
    s.startTime = startTime.isNumeric() ? startTime : MediaTime::zero();
    s.writing = true;
    status_ = kWriting;
    return true;
}

bool QVMXVideoWriter::setupWriter(const std::string& url, QVMX::FrameSize outputSize, bool hasAudio,
                                  bool encodeHEVC) {
    // Prove the path writable before any encoder is built.
    ::unlink(url.c_str());
    const int fd = ::creat(url.c_str(), 0644);
    if (fd < 1) {
        write("%s: open failed(%d)", __PRETTY_FUNCTION__, errno);
        return false;
    }
    ::close(fd);
    ::unlink(url.c_str());

    auto session = std::make_unique<Session>();
    std::string error;
    if (!session->muxer.create(url, error)) {
        write("%s: Error: %s", __PRETTY_FUNCTION__, error.c_str());
        return false;
    }

    auto toPixels = [](double v) { return v >= 0.0 && v <= 65536.0 ? static_cast<int>(v) : 0; };
    QVMX::VideoEncoderSettings settings;
    settings.width = toPixels(outputSize.width);
    settings.height = toPixels(outputSize.height);
    settings.hevc = encodeHEVC;
    settings.pixelFormatType = pixelFormatType;
    settings.averageBitRate = videoAverageBitRate;
    settings.keyFrameInterval = keyFrameInterval;
    settings.frameRate = expectedFrameRate;
    const bool globalHeader = session->muxer.wantsGlobalHeader();
    if (!session->video.open(settings, globalHeader, error) ||
        (session->videoStream = session->muxer.addStream(session->video.context(), session->video.codecTag())) ==
            nullptr) {
        write("%s: AVAssetWriter#canAddInput(video) failed.", __PRETTY_FUNCTION__);
        if (!error.empty()) write("%s: %s", __PRETTY_FUNCTION__, error.c_str());
        return false;
    }
    const AVRational frameRate = session->video.context()->framerate;
    if (frameRate.num > 0 && frameRate.den > 0) {
        session->frameDuration = av_rescale_q(1, av_inv_q(frameRate), session->video.context()->time_base);
    }
    session->width = settings.width;
    session->height = settings.height;

    if (hasAudio) {
        const int rate = audioSampleRate >= 1.0f && audioSampleRate <= 1e6f
                             ? static_cast<int>(std::lround(audioSampleRate))
                             : 0;
        session->audio = std::make_unique<QVMX::AudioEncoder>();
        if (!session->audio->open(rate, audioNumberOfChannels, audioEncoderBitRate, globalHeader, error) ||
            (session->audioStream = session->muxer.addStream(session->audio->context(), 0)) == nullptr) {
            write("%s: AVAssetWriter#canAddInput(audio) failed.", __PRETTY_FUNCTION__);
            if (!error.empty()) write("%s: %s", __PRETTY_FUNCTION__, error.c_str());
            return false;
        }
    }
    assetWriter_ = std::move(session);
    return true;
}

bool QVMXVideoWriter::isReadyForMoreAudio() const { return hasAudioInput() && assetWriter_->writing; }

bool QVMXVideoWriter::isReadyForMoreFrame() const { return assetWriter_ && assetWriter_->writing; }

bool QVMXVideoWriter::processAudio(const QVMX::SampleBuffer* sample) {
    if (sample == nullptr || !isReadyForMoreAudio()) return false;
    if (QVMX::isHeldBackMarker(sample)) return true;
    Session& s = *assetWriter_;
    const double offset = (sample->presentationTime - s.startTime).seconds();
    if (!s.audio->append(*sample, std::isnan(offset) ? 0.0 : offset, s.audioSink(), s.error)) {
        fail(__PRETTY_FUNCTION__, "appending audio failed: " + s.error);
    }
    return true;
}

bool QVMXVideoWriter::append(const QVMX::PixelBuffer& buffer, const MediaTime& frameTime) {
    Session& s = *assetWriter_;
    const int64_t pts = ff::fromMediaTime(frameTime - s.startTime, s.video.context()->time_base);
    // Frames before the start, without a time, or not after the previous
    // one cannot go into the track; the writer goes on.
    if (pts == AV_NOPTS_VALUE || pts < 0 || pts <= s.lastPts) return false;
    if (!s.video.encode(buffer.frame(), pts, s.videoSink(), s.error)) {
        fail(__PRETTY_FUNCTION__, "encoding a frame failed: " + s.error);
        return false;
    }
    s.lastPts = pts;
    return true;
}

bool QVMXVideoWriter::processFrame(const QVMX::PixelBuffer* buffer, const MediaTime& frameTime) {
    if (buffer == nullptr || !isReadyForMoreFrame()) return false;
    return append(*buffer, frameTime);
}

bool QVMXVideoWriter::processFrame(const RenderCallback& callback) {
    if (!callback || !isReadyForMoreFrame()) return false;
    std::unique_ptr<QVMX::PixelBuffer> buffer =
        QVMX::PixelBuffer::create(pixelFormatType, assetWriter_->width, assetWriter_->height);
    if (!buffer) {
        write("%s: CVPixelBufferPoolCreatePixelBuffer failed(%d).", __PRETTY_FUNCTION__, AVERROR(ENOMEM));
        return false;
    }
    const MediaTime time = callback(*buffer);
    if (!append(*buffer, time)) {
        write("%s: Problem appending pixel buffer at time: %0.3f", __PRETTY_FUNCTION__, time.seconds());
        return false;
    }
    return true;
}

std::unique_ptr<QVMX::PixelBuffer> QVMXVideoWriter::allcateRenderBuffer() {
    if (!isReadyForMoreFrame()) return nullptr;
    auto buffer = QVMX::PixelBuffer::create(pixelFormatType, assetWriter_->width, assetWriter_->height);
    if (!buffer) write("%s: CVPixelBufferPoolCreatePixelBuffer failed(%d).", __PRETTY_FUNCTION__, AVERROR(ENOMEM));
    return buffer;
}

bool QVMXVideoWriter::stop() {
    if (!assetWriter_) return false;
    Session& s = *assetWriter_;
    if (status_ == kWriting) {
        s.writing = false;
        bool ok = s.video.finish(s.videoSink(), s.error);
        if (ok && s.audio) ok = s.audio->finish(s.audioSink(), s.error);
        if (ok) ok = s.muxer.finish(s.error);
        if (ok) {
            status_ = kCompleted;
        } else {
            fail(__PRETTY_FUNCTION__, "finishing the movie failed: " + s.error);
        }
    }
    assetWriter_.reset();
    return status_ == kCompleted;
}
