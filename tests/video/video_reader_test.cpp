// The reader against small movies made by the ffmpeg command.
#include "video/video_reader.h"

#include "video/range_expand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "movie_fixtures.h"
#include "support/run_command.h"
#include "support/test_files.h"

using QVMX::FrameSize;
using QVMX::MediaTime;
using QVMX::MediaTimeRange;
using videotest::Fixture;
using videotest::LogCapture;
using videotest::makeMovie;

namespace {

struct FrameInfo {
    int width, height, planes;
    uint32_t format;
    double time;
    int firstLuma;
};

// Reads every frame (and no audio) the reader hands out.
std::vector<FrameInfo> readFrames(QVMXVideoReader& reader) {
    std::vector<FrameInfo> frames;
    while (reader.loadNextFrame([&](const QVMX::PixelBuffer& b, const MediaTime& t) {
        frames.push_back({b.width(), b.height(), b.planeCount(), b.pixelFormatType(), t.seconds(),
                          b.baseAddressOfPlane(0)[0]});
    })) {
    }
    return frames;
}

}  // namespace

TEST(VideoReaderDescribe, ReportsSizeDurationAndRatesAndRefusesWhatHasNoVideo) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 160;
    f.height = 80;
    f.fps = 25;
    f.sampleRate = 32000;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoReader reader;
    FrameSize size{1, 1};
    MediaTime duration;
    float rate = 0;
    ASSERT_TRUE(reader.describeSource(movie.string(), size, duration, rate));
    EXPECT_EQ(size.width, 160);
    EXPECT_EQ(size.height, 80);
    EXPECT_NEAR(duration.seconds(), 2.0, 0.05);
    EXPECT_FLOAT_EQ(rate, 25.0f);
    EXPECT_FLOAT_EQ(reader.audioSampleRate, 32000.0f);

    testsupport::writeFile(dir.file("text.mp4"), "this is not a movie");
    const auto audioOnly = dir.file("audio.m4a");
    ASSERT_EQ(testsupport::runCommand("ffmpeg -nostdin -v error -y -i " + movie.string() + " -vn -c copy " +
                                      audioOnly.string()).status, 0);
    LogCapture log;
    EXPECT_FALSE(reader.describeSource(dir.file("text.mp4").string(), size, duration, rate));
    EXPECT_FALSE(reader.describeSource(audioOnly.string(), size, duration, rate));
    EXPECT_TRUE(log.contains(": No video tracks found - " + audioOnly.string())) << log.text();
    EXPECT_EQ(size.width, 160);
    EXPECT_FALSE(reader.start(audioOnly.string(), {64, 32}));
    EXPECT_FALSE(reader.start(dir.file("text.mp4").string(), {64, 32}));
    EXPECT_TRUE(log.contains(": Failed to open " + dir.file("text.mp4").string() + ".")) << log.text();
    EXPECT_FALSE(reader.loadNextFrame(nullptr));
}

TEST(VideoReaderFrames, ArriveInEachPixelFormatWithTheirRangeScaledOrNot) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 0.5;
    f.video = "color=white:size={size}:rate={fps}";
    const auto white = makeMovie(dir.path(), "white.mp4", f);
    f.video = "color=black:size={size}:rate={fps}";
    const auto black = makeMovie(dir.path(), "black.mp4", f);
    struct Case {
        uint32_t format;
        int planes;
        int white, black;  // the first luma byte
    };
    for (const Case c : {Case{QVMX::kPixelFormat32BGRA, 1, 255, 0},
                         Case{QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange, 2, 255, 0},
                         Case{QVMX::kPixelFormat420YpCbCr8Planar, 3, 235, 16}}) {
        // The source's own size takes other conversion paths than a scaled one.
        for (const FrameSize size : {FrameSize{64, 30}, FrameSize{128, 64}}) {
            for (const auto& [movie, level] : {std::pair{white, c.white}, std::pair{black, c.black}}) {
                SCOPED_TRACE(std::to_string(c.format) + " " + std::to_string(size.width) + " " + movie.string());
                QVMXVideoReader reader;
                reader.pixelFormatType = c.format;
                ASSERT_TRUE(reader.start(movie.string(), size));
                const auto frames = readFrames(reader);
                ASSERT_EQ(frames.size(), 15u);
                EXPECT_EQ(frames[0].width, size.width);
                EXPECT_EQ(frames[0].height, size.height);
                EXPECT_EQ(frames[0].planes, c.planes);
                EXPECT_EQ(frames[0].format, c.format);
                EXPECT_NEAR(frames[0].firstLuma, level, 1);
                EXPECT_DOUBLE_EQ(frames[0].time, 0.0);
                EXPECT_NEAR(frames[14].time, 14.0 / 30, 1e-9);
            }
        }
    }
}

TEST(VideoReaderFrames, RangeExpansionFollowsTheExactScaleWithinOneStep) {
    for (int v = 0; v < 256; ++v) {
        EXPECT_NEAR(QVMX::expandLuma(uint8_t(v)), std::clamp((v - 16) * 255.0 / 219.0, 0.0, 255.0), 1.0) << v;
        EXPECT_NEAR(QVMX::expandChroma(uint8_t(v)), std::clamp(128 + (v - 128) * 255.0 / 224.0, 0.0, 255.0), 1.0) << v;
    }
    EXPECT_EQ(QVMX::expandLuma(16), 0);
    EXPECT_EQ(QVMX::expandLuma(235), 255);
    EXPECT_EQ(QVMX::expandChroma(128), 128);
}

