#include "video/video_reader.h"

#include <cmath>
#include <exception>

#include "video/audio_mix.h"
#include "video/ffmpeg.h"
#include "video/first_frame.h"
#include "video/frame_converter.h"
#include "video/movie_file.h"
#include "video/packet_source.h"
#include "video/pixel_format.h"
#include "video/platform_log.h"
#include "video/playback_clock.h"
#include "video/stream_decoder.h"

namespace ff = QVMX::ff;
using QVMX::MediaTime;
using QVMX::PlatformLog::write;

struct QVMXVideoReader::Session {
    std::string url;
    ff::InputPtr format;
    std::unique_ptr<QVMX::PacketSource> packets;
    int videoIndex = -1;
    QVMX::StreamDecoder video;          // the video output
    std::unique_ptr<QVMX::FrameConverter> converter;
    std::unique_ptr<QVMX::AudioMix> audio;  // the audio-mix output
    std::unique_ptr<QVMX::PlaybackClock> player;
    QVMX::MediaTimeRange range = QVMX::MediaTimeRange::invalid();
    ff::FramePtr frame = ff::makeFrame();
    QVMX::SampleBuffer sample;
    MediaTime frameStep = MediaTime::invalid();
    bool videoEnded = false;
    bool audioEnded = false;
};

QVMXVideoReader::QVMXVideoReader() { ff::quietLibraries(); }
QVMXVideoReader::~QVMXVideoReader() = default;

std::string QVMXVideoReader::statusName(int status) {
    switch (status) {
        case kUnknown:
            return "Unknown";
        case kReading:
            return "Reading";
        case kCompleted:
            return "Completed";
        case kFailed:
            return "Failed";
        case kCancelled:
            return "Cancelled";
        default:
            return "<<unknown:" + std::to_string(status) + ">";
    }
}

std::string QVMXVideoReader::mediaStatusWithNSString() const { return statusName(status_); }

bool QVMXVideoReader::describeSource(const std::string& url, QVMX::FrameSize& size, MediaTime& duration,
                                     float& frameRate) {
    std::string error;
    ff::InputPtr format = QVMX::openMovieHeaders(url, error);
    if (!format) return false;
    duration = QVMX::movieDuration(format.get());
    const int videoIndex = QVMX::firstStreamOf(format.get(), AVMEDIA_TYPE_VIDEO);
    if (videoIndex < 0) {
        write("%s: No video tracks found - %s", __PRETTY_FUNCTION__, url.c_str());
        return false;
    }
    frameRate = QVMX::nominalFrameRate(format->streams[videoIndex]);
    const int audioIndex = QVMX::firstStreamOf(format.get(), AVMEDIA_TYPE_AUDIO);
    audioSampleRate = audioIndex >= 0 ? static_cast<float>(format->streams[audioIndex]->codecpar->sample_rate) : 0.0f;
    // The decoded picture decides the size, not what the track declares.
    if (ff::FramePtr first = QVMX::firstVideoFrame(url, format.get(), videoIndex)) {
        size.width = first->width;
        size.height = first->height;
    }
    return true;
}

bool QVMXVideoReader::start(const std::string& url, QVMX::FrameSize playSize) {
    return start(url, playSize, QVMX::MediaTimeRange::invalid());
}

bool QVMXVideoReader::start(const std::string& url, QVMX::FrameSize playSize,
                            const QVMX::MediaTimeRange& timeRange) {
    assetReader_.reset();
    status_ = kUnknown;
    // Reading the whole movie needs the memory more than a kept first frame.
    QVMX::forgetFirstVideoFrame();
    auto session = std::make_unique<Session>();
    std::string error;
    session->format = QVMX::openMovie(url, error);
    if (!session->format || !session->frame) {
        write("%s: Failed to open %s.", __PRETTY_FUNCTION__, url.c_str());
        return false;
    }
    session->url = url;
    assetReader_ = std::move(session);

    // Sizes outside int, NaN included, become 0 and are refused below.
    auto toPixels = [](double v) { return v >= 1.0 && v <= 65536.0 ? static_cast<int>(v) : 0; };
    videoOptions_ = VideoOptions{pixelFormatType, toPixels(playSize.width), toPixels(playSize.height)};
    audioOptions_ = AudioOptions{audioSampleRate, audioNumberOfChannels};
    if (playAudio) setupAudioPlayer();
    currentFrameTime = MediaTime::zero();
    currentAudioTime_ = MediaTime::zero();

    if (!setupFrameReader()) return false;
    if (!playAudio && !setupAudioReader()) return false;
    Session& s = *assetReader_;
    if (timeRange.isValid()) {
        s.range = timeRange;
        const MediaTime end = timeRange.end();
        if (s.audio) s.audio->setRange(timeRange.start, end.isNumeric() ? end : MediaTime::invalid());
        const AVStream* stream = s.format->streams[s.videoIndex];
        const int64_t target = ff::fromMediaTime(timeRange.start, stream->time_base);
        if (target != AV_NOPTS_VALUE && timeRange.start > MediaTime::zero()) {
            // Back to the key frame at or before the start; what lies
            // between is decoded and dropped.
            const int result = av_seek_frame(s.format.get(), s.videoIndex, target, AVSEEK_FLAG_BACKWARD);
            if (result < 0) {
                write("%s: seek to %0.3f failed (%s); reading from the beginning", __PRETTY_FUNCTION__,
                      timeRange.start.seconds(), ff::errorText(result).c_str());
            }
        }
    }
    status_ = kReading;
    if (s.player) s.player->play();
    return true;
}

