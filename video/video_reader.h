#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "video/frame_size.h"
#include "video/media_time.h"
#include "video/pixel_buffer.h"
#include "video/sample_buffer.h"

struct AVFormatContext;
namespace QVMX {
class PacketSource;
}

// Describes a movie, then hands out its frames (scaled and converted to one
// pixel format) and its audio (all tracks mixed into 16-bit interleaved PCM),
// one at a time, on request.
class QVMXVideoReader {
public:
    enum Status { kUnknown = 0, kReading = 1, kCompleted = 2, kFailed = 3, kCancelled = 4 };

    using FrameHandler = std::function<void(const QVMX::PixelBuffer& buffer, const QVMX::MediaTime& time)>;
    // sample is a real buffer or QVMX::heldBackMarker().
    using AudioHandler = std::function<void(const QVMX::SampleBuffer* sample, const QVMX::MediaTime& time)>;

    QVMXVideoReader();
    ~QVMXVideoReader();
    QVMXVideoReader(const QVMXVideoReader&) = delete;
    QVMXVideoReader& operator=(const QVMXVideoReader&) = delete;

    float audioSampleRate = 44100.0f;
    int32_t audioNumberOfChannels = 2;
    uint32_t pixelFormatType = QVMX::kPixelFormat32BGRA;
    bool playAudio = false;
    float nominalFrameRate = 0.0f;
    QVMX::MediaTime currentFrameTime = QVMX::MediaTime::zero();
    // Only the first audio track is decoded (the others are mixed into it
    // otherwise).
    bool firstAudioOnly = false;

    // Size of the first decoded picture (left alone when there is none),
    // duration, frame rate; sets audioSampleRate to the first audio track's
    // rate (0 without audio).
    bool describeSource(const std::string& url, QVMX::FrameSize& size, QVMX::MediaTime& duration,
                        float& frameRate);

    // The whole movie, or timeRange when it is valid.
    bool start(const std::string& url, QVMX::FrameSize playSize);
    bool start(const std::string& url, QVMX::FrameSize playSize, const QVMX::MediaTimeRange& timeRange);

    // NO at the end of the frames, when not reading, or on an error.
    bool loadNextFrame(const FrameHandler& handler);
    // YES without reading when there is no audio, or (reporting the
    // held-back marker) when audio leads the last frame by more than limit
    // seconds.
    bool loadNextAudio(float limit, const AudioHandler& handler);

    bool hasAudioTrack() const { return audioOptions_.has_value(); }
    int mediaStatus() const { return status_; }
    std::string mediaStatusWithNSString() const;
    static std::string statusName(int status);

    void pause();
    void resume();
    void stop();

    // Packets read ahead of the stream that will want them (read-ahead must
    // stay bounded by the audio limit, not grow with the movie).
    size_t parkedPacketCount() const;

    // While reading: the opened movie, its packets (other streams may be
    // enabled on it and take what is parked for them) and the video's
    // stream; nullptr or -1 otherwise.
    AVFormatContext* formatContext() const;
    QVMX::PacketSource* packetSource() const;
    int videoStreamIndex() const;

private:
    struct VideoOptions {
        uint32_t pixelFormatType;
        int width;
        int height;
    };
    struct AudioOptions {
        float sampleRate;
        int32_t channels;
    };
    struct Session;

    bool setupFrameReader();
    bool setupAudioReader();
    bool setupAudioPlayer();
    void fail(const char* function, const std::string& reason);
    void endVideo();
    void endAudio();

    std::unique_ptr<Session> assetReader_;  // the opened movie and its decoders
    std::optional<VideoOptions> videoOptions_;
    std::optional<AudioOptions> audioOptions_;
    QVMX::MediaTime currentAudioTime_ = QVMX::MediaTime::zero();
    int status_ = kUnknown;
};
