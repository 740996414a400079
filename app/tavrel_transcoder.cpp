#include "app/tavrel_transcoder.h"

#include "app/option.h"
#include "foundation/console.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"
#include "meta/meta_builder.h"
#include "video/pixel_buffer.h"
#include "video/video_transcoder.h"

namespace {
// Audio may run this far ahead of the last frame before frames catch up.
constexpr float kAudioPrecedingLimit = 1.0f;
constexpr float kLowestAudioRate = 44100.0f;
}  // namespace

unsigned int TavrelTranscoder::trim(const Option& option) {
    const std::string sourceURL = QVMX::wchar::wcs2mbs(option.source).c_str();
    const std::string outputURL = QVMX::wchar::wcs2mbs(option.output).c_str();

    QVMXVideoTranscoder transcoder;
    if (!transcoder.attachSource(sourceURL)) return 0;
    const QVMX::MediaTime duration = transcoder.sourceDuration;

    transcoder.setPixelFormatType(Utility::isSupporFullRangePixelFormat()
                                      ? QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange
                                      : QVMX::kPixelFormat420YpCbCr8Planar);
    transcoder.setVideoAverageBitRate(option.videoBitRate);
    transcoder.setAudioEncoderBitRate(option.audioBitRate);

    QVMX::FrameSize size = transcoder.sourceFrameSize;
    if (option.videoWidth >= 2) {
        // The output is always 2:1.
        size.width = option.videoWidth;
        size.height = option.videoWidth >> 1;
    }
    transcoder.renderFrameSize = size;
    transcoder.outputFrameSize = size;
    transcoder.setKeyFrameInterval(option.keyFrameInterval);

    const float detected = transcoder.detectedAudioSampleRate;
    const float rate = detected < kLowestAudioRate ? kLowestAudioRate : detected;
    transcoder.setAudioProcessSampleRate(rate);
    transcoder.setAudioSampleRate(rate);
    QVMX::Console::out(L"audio sampleRate: in: %0.3f, out: %0.3f/%0.3f\n", detected / 1000.0,
                       transcoder.audioProcessSampleRate() / 1000.0, transcoder.audioSampleRate() / 1000.0);
    transcoder.setMoovFirst(option.probe.modelCode <= MetaBuilder::kNewerLayout);

    const int32_t timescale = duration.timescale > 0 ? duration.timescale : 600;
    const QVMX::MediaTime start = QVMX::MediaTime::makeWithSeconds(option.startSeconds, timescale);
    QVMX::MediaTime end = QVMX::MediaTime::makeWithSeconds(option.endSeconds, timescale);
    QVMX::Console::out(L"processing %ls to %ls ...\n", option.source.c_str(), option.output.c_str());
    if (!(duration > end)) end = duration;
    // Nothing lies between a start at or past the end and the end: no frame
    // can be kept, and a range of negative length would not limit the
    // reading at all.
    if (!(end > start)) return 0;
    const float totalSeconds = static_cast<float>(duration.seconds());

    unsigned int frames = 0;
    const bool ok = transcoder.process(
        outputURL, kAudioPrecedingLimit, start, QVMX::MediaTimeRange::make(start, end - start),
        option.codec == MetaProbe::kCodecHEVC,
        [&](const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer, const QVMX::MediaTime& time) {
            QVMX::Console::out(L"processing frame %6d %0.2f/%0.2f\r", static_cast<int>(frames), time.seconds(),
                               double(totalSeconds));
            writer.processFrame(&frame, time);
            ++frames;
            return true;
        },
        [&](const QVMX::SampleBuffer* sample, QVMXVideoWriter& writer, const QVMX::MediaTime& time) {
            QVMX::Console::out(L"processing audio ------ %0.2f/%0.2f\r", time.seconds(), double(totalSeconds));
            writer.processAudio(sample);
            return true;
        },
        [](QVMXVideoWriter&) {});
    return ok ? frames : 0;
}