bool QVMXVideoReader::setupFrameReader() {
    Session& s = *assetReader_;
    s.packets = std::make_unique<QVMX::PacketSource>(s.format.get());
    s.videoIndex = QVMX::firstStreamOf(s.format.get(), AVMEDIA_TYPE_VIDEO);
    if (s.videoIndex < 0) {
        write("%s: No video tracks.", __PRETTY_FUNCTION__);
        return false;
    }
    const QVMX::PixelLayout layout = QVMX::pixelLayoutFor(videoOptions_->pixelFormatType);
    std::string error;
    const AVStream* stream = s.format->streams[s.videoIndex];
    if (layout.format == AV_PIX_FMT_NONE || videoOptions_->width < 1 || videoOptions_->height < 1 ||
        !s.video.open(stream, true, error)) {
        write("%s: AVAssetReader#canAddOutput(video) failed.", __PRETTY_FUNCTION__);
        if (!error.empty()) write("%s: %s", __PRETTY_FUNCTION__, error.c_str());
        return false;
    }
    s.converter = std::make_unique<QVMX::FrameConverter>(layout.format, videoOptions_->width,
                                                         videoOptions_->height, layout.range);
    s.packets->enable(s.videoIndex);
    nominalFrameRate = QVMX::nominalFrameRate(stream);
    if (nominalFrameRate > 0.0f) s.frameStep = MediaTime::makeWithSeconds(1.0 / nominalFrameRate, 90000);
    return true;
}

bool QVMXVideoReader::setupAudioReader() {
    Session& s = *assetReader_;
    bool any = false;
    for (unsigned i = 0; i < s.format->nb_streams; ++i) {
        if (s.format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) any = true;
    }
    if (!any) {
        audioOptions_.reset();
        return true;
    }
    const float rate = audioOptions_->sampleRate;
    const int rounded = rate >= 1.0f && rate <= 1e6f ? static_cast<int>(std::lround(rate)) : 0;
    s.audio = std::make_unique<QVMX::AudioMix>(rounded, audioOptions_->channels);
    std::string error;
    for (unsigned i = 0; i < s.format->nb_streams && error.empty(); ++i) {
        const AVStream* stream = s.format->streams[i];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_AUDIO) continue;
        if (firstAudioOnly && s.audio->trackCount() > 0) break;
        if (s.audio->addTrack(stream, error)) s.packets->enable(static_cast<int>(i));
    }
    if (!error.empty()) {
        write("%s: AVAssetReader#canAddOutput(audio,mix) failed.", __PRETTY_FUNCTION__);
        write("%s: %s", __PRETTY_FUNCTION__, error.c_str());
        s.audio.reset();
        return false;
    }
    return true;
}

bool QVMXVideoReader::setupAudioPlayer() {
    // No sound device is driven here: the player is the clock the frames
    // are paced against, and only a movie with sound has one.
    Session& s = *assetReader_;
    if (QVMX::firstStreamOf(s.format.get(), AVMEDIA_TYPE_AUDIO) < 0) return true;
    s.player = std::make_unique<QVMX::PlaybackClock>(MediaTime::zero());
    return true;
}

void QVMXVideoReader::fail(const char* function, const std::string& reason) {
    write("%s: %s", function, reason.c_str());
    status_ = kFailed;
}

