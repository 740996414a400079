#include "video/video_transcoder.h"

#include <unistd.h>

#include "video/audio_reencode.h"
#include "video/movie_muxer.h"
#include "video/packet_source.h"
#include "video/platform_log.h"
#include "video/stream_copy.h"
#include "video/video_tags.h"

using QVMX::MediaTime;
using QVMX::PlatformLog::write;

QVMXVideoTranscoder::QVMXVideoTranscoder()
    : videoReader_(std::make_unique<QVMXVideoReader>()), videoWriter_(std::make_unique<QVMXVideoWriter>()) {
    setVideoAverageBitRate(8192000);
    setAudioSampleRate(44100.0f);
    setAudioProcessSampleRate(44100.0f);
    setAudioNumberOfChannels(1);
    setAudioEncoderBitRate(128000);
    setPixelFormatType(QVMX::kPixelFormat32BGRA);
    setMoovFirst(true);
}

QVMXVideoTranscoder::~QVMXVideoTranscoder() = default;

uint64_t QVMXVideoTranscoder::videoAverageBitRate() const {
    return videoWriter_ ? videoWriter_->videoAverageBitRate : 0;
}
void QVMXVideoTranscoder::setVideoAverageBitRate(uint64_t value) {
    if (videoWriter_) videoWriter_->videoAverageBitRate = value;
}
float QVMXVideoTranscoder::audioSampleRate() const { return videoWriter_ ? videoWriter_->audioSampleRate : 0.0f; }
void QVMXVideoTranscoder::setAudioSampleRate(float value) {
    if (videoWriter_) videoWriter_->audioSampleRate = value;
}
uint64_t QVMXVideoTranscoder::audioEncoderBitRate() const {
    return videoWriter_ ? videoWriter_->audioEncoderBitRate : 0;
}
void QVMXVideoTranscoder::setAudioEncoderBitRate(uint64_t value) {
    if (videoWriter_) videoWriter_->audioEncoderBitRate = value;
}
int32_t QVMXVideoTranscoder::keyFrameInterval() const { return videoWriter_ ? videoWriter_->keyFrameInterval : 0; }
void QVMXVideoTranscoder::setKeyFrameInterval(int32_t value) {
    if (videoWriter_) videoWriter_->keyFrameInterval = value;
}
bool QVMXVideoTranscoder::moovFirst() const { return videoWriter_ && videoWriter_->moovFirst; }
void QVMXVideoTranscoder::setMoovFirst(bool value) {
    if (videoWriter_) videoWriter_->moovFirst = value;
}
float QVMXVideoTranscoder::audioProcessSampleRate() const {
    return videoReader_ ? videoReader_->audioSampleRate : 0.0f;
}
void QVMXVideoTranscoder::setAudioProcessSampleRate(float value) {
    if (videoReader_) videoReader_->audioSampleRate = value;
}
int32_t QVMXVideoTranscoder::audioNumberOfChannels() const {
    return videoWriter_ ? videoWriter_->audioNumberOfChannels : 0;
}
void QVMXVideoTranscoder::setAudioNumberOfChannels(int32_t value) {
    if (videoWriter_) videoWriter_->audioNumberOfChannels = value;
    if (videoReader_) videoReader_->audioNumberOfChannels = value;
}
uint32_t QVMXVideoTranscoder::pixelFormatType() const { return videoWriter_ ? videoWriter_->pixelFormatType : 0; }
void QVMXVideoTranscoder::setPixelFormatType(uint32_t value) {
    if (videoWriter_) videoWriter_->pixelFormatType = value;
    if (videoReader_) videoReader_->pixelFormatType = value;
}

bool QVMXVideoTranscoder::attachSource(const std::string& url) {
    sourceURL = url;
    sourceFrameSize = {0.0, 0.0};
    sourceDuration = MediaTime::zero();
    nominalFrameRate = 0.0f;
    if (!videoReader_) return false;
    const bool described = videoReader_->describeSource(url, sourceFrameSize, sourceDuration, nominalFrameRate);
    if (described) {
        renderFrameSize = sourceFrameSize;
        outputFrameSize = sourceFrameSize;
        detectedAudioSampleRate = videoReader_->audioSampleRate;
    } else {
        write("%s: Failed to detect frameSize: %s", __PRETTY_FUNCTION__, url.c_str());
    }
    return described;
}

