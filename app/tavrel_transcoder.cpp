#include "app/tavrel_transcoder.h"

#include <optional>

#include "app/option.h"
#include "foundation/console.h"
#include "foundation/utility.h"
#include "foundation/wchar.h"
#include "meta/meta_builder.h"
#include "video/pixel_buffer.h"
#include "video/source_check.h"
#include "video/timecode_text.h"
#include "video/trim_range.h"
#include "video/video_transcoder.h"

namespace {
// Audio may run this far ahead of the last frame before frames catch up.
constexpr float kAudioPrecedingLimit = 1.0f;
constexpr float kLowestAudioRate = 44100.0f;

std::wstring wide(const std::string& text) { return QVMX::wchar::mbs2wcs(text.c_str()); }

// Why the source cannot be re-encoded at all; empty when it can.
std::wstring refusal(const QVMX::SourceReport& report) {
    switch (report.problem) {
        case QVMX::SourceReport::kNone:
            return L"";
        case QVMX::SourceReport::kUnreadable:
            return L"it cannot be read as a movie";
        case QVMX::SourceReport::kNoVideo:
            return L"it has no video track";
        case QVMX::SourceReport::kEncrypted:
            return L"its samples are encrypted";
        case QVMX::SourceReport::kUndecodable:
            QVMX::Console::out(L"Unknown codec.\n");
            return L"its video (" + wide(report.videoCodec) + L") cannot be decoded here";
    }
    return L"it cannot be re-encoded";
}

std::optional<uint32_t> endOf(const Option& option) {
    if (option.endSeconds == Option::kToTheEnd) return std::nullopt;
    return option.endSeconds;
}

std::wstring rangeText(const Option& option) {
    std::wstring text = L"-ss:" + std::to_wstring(option.startSeconds);
    if (option.endSeconds != Option::kToTheEnd) text += L" -to:" + std::to_wstring(option.endSeconds);
    return text;
}

}  // namespace

TrimResult TavrelTranscoder::trim(const Option& option, const std::wstring& writeTo) {
    const std::string sourceURL = QVMX::wchar::wcs2mbs(option.source).c_str();
    const std::string outputURL = QVMX::wchar::wcs2mbs(writeTo).c_str();
    TrimResult result;

    const QVMX::SourceReport report = QVMX::inspectSource(sourceURL);
    result.problem = refusal(report);
    if (!result.problem.empty()) return result;
    if (QVMX::trimRange(report.firstFrame, report.videoDuration, option.startSeconds, endOf(option)).holdsNoFrame()) {
        result.problem = L"the range " + rangeText(option) + L" holds no frame";
        return result;
    }

    QVMXVideoTranscoder transcoder;
    if (!transcoder.attachSource(sourceURL)) {
        result.problem = L"it cannot be read as a movie";
        return result;
    }
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

    // The first audio track is encoded; the others the output can hold go
    // in as they are, other audio is encoded track by track, and every track
    // left out is named.
    transcoder.videoReader()->firstAudioOnly = true;
    for (const QVMX::TrackChoice& track : report.tracks) {
        if (track.role == QVMX::TrackRole::Copied) transcoder.copiedStreams.push_back(track.index);
        if (track.role == QVMX::TrackRole::ReencodedAudio) transcoder.reencodedAudio.push_back(track.index);
        if (track.role == QVMX::TrackRole::Dropped) {
            QVMX::Console::out(L"%ls\n", wide(QVMX::droppedLine(track)).c_str());
        }
    }
    transcoder.videoTimecode =
        QVMX::advanceTimecode(report.timecode, report.frameRate, static_cast<double>(option.startSeconds));

    // The movie's whole length bounds the reading, as its video may end
    // before its sound.
    const QVMX::TrimRange range = QVMX::trimRange(report.firstFrame, duration, option.startSeconds, endOf(option));
    const QVMX::MediaTime start = range.start;
    const QVMX::MediaTime end = range.end.isNumeric() ? range.end : QVMX::MediaTime::positiveInfinity();
    QVMX::Console::out(L"processing %ls to %ls ...\n", option.source.c_str(), option.output.c_str());
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
    if (!ok) {
        result.problem = transcoder.failure.empty() ? L"the re-encode failed" : wide(transcoder.failure);
        return result;
    }
    if (frames == 0) {
        result.problem = L"no frame of the range " + rangeText(option) + L" could be decoded";
        return result;
    }
    result.frames = frames;
    return result;
}