void QVMXVideoReader::endVideo() {
    Session& s = *assetReader_;
    s.videoEnded = true;
    s.packets->disable(s.videoIndex);
    if (!s.audio || s.audioEnded) status_ = kCompleted;
}

void QVMXVideoReader::endAudio() {
    Session& s = *assetReader_;
    s.audioEnded = true;
    if (s.videoEnded) status_ = kCompleted;
}

bool QVMXVideoReader::loadNextFrame(const FrameHandler& handler) {
    if (status_ != kReading || !assetReader_) return false;
    Session& s = *assetReader_;
    if (s.player && (currentFrameTime - s.player->currentTime()).seconds() > 0.01) return true;
    if (s.videoEnded) return false;
    try {
        AVFrame* frame = s.frame.get();
        for (;;) {
            const int result = s.video.receive(*s.packets, frame);
            if (result == AVERROR_EOF) {
                endVideo();
                return false;
            }
            if (result < 0) {
                fail(__PRETTY_FUNCTION__, "reading " + s.url + " failed: " + ff::errorText(result));
                return false;
            }
            const int64_t pts = frame->best_effort_timestamp != AV_NOPTS_VALUE ? frame->best_effort_timestamp
                                                                                : frame->pts;
            MediaTime time = ff::toMediaTime(pts, s.video.timeBase());
            if (!time.isNumeric()) time = s.frameStep.isNumeric() ? currentFrameTime + s.frameStep : currentFrameTime;
            if (s.range.isValid()) {
                if (time < s.range.start) {
                    av_frame_unref(frame);
                    continue;
                }
                if (time >= s.range.end()) {
                    av_frame_unref(frame);
                    endVideo();
                    return false;
                }
            }
            ff::FramePtr converted = s.converter->convert(frame);
            av_frame_unref(frame);
            if (!converted) {
                fail(__PRETTY_FUNCTION__, "converting a frame of " + s.url + " failed");
                return false;
            }
            currentFrameTime = time;
            if (handler) {
                auto buffer = QVMX::PixelBuffer::wrap(converted.get(), videoOptions_->pixelFormatType);
                if (buffer) handler(*buffer, time);
            }
            return true;
        }
    } catch (const std::exception& e) {
        // As with the platform's reader: a failed copy is not the end.
        write("%s: %s", __PRETTY_FUNCTION__, e.what());
        return true;
    }
}

bool QVMXVideoReader::loadNextAudio(float limit, const AudioHandler& handler) {
    if (!audioOptions_) return true;
    if (status_ != kReading || !assetReader_) return false;
    Session& s = *assetReader_;
    if (!s.audio) return false;
    // Once the frames are exhausted there is nothing left to wait for.
    if (!s.videoEnded) {
        const float lead = static_cast<float>((currentAudioTime_ - currentFrameTime).seconds());
        if (lead > limit) {
            if (handler) handler(QVMX::heldBackMarker(), currentAudioTime_);
            return true;
        }
    }
    if (s.audioEnded) return false;
    try {
        const int result = s.audio->next(*s.packets, s.sample);
        if (result == 0) {
            endAudio();
            return false;
        }
        if (result < 0) {
            fail(__PRETTY_FUNCTION__, "reading the audio of " + s.url + " failed: " + ff::errorText(result));
            return false;
        }
        currentAudioTime_ = s.sample.presentationTime;
        if (handler) handler(&s.sample, currentAudioTime_);
        return true;
    } catch (const std::exception& e) {
        write("%s: %s", __PRETTY_FUNCTION__, e.what());
        return true;
    }
}

size_t QVMXVideoReader::parkedPacketCount() const {
    return assetReader_ && assetReader_->packets ? assetReader_->packets->parkedCount() : 0;
}

AVFormatContext* QVMXVideoReader::formatContext() const {
    return assetReader_ ? assetReader_->format.get() : nullptr;
}

QVMX::PacketSource* QVMXVideoReader::packetSource() const {
    return assetReader_ ? assetReader_->packets.get() : nullptr;
}

int QVMXVideoReader::videoStreamIndex() const { return assetReader_ ? assetReader_->videoIndex : -1; }

void QVMXVideoReader::pause() {
    if (assetReader_ && assetReader_->player) assetReader_->player->pause();
}

void QVMXVideoReader::resume() {
    if (assetReader_ && assetReader_->player) assetReader_->player->play();
}

void QVMXVideoReader::stop() {
    if (assetReader_) status_ = kCancelled;
    pause();
    assetReader_.reset();
}
