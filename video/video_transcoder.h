#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <map>
#include <string>
#include <vector>

#include "video/frame_size.h"
#include "video/media_time.h"
#include "video/pixel_buffer.h"
#include "video/sample_buffer.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

// Couples one reader and one writer into a read-process-write loop that
// moves at most one audio sample and one frame per pass, audio first. A
// transcoder serves one process call; the reader and writer go with it.
class QVMXVideoTranscoder {
public:
    // Answering NO ends the loop after the current pass.
    using FrameCallback =
        std::function<bool(const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer, const QVMX::MediaTime& time)>;
    // The answer is not used.
    using AudioCallback =
        std::function<bool(const QVMX::SampleBuffer* sample, QVMXVideoWriter& writer, const QVMX::MediaTime& time)>;
    using FinallyCallback = std::function<void(QVMXVideoWriter& writer)>;
    // For the short form: draws frame into target, the writer's own buffer,
    // which is then appended at time. NO ends the loop.
    using RenderCallback = std::function<bool(const QVMX::PixelBuffer& frame, QVMX::PixelBuffer& target,
                                              const QVMX::MediaTime& time)>;

    QVMXVideoTranscoder();
    ~QVMXVideoTranscoder();
    QVMXVideoTranscoder(const QVMXVideoTranscoder&) = delete;
    QVMXVideoTranscoder& operator=(const QVMXVideoTranscoder&) = delete;

    std::string sourceURL;
    QVMX::FrameSize sourceFrameSize;
    QVMX::MediaTime sourceDuration = QVMX::MediaTime::zero();
    float nominalFrameRate = 0.0f;
    QVMX::FrameSize renderFrameSize;  // the size the reader delivers
    QVMX::FrameSize outputFrameSize;  // the size the writer encodes
    float detectedAudioSampleRate = 0.0f;
    // Source streams whose packets the main process puts into the output as
    // they are, cut to the time range like the frames.
    std::vector<int> copiedStreams;
    // Further audio streams encoded to AAC each on its own, cut the same way.
    std::vector<int> reencodedAudio;
    // The output video's start timecode; empty for none.
    std::string videoTimecode;
    // After process: packets written per copied source stream, and why it
    // failed (empty when it did not).
    std::map<int, int> copiedPackets;
    std::string failure;

    // Forwarded to the writer (and, for the last two setters, the reader);
    // 0 once the transcoder is spent.
    uint64_t videoAverageBitRate() const;
    void setVideoAverageBitRate(uint64_t value);
    float audioSampleRate() const;
    void setAudioSampleRate(float value);
    uint64_t audioEncoderBitRate() const;
    void setAudioEncoderBitRate(uint64_t value);
    int32_t keyFrameInterval() const;
    void setKeyFrameInterval(int32_t value);
    bool moovFirst() const;
    void setMoovFirst(bool value);
    float audioProcessSampleRate() const;  // the rate the reader decodes to
    void setAudioProcessSampleRate(float value);
    int32_t audioNumberOfChannels() const;
    void setAudioNumberOfChannels(int32_t value);
    uint32_t pixelFormatType() const;
    void setPixelFormatType(uint32_t value);

    bool attachSource(const std::string& url);

    bool process(const std::string& outputURL, float audioPrecedingLimit, const QVMX::MediaTime& startTime,
                 const QVMX::MediaTimeRange& timeRange, bool encodeHEVC, const FrameCallback& processFrame,
                 const AudioCallback& processAudio, const FinallyCallback& processFinally);
    // The whole movie from time zero; frames go through the writer's own
    // buffers (an absent render callback copies the frame as it is).
    bool process(const std::string& outputURL, float audioPrecedingLimit, bool encodeHEVC,
                 const RenderCallback& processFrame, const AudioCallback& processAudio);
    // The whole movie from time zero with the main form's callbacks.
    bool process2(const std::string& outputURL, float audioPrecedingLimit, bool encodeHEVC,
                  const FrameCallback& processFrame, const AudioCallback& processAudio,
                  const FinallyCallback& processFinally);

    // The ends, for inspection before process (nullptr afterwards).
    QVMXVideoReader* videoReader() const { return videoReader_.get(); }
    QVMXVideoWriter* videoWriter() const { return videoWriter_.get(); }

private:
    std::unique_ptr<QVMXVideoReader> videoReader_;
    std::unique_ptr<QVMXVideoWriter> videoWriter_;
};
