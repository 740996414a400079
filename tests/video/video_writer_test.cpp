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

TEST(VideoWriter, RefusesPathsSizesAndFormatsItCannotWriteAndLeavesNoFile) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    LogCapture log;
    QVMXVideoWriter missing;
    EXPECT_FALSE(missing.start(dir.file("missing/out.mp4").string(), MediaTime::zero(), {64, 32}, false, false));
    EXPECT_TRUE(log.contains("QVMXVideoWriter::setupWriter(") && log.contains(": open failed(2)")) << log.text();
    // Odd sizes, and narrower than one HEVC coding unit.
    for (const auto& [size, hevc] : {std::pair{QVMX::FrameSize{0, 32}, false}, std::pair{QVMX::FrameSize{63, 32}, true},
                                     std::pair{QVMX::FrameSize{64, 31}, false}, std::pair{QVMX::FrameSize{48, 24}, true}}) {
        QVMXVideoWriter writer;
        EXPECT_FALSE(writer.start(out, MediaTime::zero(), size, false, hevc)) << size.width << "x" << size.height;
    }
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(video) failed.")) << log.text();
    QVMXVideoWriter badAudio;
    badAudio.audioNumberOfChannels = 0;
    EXPECT_FALSE(badAudio.start(out, MediaTime::zero(), {64, 32}, true, false));
    EXPECT_TRUE(log.contains(": AVAssetWriter#canAddInput(audio) failed.")) << log.text();
    EXPECT_FALSE(std::filesystem::exists(out));
}

// Written over an older file; frames out of place are dropped and the rest
// start at zero as the reader sees them; the writer can then start again.
TEST(VideoWriter, WhatItWritesReadsBackFromTimeZero) {
    testsupport::TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    testsupport::writeFile(out, "an older file that is much longer than its header");
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
    EXPECT_EQ(frameTimesOf(out), (std::vector<double>{0.0, 1.0 / 30, 2.0 / 30, 3.0 / 30, 4.0 / 30}));

    ASSERT_TRUE(writer.start(out, MediaTime::zero(), {32, 16}, false, false));
    EXPECT_FALSE(writer.processAudio(QVMX::heldBackMarker()));  // no audio input
    EXPECT_TRUE(writer.processFrame(picture.get(), MediaTime::zero()));
    EXPECT_TRUE(writer.stop());
    EXPECT_EQ(frameTimesOf(out).size(), 1u);
}