TEST(VideoReaderFrames, ARangeDropsEverythingBeforeItsStartAndEndsAtItsEnd) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 3.0;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoReader reader;
    ASSERT_TRUE(reader.start(movie.string(), {128, 64},
                             MediaTimeRange::make(MediaTime::make(1, 1), MediaTime::makeWithSeconds(1.0, 48000))));
    std::vector<double> frameTimes, audioTimes;
    size_t samples = 0;
    int guard = 0;
    while (reader.mediaStatus() == QVMXVideoReader::kReading && ++guard < 10000) {
        reader.loadNextAudio(1.0f, [&](const QVMX::SampleBuffer* s, const MediaTime& t) {
            if (QVMX::isHeldBackMarker(s)) return;
            audioTimes.push_back(t.seconds());
            samples += s->frameCount();
        });
        reader.loadNextFrame([&](const QVMX::PixelBuffer&, const MediaTime& t) { frameTimes.push_back(t.seconds()); });
    }
    EXPECT_EQ(reader.mediaStatus(), QVMXVideoReader::kCompleted);
    ASSERT_EQ(frameTimes.size(), 30u);
    EXPECT_DOUBLE_EQ(frameTimes.front(), 1.0);
    EXPECT_LT(frameTimes.back(), 2.0);
    ASSERT_FALSE(audioTimes.empty());
    EXPECT_NEAR(audioTimes.front(), 1.0, 1.0 / 44100);
    EXPECT_NEAR(static_cast<double>(samples), 44100.0, 44100 * 0.01);
    EXPECT_TRUE(std::is_sorted(audioTimes.begin(), audioTimes.end()));
    reader.stop();
    EXPECT_EQ(reader.mediaStatus(), QVMXVideoReader::kCancelled);
}

TEST(VideoReaderAudio, IsHeldBackWhileItLeadsTheLastFrameByMoreThanTheLimit) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 3.0;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoReader reader;
    ASSERT_TRUE(reader.start(movie.string(), {128, 64}));
    double lastReal = -1, markerTime = -1;
    for (int i = 0; i < 100 && markerTime < 0; ++i) {
        ASSERT_TRUE(reader.loadNextAudio(1.0f, [&](const QVMX::SampleBuffer* s, const MediaTime& t) {
            (QVMX::isHeldBackMarker(s) ? markerTime : lastReal) = t.seconds();
        }));
    }
    // No frame was read: audio stops just past one second ahead of time zero
    // and then only the marker comes, at the time of the last real sample.
    EXPECT_GT(markerTime, 1.0);
    EXPECT_LT(markerTime, 1.2);
    EXPECT_DOUBLE_EQ(markerTime, lastReal);
    // A frame moves the video clock and lets audio go on.
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(reader.loadNextFrame(nullptr));
    double next = -1;
    EXPECT_TRUE(reader.loadNextAudio(1.0f, [&](const QVMX::SampleBuffer* s, const MediaTime& t) {
        EXPECT_FALSE(QVMX::isHeldBackMarker(s));
        next = t.seconds();
    }));
    EXPECT_GT(next, markerTime);
}

TEST(VideoReaderAudio, ReadingAheadDoesNotGrowWithTheMovie) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 64;
    f.height = 32;
    size_t most[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        f.seconds = i == 0 ? 3.0 : 12.0;
        const auto movie = makeMovie(dir.path(), "m" + std::to_string(i) + ".mp4", f);
        QVMXVideoReader reader;
        ASSERT_TRUE(reader.start(movie.string(), {64, 32}));
        // The transcoder's pattern: one audio sample and one frame per pass.
        while (reader.mediaStatus() == QVMXVideoReader::kReading) {
            reader.loadNextAudio(1.0f, nullptr);
            reader.loadNextFrame(nullptr);
            most[i] = std::max(most[i], reader.parkedPacketCount());
        }
    }
    // About a second of packets (30 frames, 47 audio packets) at most, however long.
    EXPECT_LT(most[0], 100u);
    EXPECT_LE(most[1], most[0] + 5);
}

TEST(VideoReaderBadInput, AMovieCutInsideItsMediaDataFailsWithALogLine) {
    testsupport::TempDir dir;
    Fixture f;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    const auto cut = videotest::truncated(movie, dir.file("cut.mp4"), std::filesystem::file_size(movie) * 2 / 3);
    QVMXVideoReader reader;
    LogCapture log;
    ASSERT_TRUE(reader.start(cut.string(), {128, 64}));
    int guard = 0;
    while (reader.mediaStatus() == QVMXVideoReader::kReading && ++guard < 10000) {
        reader.loadNextAudio(1.0f, nullptr);
        reader.loadNextFrame(nullptr);
    }
    EXPECT_EQ(reader.mediaStatus(), QVMXVideoReader::kFailed);
    EXPECT_TRUE(log.contains("QVMXVideoReader::loadNext")) << log.text();
    EXPECT_FALSE(reader.loadNextFrame(nullptr));
}

TEST(VideoReaderBadInput, UnusablePlaySizesAndFormatsAreRefusedAtStart) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 0.2;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    LogCapture log;
    for (const FrameSize size : {FrameSize{0, 64}, FrameSize{NAN, 64}, FrameSize{1e12, 64}}) {
        QVMXVideoReader reader;
        EXPECT_FALSE(reader.start(movie.string(), size));
    }
    QVMXVideoReader reader;
    reader.pixelFormatType = 0x12345678;
    EXPECT_FALSE(reader.start(movie.string(), {64, 32}));
    EXPECT_TRUE(log.contains("AVAssetReader#canAddOutput(video) failed.")) << log.text();
    // An odd size is fine for the reader (the writer is the one to refuse it).
    QVMXVideoReader odd;
    odd.pixelFormatType = QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange;
    ASSERT_TRUE(odd.start(movie.string(), {63, 31}));
    EXPECT_EQ(readFrames(odd).size(), 6u);
}
