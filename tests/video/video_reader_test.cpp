// The reader against small movies made by the ffmpeg command.
#include "video/video_reader.h"

#include "video/range_expand.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "movie_fixtures.h"
#include "support/test_files.h"

using QVMX::FrameSize;
using QVMX::MediaTime;
using QVMX::MediaTimeRange;
using videotest::Fixture;
using videotest::LogCapture;
using videotest::makeMovie;

namespace {

// Reads the reader out the way the transcoder does, one audio sample and one
// frame a pass; answers the frame times and calls onFrame for each frame.
std::vector<double> readAll(QVMXVideoReader& reader,
                            const std::function<void(const QVMX::PixelBuffer&)>& onFrame = nullptr,
                            const QVMXVideoReader::AudioHandler& onAudio = nullptr) {
    std::vector<double> times;
    for (int guard = 0; reader.mediaStatus() == QVMXVideoReader::kReading && guard < 10000; ++guard) {
        reader.loadNextAudio(1.0f, onAudio);
        reader.loadNextFrame([&](const QVMX::PixelBuffer& b, const MediaTime& t) {
            times.push_back(t.seconds());
            if (onFrame) onFrame(b);
        });
    }
    return times;
}

}  // namespace

TEST(VideoReader, DescribesTheSourceAndRefusesWhatIsNoMovie) {
    testsupport::TempDir dir;
    Fixture f;
    f.width = 160;
    f.fps = 25;
    f.sampleRate = 32000;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoReader reader;
    FrameSize size{1, 1};
    MediaTime duration;
    float rate = 0;
    ASSERT_TRUE(reader.describeSource(movie.string(), size, duration, rate));
    EXPECT_EQ(size.width, 160);
    EXPECT_NEAR(duration.seconds(), 2.0, 0.05);
    EXPECT_FLOAT_EQ(rate, 25.0f);
    EXPECT_FLOAT_EQ(reader.audioSampleRate, 32000.0f);

    testsupport::writeFile(dir.file("text.mp4"), "this is not a movie");
    LogCapture log;
    EXPECT_FALSE(reader.describeSource(dir.file("text.mp4").string(), size, duration, rate));
    EXPECT_FALSE(reader.start(dir.file("text.mp4").string(), {64, 32}));
    EXPECT_TRUE(log.contains(": Failed to open " + dir.file("text.mp4").string() + ".")) << log.text();
    EXPECT_FALSE(reader.loadNextFrame(nullptr));
}

// Full-range formats carry white and black at 255 and 0, the planar one at
// 235 and 16; the source's own size takes other paths than a scaled one.
TEST(VideoReader, FramesArriveInEachPixelFormatWithTheirLumaLevels) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 0.5;
    f.video = "color=white:size={size}:rate={fps}";
    const auto white = makeMovie(dir.path(), "white.mp4", f);
    f.video = "color=black:size={size}:rate={fps}";
    const auto black = makeMovie(dir.path(), "black.mp4", f);
    struct Case {
        uint32_t format;
        int white, black;
    };
    for (const Case c : {Case{QVMX::kPixelFormat32BGRA, 255, 0},
                         Case{QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange, 255, 0},
                         Case{QVMX::kPixelFormat420YpCbCr8Planar, 235, 16}}) {
        for (const FrameSize size : {FrameSize{64, 30}, FrameSize{128, 64}}) {
            for (const auto& [movie, level] : {std::pair{white, c.white}, std::pair{black, c.black}}) {
                SCOPED_TRACE(std::to_string(c.format) + " " + std::to_string(size.width) + " " + movie.string());
                QVMXVideoReader reader;
                reader.pixelFormatType = c.format;
                ASSERT_TRUE(reader.start(movie.string(), size));
                std::tuple<int, int, uint32_t> shape;
                int luma = -1;
                const auto times = readAll(reader, [&](const QVMX::PixelBuffer& b) {
                    shape = {b.width(), b.height(), b.pixelFormatType()};
                    luma = b.baseAddressOfPlane(0)[0];
                });
                EXPECT_EQ(times.size(), 15u);
                EXPECT_EQ(shape, std::tuple(int(size.width), int(size.height), c.format));
                EXPECT_NEAR(luma, level, 1);
            }
        }
    }
    // The expansion's ends and middle (chroma 16 scales to 0.5).
    EXPECT_EQ(std::tuple(QVMX::expandLuma(16), QVMX::expandLuma(235), QVMX::expandLuma(255)), std::tuple(0, 255, 255));
    EXPECT_EQ(std::tuple(QVMX::expandChroma(16), QVMX::expandChroma(128), QVMX::expandChroma(240)), std::tuple(1, 128, 255));
}

TEST(VideoReader, ARangeDropsEverythingBeforeItsStartAndEndsAtItsEnd) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 3.0;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoReader reader;
    ASSERT_TRUE(reader.start(movie.string(), {128, 64},
                             MediaTimeRange::make(MediaTime::make(1, 1), MediaTime::makeWithSeconds(1.0, 48000))));
    double firstAudio = -1;
    size_t samples = 0;
    const auto frames = readAll(reader, nullptr, [&](const QVMX::SampleBuffer* s, const MediaTime& t) {
        if (QVMX::isHeldBackMarker(s)) return;
        if (firstAudio < 0) firstAudio = t.seconds();
        samples += s->frameCount();
    });
    EXPECT_EQ(reader.mediaStatus(), QVMXVideoReader::kCompleted);
    ASSERT_EQ(frames.size(), 30u);
    EXPECT_DOUBLE_EQ(frames.front(), 1.0);
    EXPECT_NEAR(firstAudio, 1.0, 1.0 / 44100);
    EXPECT_NEAR(static_cast<double>(samples), 44100.0, 44100 * 0.01);
}

TEST(VideoReader, ReadingAheadDoesNotGrowWithTheMovie) {
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

TEST(VideoReader, ACutMovieFailsPartWayAndUnusableSizesOrFormatsAtStart) {
    testsupport::TempDir dir;
    Fixture f;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    std::string bytes = testsupport::readFile(movie);
    bytes.resize(bytes.size() * 2 / 3);
    testsupport::writeFile(dir.file("cut.mp4"), bytes);
    LogCapture log;
    QVMXVideoReader reader;
    ASSERT_TRUE(reader.start(dir.file("cut.mp4").string(), {128, 64}));
    EXPECT_FALSE(readAll(reader).empty());
    EXPECT_EQ(reader.mediaStatus(), QVMXVideoReader::kFailed);
    EXPECT_TRUE(log.contains("QVMXVideoReader::loadNext")) << log.text();

    for (const FrameSize size : {FrameSize{0, 64}, FrameSize{NAN, 64}, FrameSize{1e12, 64}}) {
        EXPECT_FALSE(QVMXVideoReader().start(movie.string(), size));
    }
    QVMXVideoReader unknownFormat;
    unknownFormat.pixelFormatType = 0x12345678;
    EXPECT_FALSE(unknownFormat.start(movie.string(), {64, 32}));
    EXPECT_TRUE(log.contains("AVAssetReader#canAddOutput(video) failed.")) << log.text();
}
