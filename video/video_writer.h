#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "video/frame_size.h"
#include "video/media_time.h"
#include "video/pixel_buffer.h"
#include "video/sample_buffer.h"

struct AVStream;
namespace QVMX {
class MovieMuxer;
}

// Encodes frames (H.264 Baseline or HEVC) and audio (AAC) into an MPEG-4
// file. Timestamps are counted from the start time given to start(), so the
// output begins at zero.
class QVMXVideoWriter {
public:
    enum Status { kUnknown = 0, kWriting = 1, kCompleted = 2, kFailed = 3, kCancelled = 4 };

    // Fills the buffer and answers its presentation time.
    using RenderCallback = std::function<QVMX::MediaTime(QVMX::PixelBuffer& buffer)>;

    QVMXVideoWriter();
    ~QVMXVideoWriter();
    QVMXVideoWriter(const QVMXVideoWriter&) = delete;
    QVMXVideoWriter& operator=(const QVMXVideoWriter&) = delete;

    uint64_t videoAverageBitRate = 8000000;
    float audioSampleRate = 44100.0f;
    int32_t audioNumberOfChannels = 2;
    uint64_t audioEncoderBitRate = 128000;
    uint32_t pixelFormatType = QVMX::kPixelFormat32BGRA;
    int32_t keyFrameInterval = 15;
    bool moovFirst = true;
    // The frame rate the encoder's rate control plans with; the timestamps
    // still decide where each frame goes.
    float expectedFrameRate = 30.0f;

    // Called once the video and audio streams exist and before the header is
    // written: the place for further streams and the video's tags. NO (with
    // a reason in error) fails the start.
    std::function<bool(QVMX::MovieMuxer& muxer, AVStream* video, std::string& error)> prepareStreams;

    bool start(const std::string& url, const QVMX::MediaTime& startTime, QVMX::FrameSize outputSize, bool hasAudio,
               bool encodeHEVC);
    bool setupWriter(const std::string& url, QVMX::FrameSize outputSize, bool hasAudio, bool encodeHEVC);

    bool isReadyForMoreAudio() const;
    bool isReadyForMoreFrame() const;

    // YES for the held-back marker without appending; YES for a real
    // sample whatever the append answered.
    bool processAudio(const QVMX::SampleBuffer* sample);
    bool processFrame(const QVMX::PixelBuffer* buffer, const QVMX::MediaTime& frameTime);
    // Takes a buffer of the writer's format and size, lets callback fill it,
    // and appends it at the time the callback answers.
    bool processFrame(const RenderCallback& callback);
    // A buffer of the writer's format and size for the caller to fill;
    // nullptr when not ready.
    std::unique_ptr<QVMX::PixelBuffer> allcateRenderBuffer();

    // Drains the encoders and finishes the file; YES only when all of it
    // succeeded.
    bool stop();

    int status() const { return status_; }
    // The file being written, for packets that are not encoded here; nullptr
    // when not writing.
    QVMX::MovieMuxer* muxer() const;
    // Why the writer failed, in its own words; empty when it did not.
    const std::string& failure() const { return failure_; }
    bool hasAudioInput() const;

private:
    struct Session;
    bool append(const QVMX::PixelBuffer& buffer, const QVMX::MediaTime& frameTime);
    void fail(const char* function, const std::string& reason);

    std::unique_ptr<Session> assetWriter_;
    int status_ = kUnknown;
    std::string failure_;
};
