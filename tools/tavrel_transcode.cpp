// Re-encodes a movie through the video pipeline with explicit settings; used
// by the benchmarks and the whole-program tests of the pipeline. Movie and
// JPEG are written beside their paths under hidden names and take the paths'
// names only when whole.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/console.h"
#include "foundation/pending_output.h"
#include "foundation/wchar.h"
#include "video/thumbnailer.h"
#include "video/video_transcoder.h"
#include "tools/refusal.h"

namespace {

void usage() {
    QVMX::Console::out(
        L"usage: tavrel-transcode SOURCE OUTPUT [--size=WxH] [--bitrate=BPS] [--keyint=N]\n"
        L"         [--audio-bitrate=BPS] [--channels=N] [--hevc] [--start=S] [--end=S]\n"
        L"         [--moov-first=0|1] [--pixel-format=420f|y420|BGRA]\n"
        L"       tavrel-transcode --thumbnail MOVIE JPEG [WIDTH TARGET-BYTES]\n");
}


// Refuses an output that cannot be written before any work is done; else
// opens its temporary file.
bool startOutput(QVMX::PendingOutput& pending, unsigned long long bytes) {
    std::string problem = QVMX::outputPathProblem(pending.path());
    if (problem.empty()) problem = QVMX::roomProblem(pending.path(), bytes);
    if (problem.empty() && !pending.isOpen()) problem = pending.cause();
    if (problem.empty()) return true;
    refuseOutput(pending.path(), problem);
    return false;
}

// The first frame as a JPEG file, whole or through the bounded buffer form.
int thumbnail(int argc, char** argv) {
    const std::wstring movie = QVMX::wchar::mbs2wcs(argv[2]);
    const std::wstring jpeg = QVMX::wchar::mbs2wcs(argv[3]);
    const std::string output = argv[3];
    QVMX::PendingOutput pending(output);
    if (!startOutput(pending, 0)) return 1;
    Thumbnailer thumbnailer(movie);
    if (argc == 4) {
        if (!thumbnailer.saveFrame(QVMX::wchar::mbs2wcs(pending.temporaryPath().c_str()))) {
            QVMX::Console::out(L"thumbnailer(%ls) failed.\n", jpeg.c_str());
            return refuseOutput(output, "no frame could be saved", &pending);
        }
        return pending.commit() ? 0 : refuseOutput(output, pending.cause(), &pending);
    }
    ByteArray bytes;
    if (!thumbnailer.saveFrame(bytes, std::atoi(argv[4]), std::strtoul(argv[5], nullptr, 10))) {
        QVMX::Console::out(L"thumbnailer(%ls) failed.\n", jpeg.c_str());
        return refuseOutput(output, "no frame fits the size asked for");
    }
    FILE* out = std::fopen(pending.temporaryPath().c_str(), "wb");
    bool written = out != nullptr && std::fwrite(bytes.data, 1, bytes.size, out) == bytes.size;
    if (out != nullptr && std::fclose(out) != 0) written = false;
    QVMX::Console::out(L"bytes: %llu\n", static_cast<unsigned long long>(bytes.size));
    if (!written) return refuseOutput(output, "the JPEG could not be written", &pending);
    return pending.commit() ? 0 : refuseOutput(output, pending.cause(), &pending);
}

bool numberAfter(const char* argument, const char* name, double& value) {
    const size_t n = std::strlen(name);
    if (std::strncmp(argument, name, n) != 0) return false;
    char* end = nullptr;
    value = std::strtod(argument + n, &end);
    return end != argument + n && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    QVMX::PendingOutput::installInterruptHandler();
    if (argc >= 2 && std::strcmp(argv[1], "--thumbnail") == 0) {
        if (argc != 4 && argc != 6) {
            usage();
            return 1;
        }
        return thumbnail(argc, argv);
    }
    if (argc < 3) {
        usage();
        return 1;
    }
    const std::string source = argv[1], output = argv[2];
    bool sized = false;
    double width = 0, height = 0, bitRate = 8192000, keyInterval = 30, audioBitRate = 128000, channels = 1;
    double startSeconds = 0, endSeconds = 4294967295.0, moovFirst = 1;
    bool hevc = false;
    uint32_t pixelFormat = Utility::isSupporFullRangePixelFormat() ? QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange
                                                                    : QVMX::kPixelFormat420YpCbCr8Planar;
    for (int i = 3; i < argc; ++i) {
        const char* a = argv[i];
        double v;
        if (std::strncmp(a, "--size=", 7) == 0) {
            int w = 0, h = 0;
            if (std::sscanf(a + 7, "%dx%d", &w, &h) != 2) {
                usage();
                return 1;
            }
            width = w;
            height = h;
            sized = true;
        } else if (numberAfter(a, "--bitrate=", v)) {
            bitRate = v;
        } else if (numberAfter(a, "--keyint=", v)) {
            keyInterval = v;
        } else if (numberAfter(a, "--audio-bitrate=", v)) {
            audioBitRate = v;
        } else if (numberAfter(a, "--channels=", v)) {
            channels = v;
        } else if (numberAfter(a, "--start=", v)) {
            startSeconds = v;
        } else if (numberAfter(a, "--end=", v)) {
            endSeconds = v;
        } else if (numberAfter(a, "--moov-first=", v)) {
            moovFirst = v;
        } else if (std::strcmp(a, "--hevc") == 0) {
            hevc = true;
        } else if (std::strncmp(a, "--pixel-format=", 15) == 0 && std::strlen(a + 15) == 4) {
            const char* c = a + 15;
            pixelFormat = (uint32_t(uint8_t(c[0])) << 24) | (uint32_t(uint8_t(c[1])) << 16) |
                          (uint32_t(uint8_t(c[2])) << 8) | uint32_t(uint8_t(c[3]));
        } else {
            usage();
            return 1;
        }
    }

    QVMXVideoTranscoder transcoder;
    if (!transcoder.attachSource(source)) {
        QVMX::Console::out(L"attachSource(%s) failed.\n", source.c_str());
        return 1;
    }
    const QVMX::MediaTime duration = transcoder.sourceDuration;
    transcoder.setPixelFormatType(pixelFormat);
    transcoder.setVideoAverageBitRate(static_cast<uint64_t>(bitRate));
    transcoder.setAudioEncoderBitRate(static_cast<uint64_t>(audioBitRate));
    if (sized) {
        transcoder.renderFrameSize = {width, height};
        transcoder.outputFrameSize = {width, height};
    }
    transcoder.setKeyFrameInterval(static_cast<int32_t>(keyInterval));
    transcoder.setAudioNumberOfChannels(static_cast<int32_t>(channels));
    const float rate = transcoder.detectedAudioSampleRate < 44100.0f ? 44100.0f : transcoder.detectedAudioSampleRate;
    transcoder.setAudioProcessSampleRate(rate);
    transcoder.setAudioSampleRate(rate);
    transcoder.setMoovFirst(moovFirst != 0);

    const int32_t scale = duration.isNumeric() ? duration.timescale : 600;
    const QVMX::MediaTime start = QVMX::MediaTime::makeWithSeconds(startSeconds, scale);
    QVMX::MediaTime end = QVMX::MediaTime::makeWithSeconds(endSeconds, scale);
    if (duration.isNumeric() && !(duration > end)) end = duration;

    // About what the bit rates make of the kept range, and room to spare.
    const double seconds = duration.isNumeric() ? (end - start).seconds() : 0;
    const auto needed =
        static_cast<unsigned long long>((bitRate + audioBitRate) / 8 * (seconds > 0 ? seconds : 0) + (4 << 20));
    QVMX::PendingOutput pending(output);
    if (!startOutput(pending, needed)) return 1;

    unsigned frames = 0;
    const bool ok = transcoder.process(
        pending.temporaryPath(), 1.0f, start, QVMX::MediaTimeRange::make(start, end - start), hevc,
        [&frames](const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer, const QVMX::MediaTime& time) {
            writer.processFrame(&frame, time);
            ++frames;
            return true;
        },
        nullptr, nullptr);
    if (!ok || frames == 0) {
        QVMX::Console::out(L"process(%s, %s) failed.\n", source.c_str(), output.c_str());
        return refuseOutput(output, "the re-encode failed", &pending, needed);
    }
    if (!pending.commit()) return refuseOutput(output, pending.cause(), &pending, needed);
    QVMX::Console::out(L"frames: %u\n", frames);
    return 0;
}
