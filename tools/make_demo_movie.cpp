// tavrel-make-demo [OUTPUT.mp4]
//
// Writes a small synthetic camera movie for the demo (default
// ./images/source.mp4): three seconds of a moving colour pattern, 1024x512 at
// 30 frames per second, H.264 with an AAC tone, encoded through the project's
// own writer with the media data first, then dressed as the newest camera
// writes its movies (model box, maker EXIF, sensor boxes, maker thumbnail,
// spatial-data block with its locator, location). Everything is written
// beside the output under hidden names, which the finished movie takes at
// the end. Exit status 0, or 1 with one line on standard error.
#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <string>

#include "foundation/console.h"
#include "foundation/notices.h"
#include "foundation/pending_output.h"
#include "foundation/wchar.h"
#include "tools/camera_movie/camera_movie.h"
#include "video/pixel_buffer.h"
#include "video/sample_buffer.h"
#include "video/video_writer.h"

namespace {

constexpr int kWidth = 1024;
constexpr int kHeight = kWidth / 2;  // equirectangular: 2:1
constexpr int kFps = 30;
constexpr int kFrames = 3 * kFps;
constexpr int kAudioRate = 48000;
constexpr int kChannels = 2;
constexpr double kToneHz = 440.0;

// One hue per longitude, drifting east over time; lighter towards the
// zenith, darker towards the nadir; a grid every 45 degrees; and a white
// ball travelling round the horizon, so every frame (and the thumbnail) is
// different and recognisable.
void paintFrame(QVMX::PixelBuffer& picture, int index) {
    const double t = static_cast<double>(index) / kFps;
    const double ballX = std::fmod(0.25 + t / 3.0, 1.0) * kWidth;
    const double ballY = kHeight * (0.5 - 0.15 * std::sin(2 * std::numbers::pi * t / 3.0));
    const double ballRadius = kHeight / 12.0;
    uint8_t* base = picture.baseAddressOfPlane(0);
    const int stride = picture.bytesPerRowOfPlane(0);
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* row = base + static_cast<ptrdiff_t>(y) * stride;
        const double light = 1.0 - 0.7 * y / kHeight;
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* bgra = row + 4 * x;
            const double dx = x - ballX, dy = y - ballY;
            const bool grid = x % (kWidth / 8) < 2 || y % (kHeight / 4) < 2;
            if (grid || dx * dx + dy * dy < ballRadius * ballRadius) {
                bgra[0] = bgra[1] = bgra[2] = 255;
            } else {
                const double hue = std::fmod(static_cast<double>(x) / kWidth + t / 6.0, 1.0) * 6.0;
                const double rgb[3] = {std::fabs(hue - 3.0) - 1.0, 2.0 - std::fabs(hue - 2.0),
                                       2.0 - std::fabs(hue - 4.0)};
                for (int c = 0; c < 3; ++c) {
                    bgra[2 - c] = static_cast<uint8_t>(255.0 * light * std::clamp(rgb[c], 0.0, 1.0));
                }
            }
            bgra[3] = 255;
        }
    }
}

// The tone for the span of one video frame, on every channel.
QVMX::SampleBuffer toneFor(int index) {
    constexpr int perFrame = kAudioRate / kFps;
    QVMX::SampleBuffer sample;
    sample.channels = kChannels;
    sample.sampleRate = kAudioRate;
    sample.presentationTime = QVMX::MediaTime::make(static_cast<int64_t>(index) * perFrame, kAudioRate);
    sample.samples.reserve(static_cast<size_t>(perFrame) * kChannels);
    for (int i = 0; i < perFrame; ++i) {
        const double at = static_cast<double>(index * perFrame + i) / kAudioRate;
        const auto value = static_cast<int16_t>(8000.0 * std::sin(2 * std::numbers::pi * kToneHz * at));
        sample.samples.insert(sample.samples.end(), kChannels, value);
    }
    return sample;
}

// The plain movie, media data before the movie box (as the newest camera
// lays its movies out, and as the dressing needs it).
bool encodePlainMovie(const std::string& path, std::string& error) {
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat32BGRA;
    writer.videoAverageBitRate = 4000000;
    writer.keyFrameInterval = kFps;
    writer.audioSampleRate = kAudioRate;
    writer.audioNumberOfChannels = kChannels;
    writer.moovFirst = false;
    if (!writer.start(path, QVMX::MediaTime::zero(), {kWidth, kHeight}, true, false)) {
        error = "cannot start writing the plain movie";
        return false;
    }
    auto picture = QVMX::PixelBuffer::create(writer.pixelFormatType, kWidth, kHeight);
    if (!picture) {
        error = "no memory for a picture";
        writer.stop();
        return false;
    }
    for (int i = 0; i < kFrames; ++i) {
        paintFrame(*picture, i);
        const QVMX::SampleBuffer tone = toneFor(i);
        if (!writer.processFrame(picture.get(), QVMX::MediaTime::make(i, kFps)) || !writer.processAudio(&tone)) {
            error = "cannot encode frame " + std::to_string(i);
            writer.stop();
            return false;
        }
    }
    if (!writer.stop()) {
        error = "cannot finish the plain movie";
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    QVMX::Notices::install(QVMX::Notices::toConsole());
    QVMX::PendingOutput::installInterruptHandler();
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        std::fprintf(stderr, "usage: tavrel-make-demo [OUTPUT.mp4]   (default ./images/source.mp4)\n");
        return 1;
    }
    const std::filesystem::path target = argc == 2 ? argv[1] : "./images/source.mp4";

    const cameramovie::Dressing dressing = cameramovie::newestCamera(kFrames, double(kFrames) / kFps);
    std::string error;
    std::error_code code;
    if (target.has_parent_path()) std::filesystem::create_directories(target.parent_path(), code);
    if (code) error = "cannot create the folder " + target.parent_path().string() + ": " + code.message();
    if (error.empty()) error = QVMX::outputPathProblem(target.string());
    if (error.empty()) {
        // The movie before its dressing is only ever a hidden file, gone
        // however the run ends.
        QVMX::PendingOutput movie(target.string());
        QVMX::PendingOutput plain(target.string() + ".plain");
        if (!movie.isOpen() || !plain.isOpen()) {
            error = movie.isOpen() ? plain.cause() : movie.cause();
        } else if (encodePlainMovie(plain.temporaryPath(), error) &&
                   cameramovie::dress(plain.temporaryPath(), movie.temporaryPath(), dressing, error)) {
            plain.discard();
            if (!movie.commit()) error = movie.cause();
        }
        if (!error.empty()) {
            if (const std::string full = QVMX::fullDiskCause(target.string()); !full.empty()) error = full;
        }
    }
    if (!error.empty()) {
        std::fprintf(stderr, "tavrel-make-demo: %s; nothing was written to %s.\n", error.c_str(), target.c_str());
        return 1;
    }
    QVMX::Console::out(L"wrote %ls: %dx%d H.264, %d frames at %d fps, AAC %d Hz stereo, dressed as %ls\n",
                       QVMX::wchar::mbs2wcs(target.c_str()).c_str(), kWidth, kHeight, kFrames, kFps, kAudioRate,
                       QVMX::wchar::mbs2wcs(dressing.model.c_str()).c_str());
    return 0;
}
