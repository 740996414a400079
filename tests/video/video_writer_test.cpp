// The writer: set-up failures, readiness, what it refuses, and what it wrote
// as the reader sees it again.
#include "video/video_writer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "movie_fixtures.h"
#include "support/test_files.h"
#include "video/video_reader.h"

using QVMX::MediaTime;
using videotest::LogCapture;

namespace {

// A "y420" picture of one grey level.
std::unique_ptr<QVMX::PixelBuffer> greyPicture(int width, int height, uint8_t level) {
    auto b = QVMX::PixelBuffer::create(QVMX::kPixelFormat420YpCbCr8Planar, width, height);
    for (int p = 0; b && p < b->planeCount(); ++p) {
        std::memset(b->baseAddressOfPlane(p), p == 0 ? level : 128,
                    static_cast<size_t>(b->bytesPerRowOfPlane(p)) * b->heightOfPlane(p));
    }
    return b;
}

std::vector<double> frameTimesOf(const std::string& path) {
    QVMXVideoReader reader;
    std::vector<double> times;
    if (!reader.start(path, {32, 16})) return times;
    while (reader.loadNextFrame([&](const QVMX::PixelBuffer&, const MediaTime& t) { times.push_back(t.seconds()); })) {
    }
    return times;
}

}  // namespace

TEST(VideoWriterSetup, RefusesPathsItCannotWriteWithALogLine) {
    testsupport::TempDir dir;
    LogCapture log;
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat420YpCbCr8Planar;
    EXPECT_FALSE(writer.start(dir.file("missing/out.mp4").string(), MediaTime::zero(), {64, 32}, false, false));
    EXPECT_TRUE(log.contains("QVMXVideoWriter::setupWriter(") && log.contains(": open failed(2)")) << log.text();
    EXPECT_FALSE(writer.isReadyForMoreFrame());
    EXPECT_EQ(writer.status(), QVMXVideoWriter::kUnknown);

    if (::geteuid() != 0) {  // permissions do not bind the superuser
        std::filesystem::create_directory(dir.file("locked"));
        ::chmod(dir.file("locked").c_str(), 0500);
        EXPECT_FALSE(writer.start(dir.file("locked/out.mp4").string(), MediaTime::zero(), {64, 32}, false, false));
        EXPECT_TRUE(log.contains(": open failed(13)")) << log.text();
        ::chmod(dir.file("locked").c_str(), 0700);
    }
}

TEST(VideoWriterSetup, RefusesSizesAndFormatsNoEncoderTakes) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    LogCapture log;
    for (const QVMX::FrameSize size : {QVMX::FrameSize{0, 32}, QVMX::FrameSize{64, 0}, QVMX::FrameSize{63, 32},
                                       QVMX::FrameSize{64, 31}, QVMX::FrameSize{-64, 32}}) {
        for (bool hevc : {false, true}) {
            QVMXVideoWriter writer;
            EXPECT_FALSE(writer.start(out, MediaTime::zero(), size, true, hevc)) << size.width << "x" << size.height;
        }
    }
    // Narrower than one HEVC coding unit: refused before the encoder sees it.
    QVMXVideoWriter narrow;
    EXPECT_FALSE(narrow.start(out, MediaTime::zero(), {48, 24}, false, true));
    QVMXVideoWriter narrowH264;
    EXPECT_TRUE(narrowH264.start(out, MediaTime::zero(), {48, 24}, false, false));
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(video) failed.")) << log.text();
    QVMXVideoWriter unknownFormat;
    unknownFormat.pixelFormatType = 0x31323334;
    EXPECT_FALSE(unknownFormat.start(out, MediaTime::zero(), {64, 32}, false, false));
    QVMXVideoWriter badAudio;
    badAudio.audioNumberOfChannels = 0;
    EXPECT_FALSE(badAudio.start(out, MediaTime::zero(), {64, 32}, true, false));
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(audio) failed.")) << log.text();
    // A refused set-up leaves no file behind.
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(VideoWriterSetup, ReplacesAnExistingOutputAndCanStartAgain) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    testsupport::writeFile(out, "an older file that is much longer than its header");
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat420YpCbCr8Planar;
    auto picture = greyPicture(32, 16, 100);
    for (int frames : {1, 3}) {
        ASSERT_TRUE(writer.start(out, MediaTime::zero(), {32, 16}, false, false));
        for (int i = 0; i < frames; ++i) EXPECT_TRUE(writer.processFrame(picture.get(), MediaTime::make(i, 30)));
        EXPECT_TRUE(writer.stop());
        EXPECT_EQ(writer.status(), QVMXVideoWriter::kCompleted);
        EXPECT_EQ(testsupport::readFile(out).substr(4, 4), "ftyp");
        EXPECT_EQ(frameTimesOf(out).size(), static_cast<size_t>(frames));
    }
}