bool QVMXVideoTranscoder::process(const std::string& outputURL, float audioPrecedingLimit,
                                  const MediaTime& startTime, const QVMX::MediaTimeRange& timeRange,
                                  bool encodeHEVC, const FrameCallback& processFrame,
                                  const AudioCallback& processAudio, const FinallyCallback& processFinally) {
    if (!videoReader_ || !videoWriter_) {
        write("%s: this transcoder has already been used", __PRETTY_FUNCTION__);
        return false;
    }
    QVMXVideoReader& reader = *videoReader_;
    QVMXVideoWriter& writer = *videoWriter_;
    failure.clear();
    copiedPackets.clear();
    if (!reader.start(sourceURL, renderFrameSize, timeRange)) {
        failure = "the source could not be read";
        return false;
    }
    const MediaTime rangeStart = timeRange.isValid() ? timeRange.start : MediaTime::zero();
    const MediaTime rangeEnd = timeRange.isValid() ? timeRange.end() : MediaTime::invalid();
    QVMX::StreamCopy copy(startTime.isNumeric() ? startTime : rangeStart,
                          rangeEnd.isNumeric() ? rangeEnd : MediaTime::invalid());
    QVMX::AudioReencode extraAudio(startTime.isNumeric() ? startTime : rangeStart,
                                   rangeEnd.isNumeric() ? rangeEnd : MediaTime::invalid(), writer.audioEncoderBitRate);
    writer.prepareStreams = [&](QVMX::MovieMuxer& muxer, AVStream* video, std::string& error) {
        if (!copy.addStreams(reader.formatContext(), copiedStreams, muxer, error)) return false;
        if (!extraAudio.addStreams(reader.formatContext(), reencodedAudio, muxer, error)) return false;
        const AVFormatContext* input = reader.formatContext();
        const int index = reader.videoStreamIndex();
        if (QVMX::carryVideoTags(index >= 0 ? input->streams[index] : nullptr, video, videoTimecode)) {
            muxer.allowUnofficial();
        }
        return true;
    };
    if (nominalFrameRate > 0.0f) writer.expectedFrameRate = nominalFrameRate;
    if (!writer.start(outputURL, startTime, outputFrameSize, reader.hasAudioTrack(), encodeHEVC)) {
        failure = writer.failure().empty() ? "the output could not be created" : writer.failure();
        reader.stop();
        return false;
    }
    copy.enable(*reader.packetSource());
    extraAudio.enable(*reader.packetSource());
    std::string copyError;
    bool copyOK = true;

    bool keepGoing = true;
    int status = QVMXVideoReader::kUnknown;
    for (;;) {
        if (status == QVMXVideoReader::kCompleted || status == QVMXVideoReader::kFailed ||
            status == QVMXVideoReader::kCancelled) {
            break;
        }
        bool audioLoaded = false;
        if (writer.isReadyForMoreAudio()) {
            audioLoaded = reader.loadNextAudio(audioPrecedingLimit, [&](const QVMX::SampleBuffer* sample,
                                                                        const MediaTime& time) {
                // Audio ahead of the video by more than the limit: nothing moves.
                if (QVMX::isHeldBackMarker(sample)) return;
                if (processAudio) {
                    processAudio(sample, writer, time);
                } else {
                    writer.processAudio(sample);
                }
            });
        }
        bool frameLoaded = false;
        if (writer.isReadyForMoreFrame()) {
            frameLoaded = reader.loadNextFrame([&](const QVMX::PixelBuffer& frame, const MediaTime& time) {
                keepGoing = processFrame ? processFrame(frame, writer, time) : writer.processFrame(&frame, time);
            });
        }
        if (!keepGoing) break;
        if (copyOK && writer.muxer() != nullptr) {
            const MediaTime until = reader.currentFrameTime + MediaTime::makeWithSeconds(audioPrecedingLimit, 1000);
            copyOK = copy.pump(*reader.packetSource(), *writer.muxer(), copyError) &&
                     extraAudio.pump(*reader.packetSource(), *writer.muxer(), until, copyError);
        }
        if (!copyOK) break;
        // A failed writer is never ready again; waiting for it would not end.
        if (writer.status() == QVMXVideoWriter::kFailed) break;
        if (!audioLoaded && !frameLoaded) ::usleep(1000);
        status = reader.mediaStatus();
    }

    if (copyOK && status == QVMXVideoReader::kCompleted && writer.muxer() != nullptr) {
        copyOK = copy.finish(*reader.packetSource(), *writer.muxer(), copyError) &&
                 extraAudio.finish(*reader.packetSource(), *writer.muxer(), copyError);
    }
    for (int index : copiedStreams) copiedPackets[index] = copy.written(index);
    if (processFinally) processFinally(writer);
    const bool stopOK = writer.stop();
    reader.stop();
    if (!copyOK) {
        failure = "a kept track could not be copied: " + copyError;
    } else if (status == QVMXVideoReader::kFailed) {
        failure = "reading the source failed";
    } else if (!stopOK) {
        failure = writer.failure().empty() ? "writing the output failed" : "writing the output failed: " + writer.failure();
    }
    videoReader_.reset();
    videoWriter_.reset();
    if (status == QVMXVideoReader::kFailed || !stopOK || !copyOK) return false;
    return keepGoing;
}

bool QVMXVideoTranscoder::process(const std::string& outputURL, float audioPrecedingLimit, bool encodeHEVC,
                                  const RenderCallback& processFrame, const AudioCallback& processAudio) {
    FrameCallback viaWriterBuffer = [&processFrame](const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer,
                                                    const MediaTime& time) {
        bool keepGoing = true;
        writer.processFrame([&](QVMX::PixelBuffer& target) {
            if (processFrame) {
                keepGoing = processFrame(frame, target, time);
            } else {
                copyPixels(frame, target);
            }
            return time;
        });
        return keepGoing;
    };
    return this->process(outputURL, audioPrecedingLimit, MediaTime::zero(), QVMX::MediaTimeRange::invalid(),
                         encodeHEVC, viaWriterBuffer, processAudio, nullptr);
}

bool QVMXVideoTranscoder::process2(const std::string& outputURL, float audioPrecedingLimit, bool encodeHEVC,
                                   const FrameCallback& processFrame, const AudioCallback& processAudio,
                                   const FinallyCallback& processFinally) {
    return process(outputURL, audioPrecedingLimit, MediaTime::zero(), QVMX::MediaTimeRange::invalid(), encodeHEVC,
                   processFrame, processAudio, processFinally);
}
