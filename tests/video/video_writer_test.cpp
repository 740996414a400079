// The writer: set-up failures, readiness, what it refuses, and what it wrote
// as the reader sees it again.
#include "video/video_writer.h"

#include <gtest/gtest.h>

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

TEST(VideoWriterSetup, RefusesPathsSizesAndFormatsItCannotWriteAndLeavesNoFile) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    LogCapture log;
    QVMXVideoWriter missing;
    EXPECT_FALSE(missing.start(dir.file("missing/out.mp4").string(), MediaTime::zero(), {64, 32}, false, false));
    EXPECT_TRUE(log.contains("QVMXVideoWriter::setupWriter(") && log.contains(": open failed(2)")) << log.text();
    EXPECT_FALSE(missing.isReadyForMoreFrame());
    for (const QVMX::FrameSize size : {QVMX::FrameSize{0, 32}, QVMX::FrameSize{63, 32}, QVMX::FrameSize{64, 31}}) {
        for (bool hevc : {false, true}) {
            QVMXVideoWriter writer;
            EXPECT_FALSE(writer.start(out, MediaTime::zero(), size, true, hevc)) << size.width << "x" << size.height;
        }
    }
    // Narrower than one HEVC coding unit: refused before the encoder sees it.
    QVMXVideoWriter narrow;
    EXPECT_FALSE(narrow.start(out, MediaTime::zero(), {48, 24}, false, true));
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(video) failed.")) << log.text();
    QVMXVideoWriter unknownFormat;
    unknownFormat.pixelFormatType = 0x31323334;
    EXPECT_FALSE(unknownFormat.start(out, MediaTime::zero(), {64, 32}, false, false));
    QVMXVideoWriter badAudio;
    badAudio.audioNumberOfChannels = 0;
    EXPECT_FALSE(badAudio.start(out, MediaTime::zero(), {64, 32}, true, false));
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(audio) failed.")) << log.text();
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
        EXPECT_FALSE(writer.processAudio(QVMX::heldBackMarker()));  // no audio input
        for (int i = 0; i < frames; ++i) EXPECT_TRUE(writer.processFrame(picture.get(), MediaTime::make(i, 30)));
        EXPECT_TRUE(writer.stop());
        EXPECT_EQ(testsupport::readFile(out).substr(4, 4), "ftyp");
        EXPECT_EQ(frameTimesOf(out).size(), static_cast<size_t>(frames));
    }
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
    EXPECT_FALSE(writer.stop());  // nothing left to stop

    const auto times = frameTimesOf(out);
    ASSERT_EQ(times.size(), 5u);
    EXPECT_DOUBLE_EQ(times[0], 0.0);
    EXPECT_NEAR(times[4], 4.0 / 30, 1e-6);
}