TEST(VideoWriterAppend, WithoutAudioNothingAudioIsTaken) {
    testsupport::TempDir dir;
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat420YpCbCr8Planar;
    ASSERT_TRUE(writer.start(dir.file("out.mp4").string(), MediaTime::zero(), {32, 16}, false, false));
    EXPECT_FALSE(writer.hasAudioInput());
    EXPECT_FALSE(writer.isReadyForMoreAudio());
    QVMX::SampleBuffer sample;
    sample.channels = 1;
    sample.sampleRate = 44100;
    sample.samples.assign(441, 0);
    EXPECT_FALSE(writer.processAudio(&sample));
    EXPECT_FALSE(writer.processAudio(QVMX::heldBackMarker()));
    EXPECT_TRUE(writer.isReadyForMoreFrame());
    EXPECT_TRUE(writer.stop());
}

TEST(VideoWriterAppend, FramesOutOfPlaceAreDroppedAndTheRestStartAtZero) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat420YpCbCr8Planar;
    const MediaTime start = MediaTime::make(10, 1);
    ASSERT_TRUE(writer.start(out, start, {32, 16}, true, false));
    EXPECT_TRUE(writer.processAudio(QVMX::heldBackMarker()));
    EXPECT_FALSE(writer.processAudio(nullptr));
    auto picture = greyPicture(32, 16, 80);
    EXPECT_FALSE(writer.processFrame(nullptr, start));
    EXPECT_FALSE(writer.processFrame(picture.get(), MediaTime::make(9, 1)));  // before the start
    EXPECT_FALSE(writer.processFrame(picture.get(), MediaTime::invalid()));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(writer.processFrame(picture.get(), start + MediaTime::make(i, 30)));
    EXPECT_FALSE(writer.processFrame(picture.get(), start + MediaTime::make(4, 30)));  // not after the last
    QVMX::SampleBuffer sample;
    sample.channels = 2;
    sample.sampleRate = 48000;
    sample.samples.assign(2 * 4800, 1000);
    sample.presentationTime = start;
    EXPECT_TRUE(writer.processAudio(&sample));
    EXPECT_TRUE(writer.stop());
    EXPECT_FALSE(writer.isReadyForMoreFrame());
    EXPECT_FALSE(writer.stop());  // nothing left to stop

    const auto times = frameTimesOf(out);
    ASSERT_EQ(times.size(), 5u);
    EXPECT_DOUBLE_EQ(times[0], 0.0);
    EXPECT_NEAR(times[4], 4.0 / 30, 1e-6);
}

TEST(VideoWriterAppend, TheBlockFormFillsTheWritersOwnBuffers) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    QVMXVideoWriter writer;
    writer.pixelFormatType = QVMX::kPixelFormat32BGRA;
    EXPECT_EQ(writer.allcateRenderBuffer(), nullptr);  // not started
    ASSERT_TRUE(writer.start(out, MediaTime::zero(), {64, 24}, false, true));
    auto spare = writer.allcateRenderBuffer();
    ASSERT_NE(spare, nullptr);
    EXPECT_EQ(spare->width(), 64);
    EXPECT_EQ(spare->pixelFormatType(), QVMX::kPixelFormat32BGRA);
    int calls = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(writer.processFrame([&](QVMX::PixelBuffer& b) {
            ++calls;
            EXPECT_EQ(b.height(), 24);
            std::memset(b.baseAddressOfPlane(0), 0x40 * i, static_cast<size_t>(b.bytesPerRowOfPlane(0)) * 24);
            return MediaTime::make(i, 25);
        }));
    }
    LogCapture log;
    EXPECT_FALSE(writer.processFrame([&](QVMX::PixelBuffer&) { return MediaTime::make(1, 25); }));
    EXPECT_TRUE(log.contains("Problem appending pixel buffer at time: 0.040")) << log.text();
    EXPECT_FALSE(writer.processFrame(QVMXVideoWriter::RenderCallback{}));
    EXPECT_EQ(calls, 3);
    EXPECT_TRUE(writer.stop());
    EXPECT_EQ(frameTimesOf(out).size(), 3u);
}
